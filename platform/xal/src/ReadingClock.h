#ifndef XAL_READINGCLOCK_H
#define XAL_READINGCLOCK_H

#include <chrono>

namespace xal {

/// Counts time only while it runs.
class ReadingClock {
public:
    using Clock = std::chrono::steady_clock;

    void start() {
        if (!m_isRunning)
            m_since = Clock::now();
        m_isRunning = true;
    }
    void stop() {
        m_before = now();
        m_isRunning = false;
    }
    bool isRunning() const { return m_isRunning; }
    Clock::duration now() const { return m_isRunning ? m_before + (Clock::now() - m_since) : m_before; }

private:
    Clock::duration m_before{0};
    Clock::time_point m_since;
    bool m_isRunning = false;
};

} // namespace xal

#endif
