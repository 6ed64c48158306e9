#include "Connection.h"

#include "EventLoopContext.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/beast/websocket/teardown.hpp>

#include <algorithm>
#include <limits>
#include <unistd.h>

namespace xal {
namespace {

namespace beast = boost::beast;
namespace net = boost::asio;
using Tcp = net::ip::tcp;
using Error = Connection::Error;
using std::chrono::steady_clock;

/// Sits where a stream may limit its rate, and only notes when the last byte came.
class SignsOfLife {
public:
    explicit SignsOfLife(std::shared_ptr<const ReadingClock> clock) : m_clock(std::move(clock)) {}
    Connection::Duration last() const { return m_last; }

private:
    friend class beast::rate_policy_access;
    static std::size_t available_read_bytes() { return std::numeric_limits<std::size_t>::max(); }
    static std::size_t available_write_bytes() { return std::numeric_limits<std::size_t>::max(); }
    void transfer_read_bytes(std::size_t) { m_last = m_clock->now(); }
    static void transfer_write_bytes(std::size_t) {}
    static void on_timer() {}

    std::shared_ptr<const ReadingClock> m_clock;
    Connection::Duration m_last{0};
};

using Plain = beast::basic_stream<Tcp, net::io_context::executor_type, SignsOfLife>;

using Opened = std::function<void(const std::string& failure)>;

/// What plain and secure connections have in common: all but the bytes themselves.
class TcpConnection : public Connection {
public:
    explicit TcpConnection(EventLoop& loop) : m_timer(loop) {}

    void open(std::vector<Address> addresses, steady_clock::time_point deadline, Opened done) override {
        m_addresses = std::move(addresses);
        m_deadline = deadline;
        connect(std::move(done));
    }

    void close() override {
        m_isClosed = true;
        m_timer.cancel();
        lowest().close();
    }

    Duration lastReceived() override { return lowest().rate_policy().last(); }

protected:
    virtual Plain& lowest() = 0;
    virtual void secure(Opened done) = 0;
    bool isClosed() const { return m_isClosed; }

private:
    void connect(Opened done) {
        if (m_nextAddress == m_addresses.size())
            return done(m_failure);
        const Address& address = m_addresses[m_nextAddress++];
        // Opened here, and not by the stream, so that no child process can inherit it at any moment.
        const int descriptor = ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (descriptor < 0) {
            m_failure = "no socket: " + Error(errno, boost::system::system_category()).message();
            return connect(std::move(done));
        }
        Error error;
        lowest().socket().assign(address.storage.ss_family == AF_INET6 ? Tcp::v6() : Tcp::v4(), descriptor, error);
        if (error) {
            ::close(descriptor);
            return done(error.message());
        }
        Tcp::endpoint endpoint;
        std::copy_n(reinterpret_cast<const char*>(&address.storage), address.length,
                    reinterpret_cast<char*>(endpoint.data()));
        endpoint.resize(address.length);
        if (const auto others = m_addresses.size() - m_nextAddress; others > 0)
            m_timer.start((m_deadline - steady_clock::now()) / (others + 1), [this] { lowest().cancel(); });
        lowest().async_connect(endpoint, [this, done = std::move(done)](const Error& failure) {
            m_timer.cancel();
            if (!m_isClosed)
                connected(failure, done);
        });
    }

    void connected(const Error& failure, const Opened& done) {
        Error ignored;
        if (failure) {
            m_failure = failure.message();
            lowest().socket().close(ignored);
            return connect(done);
        }
        lowest().socket().set_option(Tcp::no_delay(true), ignored);
        secure(done);
    }

    EventLoop::Timer m_timer; ///< the present address's share of the time
    std::vector<Address> m_addresses;
    std::size_t m_nextAddress = 0;
    steady_clock::time_point m_deadline;
    std::string m_failure; ///< of the last address tried
    bool m_isClosed = false;
};

/// What a stream's operation calls when it ends.
auto telling(std::unique_ptr<Connection::Waiter> waiter) {
    return [waiter = std::move(waiter)](const Error& failure, std::size_t bytes = 0) { waiter->ended(failure, bytes); };
}

class PlainConnection : public TcpConnection {
public:
    PlainConnection(EventLoop& loop, SignsOfLife signs)
        : TcpConnection(loop), m_stream(std::move(signs), loop.context().io.get_executor()) {}

    void read(net::mutable_buffer into, std::unique_ptr<Waiter> waiter) override {
        m_stream.async_read_some(into, telling(std::move(waiter)));
    }
    void write(const Buffers& from, std::unique_ptr<Waiter> waiter) override {
        m_stream.async_write_some(from, telling(std::move(waiter)));
    }
    void leave(beast::role_type role, std::unique_ptr<Waiter> waiter) override {
        beast::websocket::async_teardown(role, m_stream.socket(), telling(std::move(waiter)));
    }

private:
    Plain& lowest() override { return m_stream; }
    void secure(Opened done) override { done({}); }

    Plain m_stream;
};

net::ssl::context verifyingContext() {
    net::ssl::context context(net::ssl::context::tls_client);
    context.set_default_verify_paths();
    context.set_verify_mode(net::ssl::verify_peer);
    context.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                        net::ssl::context::no_tlsv1_1);
    return context;
}

class SecureConnection : public TcpConnection {
public:
    SecureConnection(EventLoop& loop, SignsOfLife signs, std::string host)
        : TcpConnection(loop), m_host(std::move(host)),
          m_stream(Plain(std::move(signs), loop.context().io.get_executor()), m_context) {}

    void read(net::mutable_buffer into, std::unique_ptr<Waiter> waiter) override {
        m_stream.async_read_some(into, telling(std::move(waiter)));
    }
    void write(const Buffers& from, std::unique_ptr<Waiter> waiter) override {
        m_stream.async_write_some(from, telling(std::move(waiter)));
    }
    void leave(beast::role_type role, std::unique_ptr<Waiter> waiter) override {
        beast::async_teardown(role, m_stream, telling(std::move(waiter)));
    }

private:
    Plain& lowest() override { return m_stream.next_layer(); }

    void secure(Opened done) override {
        // A server name is a name: an address does not go into it.
        Error isName;
        net::ip::make_address(m_host, isName);
        const int mismatch = isName ? X509_V_ERR_HOSTNAME_MISMATCH : X509_V_ERR_IP_ADDRESS_MISMATCH;
        m_stream.set_verify_callback([verify = net::ssl::host_name_verification(m_host),
                                      mismatch](bool isTrusted, net::ssl::verify_context& context) {
            const bool isRight = verify(isTrusted, context);
            if (isTrusted && !isRight)
                X509_STORE_CTX_set_error(context.native_handle(), mismatch);
            return isRight;
        });
        if (isName)
            SSL_ctrl(m_stream.native_handle(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, m_host.data());
        m_stream.async_handshake(net::ssl::stream_base::client, [this, done = std::move(done)](const Error& failure) {
            if (!isClosed())
                done(failure ? describe(failure) : std::string());
        });
    }

    std::string describe(const Error& failure) {
        const long verdict = SSL_get_verify_result(m_stream.native_handle());
        return verdict == X509_V_OK ? failure.message()
                                    : failure.message() + ": " + X509_verify_cert_error_string(verdict);
    }

    std::string m_host;
    net::ssl::context m_context = verifyingContext();
    beast::ssl_stream<Plain> m_stream;
};

} // namespace

std::unique_ptr<Connection> Connection::make(EventLoop& loop, const Uri& uri,
                                             std::shared_ptr<const ReadingClock> clock) {
    SignsOfLife signs(std::move(clock));
    if (uri.isSecure)
        return std::make_unique<SecureConnection>(loop, std::move(signs), uri.host);
    return std::make_unique<PlainConnection>(loop, std::move(signs));
}

} // namespace xal
