#ifndef CDXTESTS_SUPPORT_CLOCK_TIMESPEC_H
#define CDXTESTS_SUPPORT_CLOCK_TIMESPEC_H

#include <chrono>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace cdxtest {

inline std::chrono::nanoseconds toNanoseconds(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

inline timespec toTimespec(std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {seconds.count(), (time - seconds).count()};
}

/// What the system says, whatever stands before its function in this program.
inline std::chrono::nanoseconds systemClock(clockid_t clock) {
    timespec time{};
    ::syscall(SYS_clock_gettime, clock, &time);
    return toNanoseconds(time);
}

} // namespace cdxtest

#endif
