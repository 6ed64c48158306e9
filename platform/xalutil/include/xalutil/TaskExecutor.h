#ifndef XALUTIL_TASKEXECUTOR_H
#define XALUTIL_TASKEXECUTOR_H

#include <xalutil/Logger.h>

#include <functional>
#include <memory>
#include <string>

namespace xalutil {

/// Runs tasks, somewhere and sometime after execute() was called.
class ITaskExecutor {
public:
    virtual ~ITaskExecutor();
    /// Never blocks and never runs the task before it returns. After stop() the task is dropped.
    virtual void execute(std::function<void()> task) = 0;
    virtual void stop() = 0;
};

/// Runs its tasks one at a time, in order, on one thread that bears its name (the first 15 characters: the system
/// allows no more). A task that throws is logged as an error, and the thread goes on.
///
/// stop() lets the running task end, drops the rest and joins the thread; called from one of its own tasks it returns
/// at once, and the thread ends after that task. The destructor stops, and may run on the executor's own thread. A
/// dropped task is destroyed outside the executor's locks, by stop() or by the execute() that came too late. A running
/// task learns of the stop through a StopCallback; an HttpSession's exchange does so by itself.
///
/// When the process exits, every executor still running is stopped, each waited for at most a second, before any older
/// static object goes; from then on stop() waits for nobody, and a new executor drops all its tasks.
class SingleThreadAsyncTaskExecutor : public ITaskExecutor {
public:
    /// `logger` takes what tasks throw; empty: the default logger factory's logger for `name`. Throws std::system_error
    /// when the system gives no thread.
    SingleThreadAsyncTaskExecutor(const std::string& name, std::unique_ptr<ILogger> logger);
    ~SingleThreadAsyncTaskExecutor() override;
    SingleThreadAsyncTaskExecutor(const SingleThreadAsyncTaskExecutor&) = delete;
    SingleThreadAsyncTaskExecutor& operator=(const SingleThreadAsyncTaskExecutor&) = delete;

    void execute(std::function<void()> task) override;
    void stop() override;
    /// Whether the caller is one of this executor's tasks.
    bool isRunningHere() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace xalutil

#endif
