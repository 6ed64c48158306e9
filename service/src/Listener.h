#ifndef SERVICE_SRC_LISTENER_H
#define SERVICE_SRC_LISTENER_H

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <cstdint>
#include <exception>
#include <functional>

namespace cdxservice {

/// The socket that connections arrive at. Its descriptor and theirs are not passed on to programs that the process
/// starts.
class Listener {
public:
    using Socket = boost::asio::ip::tcp::socket;

    /// Binds and listens. Throws std::runtime_error that names the address.
    Listener(boost::asio::io_context& io, const boost::asio::ip::address& address, std::uint16_t port);

    std::uint16_t port() const { return m_port; }
    /// Hands every connection to `accepted` until stop(). When the system has none to give, descriptors being short,
    /// `failed`, which may not throw, is told why, once until there are some again; it is asked every now and then.
    void start(std::function<void(Socket)> accepted, std::function<void(const std::exception&)> failed);
    /// Waits for connections again if it had no memory to.
    void resume();
    void stop();

private:
    void await();
    void acceptAll();
    void take(int descriptor);
    void tellFailure(const std::exception& why);

    boost::asio::io_context& m_io;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_retry;
    boost::asio::ip::tcp m_protocol;
    std::uint16_t m_port = 0;
    bool m_short = false;
    bool m_waiting = false;
    std::function<void(Socket)> m_accepted;
    std::function<void(const std::exception&)> m_failed;
};

} // namespace cdxservice

#endif
