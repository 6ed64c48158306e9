#include "MovableClock.h"

#include "Timespec.h"

#include <support/ComesTrue.h>
#include <support/ProcessState.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace cdxtest::movableclock {
namespace {

using std::chrono::nanoseconds;

/// Whoever waits in a call of the system looks at the clock again after this.
constexpr nanoseconds longestLook = std::chrono::milliseconds(10);

std::atomic<nanoseconds::rep> passed{0};
std::atomic<nanoseconds::rep> calendarOffset{0};

nanoseconds steadyNow() {
    return systemClock(CLOCK_MONOTONIC) + nanoseconds(passed);
}

/// What a timer of the system was set to, by the steady clock.
struct Alarm {
    nanoseconds due{0};
    bool isAwaited = false; ///< has gone off because time passed, and whoever set it did not set it again yet
};

struct Waits {
    std::mutex mutex;
    std::map<int, Alarm> alarms;       ///< by the timer's descriptor
    std::map<const void*, bool> calls; ///< of the system, and whether each has still to look at the clock

    bool areAnswered() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::none_of(alarms.begin(), alarms.end(), [](const auto& alarm) { return alarm.second.isAwaited; }) &&
               std::none_of(calls.begin(), calls.end(), [](const auto& call) { return call.second; });
    }
};

Waits& waits() {
    static Waits& all = *new Waits; // never destroyed: threads wait until the process ends
    return all;
}

/// A call that waits by the clock.
class Call {
public:
    Call() { look(); }
    ~Call() {
        const std::lock_guard<std::mutex> lock(waits().mutex);
        waits().calls.erase(this);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    nanoseconds look() {
        const std::lock_guard<std::mutex> lock(waits().mutex);
        waits().calls[this] = false;
        return steadyNow();
    }
};

int setSystemTimer(int timer, int flags, const itimerspec& wanted, itimerspec* before) {
    return static_cast<int>(::syscall(SYS_timerfd_settime, timer, flags, &wanted, before));
}

/// Sets it to when the steady clock will show what it is due at; false when there is no such timer.
bool setAgain(int timer, nanoseconds due, itimerspec* before = nullptr) {
    const itimerspec wanted{{}, toTimespec(std::max(due - nanoseconds(passed), nanoseconds(1)))};
    return setSystemTimer(timer, TFD_TIMER_ABSTIME, wanted, before) == 0;
}

void comeToRest() {
    if (!comesTrue(othersRest))
        throw std::runtime_error("the threads of this process do not come to rest");
}

} // namespace

void pass(std::chrono::milliseconds time) {
    // Whoever reads the clock twice in one step must not find that hours lie between.
    comeToRest();
    {
        const std::lock_guard<std::mutex> lock(waits().mutex);
        passed += nanoseconds(time).count();
        for (auto& [call, isToLook] : waits().calls)
            isToLook = true;
        auto& all = waits().alarms;
        for (auto alarm = all.begin(); alarm != all.end();) {
            alarm->second.isAwaited = alarm->second.due <= steadyNow();
            alarm = setAgain(alarm->first, alarm->second.due) ? std::next(alarm) : all.erase(alarm);
        }
    }
    if (!comesTrue([] { return waits().areAnswered(); }))
        throw std::runtime_error("who waits by the clock does not look at it");
    comeToRest();
}

void setCalendar(std::chrono::seconds offset) {
    comeToRest();
    calendarOffset = nanoseconds(offset).count();
}

} // namespace cdxtest::movableclock

namespace movable = cdxtest::movableclock;

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    auto now = cdxtest::systemClock(clock);
    if (clock == CLOCK_MONOTONIC || clock == CLOCK_REALTIME)
        now += movable::nanoseconds(movable::passed);
    if (clock == CLOCK_REALTIME)
        now += movable::nanoseconds(movable::calendarOffset);
    *time = cdxtest::toTimespec(now);
    return 0;
}

int timerfd_settime(int timer, int flags, const itimerspec* wanted, itimerspec* before) noexcept {
    const std::lock_guard<std::mutex> lock(movable::waits().mutex);
    const auto value = cdxtest::toNanoseconds(wanted->it_value);
    if (value.count() == 0) {
        movable::waits().alarms.erase(timer);
        return movable::setSystemTimer(timer, flags, *wanted, before);
    }
    const bool isAbsolute = (flags & TFD_TIMER_ABSTIME) != 0;
    const auto due = isAbsolute ? value : movable::steadyNow() + value;
    movable::waits().alarms[timer] = {due, false};
    return movable::setAgain(timer, due, before) ? 0 : -1;
}

int poll(pollfd* watched, nfds_t count, int milliseconds) {
    if (milliseconds < 0)
        return ::ppoll(watched, count, nullptr, nullptr);
    movable::Call call;
    auto now = call.look();
    const auto until = now + std::chrono::milliseconds(milliseconds);
    for (;;) {
        const timespec room =
            cdxtest::toTimespec(std::clamp(until - now, movable::nanoseconds(0), movable::longestLook));
        const int ready = ::ppoll(watched, count, &room, nullptr);
        now = call.look();
        if (ready != 0 || now >= until)
            return ready;
    }
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until) {
    using Wait = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static auto* const systems = reinterpret_cast<Wait*>(::dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    if (clock != CLOCK_MONOTONIC)
        return systems(condition, mutex, clock, until);
    movable::Call call;
    const auto due = cdxtest::toNanoseconds(*until);
    const auto look = std::min(due - movable::nanoseconds(movable::passed),
                               cdxtest::systemClock(CLOCK_MONOTONIC) + movable::longestLook);
    const timespec systemsUntil = cdxtest::toTimespec(look);
    const int result = systems(condition, mutex, clock, &systemsUntil);
    // Woken for no reason, as far as the caller can tell: it looks whether what it waits for is there.
    return result == ETIMEDOUT && call.look() < due ? 0 : result;
}
}
