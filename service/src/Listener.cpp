#include "Listener.h"

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace cdxservice {

namespace ip = boost::asio::ip;

namespace {

constexpr int acceptedInARow = 64;
constexpr std::chrono::milliseconds retryAfter(100);

/// Closes a descriptor that nobody came to own.
struct Unowned {
    int descriptor;
    ~Unowned() {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
};

/// accept4 and socket take the flag along: between two calls another thread could start a program.
int openSocket(const ip::tcp& protocol) {
    return ::socket(protocol.family(), protocol.type() | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol.protocol());
}

} // namespace

Listener::Listener(boost::asio::io_context& io, const boost::asio::ip::address& address, std::uint16_t port)
    : m_io(io), m_acceptor(io), m_retry(io), m_protocol(address.is_v6() ? ip::tcp::v6() : ip::tcp::v4()) {
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error("cannot listen on " + address.to_string() + ", port " + std::to_string(port) + ": " +
                                 why);
    };
    const int descriptor = openSocket(m_protocol);
    boost::system::error_code error(descriptor < 0 ? errno : 0, boost::system::system_category());
    if (!error) {
        m_acceptor.assign(m_protocol, descriptor, error);
    }
    if (!error) {
        // A service that comes back finds its port although its old connections are not all forgotten.
        m_acceptor.set_option(ip::tcp::acceptor::reuse_address(true), error);
    }
    if (!error) {
        m_acceptor.bind({address, port}, error);
    }
    if (!error) {
        m_acceptor.listen(boost::asio::socket_base::max_listen_connections, error);
    }
    if (!error) {
        m_acceptor.non_blocking(true, error);
    }
    if (error) {
        fail(error.message());
    }
    m_port = m_acceptor.local_endpoint().port();
}

void Listener::start(std::function<void(Socket)> accepted, std::function<void(const std::exception&)> failed) {
    m_accepted = std::move(accepted);
    m_failed = std::move(failed);
    await();
}

void Listener::stop() {
    boost::system::error_code ignored;
    m_acceptor.close(ignored);
    m_retry.cancel();
}

void Listener::resume() {
    if (m_acceptor.is_open() && !m_waiting) {
        await();
    }
}

void Listener::await() {
    m_acceptor.async_wait(ip::tcp::acceptor::wait_read, [this](boost::system::error_code error) {
        m_waiting = false;
        if (!error) {
            acceptAll();
        }
    });
    m_waiting = true;
}

void Listener::acceptAll() {
    for (int i = 0; i < acceptedInARow && m_acceptor.is_open(); ++i) {
        const int descriptor = ::accept4(m_acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor >= 0) {
            take(descriptor);
            continue;
        }
        const int error = errno;
        if (error == EAGAIN || error == EWOULDBLOCK) {
            break;
        }
        if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
            // The connection stays in the queue and would be announced again at once, and again.
            tellFailure(boost::system::system_error(error, boost::system::system_category()));
            m_retry.expires_after(retryAfter);
            m_retry.async_wait([this](boost::system::error_code cancelled) {
                m_waiting = false;
                if (!cancelled) {
                    await();
                }
            });
            m_waiting = true;
            return;
        }
    }
    if (m_acceptor.is_open()) {
        await();
    }
}

/// A connection that there is no memory for is given up; the next may find some.
void Listener::take(int descriptor) {
    Unowned unowned{descriptor};
    try {
        Socket socket(m_io);
        boost::system::error_code error;
        socket.assign(m_protocol, descriptor, error);
        if (error) {
            return;
        }
        unowned.descriptor = -1;
        socket.non_blocking(true, error);
        socket.set_option(ip::tcp::no_delay(true), error);
        socket.set_option(boost::asio::socket_base::keep_alive(true), error);
        m_accepted(std::move(socket));
        m_short = false;
    } catch (const std::exception& failure) {
        tellFailure(failure);
    }
}

void Listener::tellFailure(const std::exception& why) {
    if (!m_short) {
        m_short = true;
        m_failed(why);
    }
}

} // namespace cdxservice
