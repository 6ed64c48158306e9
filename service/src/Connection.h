#ifndef SERVICE_SRC_CONNECTION_H
#define SERVICE_SRC_CONNECTION_H

#include <chrono>
#include <exception>
#include <memory>
#include <string>

namespace cdxservice {

/// A connection as the server keeps it, whether it speaks HTTP or has become a channel. Server's thread only.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~Connection() = default;
    /// Ends itself if its time is over.
    virtual void checkTime(Time now) = 0;
    /// The server stops: the peer is told, as far as its protocol allows, and the connection ends soon.
    virtual void stop() = 0;
    /// Ends the connection now.
    virtual void close() = 0;
    /// A resource changed.
    virtual void wake() {}

    /// One too many: accepted only to say so.
    bool surplus = false;

protected:
    /// Runs a step of the connection; what it throws, memory that is short above all, ends this connection alone.
    template <class Core, class Step>
    void guarded(Core& core, Step step) {
        try {
            step();
        } catch (const std::exception& failure) {
            core.log(std::string("a connection is given up: ") + failure.what());
            close();
        }
    }
};

} // namespace cdxservice

#endif
