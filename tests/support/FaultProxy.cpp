#include "FaultProxy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace cdxtest {

namespace {

using Clock = std::chrono::steady_clock;

/// More than this waiting in one direction and its sender is not read.
constexpr std::size_t mostWaiting = 256 * 1024;

Descriptor connecting(std::uint16_t port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const auto* generic = static_cast<const sockaddr*>(static_cast<const void*>(&address));
    if (::connect(socket.get(), generic, sizeof address) != 0 && errno != EINPROGRESS)
        return {};
    return socket;
}

void prepare(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void resetOnClose(const Descriptor& socket) {
    const linger now{1, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

} // namespace

/// One direction of a connection.
struct FaultProxy::Stream {
    struct Piece {
        Time due;
        std::string bytes;
    };

    Direction direction = Direction::ToServer;
    Descriptor* from = nullptr;
    Descriptor* to = nullptr;
    std::deque<Piece> waiting;
    std::size_t waitingBytes = 0;
    std::uint64_t passed = 0;
    Time free;                  ///< when the limit on speed lets the next bytes go
    std::optional<Time> endDue; ///< the sender's end of the stream, to be told then
    bool endsByReset = false;   ///< the sender's side broke, instead of ending
    bool ended = false;         ///< and told
    bool readable = true;
    bool writable = true;

    void forget() {
        waiting.clear();
        waitingBytes = 0;
    }
};

struct FaultProxy::Link {
    Descriptor client;
    Descriptor server;
    Stream up;
    Stream down;
    bool silent = false;
    bool lossy = false;
    bool hungUp = false; ///< the client was told the end, and is read until it ends too
    bool over = false;

    Link() {
        up.direction = Direction::ToServer;
        up.from = &client;
        up.to = &server;
        up.writable = false; // until it is connected
        down.direction = Direction::ToClient;
        down.from = &server;
        down.to = &client;
    }
};

FaultProxy::FaultProxy(std::uint16_t serverPort)
    : m_wakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_serverPort(serverPort), m_thread([this] { run(); }) {}

FaultProxy::~FaultProxy() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    wake();
    m_thread.join();
}

void FaultProxy::wake() {
    const std::uint64_t one = 1;
    // Fails only when as many wakes wait as can be counted: then it is awake.
    [[maybe_unused]] const ssize_t written = ::write(m_wakeUp.get(), &one, sizeof one);
}

void FaultProxy::setServer(std::uint16_t port) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_serverPort = port;
}

void FaultProxy::setTravel(const Travel& travel) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_travel = travel;
    }
    wake();
}

void FaultProxy::cut(Direction direction, std::size_t bytes, End end) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_cut = Cut{direction, bytes, end};
    m_cutAt = Time();
}

FaultProxy::Time FaultProxy::cutAt() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_cutAt;
}

void FaultProxy::endAll(End how) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& link : m_links)
            end(*link, how);
    }
    wake();
}

void FaultProxy::swallow(bool on) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_swallow = on;
}

void FaultProxy::hangUp(bool on) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hangUp = on;
}

void FaultProxy::refuse(bool on) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (on)
            m_listener.refuse();
        else
            m_listener.listen();
    }
    wake();
}

FaultProxy::Counts FaultProxy::counts() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

bool FaultProxy::waitFor(const std::function<bool(const Counts&)>& reached, std::chrono::milliseconds within) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, within, [&] { return reached(m_counts); });
}

void FaultProxy::run() {
    std::vector<pollfd> polls;
    for (;;) {
        Time next;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopping)
                return;
            next = serve();
            polls.assign({{m_wakeUp.get(), POLLIN, 0}, {m_listener.fd(), POLLIN, 0}});
            for (const auto& link : m_links) {
                const auto events = [&](const Stream& in, const Stream& out) {
                    const bool reads = !link->silent && !in.readable && !in.endDue;
                    return static_cast<short>((reads ? POLLIN : 0) | (out.writable || link->silent ? 0 : POLLOUT));
                };
                // A descriptor without events would still report its hang-up, again and again.
                const auto watched = [](const Descriptor& socket, short wanted) {
                    return pollfd{wanted != 0 ? socket.get() : -1, wanted, 0};
                };
                polls.push_back(watched(link->client, events(link->up, link->down)));
                polls.push_back(watched(link->server, events(link->down, link->up)));
            }
        }
        m_changed.notify_all();
        int timeout = -1;
        if (next != Time::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
            timeout = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
        }
        if (::poll(polls.data(), polls.size(), timeout) < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
        std::uint64_t wakes = 0;
        [[maybe_unused]] const ssize_t taken = ::read(m_wakeUp.get(), &wakes, sizeof wakes);

        const std::lock_guard<std::mutex> lock(m_mutex);
        std::size_t at = 2;
        for (const auto& link : m_links) {
            if (at + 1 >= polls.size())
                break;
            const short client = polls[at].revents;
            const short server = polls[at + 1].revents;
            at += 2;
            constexpr short gone = POLLERR | POLLHUP;
            link->up.readable = link->up.readable || (client & (POLLIN | gone)) != 0;
            link->down.readable = link->down.readable || (server & (POLLIN | gone)) != 0;
            link->down.writable = link->down.writable || (client & (POLLOUT | gone)) != 0;
            link->up.writable = link->up.writable || (server & (POLLOUT | gone)) != 0;
        }
    }
}

/// Does everything that can be done now; gives the time at which more can be done without any socket's help.
FaultProxy::Time FaultProxy::serve() {
    acceptAll();
    Time next = Time::max();
    const Time now = Clock::now();
    for (const auto& link : m_links)
        serveLink(*link, now, next);
    m_links.remove_if([](const std::unique_ptr<Link>& link) { return link->over; });
    m_counts.open = m_links.size();
    return next;
}

void FaultProxy::acceptAll() {
    while (m_listener.fd() >= 0) {
        Descriptor client = m_listener.accept(std::chrono::milliseconds(0));
        if (!client)
            return;
        ++m_counts.connections;
        auto link = std::make_unique<Link>();
        link->client = std::move(client);
        prepare(link->client.get());
        link->silent = m_swallow;
        link->hungUp = m_hangUp;
        if (m_hangUp) {
            ::shutdown(link->client.get(), SHUT_WR);
        } else if (!m_swallow) {
            link->server = connecting(m_serverPort);
            if (link->server)
                prepare(link->server.get());
            else
                end(*link, End::Reset);
        }
        m_links.push_back(std::move(link));
    }
}

void FaultProxy::serveLink(Link& link, Time now, Time& next) {
    if (link.hungUp && !link.silent && !link.over) {
        discardFrom(link, now);
        return;
    }
    for (Stream* stream : {&link.up, &link.down}) {
        if (link.silent || link.over)
            return;
        readFrom(*stream, now);
        if (link.lossy)
            stream->forget();
        handOn(link, *stream, now, next);
        // There was no room for what is there, and now there is.
        if (stream->readable && !stream->endDue && stream->waitingBytes < mostWaiting)
            next = now;
    }
    if (link.up.ended && link.down.ended)
        link.over = true;
}

void FaultProxy::readFrom(Stream& stream, Time now) {
    std::array<char, 16384> buffer;
    // The server's side cannot be read before it is connected; the client's can.
    while (stream.readable && !stream.endDue && stream.waitingBytes < mostWaiting) {
        const ssize_t got = ::recv(stream.from->get(), buffer.data(), buffer.size(), 0);
        if (got > 0) {
            stream.waiting.push_back(
                {now + m_travel.latency, std::string(buffer.data(), static_cast<std::size_t>(got))});
            stream.waitingBytes += static_cast<std::size_t>(got);
        } else if (got < 0 && (errno == EAGAIN || errno == ENOTCONN)) {
            stream.readable = false;
        } else if (got == 0 || errno != EINTR) {
            stream.endDue = now + m_travel.latency + m_travel.slowClose;
            stream.endsByReset = got < 0;
        }
    }
}

void FaultProxy::discardFrom(Link& link, Time now) {
    Stream& stream = link.up;
    while (stream.readable && !stream.endDue) {
        readFrom(stream, now);
        stream.forget();
    }
    link.over = stream.endDue.has_value();
}

/// How many more bytes may go this way before the cut.
std::size_t FaultProxy::allowance(const Stream& stream) const {
    if (!m_cut || m_cut->direction != stream.direction)
        return std::string::npos;
    return m_cut->bytes <= stream.passed ? 0 : m_cut->bytes - static_cast<std::size_t>(stream.passed);
}

void FaultProxy::handOn(Link& link, Stream& stream, Time now, Time& next) {
    while (!stream.waiting.empty() && stream.writable) {
        const std::size_t allowed = allowance(stream);
        if (allowed == 0) {
            const End how = m_cut->end;
            m_cut.reset();
            m_cutAt = now;
            end(link, how);
            next = now; // what is lost may have been all that the end waited for
            return;
        }
        Stream::Piece& piece = stream.waiting.front();
        const Time due = std::max(piece.due, stream.free);
        if (due > now) {
            next = std::min(next, due);
            return;
        }
        std::size_t size = std::min(piece.bytes.size(), allowed);
        if (m_travel.slice != 0)
            size = std::min(size, m_travel.slice);
        if (m_travel.bytesPerSecond != 0)
            size = std::min(size, std::max<std::size_t>(m_travel.bytesPerSecond / 100, 1));
        const ssize_t sent = ::send(stream.to->get(), piece.bytes.data(), size, MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || errno == ENOTCONN)) {
            stream.writable = false;
        } else if (sent < 0 && errno != EINTR) {
            // The receiver is gone: so is the connection, for its sender too.
            end(link, End::Reset);
            return;
        } else if (sent > 0) {
            const auto count = static_cast<std::size_t>(sent);
            piece.bytes.erase(0, count);
            stream.waitingBytes -= count;
            stream.passed += count;
            (stream.direction == Direction::ToServer ? m_counts.toServer : m_counts.toClient) += count;
            if (m_travel.bytesPerSecond != 0)
                stream.free = now + std::chrono::microseconds(1'000'000 * count / m_travel.bytesPerSecond);
            if (piece.bytes.empty())
                stream.waiting.pop_front();
        }
    }
    if (stream.waiting.empty() && stream.endDue && !stream.ended) {
        if (*stream.endDue > now) {
            next = std::min(next, *stream.endDue);
            return;
        }
        if (stream.endsByReset) {
            end(link, End::Reset);
            return;
        }
        stream.ended = true;
        ::shutdown(stream.to->get(), SHUT_WR);
    }
}

void FaultProxy::end(Link& link, End how) {
    if (how == End::Silence) {
        link.silent = true;
        return;
    }
    if (how == End::Loss) {
        link.lossy = true;
        link.up.forget();
        link.down.forget();
        return;
    }
    if (how == End::Reset) {
        resetOnClose(link.client);
        resetOnClose(link.server);
    }
    link.client.reset();
    link.server.reset();
    link.over = true;
}

} // namespace cdxtest
