#include "HttpConnection.h"

#include "SigpipeGuard.h"

#include <xalutil/HostAddresses.h>

#include <Poco/Crypto/OpenSSLInitializer.h>
#include <Poco/Exception.h>
#include <Poco/Net/Context.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPSClientSession.h>
#include <Poco/Net/SecureStreamSocket.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <Poco/URI.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace xalutil {

namespace {

using Poco::Net::IPAddress;
using Poco::Net::SecureStreamSocket;
using Poco::Net::SocketAddress;
using Poco::Net::StreamSocket;

constexpr std::uint16_t httpPort = 80;
constexpr std::uint16_t httpsPort = 443;

bool isAddress(const std::string& host) {
    IPAddress ignored;
    return IPAddress::tryParse(host, ignored);
}

/// A question to the system's resolver, on a thread of its own that goes on where nobody waits any longer.
class Resolution {
public:
    Resolution() : m_event(::eventfd(0, EFD_CLOEXEC)) {
        if (m_event < 0)
            throw HttpError(0, "cannot resolve a name: " + std::generic_category().message(errno));
    }
    ~Resolution() { ::close(m_event); }
    Resolution(const Resolution&) = delete;
    Resolution& operator=(const Resolution&) = delete;

    /// Readable once there is an answer.
    int event() const { return m_event; }

    void ask(const std::string& host, std::uint16_t port) noexcept {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            try {
                find(host, port);
            } catch (const std::exception&) {
                m_isMemoryShort = true;
            }
        }
        const std::uint64_t one = 1;
        static_cast<void>(!::write(m_event, &one, sizeof one));
    }

    /// Once there is an answer.
    std::vector<HostAddress> take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isMemoryShort)
            throw std::bad_alloc();
        if (!m_failure.empty())
            throw HttpError(0, m_failure);
        return std::move(m_addresses);
    }

private:
    void find(const std::string& host, std::uint16_t port) {
        try {
            m_addresses = findHostAddresses(host, port);
        } catch (const std::runtime_error& e) {
            m_failure = e.what();
        }
    }

    const int m_event;
    std::mutex m_mutex; ///< guards what follows
    std::vector<HostAddress> m_addresses;
    std::string m_failure;
    bool m_isMemoryShort = false;
};

std::vector<HostAddress> resolve(const HttpServer& server, const Interruption& interruption,
                                 Interruption::Deadline deadline) {
    auto literal = findLiteralAddress(server.host, server.port);
    if (!literal.empty())
        return literal;
    const auto resolution = std::make_shared<Resolution>();
    std::thread([resolution, host = server.host, port = server.port] { resolution->ask(host, port); }).detach();
    interruption.await(resolution->event(), POLLIN, deadline);
    return resolution->take();
}

/// A socket that no program started by this one inherits; Poco itself makes none of that kind.
class Socket : public StreamSocket {
public:
    explicit Socket(SocketAddress::Family family) : StreamSocket(new Poco::Net::StreamSocketImpl(make(family))) {
        setBlocking(false);
    }

private:
    static int make(SocketAddress::Family family) {
        const int domain = family == SocketAddress::IPv6 ? AF_INET6 : AF_INET;
        const int made = ::socket(domain, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (made < 0)
            throw HttpError(0, "cannot make a socket: " + std::generic_category().message(errno));
        return made;
    }
};

StreamSocket connectTo(const SocketAddress& address, const Interruption& interruption,
                       Interruption::Deadline deadline) {
    Socket socket(address.family());
    socket.connectNB(address);
    interruption.await(socket.impl()->sockfd(), POLLOUT, deadline);
    if (const int error = socket.impl()->socketError())
        throw HttpConnectionLost(0, std::generic_category().message(error));
    socket.setNoDelay(true);
    return std::move(socket);
}

/// Tries the server's addresses one after the other, each with its share of the time.
StreamSocket connectTo(const HttpServer& server, const Interruption& interruption, Interruption::Deadline deadline) {
    std::vector<SocketAddress> addresses;
    for (const HostAddress& found : resolve(server, interruption, deadline)) {
        const SocketAddress address(reinterpret_cast<const sockaddr*>(&found.storage), found.length);
        if (std::find(addresses.begin(), addresses.end(), address) == addresses.end())
            addresses.push_back(address);
    }
    if (addresses.empty())
        throw HttpError(0, "the name has no address");
    for (std::size_t left = addresses.size();; --left) {
        const SocketAddress& address = addresses[addresses.size() - left];
        const auto now = std::chrono::steady_clock::now();
        const auto share = left > 1 ? now + (deadline - now) / static_cast<int>(left) : deadline;
        try {
            return connectTo(address, interruption, share);
        } catch (const std::exception&) {
            interruption.check(deadline);
            if (left == 1)
                throw;
        }
    }
}

/// A session over a connection that is there already.
class SecuredSession : public Poco::Net::HTTPSClientSession {
public:
    using HTTPSClientSession::attachSocket;
    using HTTPSClientSession::HTTPSClientSession;
};

/// Why the last certificate was refused on this thread.
thread_local std::string refusal;

int onVerified(int isGood, X509_STORE_CTX* chain) {
    if (isGood == 0)
        refusal = X509_verify_cert_error_string(X509_STORE_CTX_get_error(chain));
    return isGood;
}

} // namespace

HttpServer HttpServer::fromUri(const std::string& uri) {
    try {
        const Poco::URI parsed(uri);
        HttpServer server;
        server.isSecure = parsed.getScheme() == "https";
        server.host = parsed.getHost();
        server.port = parsed.getPort();
        if ((server.isSecure || parsed.getScheme() == "http") && !server.host.empty() && server.port != 0)
            return server;
    } catch (const Poco::Exception&) {
        // Told below, like everything else that is wrong with it.
    }
    throw std::invalid_argument("\"" + uri + "\" is no URI of an HTTP server");
}

std::string HttpServer::authority() const {
    const std::string bracketed = host.find(':') == std::string::npos ? host : '[' + host + ']';
    return port == (isSecure ? httpsPort : httpPort) ? bracketed : bracketed + ':' + std::to_string(port);
}

class HttpTrust {
public:
    explicit HttpTrust(const std::string& host);

    Poco::Net::Context::Ptr context;
};

HttpTrust::HttpTrust(const std::string& host)
    : context([] {
          // Once and for all: giving the library back, as its last user does, would take it from everybody else.
          static const bool isInitialized = (Poco::Crypto::OpenSSLInitializer::initialize(), true);
          static_cast<void>(isInitialized);
          constexpr int deepestChain = 9;
          return new Poco::Net::Context(Poco::Net::Context::TLS_CLIENT_USE, "", Poco::Net::Context::VERIFY_STRICT,
                                        deepestChain, true);
      }()) {
    SSL_CTX* const settings = context->sslContext();
    SSL_CTX_set_min_proto_version(settings, TLS1_2_VERSION);
    SSL_CTX_set_verify(settings, SSL_VERIFY_PEER, onVerified);
    SSL_CTX_set_mode(settings, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // The name is checked with the chain, by OpenSSL: Poco's own check lets some hosts pass.
    context->enableExtendedCertificateVerification(false);
    X509_VERIFY_PARAM* const expected = SSL_CTX_get0_param(settings);
    X509_VERIFY_PARAM_set_hostflags(expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const int isSet = isAddress(host) ? X509_VERIFY_PARAM_set1_ip_asc(expected, host.c_str())
                                      : X509_VERIFY_PARAM_set1_host(expected, host.data(), host.size());
    if (isSet != 1)
        throw std::invalid_argument("\"" + host + "\" cannot be the name in a certificate");
}

std::shared_ptr<HttpTrust> makeTrust(const HttpServer& server) {
    try {
        return server.isSecure ? std::make_shared<HttpTrust>(server.host) : nullptr;
    } catch (const Poco::Exception& failure) {
        throw std::runtime_error("cannot prepare TLS: " + failure.displayText());
    }
}

struct HttpConnection::Session {
    StreamSocket plain;
    std::unique_ptr<Poco::Net::HTTPClientSession> session; ///< over `plain`, with TLS between where that is asked for
    bool isSecure;
    short awaited = POLLIN; ///< what the last call that gave nothing waits for

    Session(StreamSocket connected, const HttpServer& server, const std::shared_ptr<HttpTrust>& trust)
        : plain(std::move(connected)), isSecure(trust != nullptr) {
        if (!isSecure) {
            session = std::make_unique<Poco::Net::HTTPClientSession>(plain);
            return;
        }
        // An address is no server name.
        const std::string serverName = isAddress(server.host) ? std::string() : server.host;
        auto secured = std::make_unique<SecuredSession>(trust->context);
        secured->attachSocket(SecureStreamSocket::attach(plain, serverName, trust->context));
        session = std::move(secured);
    }

    ~Session() {
        const SigpipeGuard guard(isSecure); // TLS takes its leave
        session.reset();
    }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Runs one call of the socket, which gives a number of bytes, or a negative one that says what it waits for.
    template <class Call>
    std::optional<std::size_t> attempt(short plainlyAwaited, Call call) {
        const SigpipeGuard guard(isSecure);
        ERR_clear_error();
        int result = 0;
        try {
            result = call(session->socket());
        } catch (const Poco::Exception& failure) {
            throw HttpConnectionLost(0, "connection lost: " + failure.displayText());
        }
        if (result >= 0)
            return static_cast<std::size_t>(result);
        if (!isSecure)
            awaited = plainlyAwaited;
        else
            awaited = result == SecureStreamSocket::ERR_SSL_WANT_WRITE ? POLLOUT : POLLIN;
        return std::nullopt;
    }

    void shakeHands(const Interruption& interruption, Interruption::Deadline deadline) {
        refusal.clear();
        try {
            const auto step = [](StreamSocket& socket) { return SecureStreamSocket(socket).completeHandshake(); };
            while (!attempt(POLLIN, step))
                interruption.await(plain.impl()->sockfd(), awaited, deadline);
        } catch (const HttpConnectionLost& failure) {
            throw HttpError(0, refusal.empty() ? std::string("TLS handshake: ") + failure.what()
                                               : "the server's certificate is refused: " + refusal);
        }
    }
};

HttpConnection::HttpConnection(const HttpServer& server, const std::shared_ptr<HttpTrust>& trust,
                               const Interruption& interruption, Interruption::Deadline deadline) {
    const std::string context = "cannot connect to " + server.authority() + ": ";
    try {
        interruption.check(deadline);
        m_session = std::make_unique<Session>(connectTo(server, interruption, deadline), server, trust);
        if (trust)
            m_session->shakeHands(interruption, deadline);
    } catch (const HttpError& failure) {
        throw HttpError(0, context + failure.what());
    } catch (const Poco::Exception& failure) {
        throw HttpError(0, context + failure.displayText());
    }
}

HttpConnection::~HttpConnection() = default;

std::optional<std::size_t> HttpConnection::receive(char* buffer, std::size_t room) {
    return m_session->attempt(
        POLLIN, [&](StreamSocket& socket) { return socket.receiveBytes(buffer, static_cast<int>(room)); });
}

std::size_t HttpConnection::send(std::string_view bytes) {
    constexpr std::size_t most = 1024 * 1024;
    const int length = static_cast<int>(std::min(bytes.size(), most));
    return m_session
        ->attempt(POLLOUT, [&](StreamSocket& socket) { return socket.sendBytes(bytes.data(), length, MSG_NOSIGNAL); })
        .value_or(0);
}

void HttpConnection::await(bool alsoToReceive, const Interruption& interruption,
                           Interruption::Deadline deadline) const {
    const int events = m_session->awaited | (alsoToReceive ? POLLIN : 0);
    interruption.await(m_session->plain.impl()->sockfd(), static_cast<short>(events), deadline);
}

} // namespace xalutil
