#include "Channel.h"

#include "EventLoopContext.h"
#include "ReadingClock.h"
#include "Resolver.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include <algorithm>
#include <deque>
#include <limits>
#include <unistd.h>

namespace xal {
namespace {

namespace beast = boost::beast;
namespace net = boost::asio;
namespace websocket = beast::websocket;
using Tcp = net::ip::tcp;
using Error = boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* subprotocol = "cdx.v1";
constexpr std::size_t largestMessage = 2 * 1024 * 1024;
/// What a peer gets for its goodbye, whoever ends the connection and why.
constexpr milliseconds goodbye(250);

/// Sits where a stream may limit its rate, and only notes when the last byte came and when the last frame has gone.
class SignsOfLife {
public:
    explicit SignsOfLife(std::shared_ptr<const ReadingClock> clock) : m_clock(std::move(clock)) {}
    Channel::Duration last() const { return m_last; }
    /// Called when only the connection's end on the other side is waited for.
    std::function<void()> onLeaving;

private:
    friend class beast::rate_policy_access;
    static std::size_t available_read_bytes() { return std::numeric_limits<std::size_t>::max(); }
    static std::size_t available_write_bytes() { return std::numeric_limits<std::size_t>::max(); }
    void transfer_read_bytes(std::size_t) { m_last = m_clock->now(); }
    static void transfer_write_bytes(std::size_t) {}
    static void on_timer() {}

    std::shared_ptr<const ReadingClock> m_clock;
    Channel::Duration m_last{0};
};

using Plain = beast::basic_stream<Tcp, net::io_context::executor_type, SignsOfLife>;
using Secure = beast::ssl_stream<Plain>;

// Found by the WebSocket stream in place of the library's own, which wait for the peer however long it takes.

template <class Handler>
void async_teardown(beast::role_type role, Plain& stream, Handler&& handler) {
    stream.rate_policy().onLeaving();
    websocket::async_teardown(role, stream.socket(), std::forward<Handler>(handler));
}

template <class Handler>
void async_teardown(beast::role_type role, Secure& stream, Handler&& handler) {
    stream.next_layer().rate_policy().onLeaving();
    beast::async_teardown(role, stream, std::forward<Handler>(handler));
}

template <class Stream>
constexpr bool isSecure = std::is_same_v<Stream, Secure>;

/// What a TLS stream needs and a plain one does not.
template <class Stream>
struct Security {};

template <>
struct Security<Secure> {
    Security() {
        context.set_default_verify_paths();
        context.set_verify_mode(net::ssl::verify_peer);
        context.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                            net::ssl::context::no_tlsv1_1);
    }
    net::ssl::context context{net::ssl::context::tls_client};
};

template <class Stream>
class WebSocketChannel : public Channel, public std::enable_shared_from_this<WebSocketChannel<Stream>> {
public:
    WebSocketChannel(const std::shared_ptr<EventLoop>& loop, const Options& options,
                     std::weak_ptr<ChannelListener> listener)
        : m_options(options), m_listener(std::move(listener)), m_loop(loop), m_clock(std::make_shared<ReadingClock>()),
          m_stream(makeStream(*loop)), m_timer(*loop) {}

    void begin() {
        resolve(m_loop.lock(), m_options.uri.host, m_options.uri.port,
                [weak = this->weak_from_this()](std::vector<Address> addresses, const std::string& error) {
                    const auto self = weak.lock();
                    if (!self || self->m_isOver)
                        return;
                    self->m_addresses = std::move(addresses);
                    self->m_failure = error;
                    self->connect();
                });
        // Last: once the timer holds the channel, it lives until it has told its listener of its end.
        limitAttempt();
    }

    void send(std::string text) override {
        if (!m_isOpen || m_isOver || m_isClosing)
            return;
        m_outbox.push_back(std::move(text));
        if (m_outbox.size() == 1)
            write();
    }

    void resume() override {
        if (m_isOpen && !m_isOver && !m_isClosing && !m_clock->isRunning())
            read();
    }

    Duration readingTime() const override { return m_clock->now(); }

    void setDeadline(std::optional<Duration> readingTime) override {
        if (m_deadline == readingTime)
            return;
        m_deadline = readingTime;
        watch();
    }

    void close(int code, const std::string& reason) override {
        if (m_isClosing)
            return;
        if (!m_isOpen)
            return finish(reason);
        m_isClosing = true;
        m_timer.start(goodbye, bound([reason](auto& self) { self.finish(reason); }));
        m_stream.async_close(websocket::close_reason(static_cast<websocket::close_code>(code)),
                             bound([reason](auto& self, const Error&) { self.finish(reason); }));
    }

    void abort(const std::string& reason) override { finish(reason); }

private:
    using WebSocket = websocket::stream<Stream, false>;

    WebSocket makeStream(EventLoop& loop) {
        const auto executor = loop.context().io.get_executor();
        if constexpr (isSecure<Stream>)
            return WebSocket(Plain(SignsOfLife(m_clock), executor), m_security.context);
        else
            return WebSocket(SignsOfLife(m_clock), executor);
    }

    Plain& lowest() {
        if constexpr (isSecure<Stream>)
            return m_stream.next_layer().next_layer();
        else
            return m_stream.next_layer();
    }

    /// A completion handler that keeps the channel alive and does nothing once it is over.
    template <class Function>
    auto bound(Function function) {
        return [self = this->shared_from_this(), function = std::move(function)](auto&&... arguments) {
            if (!self->m_isOver)
                function(*self, std::forward<decltype(arguments)>(arguments)...);
        };
    }

    Duration timeLeft() const { return m_options.deadline - steady_clock::now(); }

    void limitAttempt() {
        m_timer.start(timeLeft(), bound([](auto& self) { self.finish("timed out"); }));
    }

    /// Tries the addresses one after the other, each with its share of the time.
    void connect() {
        if (m_nextAddress == m_addresses.size())
            return finish(m_failure);
        const Address& address = m_addresses[m_nextAddress++];
        // Opened here, and not by the stream, so that no child process can inherit it at any moment.
        const int descriptor = ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (descriptor < 0) {
            m_failure = "no socket: " + Error(errno, boost::system::system_category()).message();
            return connect();
        }
        Error error;
        lowest().socket().assign(address.storage.ss_family == AF_INET6 ? Tcp::v6() : Tcp::v4(), descriptor, error);
        if (error) {
            ::close(descriptor);
            return finish(error.message());
        }
        Tcp::endpoint endpoint;
        std::copy_n(reinterpret_cast<const char*>(&address.storage), address.length,
                    reinterpret_cast<char*>(endpoint.data()));
        endpoint.resize(address.length);
        if (const auto others = m_addresses.size() - m_nextAddress; others > 0)
            m_timer.start(timeLeft() / (others + 1), bound([](auto& self) { self.lowest().cancel(); }));
        lowest().async_connect(endpoint, bound([](auto& self, const Error& failure) {
                                   self.limitAttempt();
                                   if (!failure)
                                       return self.secure();
                                   self.m_failure = failure.message();
                                   Error ignored;
                                   self.lowest().socket().close(ignored);
                                   self.connect();
                               }));
    }

    void secure() {
        Error ignored;
        lowest().socket().set_option(Tcp::no_delay(true), ignored);
        if constexpr (isSecure<Stream>) {
            auto& tls = m_stream.next_layer();
            tls.set_verify_callback(net::ssl::host_name_verification(m_options.uri.host));
            // A server name is a name: an address does not go into it.
            net::ip::make_address(m_options.uri.host, ignored);
            std::string name = m_options.uri.host;
            if (ignored)
                SSL_ctrl(tls.native_handle(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, name.data());
            tls.async_handshake(net::ssl::stream_base::client, bound([](auto& self, const Error& failure) {
                                    if (failure)
                                        self.finish(self.describeTls(failure));
                                    else
                                        self.upgrade();
                                }));
        } else {
            upgrade();
        }
    }

    std::string describeTls(const Error& failure) {
        if constexpr (isSecure<Stream>) {
            const long verdict = SSL_get_verify_result(m_stream.next_layer().native_handle());
            if (verdict != X509_V_OK)
                return failure.message() + ": " + X509_verify_cert_error_string(verdict);
        }
        return failure.message();
    }

    void upgrade() {
        m_stream.set_option(
            websocket::stream_base::timeout{websocket::stream_base::none(), websocket::stream_base::none(), false});
        lowest().rate_policy().onLeaving = [this] { leave(); };
        m_stream.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
            for (const auto& [name, value] : m_options.headers)
                request.insert(name, value);
            request.set(beast::http::field::sec_websocket_protocol, subprotocol);
        }));
        m_stream.read_message_max(largestMessage);
        m_stream.auto_fragment(false);
        m_stream.text(true);
        m_stream.async_handshake(m_answer, m_options.uri.authority(), m_options.target,
                                 bound([](auto& self, const Error& failure) { self.upgraded(failure); }));
    }

    void upgraded(const Error& failure) {
        using beast::http::field;
        if (failure == websocket::error::upgrade_declined)
            return finish("upgrade refused with status " + std::to_string(m_answer.result_int()));
        if (failure)
            return finish(failure.message());
        if (m_answer.count(field::sec_websocket_protocol) != 1 ||
            m_answer[field::sec_websocket_protocol] != subprotocol)
            return finish("upgrade without the subprotocol");
        if (m_answer.count(field::sec_websocket_extensions) != 0)
            return finish("upgrade with an extension that was not offered");
        m_timer.cancel();
        m_isOpen = true;
        if (const auto listener = m_listener.lock())
            listener->channelOpen();
        if (!m_isOver && !m_isClosing)
            read();
    }

    void read() {
        if (!m_clock->isRunning()) {
            m_clock->start();
            watch();
        }
        m_stream.async_read(m_buffer,
                            bound([](auto& self, const Error& failure, std::size_t) { self.received(failure); }));
    }

    void received(const Error& failure) {
        if (m_isClosing)
            return;
        if (failure)
            return finish(describeEnd(failure));
        const auto listener = m_listener.lock();
        if (!listener)
            return finish("nobody listens");
        if (!m_stream.got_text())
            return close(websocket::close_code::unknown_data, "binary message from the service");
        const bool goOn = listener->channelMessage(m_text);
        m_buffer.consume(m_text.size());
        if (m_isOver || m_isClosing)
            return;
        if (goOn)
            return read();
        m_clock->stop();
        m_timer.cancel();
    }

    /// The peer said its goodbye, or what cannot be read, and has been answered.
    void leave() {
        if (m_isOver || m_isClosing || m_isLeaving)
            return;
        m_isLeaving = true;
        m_timer.start(goodbye, bound([](auto& self) {
                          const bool saidGoodbye = self.m_stream.reason().code != websocket::close_code::none;
                          self.finish(saidGoodbye ? self.describeEnd(websocket::error::closed) : "unreadable frame");
                      }));
    }

    std::string describeEnd(const Error& failure) {
        if (failure != websocket::error::closed)
            return failure.message();
        const auto& reason = m_stream.reason();
        std::string text = "closed by the service with " + std::to_string(reason.code);
        if (!reason.reason.empty())
            text += " " + std::string(reason.reason.c_str());
        return text;
    }

    void write() {
        m_stream.async_write(net::buffer(m_outbox.front()), bound([](auto& self, const Error& failure, std::size_t) {
                                 self.m_outbox.pop_front();
                                 // What made it fail ends the reading too, and tells more.
                                 if (!failure && !self.m_outbox.empty() && !self.m_isClosing)
                                     self.write();
                             }));
    }

    bool isWatching() const { return m_options.pingInterval.count() > 0 && m_options.pongTimeout.count() > 0; }

    /// Sets the timer for whatever is due next.
    void watch() {
        if (!m_isOpen || m_isOver || m_isClosing || m_isLeaving || !m_clock->isRunning())
            return;
        std::optional<Duration> next = m_deadline;
        if (isWatching()) {
            const Duration sign = m_pingedAt ? *m_pingedAt + m_options.pongTimeout
                                             : lowest().rate_policy().last() + m_options.pingInterval;
            next = next ? std::min(*next, sign) : sign;
        }
        if (next)
            m_timer.start(std::max(*next - m_clock->now(), Duration::zero()),
                          bound([](auto& self) { self.checkTime(); }));
        else
            m_timer.cancel();
    }

    void checkTime() {
        const Duration now = m_clock->now();
        if (m_deadline && now >= *m_deadline) {
            m_deadline.reset();
            if (const auto listener = m_listener.lock())
                listener->channelDeadline();
            if (m_isOver || m_isClosing)
                return;
        }
        if (isWatching()) {
            const Duration last = lowest().rate_policy().last();
            if (m_pingedAt && last > *m_pingedAt)
                m_pingedAt.reset();
            if (m_pingedAt && now >= *m_pingedAt + m_options.pongTimeout)
                return finish("silent: nothing received for " + std::to_string(toMilliseconds(now - last)) + " ms");
            if (!m_pingedAt && now >= last + m_options.pingInterval)
                ping(now);
        }
        watch();
    }

    void ping(Duration now) {
        m_pingedAt = now;
        if (m_isPinging)
            return;
        m_isPinging = true;
        m_stream.async_ping({}, bound([](auto& self, const Error&) { self.m_isPinging = false; }));
    }

    static long long toMilliseconds(Duration time) { return std::chrono::duration_cast<milliseconds>(time).count(); }

    void finish(const std::string& reason) {
        if (m_isOver)
            return;
        m_isOver = true;
        m_timer.cancel();
        lowest().close();
        if (const auto listener = m_listener.lock())
            listener->channelClosed(reason);
    }

    const Options m_options;
    const std::weak_ptr<ChannelListener> m_listener;
    const std::weak_ptr<EventLoop> m_loop;
    Security<Stream> m_security;
    const std::shared_ptr<ReadingClock> m_clock;
    WebSocket m_stream;
    EventLoop::Timer m_timer;

    std::vector<Address> m_addresses;
    std::size_t m_nextAddress = 0;
    std::string m_failure; ///< of the last address tried
    websocket::response_type m_answer;

    std::string m_text;
    net::dynamic_string_buffer<char, std::char_traits<char>, std::allocator<char>> m_buffer{m_text};
    std::deque<std::string> m_outbox; ///< the first one is being written
    std::optional<Duration> m_deadline;
    std::optional<Duration> m_pingedAt; ///< what the peer owes a sign of life since
    bool m_isPinging = false;
    bool m_isOpen = false;
    bool m_isClosing = false;
    bool m_isLeaving = false; ///< the peer ends the connection
    bool m_isOver = false;
};

template <class Stream>
std::shared_ptr<Channel> openChannel(const std::shared_ptr<EventLoop>& loop, const Channel::Options& options,
                                     std::weak_ptr<ChannelListener> listener) {
    auto channel = std::make_shared<WebSocketChannel<Stream>>(loop, options, std::move(listener));
    channel->begin();
    return channel;
}

} // namespace

std::shared_ptr<Channel> Channel::open(const std::shared_ptr<EventLoop>& loop, const Options& options,
                                       std::weak_ptr<ChannelListener> listener) {
    return options.uri.isSecure ? openChannel<Secure>(loop, options, std::move(listener))
                                : openChannel<Plain>(loop, options, std::move(listener));
}

} // namespace xal
