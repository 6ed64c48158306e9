#ifndef CDXTESTS_SUPPORT_TCP_H
#define CDXTESTS_SUPPORT_TCP_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cdxtest {

/// A deadline that only a failing test meets.
constexpr std::chrono::seconds patience(20);

/// A file descriptor, closed when its object goes.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(std::exchange(other.m_fd, -1));
        return *this;
    }
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

/// A port of loopback that is this object's for its whole life. While it does not listen, connecting is refused.
///
/// Belongs to one thread at a time. Throws std::system_error where the system refuses.
class Listener {
public:
    Listener();

    std::uint16_t port() const { return m_port; }
    /// The listening socket, non-blocking; -1 while refusing.
    int fd() const { return m_listening.get(); }
    void listen();
    /// Ends the listening, and every connection that was not accepted yet.
    void refuse();
    /// The next connection; empty when none came by then.
    Descriptor accept(std::chrono::milliseconds within = patience);

private:
    Descriptor m_holder; ///< bound and never listening: keeps the port while nothing listens on it
    Descriptor m_listening;
    std::uint16_t m_port = 0;
};

/// One TCP connection as a test handles it: what it sends goes out as it stands, what it reads is kept until taken.
///
/// Belongs to one thread at a time.
class TcpPeer {
public:
    enum class Read { Bytes, End, Reset, Late };

    TcpPeer() = default;
    explicit TcpPeer(Descriptor connected);
    /// Connects to a port of loopback. Throws std::system_error when it is refused.
    static TcpPeer connect(std::uint16_t port);

    /// Sends everything, in pieces of `slice` bytes (0: one piece), reading meanwhile what the other side sends. False
    /// when the other side is gone, or takes nothing until the deadline.
    bool send(std::string_view bytes, std::size_t slice = 0);

    /// Waits for more bytes, which join received().
    Read read(std::chrono::milliseconds within = patience);
    /// What was read and not taken.
    const std::string& received() const { return m_received; }
    std::string& received() { return m_received; }
    /// Takes everything up to and including `mark`; empty when the connection ended, or the deadline came, before it.
    std::optional<std::string> takeUntil(std::string_view mark, std::chrono::milliseconds within = patience);
    std::optional<std::string> take(std::size_t bytes, std::chrono::milliseconds within = patience);
    /// Reads until the other side ends the connection, either way. False when it does not by then.
    bool readToEnd(std::chrono::milliseconds within = patience);

    /// No more will be sent; what the other side sends is still read.
    void endSending();
    void close() { m_socket.reset(); }
    /// Ends the connection so that the other side is told of a reset.
    void reset();
    bool isOpen() const { return static_cast<bool>(m_socket); }
    int fd() const { return m_socket.get(); }

private:
    /// Takes what is there without waiting.
    Read drain();

    Descriptor m_socket;
    std::string m_received;
};

} // namespace cdxtest

#endif
