#ifndef XAL_TELLING_H
#define XAL_TELLING_H

#include "Persist.h"

#include <xalutil/StopCallback.h>

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
/// again until there is some, `most` times at most and until the executor is stopped: what an application is told must
/// not be lost for a moment's shortage. What the handler itself throws is its own.
template <class Function>
void tellOnce(const Function& tell, int most = 100) {
    for (int i = 1;; ++i) {
        const Telling telling;
        try {
            return tell();
        } catch (const std::bad_alloc&) {
            if (Telling::hasHandlerBegun() || i == most || xalutil::StopCallback::isStopRequested())
                throw;
        }
        std::this_thread::sleep_for(pauseWithoutMemory);
    }
}

} // namespace xal

#endif
