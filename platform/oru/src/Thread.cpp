#include <oru/Thread.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <system_error>

namespace oru {

struct Thread::State {
    std::atomic<bool> isStopRequested{false};

    std::mutex mutex; ///< guards what follows
    std::condition_variable changed;
    bool isStarted = false;
    bool hasBegun = false;
    bool isOver = false;
    bool isReleased = false; ///< joined or detached: the handle is nobody's any more
    pthread_t handle = {};

    bool isCurrentThread() const { return isStarted && !isReleased && pthread_equal(handle, pthread_self()); }
};

namespace {

using Body = void (*)(Thread*);

/// What run() is for this object now. Once the object's destructor has begun it would be something else, and that may
/// be before the new thread gets there.
///
/// As the C++ ABI (Itanium) has it: a pointer to a virtual member is its place in a table, and an object begins with
/// the address of that table.
Body bodyOf(const Thread& thread) {
    void (Thread::*const member)() = &Thread::run;
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &member, sizeof place);
    place &= ~std::ptrdiff_t(1); // some processors mark here that the member is virtual
    const char* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&thread), sizeof table);
    Body body = nullptr;
    std::memcpy(&body, table + place, sizeof body);
    return body;
}

/// What a new thread is handed.
template <class State>
struct Start {
    Thread& thread;
    Body body;
    std::shared_ptr<State> state;
};

} // namespace

Thread::Thread() : m_state(std::make_shared<State>()) {}

Thread::~Thread() {
    bool isOnItself = false;
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        isOnItself = m_state->isCurrentThread();
    }
    if (isOnItself)
        Thread::detach();
    else
        Thread::join();
}

void* Thread::main(void* argument) {
    const std::unique_ptr<Start<State>> start(static_cast<Start<State>*>(argument));
    // From here on only the state is certain to be there: run() may destroy the thread's object.
    State& state = *start->state;
    struct AtEnd {
        State& state;
        ~AtEnd() {
            const std::lock_guard<std::mutex> lock(state.mutex);
            state.isOver = true;
            state.changed.notify_all();
        }
    };
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.hasBegun = true;
        state.changed.notify_all();
    }
    const AtEnd atEnd{state};
    start->body(&start->thread);
    return nullptr;
}

void Thread::start() {
    const std::shared_ptr<State> state = m_state; // run() may destroy this object before we are back
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->isStarted)
        throw std::logic_error("a thread can be started only once");
    auto handedOver = std::make_unique<Start<State>>(Start<State>{*this, bodyOf(*this), state});
    if (const int error = pthread_create(&state->handle, nullptr, &Thread::main, handedOver.get()))
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    static_cast<void>(handedOver.release());
    state->isStarted = true;
    // Whoever destroys the object right after start() would otherwise mostly do so before its body has begun.
    state->changed.wait(lock, [&] { return state->hasBegun; });
}

void Thread::stop() {
    m_state->isStopRequested.store(true);
}

void Thread::exit() {
    stop();
    join();
}

void Thread::join() {
    const std::shared_ptr<State> state = m_state;
    std::unique_lock<std::mutex> lock(state->mutex);
    if (!state->isStarted || state->isReleased || state->isCurrentThread())
        return;
    state->changed.wait(lock, [&] { return state->isOver; });
    if (state->isReleased)
        return;
    state->isReleased = true;
    lock.unlock();
    pthread_join(state->handle, nullptr);
}

void Thread::detach() {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    if (!m_state->isStarted || m_state->isReleased)
        return;
    m_state->isReleased = true;
    pthread_detach(m_state->handle);
}

bool Thread::isStopRequested() const {
    return m_state->isStopRequested.load();
}

} // namespace oru
