#ifndef CDXTESTS_SUPPORT_EVENT_H
#define CDXTESTS_SUPPORT_EVENT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace cdxtest {

/// Something that happens once, on whatever thread, and that others wait for.
class Event {
public:
    void set() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isSet = true;
        m_changed.notify_all();
    }

    /// Waits for it; false when it did not happen in time.
    bool await(std::chrono::milliseconds within = std::chrono::milliseconds(10'000)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, within, [this] { return m_isSet; });
    }

    bool isSet() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_isSet;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isSet = false;
};

} // namespace cdxtest

#endif
