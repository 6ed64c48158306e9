#include "Tcp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace cdxtest {

namespace {

using Clock = std::chrono::steady_clock;

int checked(int result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

template <class Address>
const sockaddr* generic(const Address& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

Descriptor boundTo(std::uint16_t port) {
    Descriptor socket(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket"));
    const int on = 1;
    checked(::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
    const sockaddr_in address = loopback(port);
    checked(::bind(socket.get(), generic(address), sizeof address), "bind");
    return socket;
}

/// False when the deadline came first.
bool waitFor(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd poll{fd, events, 0};
        const int ready = ::poll(&poll, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready > 0)
            return true;
        if (ready == 0 && Clock::now() >= deadline)
            return false;
        if (ready < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
    }
}

} // namespace

void Descriptor::reset(int fd) {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = fd;
}

Listener::Listener() : m_holder(boundTo(0)) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    checked(::getsockname(m_holder.get(), static_cast<sockaddr*>(static_cast<void*>(&address)), &length),
            "getsockname");
    m_port = ntohs(address.sin_port);
    listen();
}

void Listener::listen() {
    if (m_listening)
        return;
    Descriptor socket = boundTo(m_port);
    checked(::listen(socket.get(), SOMAXCONN), "listen");
    m_listening = std::move(socket);
}

void Listener::refuse() {
    if (!m_listening)
        return;
    // A thread that polls the socket keeps it listening beyond its closing.
    ::shutdown(m_listening.get(), SHUT_RDWR);
    m_listening.reset();
}

Descriptor Listener::accept(std::chrono::milliseconds within) {
    const auto deadline = Clock::now() + within;
    while (m_listening && waitFor(m_listening.get(), POLLIN, deadline)) {
        const int fd = ::accept4(m_listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0)
            return Descriptor(fd);
        if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "accept");
    }
    return {};
}

TcpPeer::TcpPeer(Descriptor connected) : m_socket(std::move(connected)) {
    if (!m_socket)
        return;
    checked(::fcntl(m_socket.get(), F_SETFL, O_NONBLOCK), "O_NONBLOCK");
    // Every piece must leave as its own segment, or slices would be glued together again.
    const int on = 1;
    ::setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

TcpPeer TcpPeer::connect(std::uint16_t port) {
    Descriptor socket(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = loopback(port);
    checked(::connect(socket.get(), generic(address), sizeof address), "connect");
    return TcpPeer(std::move(socket));
}

bool TcpPeer::send(std::string_view bytes, std::size_t slice) {
    const auto deadline = Clock::now() + patience;
    while (!bytes.empty()) {
        if (!m_socket)
            return false;
        const std::size_t piece = slice == 0 ? bytes.size() : std::min(slice, bytes.size());
        const ssize_t sent = ::send(m_socket.get(), bytes.data(), piece, MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return false;
        // The other side may be waiting for us to read before it reads on.
        const Read there = drain();
        if (there == Read::Reset || !waitFor(m_socket.get(), there == Read::End ? POLLOUT : POLLIN | POLLOUT, deadline))
            return false;
    }
    return true;
}

TcpPeer::Read TcpPeer::drain() {
    std::array<char, 65536> buffer;
    bool some = false;
    for (;;) {
        const ssize_t got = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
        if (got > 0) {
            m_received.append(buffer.data(), static_cast<std::size_t>(got));
            some = true;
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (some)
            return Read::Bytes;
        return got == 0 ? Read::End : errno == EAGAIN ? Read::Late : Read::Reset;
    }
}

TcpPeer::Read TcpPeer::read(std::chrono::milliseconds within) {
    if (!m_socket)
        return Read::End;
    const auto deadline = Clock::now() + within;
    for (;;) {
        const Read result = drain();
        if (result != Read::Late || !waitFor(m_socket.get(), POLLIN, deadline))
            return result;
    }
}

std::optional<std::string> TcpPeer::takeUntil(std::string_view mark, std::chrono::milliseconds within) {
    const auto deadline = Clock::now() + within;
    std::size_t searched = 0;
    for (;;) {
        const std::size_t at = m_received.find(mark, searched);
        if (at != std::string::npos)
            return take(at + mark.size());
        searched = m_received.size() < mark.size() ? 0 : m_received.size() - mark.size() + 1;
        if (read(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now())) != Read::Bytes)
            return std::nullopt;
    }
}

std::optional<std::string> TcpPeer::take(std::size_t bytes, std::chrono::milliseconds within) {
    const auto deadline = Clock::now() + within;
    while (m_received.size() < bytes) {
        if (read(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now())) != Read::Bytes)
            return std::nullopt;
    }
    std::string taken = m_received.substr(0, bytes);
    m_received.erase(0, bytes);
    return taken;
}

bool TcpPeer::readToEnd(std::chrono::milliseconds within) {
    const auto deadline = Clock::now() + within;
    for (;;) {
        const Read result = read(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
        if (result != Read::Bytes)
            return result != Read::Late;
    }
}

void TcpPeer::endSending() {
    if (m_socket)
        ::shutdown(m_socket.get(), SHUT_WR);
}

void TcpPeer::reset() {
    if (!m_socket)
        return;
    const linger now{1, 0};
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    m_socket.reset();
}

} // namespace cdxtest
