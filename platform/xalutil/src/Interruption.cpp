#include "Interruption.h"

#include <xalutil/HttpSession.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace xalutil {

namespace {

int makeEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0)
        throw std::system_error(errno, std::generic_category(), "cannot make an HTTP session");
    return event;
}

int millisecondsUntil(Interruption::Deadline deadline) {
    using std::chrono::milliseconds;
    constexpr milliseconds longest(60'000); // whoever waits longer asks again
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp(left, milliseconds::zero(), longest).count());
}

} // namespace

Interruption::Interruption() : m_event(makeEvent()) {}

Interruption::~Interruption() {
    ::close(m_event);
}

void Interruption::cancel() noexcept {
    m_isCancelled = true;
    const std::uint64_t once = 1;
    // It cannot fail but by being full, and then it is readable already.
    const auto written = ::write(m_event, &once, sizeof once);
    static_cast<void>(written);
}

void Interruption::check(Deadline deadline) const {
    if (m_isCancelled)
        throw HttpError(0, "cancelled");
    if (std::chrono::steady_clock::now() >= deadline)
        throw HttpError(0, "timed out");
}

void Interruption::await(int descriptor, short events, Deadline deadline) const {
    for (;;) {
        check(deadline);
        pollfd watched[] = {{descriptor, events, 0}, {m_event, POLLIN, 0}};
        if (::poll(watched, 2, millisecondsUntil(deadline)) < 0 && errno != EINTR)
            throw HttpError(0, "cannot wait for the connection: " + std::generic_category().message(errno));
        if (watched[0].revents != 0)
            return;
    }
}

} // namespace xalutil
