#ifndef XALUTIL_SIGPIPEGUARD_H
#define XALUTIL_SIGPIPEGUARD_H

#include <csignal>
#include <optional>

namespace xalutil {

/// Keeps a write to a closed connection from raising SIGPIPE, on this thread and while it lives: OpenSSL writes without
/// the flag that would. Where the signal was blocked anyway, nothing changes.
class SigpipeGuard {
public:
    explicit SigpipeGuard(bool isNeeded);
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    std::optional<sigset_t> m_former; ///< set while this guard is what blocks the signal
};

} // namespace xalutil

#endif
