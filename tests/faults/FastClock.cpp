#include "FastClock.h"

#include <support/clock/Timespec.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace cdxtest::fastclock {
namespace {

using std::chrono::nanoseconds;

/// Where both clocks show the same.
nanoseconds begin() {
    static const nanoseconds time = systemClock(CLOCK_MONOTONIC);
    return time;
}

nanoseconds toFast(nanoseconds real) {
    return begin() + (real - begin()) * factor;
}

/// Never too short: a wait must not end before its time.
nanoseconds shortened(nanoseconds fast) {
    return fast.count() > 0 ? (fast + nanoseconds(factor - 1)) / factor : fast;
}

nanoseconds toReal(nanoseconds fast) {
    return begin() + shortened(fast - begin());
}

timespec* shorten(int milliseconds, timespec& room) {
    if (milliseconds < 0)
        return nullptr;
    room = toTimespec(shortened(std::chrono::milliseconds(milliseconds)));
    return &room;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::atomic<std::uint16_t> watchedPort{0};
std::mutex& attemptsMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}
std::vector<std::chrono::steady_clock::time_point> attempts; ///< guarded by attemptsMutex

} // namespace

void watchConnections(std::uint16_t port) {
    watchedPort = port;
}

std::vector<std::chrono::steady_clock::time_point> takeConnections() {
    const std::lock_guard<std::mutex> lock(attemptsMutex());
    return std::exchange(attempts, {});
}

nanoseconds processorTime() {
    return systemClock(CLOCK_PROCESS_CPUTIME_ID);
}

nanoseconds realTime() {
    return systemClock(CLOCK_MONOTONIC);
}

} // namespace cdxtest::fastclock

namespace fast = cdxtest::fastclock;

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto real = cdxtest::systemClock(clock);
    *time = cdxtest::toTimespec(clock == CLOCK_MONOTONIC ? fast::toFast(real) : real);
    return 0;
}

int timerfd_settime(int timer, int flags, const itimerspec* wanted, itimerspec* before) noexcept {
    itimerspec shortened = *wanted;
    const auto value = cdxtest::toNanoseconds(wanted->it_value);
    if (value.count() > 1) // one nanosecond is a way to say: at once
        shortened.it_value =
            cdxtest::toTimespec((flags & TFD_TIMER_ABSTIME) != 0 ? fast::toReal(value) : fast::shortened(value));
    return static_cast<int>(::syscall(SYS_timerfd_settime, timer, flags, &shortened, before));
}

int poll(pollfd* watched, nfds_t count, int milliseconds) {
    timespec room{};
    return ::ppoll(watched, count, fast::shorten(milliseconds, room), nullptr);
}

int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
    static auto* const real = fast::next<int(int, epoll_event*, int, int)>("epoll_wait");
    return real(epoll, events, most, milliseconds > 0 ? std::max(1, milliseconds / fast::factor) : milliseconds);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until) {
    static auto* const real =
        fast::next<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
    const timespec shortened =
        clock == CLOCK_MONOTONIC ? cdxtest::toTimespec(fast::toReal(cdxtest::toNanoseconds(*until))) : *until;
    return real(condition, mutex, clock, &shortened);
}

int connect(int socket, const sockaddr* address, socklen_t length) {
    sockaddr_in peer{};
    if (address->sa_family == AF_INET)
        peer = *reinterpret_cast<const sockaddr_in*>(address);
    if (peer.sin_port != 0 && ntohs(peer.sin_port) == fast::watchedPort) {
        const std::lock_guard<std::mutex> lock(fast::attemptsMutex());
        fast::attempts.push_back(std::chrono::steady_clock::now());
    }
    static auto* const real = fast::next<int(int, const sockaddr*, socklen_t)>("connect");
    return real(socket, address, length);
}
}
