#ifndef XALUTIL_CALLBACKLIST_H
#define XALUTIL_CALLBACKLIST_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace xalutil {

/// Callbacks that are waiting for one event, which happens once. Each is called at most once, with no lock held.
class CallbackList {
public:
    struct Entry {
        std::function<void()> call;
        bool isRunning = false;
        std::thread::id runner = {};
    };

    /// Calls all entries, youngest first; what is added from now on is called at once.
    void callAll();
    bool isCalled() const;

private:
    friend class CallbackRegistration;

    std::shared_ptr<Entry> add(std::function<void()> call);
    /// Afterwards the entry is not running, unless on this very thread, and does not start.
    void remove(const std::shared_ptr<Entry>& entry);

    mutable std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_returned;
    std::vector<std::shared_ptr<Entry>> m_waiting;
    bool m_isCalled = false;
};

/// An entry of a CallbackList for as long as this object lives.
class CallbackRegistration {
public:
    CallbackRegistration(std::shared_ptr<CallbackList> list, std::function<void()> call);
    ~CallbackRegistration();
    CallbackRegistration(const CallbackRegistration&) = delete;
    CallbackRegistration& operator=(const CallbackRegistration&) = delete;

private:
    std::shared_ptr<CallbackList> m_list;
    std::shared_ptr<CallbackList::Entry> m_entry;
};

} // namespace xalutil

#endif
