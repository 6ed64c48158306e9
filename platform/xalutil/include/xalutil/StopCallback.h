#ifndef XALUTIL_STOPCALLBACK_H
#define XALUTIL_STOPCALLBACK_H

#include <functional>
#include <memory>

namespace xalutil {

class CallbackRegistration;

/// Tells a running task that its executor is being stopped, so that it can break off what it waits for.
///
/// Made inside a task of a SingleThreadAsyncTaskExecutor, it has `onStop` called once when that executor is stopped
/// while this object lives: on the thread that stops, with no lock held, or at once by the constructor when the stop
/// was asked for before. Made anywhere else it does nothing. `onStop` must be short and must not throw.
///
/// After the destructor `onStop` is not running and does not start: it waits for a call that is running on another
/// thread. `onStop` may itself destroy the object.
class StopCallback {
public:
    explicit StopCallback(std::function<void()> onStop);
    ~StopCallback();
    StopCallback(const StopCallback&) = delete;
    StopCallback& operator=(const StopCallback&) = delete;

    /// Whether the executor whose task is running here was asked to stop; false outside of tasks.
    static bool isStopRequested();

private:
    std::unique_ptr<CallbackRegistration> m_registration;
};

} // namespace xalutil

#endif
