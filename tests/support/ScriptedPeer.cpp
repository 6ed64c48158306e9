#include <support/ScriptedPeer.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cdxtest {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int check(int result, const char* what) {
    if (result < 0)
        fail(what);
    return result;
}

/// Waits for `events` on the descriptor; false when the peer goes or the deadline is over first.
bool awaitEvents(int descriptor, short events, int wakeUp, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0)
            return false;
        pollfd watched[] = {{descriptor, events, 0}, {wakeUp, POLLIN, 0}};
        const int ready = ::poll(watched, 2, static_cast<int>(left));
        if (ready < 0 && errno != EINTR)
            fail("poll");
        if (ready > 0)
            return watched[1].revents == 0;
    }
}

/// The body's length that the request's head tells; none is 0.
std::size_t lengthIn(const std::string& head) {
    const std::string name = "\r\nContent-Length: ";
    const std::size_t at = head.find(name);
    return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + name.size(), nullptr, 10);
}

} // namespace

PeerConnection::PeerConnection(int descriptor, int wakeUp, std::chrono::steady_clock::time_point deadline)
    : m_descriptor(descriptor), m_wakeUp(wakeUp), m_deadline(deadline) {
    const int on = 1;
    ::setsockopt(m_descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

PeerConnection::~PeerConnection() {
    close();
}

bool PeerConnection::awaitReady(short events) {
    return awaitEvents(m_descriptor, events, m_wakeUp, m_deadline);
}

void PeerConnection::receiveMore() {
    if (!awaitReady(POLLIN))
        throw std::runtime_error("nothing more came");
    char buffer[16 * 1024];
    const auto count = ::recv(m_descriptor, buffer, sizeof buffer, 0);
    if (count < 0)
        fail("recv");
    if (count == 0)
        throw std::runtime_error("the other side has closed");
    m_received.append(buffer, static_cast<std::size_t>(count));
}

std::string PeerConnection::readUntil(const std::string& end) {
    std::size_t found = 0;
    while ((found = m_received.find(end)) == std::string::npos)
        receiveMore();
    return readBytes(found + end.size());
}

std::string PeerConnection::readBytes(std::size_t count) {
    while (m_received.size() < count)
        receiveMore();
    std::string bytes = m_received.substr(0, count);
    m_received.erase(0, count);
    return bytes;
}

std::string PeerConnection::readRequest() {
    const std::string head = readUntil("\r\n\r\n");
    return head + readBytes(lengthIn(head));
}

bool PeerConnection::awaitClose() {
    if (!m_received.empty() || !awaitReady(POLLIN))
        return false;
    char byte = 0;
    return ::recv(m_descriptor, &byte, 1, 0) <= 0;
}

void PeerConnection::write(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (!awaitReady(POLLOUT))
            throw std::runtime_error("the other side does not read");
        const auto count = ::send(m_descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN)
            fail("send");
        if (count > 0)
            sent += static_cast<std::size_t>(count);
    }
}

void PeerConnection::writeSliced(const std::string& bytes) {
    for (const char byte : bytes)
        write(std::string(1, byte));
}

void PeerConnection::closeWriting() {
    ::shutdown(m_descriptor, SHUT_WR);
}

void PeerConnection::close() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}

void PeerConnection::reset() {
    const linger atOnce{1, 0};
    ::setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

ScriptedPeer::ScriptedPeer(std::vector<Script> scripts, std::chrono::milliseconds scriptsTake)
    : m_scripts(std::move(scripts)), m_deadline(std::chrono::steady_clock::now() + scriptsTake),
      m_listener(check(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")),
      m_wakeUp(check(::eventfd(0, EFD_CLOEXEC), "eventfd")) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    check(::bind(m_listener, generic, size), "bind");
    check(::listen(m_listener, SOMAXCONN), "listen");
    check(::getsockname(m_listener, generic, &size), "getsockname");
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { accept(); });
}

ScriptedPeer::~ScriptedPeer() {
    const std::uint64_t once = 1;
    const auto written = ::write(m_wakeUp, &once, sizeof once);
    static_cast<void>(written);
    m_acceptor.join();
    for (std::thread& runner : m_runners)
        runner.join();
    ::close(m_listener);
    ::close(m_wakeUp);
}

std::string ScriptedPeer::uri(const std::string& scheme) const {
    return scheme + "://127.0.0.1:" + std::to_string(m_port);
}

bool ScriptedPeer::awaitScripts() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_until(lock, m_deadline, [this] { return m_ended == m_scripts.size(); });
}

void ScriptedPeer::accept() {
    constexpr auto forEver = std::chrono::hours(1);
    while (awaitEvents(m_listener, POLLIN, m_wakeUp, std::chrono::steady_clock::now() + forEver)) {
        const int descriptor = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0)
            continue;
        const std::size_t index = m_accepted++;
        if (index < m_scripts.size())
            m_runners.emplace_back([this, index, descriptor] { run(m_scripts[index], descriptor); });
        else
            ::close(descriptor);
    }
}

void ScriptedPeer::run(const Script& script, int descriptor) {
    {
        PeerConnection connection(descriptor, m_wakeUp, m_deadline);
        try {
            script(connection);
        } catch (const std::exception&) {
            // The other side went, which ends many a script; what came of it, the test sees there.
        }
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_ended;
    m_changed.notify_all();
}

} // namespace cdxtest
