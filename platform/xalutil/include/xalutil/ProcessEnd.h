#ifndef XALUTIL_PROCESSEND_H
#define XALUTIL_PROCESSEND_H

#include <functional>
#include <memory>

namespace xalutil {

class CallbackRegistration;

/// What still has to be ended when the process exits without having been stopped.
///
/// The first executor or ProcessEndHook made registers an exit handler, which therefore runs before any older static
/// object goes. It stops every executor still running, waiting at most a second for each, then calls the hooks,
/// youngest first. In a child process that was forked it does nothing: the threads are not there.
///
/// Made by whoever owns threads. `atEnd` runs on the exiting thread, with no lock held; it ends the threads, is bounded
/// in time and does not throw. After the destructor it is not running and does not start: the destructor waits for a
/// call that is running on another thread. A hook made after the handler ran is called at once by its constructor.
class ProcessEndHook {
public:
    explicit ProcessEndHook(std::function<void()> atEnd);
    ~ProcessEndHook();
    ProcessEndHook(const ProcessEndHook&) = delete;
    ProcessEndHook& operator=(const ProcessEndHook&) = delete;

private:
    std::unique_ptr<CallbackRegistration> m_registration;
};

/// Whether the exit handler has stopped the executors: from then on nobody waits for another thread any more.
bool isProcessEnding() noexcept;

} // namespace xalutil

#endif
