#ifndef XAL_PERSIST_H
#define XAL_PERSIST_H

#include <chrono>
#include <new>
#include <thread>

namespace xal {

/// How long whoever waits for memory waits before asking again.
constexpr std::chrono::milliseconds pauseWithoutMemory(50);

/// Runs `function` until memory suffices for it: for what must happen where nobody could be told that it does not.
/// Gives up, and says so with false, once `isOver`: nobody waits for it any more.
template <class Function, class IsOver>
bool persist(const Function& function, const IsOver& isOver) {
    for (;;) {
        try {
            function();
            return true;
        } catch (const std::bad_alloc&) {
            if (isOver())
                return false;
            std::this_thread::sleep_for(pauseWithoutMemory);
        }
    }
}

/// The same for what nobody ends.
template <class Function>
void persist(const Function& function) {
    persist(function, [] { return false; });
}

/// The same for whoever closes, and would rather not wait for ever.
template <class Function>
bool persistForASecond(const Function& function) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    return persist(function, [end] { return std::chrono::steady_clock::now() >= end; });
}

} // namespace xal

#endif
