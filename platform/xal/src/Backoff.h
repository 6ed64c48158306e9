#ifndef XAL_BACKOFF_H
#define XAL_BACKOFF_H

#include <chrono>
#include <functional>

namespace xal {

/// How long to wait before the next attempt to connect. The n-th delay is drawn evenly from the upper half of
/// min(5 s, 200 ms * 2^n): many clients that lost one service at the same moment do not all return at the same moment.
class Backoff {
public:
    /// `random` gives numbers from [0, 1); empty: a generator of its own, seeded by the system.
    explicit Backoff(std::function<double()> random = {});

    /// What to wait after a failed attempt or a loss.
    std::chrono::microseconds next();
    /// Only a connection that lasted counts as proof that the service is well: one that accepts and closes at once is
    /// to meet growing delays.
    void noteConnection(std::chrono::steady_clock::duration lasted);

private:
    std::function<double()> m_random;
    int m_failures = 0;
};

} // namespace xal

#endif
