#ifndef XAL_PERSIST_H
#define XAL_PERSIST_H

#include <chrono>
#include <new>
#include <thread>

namespace xal {

/// How long whoever waits for memory waits before asking again.
constexpr std::chrono::milliseconds pauseWithoutMemory(50);

/// Runs `function` until memory suffices for it: for what must happen where nobody could be told that it does not.
template <class Function>
auto persist(Function function) -> decltype(function()) {
    for (;;) {
        try {
            return function();
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(pauseWithoutMemory);
        }
    }
}

} // namespace xal

#endif
