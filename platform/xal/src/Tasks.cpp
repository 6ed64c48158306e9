#include "Tasks.h"

#include <atomic>
#include <new>
#include <stdexcept>

namespace xal {
namespace {

thread_local const xalutil::ITaskExecutor* executorHere = nullptr;

class Here {
public:
    explicit Here(const xalutil::ITaskExecutor* executor) : m_before(executorHere) { executorHere = executor; }
    ~Here() { executorHere = m_before; }
    Here(const Here&) = delete;
    Here& operator=(const Here&) = delete;

private:
    const xalutil::ITaskExecutor* m_before;
};

struct Task {
    std::function<void()> run;
    std::function<void()> dropped;
    const xalutil::ITaskExecutor* executor = nullptr;

    ~Task() {
        if (dropped)
            dropped();
    }
};

} // namespace

Tasks::Tasks(std::shared_ptr<xalutil::ITaskExecutor> executor)
    : m_executor(std::move(executor)),
      m_known(dynamic_cast<const xalutil::SingleThreadAsyncTaskExecutor*>(m_executor.get())) {
    if (!m_executor)
        throw std::invalid_argument("a service registry needs a task executor");
}

void Tasks::post(std::function<void()> run, std::function<void()> dropped) {
    const auto task = std::make_shared<Task>();
    task->run = std::move(run);
    task->dropped = std::move(dropped);
    task->executor = m_executor.get();
    try {
        m_executor->execute([task] {
            task->dropped = nullptr;
            const auto itsRun = std::move(task->run);
            const Here here(task->executor);
            itsRun();
        });
    } catch (const std::bad_alloc&) {
        task->dropped = nullptr;
        throw;
    } catch (...) {
        // Not taken: the task goes, and with it comes the call of `dropped`.
    }
}

void Tasks::report(const std::string& text) {
    post([text] { throw std::runtime_error(text); });
}

bool Tasks::isHere() const {
    return executorHere == m_executor.get() || (m_known != nullptr && m_known->isRunningHere());
}

bool Tasks::isStopped() {
    const auto dropped = std::make_shared<std::atomic<bool>>(false);
    post([] {}, [dropped] { *dropped = true; });
    return *dropped;
}

std::string describeThrown(const std::string& where) {
    try {
        throw;
    } catch (const std::exception& e) {
        return where + " threw: " + e.what();
    } catch (...) {
        return where + " threw what is no std::exception";
    }
}

} // namespace xal
