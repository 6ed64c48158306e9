#ifndef CDXTESTS_SERVICE_MANUALCLOCK_H
#define CDXTESTS_SERVICE_MANUALCLOCK_H

#include <cdxservice/Clock.h>

#include <atomic>

/// Clocks that stand still until a test moves them.
class ManualClock : public cdxservice::Clock {
public:
    std::chrono::milliseconds sinceEpoch() const override { return std::chrono::milliseconds(m_epochMs); }
    std::chrono::steady_clock::time_point steady() const override {
        return std::chrono::steady_clock::time_point(std::chrono::milliseconds(m_steadyMs));
    }

    void setCalendar(std::int64_t ms) { m_epochMs = ms; }
    void advance(std::chrono::milliseconds by) {
        m_epochMs += by.count();
        m_steadyMs += by.count();
    }

private:
    std::atomic<std::int64_t> m_epochMs = 1'700'000'000'000;
    std::atomic<std::int64_t> m_steadyMs = 1'000'000;
};

#endif
