#include "CallbackList.h"
#include "ExitHandler.h"

#include <xalutil/ProcessEnd.h>
#include <xalutil/StopCallback.h>
#include <xalutil/TaskExecutor.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <list>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <utility>

namespace xalutil {

namespace {

constexpr std::chrono::seconds longestWaitAtExit(1);
constexpr std::size_t longestThreadName = 15;

/// The stop callbacks of the executor whose thread this is.
thread_local const std::shared_ptr<CallbackList>* stopCallbacksHere = nullptr;

} // namespace

ITaskExecutor::~ITaskExecutor() = default;

/// What the executor shares with its thread, which may outlive it.
struct SingleThreadAsyncTaskExecutor::State {
    const std::unique_ptr<ILogger> logger;
    const std::shared_ptr<CallbackList> stopCallbacks = std::make_shared<CallbackList>();
    std::unique_ptr<CallbackRegistration> atExit; ///< fixed once the executor is made

    std::mutex mutex; ///< guards what follows; not held while foreign code runs or is destroyed
    std::condition_variable hasWork;
    std::condition_variable hasEnded;
    std::list<std::function<void()>> tasks; ///< a list, which is made without memory: stopping must not fail
    bool isStopping = false;
    bool isOver = false;
    std::thread thread;

    explicit State(std::unique_ptr<ILogger> itsLogger) : logger(std::move(itsLogger)) {}

    bool isOwnThread() const { return stopCallbacksHere == &stopCallbacks; }

    void run() {
        stopCallbacksHere = &stopCallbacks;
        std::function<void()> task;
        while (takeNextTask(task)) {
            runTask(task);
            task = nullptr;
        }
        stopCallbacksHere = nullptr;
        const std::lock_guard<std::mutex> lock(mutex);
        isOver = true;
        hasEnded.notify_all();
    }

    /// False once there is none any more.
    bool takeNextTask(std::function<void()>& task) {
        std::unique_lock<std::mutex> lock(mutex);
        hasWork.wait(lock, [this] { return isStopping || !tasks.empty(); });
        if (isStopping)
            return false;
        task = std::move(tasks.front());
        tasks.pop_front();
        return true;
    }

    void runTask(const std::function<void()>& task) const {
        try {
            task();
        } catch (const std::exception& failure) {
            report(failure.what());
        } catch (...) {
            report("something that is no std::exception");
        }
    }

    void report(const std::string& what) const {
        try {
            logger->error("a task threw: " + what);
        } catch (...) {
            reportShortage();
        }
    }

    void reportShortage() const {
        try {
            logger->error("out of memory"); // so short that no memory is needed for it
        } catch (...) {
            // The executor goes on even where the logger cannot.
        }
    }

    void requestStop() {
        std::list<std::function<void()>> dropped;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isStopping = true;
            dropped.swap(tasks);
            hasWork.notify_one();
        }
        stopCallbacks->callAll();
    }

    void awaitEnd() {
        std::unique_lock<std::mutex> lock(mutex);
        if (!isProcessEnding())
            hasEnded.wait(lock, [this] { return isOver; });
        releaseThread(lock);
    }

    void awaitEndAtExit() {
        std::unique_lock<std::mutex> lock(mutex);
        hasEnded.wait_for(lock, longestWaitAtExit, [this] { return isOver; });
        releaseThread(lock);
    }

    void releaseThread(std::unique_lock<std::mutex>& lock) {
        std::thread released = std::move(thread);
        const bool canJoin = isOver && !isOwnThread();
        lock.unlock();
        if (!released.joinable())
            return;
        if (canJoin)
            released.join();
        else
            released.detach();
    }
};

SingleThreadAsyncTaskExecutor::SingleThreadAsyncTaskExecutor(const std::string& name, std::unique_ptr<ILogger> logger) {
    if (!logger)
        logger = LoggerFactory::getDefaultLoggerFactory()->createLogger(name);
    m_state = std::make_shared<State>(std::move(logger));
    if (isProcessEnding()) {
        m_state->isStopping = m_state->isOver = true;
        return;
    }
    m_state->atExit = exithandler::registerExecutor([weak = std::weak_ptr<State>(m_state)] {
        const std::shared_ptr<State> state = weak.lock();
        if (!state)
            return;
        state->requestStop();
        if (!state->isOwnThread())
            state->awaitEndAtExit();
    });
    m_state->thread = std::thread([state = m_state] { state->run(); });
    pthread_setname_np(m_state->thread.native_handle(), name.substr(0, longestThreadName).c_str());
}

SingleThreadAsyncTaskExecutor::~SingleThreadAsyncTaskExecutor() {
    stop();
    if (m_state->isOwnThread()) {
        std::unique_lock<std::mutex> lock(m_state->mutex);
        m_state->releaseThread(lock);
    }
}

void SingleThreadAsyncTaskExecutor::execute(std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        if (!m_state->isStopping) {
            m_state->tasks.push_back(std::move(task));
            m_state->hasWork.notify_one();
            return;
        }
    }
    // Dropped before the return, so that whoever waits for the task is told by then.
    task = nullptr;
}

void SingleThreadAsyncTaskExecutor::stop() {
    const std::shared_ptr<State> state = m_state; // a dropped task may hold the last reference to this executor
    state->requestStop();
    if (!state->isOwnThread())
        state->awaitEnd();
}

StopCallback::StopCallback(std::function<void()> onStop) {
    if (stopCallbacksHere != nullptr)
        m_registration = std::make_unique<CallbackRegistration>(*stopCallbacksHere, std::move(onStop));
}

StopCallback::~StopCallback() = default;

bool StopCallback::isStopRequested() {
    return stopCallbacksHere != nullptr && (*stopCallbacksHere)->isCalled();
}

bool SingleThreadAsyncTaskExecutor::isRunningHere() const {
    return m_state->isOwnThread();
}

} // namespace xalutil
