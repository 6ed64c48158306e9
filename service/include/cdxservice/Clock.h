#ifndef SERVICE_INCLUDE_CDXSERVICE_CLOCK_H
#define SERVICE_INCLUDE_CDXSERVICE_CLOCK_H

#include <chrono>

namespace cdxservice {

/// What the service takes the time from, so that a test can hold it still and move it.
///
/// Both operations are called on the server's thread; an implementation that is moved from another thread synchronises
/// itself. The defaults are the machine's clocks.
class Clock {
public:
    virtual ~Clock();

    /// The calendar: milliseconds since 1970. May be set back and forward; only what "timestamp" is compared with.
    virtual std::chrono::milliseconds sinceEpoch() const;

    /// Never goes back: what time-outs are measured with.
    virtual std::chrono::steady_clock::time_point steady() const;
};

} // namespace cdxservice

#endif
