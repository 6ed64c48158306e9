#ifndef XAL_CONNECTION_H
#define XAL_CONNECTION_H

#include "EventLoop.h"
#include "ReadingClock.h"
#include "Resolver.h"
#include "Uri.h"

#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/beast/core/role.hpp>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace xal {

/// Where bytes are read. Belongs to the loop's thread.
class ByteSource {
public:
    using Error = boost::system::error_code;

    /// What is told once how an operation ended, or dropped with it.
    class Waiter {
    public:
        virtual ~Waiter() = default;
        virtual void ended(const Error& failure, std::size_t bytes) = 0;
    };

    virtual ~ByteSource() = default;
    virtual void read(boost::asio::mutable_buffer into, std::unique_ptr<Waiter> waiter) = 0;
};

/// The bytes below a channel: TCP with one of a host's addresses, with TLS where the URI asks for it. One type for
/// both, so that what is spoken above it is compiled once. Belongs to the loop's thread.
class Connection : public ByteSource {
public:
    using Duration = std::chrono::steady_clock::duration;

    /// A few buffers of a sequence, in order: who moves only some bytes needs no more.
    class Buffers {
    public:
        template <class Sequence>
        explicit Buffers(const Sequence& sequence) {
            const auto end = boost::asio::buffer_sequence_end(sequence);
            for (auto i = boost::asio::buffer_sequence_begin(sequence); i != end && m_count < m_buffers.size(); ++i)
                m_buffers[m_count++] = *i;
        }
        const boost::asio::const_buffer* begin() const { return m_buffers.data(); }
        const boost::asio::const_buffer* end() const { return m_buffers.data() + m_count; }

    private:
        std::array<boost::asio::const_buffer, 8> m_buffers;
        std::size_t m_count = 0;
    };

    static std::unique_ptr<Connection> make(EventLoop& loop, const Uri& uri, std::shared_ptr<const ReadingClock> clock);

    /// Tries the addresses one after the other, each with its share of the time, and agrees on TLS with the first that
    /// answers. `done` gets nothing, or why there is no connection; it keeps what owns the connection, and is dropped
    /// once that is closed.
    virtual void open(std::vector<Address> addresses, std::chrono::steady_clock::time_point deadline,
                      std::function<void(const std::string& failure)> done) = 0;
    /// Ends what is under way.
    virtual void close() = 0;
    /// When the last byte came, by the clock.
    virtual Duration lastReceived() = 0;

    virtual void write(const Buffers& from, std::unique_ptr<Waiter> waiter) = 0;
    /// Says that nothing more will be sent, and waits for the peer to say so.
    virtual void leave(boost::beast::role_type role, std::unique_ptr<Waiter> waiter) = 0;
};

/// A connection, and what reads it, as what is composed over them takes a stream.
class ConnectionStream {
public:
    using executor_type = boost::asio::io_context::executor_type;

    ConnectionStream(Connection& connection, ByteSource& source, executor_type executor)
        : m_connection(connection), m_source(source), m_executor(std::move(executor)) {}

    executor_type get_executor() const { return m_executor; }

    template <class Sequence, class Token>
    auto async_read_some(const Sequence& into, Token&& token) {
        return boost::asio::async_initiate<Token, void(Connection::Error, std::size_t)>(
            [this](auto&& handler, const Sequence& buffers) {
                m_source.read(firstOf(buffers), waiterOf(std::forward<decltype(handler)>(handler)));
            },
            token, into);
    }

    template <class Sequence, class Token>
    auto async_write_some(const Sequence& from, Token&& token) {
        return boost::asio::async_initiate<Token, void(Connection::Error, std::size_t)>(
            [this](auto&& handler, const Sequence& buffers) {
                m_connection.write(Connection::Buffers(buffers), waiterOf(std::forward<decltype(handler)>(handler)));
            },
            token, from);
    }

    /// Called when only the connection's end on the other side is waited for.
    std::function<void()> onLeaving;

private:
    template <class Handler>
    class HandlerWaiter final : public Connection::Waiter {
    public:
        explicit HandlerWaiter(Handler handler) : m_handler(std::move(handler)) {}
        void ended(const Connection::Error& failure, std::size_t bytes) override { m_handler(failure, bytes); }

    private:
        Handler m_handler;
    };

    template <class Handler>
    static std::unique_ptr<Connection::Waiter> waiterOf(Handler&& handler) {
        return std::make_unique<HandlerWaiter<std::decay_t<Handler>>>(std::forward<Handler>(handler));
    }

    template <class Sequence>
    static boost::asio::mutable_buffer firstOf(const Sequence& buffers) {
        const auto end = boost::asio::buffer_sequence_end(buffers);
        for (auto i = boost::asio::buffer_sequence_begin(buffers); i != end; ++i) {
            const boost::asio::mutable_buffer buffer(*i);
            if (buffer.size() > 0)
                return buffer;
        }
        return {};
    }

    // Found by the WebSocket stream in place of the library's own, which wait for the peer however long it takes.

    template <class Handler>
    friend void async_teardown(boost::beast::role_type role, ConnectionStream& stream, Handler&& handler) {
        stream.onLeaving();
        stream.m_connection.leave(
            role, waiterOf([handler = std::forward<Handler>(handler)](const Connection::Error& failure,
                                                                      std::size_t) mutable { handler(failure); }));
    }
    friend void beast_close_socket(ConnectionStream& stream) { stream.m_connection.close(); }

    Connection& m_connection;
    ByteSource& m_source;
    executor_type m_executor;
};

} // namespace xal

#endif
