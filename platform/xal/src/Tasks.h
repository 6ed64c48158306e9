#ifndef XAL_TASKS_H
#define XAL_TASKS_H

#include <xalutil/TaskExecutor.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>

namespace xal {

/// The task executor as the framework uses it: the one thread on which everything an application sees runs.
class Tasks {
public:
    explicit Tasks(std::shared_ptr<xalutil::ITaskExecutor> executor);

    /// Exactly one of both runs, once: `run` as a task, or `dropped`, on whatever thread, when the executor drops the
    /// task. Neither throws to the caller. Throws std::bad_alloc where memory does not suffice for the task: then none
    /// of both runs.
    void post(std::function<void()> run, std::function<void()> dropped = {});
    /// Lets the executor's logger have what a handler threw, where it cannot be thrown to it.
    void report(const std::string& text);

    /// Whether the caller is one of the executor's tasks; one of this framework's, where the executor cannot tell.
    bool isHere() const;
    /// Whether the executor drops its tasks. Exact when asked by one of its tasks.
    bool isStopped();

private:
    std::shared_ptr<xalutil::ITaskExecutor> m_executor;
    const xalutil::SingleThreadAsyncTaskExecutor* m_known; ///< the same, where it knows its own thread
};

/// What a handler threw, in one line: `where`, and the reason where there is one. Inside a catch clause only.
std::string describeThrown(const std::string& where);

} // namespace xal

#endif
