#ifndef XAL_TELLING_H
#define XAL_TELLING_H

#include "Persist.h"

#include <xalutil/StopCallback.h>

#include <stdexcept>

namespace xal {

/// What leads to an application's handler on this thread, from its begin until detail::handlerBegins().
class Telling {
public:
    Telling() noexcept;
    ~Telling();
    Telling(const Telling&) = delete;
    Telling& operator=(const Telling&) = delete;

    static bool hasHandlerBegun() noexcept;

private:
    const bool m_before; ///< a handler may lead to another one
};

/// Runs `tell`, which leads to an application's handler. Where memory is short before the handler begins, it is run
/// again until there is some, until the executor is stopped or `isOver`: what an application is told must not be lost
/// for a shortage. What the handler itself throws is its own.
template <class Function, class IsOver>
void tellOnce(const Function& tell, const IsOver& isOver) {
    for (;;) {
        const Telling telling;
        try {
            return tell();
        } catch (const std::bad_alloc&) {
            if (Telling::hasHandlerBegun() || xalutil::StopCallback::isStopRequested() || isOver())
                throw;
        }
        std::this_thread::sleep_for(pauseWithoutMemory);
    }
}

/// Builds an object of an application's class. What wants more memory than there is, tried a few times, or than there
/// could be, cannot be used, and must not hold up what can: std::runtime_error.
template <class Build>
auto buildOrRefuse(const Build& build) -> decltype(build()) {
    constexpr int tries = 5;
    for (int i = 1;; ++i) {
        try {
            return build();
        } catch (const std::bad_array_new_length&) {
            throw std::runtime_error("its construction asked for a length that is none");
        } catch (const std::bad_alloc&) {
            if (i == tries)
                throw std::runtime_error("no memory for it");
        }
        std::this_thread::sleep_for(pauseWithoutMemory);
    }
}

} // namespace xal

#endif
