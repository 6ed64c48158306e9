#include "EventLoopContext.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <pthread.h>

namespace xal {
namespace {

constexpr std::size_t longestThreadName = 15;
constexpr std::chrono::milliseconds pauseBetweenRecoveries(50);

} // namespace

EventLoop::EventLoop() : m_context(std::make_unique<Context>()) {}

EventLoop::~EventLoop() {
    // The thread keeps its loop alive, so that this is the thread itself, or it has nothing more to do.
    if (m_context->thread.joinable())
        m_context->thread.detach();
}

std::shared_ptr<EventLoop> EventLoop::start(const std::string& threadName,
                                            std::function<void(const std::string&)> onFailure) {
    std::shared_ptr<EventLoop> loop(new EventLoop);
    const std::lock_guard<std::mutex> lock(loop->m_context->mutex);
    loop->m_context->thread = std::thread([loop, threadName, onFailure = std::move(onFailure)] {
        ::pthread_setname_np(::pthread_self(), threadName.substr(0, longestThreadName).c_str());
        loop->run(onFailure);
    });
    return loop;
}

void EventLoop::run(const std::function<void(const std::string&)>& onFailure) {
    boost::asio::io_context& io = m_context->io;
    const auto keepOn = [&](auto runSome) {
        for (;;) {
            try {
                runSome();
                return;
            } catch (const std::exception& e) {
                recover(onFailure, e.what());
            } catch (...) {
                recover(onFailure, "what is no std::exception");
            }
        }
    };
    keepOn([&io] { io.run(); });
    {
        const std::lock_guard<std::mutex> lock(m_context->mutex);
        m_context->isEnding = true;
    }
    // What was posted while the loop ended must not stay: it may keep alive what keeps the loop alive.
    io.restart();
    keepOn([&io] { io.poll(); });
    {
        const std::lock_guard<std::mutex> lock(m_context->mutex);
        m_context->isOver = true;
        m_context->ended.notify_all();
    }
}

void EventLoop::recover(const std::function<void(const std::string&)>& onFailure, const char* what) {
    // What failed is mostly memory, and recovering needs some too: it may have to wait for it.
    for (;;) {
        try {
            return onFailure(what);
        } catch (...) {
            {
                const std::lock_guard<std::mutex> lock(m_context->mutex);
                if (!m_context->guard)
                    return;
            }
            std::this_thread::sleep_for(pauseBetweenRecoveries);
        }
    }
}

void EventLoop::post(std::function<void()> function) {
    const std::lock_guard<std::mutex> lock(m_context->mutex);
    if (!m_context->isEnding)
        boost::asio::post(m_context->io, std::move(function));
}

void EventLoop::finish() {
    const std::lock_guard<std::mutex> lock(m_context->mutex);
    m_context->guard.reset();
}

void EventLoop::stop() {
    finish();
    m_context->io.stop();
}

bool EventLoop::isHere() const {
    const std::lock_guard<std::mutex> lock(m_context->mutex);
    return m_context->thread.get_id() == std::this_thread::get_id();
}

bool EventLoop::awaitEnd(std::chrono::milliseconds atMost) {
    if (isHere())
        return false;
    std::thread ended;
    {
        std::unique_lock<std::mutex> lock(m_context->mutex);
        if (!m_context->ended.wait_for(lock, atMost, [&] { return m_context->isOver; }))
            return false;
        ended.swap(m_context->thread);
    }
    if (ended.joinable())
        ended.join();
    return true;
}

struct EventLoop::Timer::State {
    explicit State(boost::asio::io_context& io) : timer(io) {}

    boost::asio::steady_timer timer;
    std::function<void()> function;
    unsigned generation = 0; ///< a function that is already on its way when it is cancelled must not run
};

EventLoop::Timer::Timer(EventLoop& loop) : m_state(std::make_shared<State>(loop.context().io)) {}
EventLoop::Timer::~Timer() {
    cancel();
}

void EventLoop::Timer::start(std::chrono::steady_clock::duration delay, std::function<void()> function) {
    const unsigned generation = ++m_state->generation;
    m_state->function = std::move(function);
    m_state->timer.expires_after(delay);
    try {
        m_state->timer.async_wait([state = m_state, generation](const boost::system::error_code&) {
            if (state->generation != generation)
                return;
            const auto run = std::move(state->function);
            state->function = nullptr;
            if (run)
                run();
        });
    } catch (...) {
        m_state->function = nullptr; // it may keep alive what this timer belongs to
        throw;
    }
}

void EventLoop::Timer::cancel() {
    ++m_state->generation;
    m_state->function = nullptr;
    m_state->timer.cancel();
}

} // namespace xal
