#ifndef SERVICE_SRC_CONNECTION_H
#define SERVICE_SRC_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>

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
    /// About the memory that requests not yet whole and answers not yet taken hold, beyond what every connection has.
    virtual std::size_t held() const = 0;
    /// When the peer last gave or took what it holds memory with.
    Time lastProgress() const { return m_lastProgress; }

    /// What it held when all were last weighed.
    std::size_t weight = 0;

    /// One too many: accepted only to say so.
    bool surplus = false;

protected:
    template <class Core>
    void progress(Core& core) {
        m_lastProgress = core.now();
    }

    /// What a connection keeps for its buffers; only more than that is held.
    static constexpr std::size_t ownBuffer = 4096;
    static std::size_t beyondOwn(std::size_t bytes) { return bytes > ownBuffer ? bytes - ownBuffer : 0; }

    /// Runs a step of the connection; what it throws, memory that is short above all, ends this connection alone.
    template <class Core, class Step>
    void guarded(Core& core, Step step) {
        try {
            step();
        } catch (const std::exception& failure) {
            close();
            core.logFailure("a connection is given up", failure);
        }
    }

private:
    Time m_lastProgress = {};
};

} // namespace cdxservice

#endif
