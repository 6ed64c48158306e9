#ifndef CDXMOROCLIENT_COPYCALL_H
#define CDXMOROCLIENT_COPYCALL_H

#include <functional>
#include <utility>

namespace zepclient {

/// Calls a handler, unless it is empty, through a copy: the original may be replaced or destroyed while it runs.
template <class... Parameters, class... Arguments>
void callCopyOf(const std::function<void(Parameters...)>& handler, Arguments&&... arguments) {
    if (const auto copy = handler)
        copy(std::forward<Arguments>(arguments)...);
}

} // namespace zepclient

#endif
