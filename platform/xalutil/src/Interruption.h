#ifndef XALUTIL_INTERRUPTION_H
#define XALUTIL_INTERRUPTION_H

#include <atomic>
#include <chrono>

namespace xalutil {

/// What ends a wait for a socket before the socket does: a deadline, or another thread's cancel().
class Interruption {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Throws std::system_error when the system gives no descriptor.
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// For good: every wait, also a later one, ends at once. From any thread.
    void cancel() noexcept;

    /// Throws HttpError when cancelled or when the deadline is over.
    void check(Deadline deadline) const;
    /// Waits for one of poll's `events` on the descriptor; throws like check().
    void await(int descriptor, short events, Deadline deadline) const;

private:
    const int m_event;
    std::atomic<bool> m_isCancelled{false};
};

} // namespace xalutil

#endif
