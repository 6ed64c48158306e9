#include "Channel.h"

#include "Connection.h"
#include "EventLoopContext.h"
#include "ReadingClock.h"
#include "Resolver.h"
#include "UpgradeReader.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <deque>

namespace xal {
namespace {

namespace beast = boost::beast;
namespace net = boost::asio;
namespace websocket = beast::websocket;
using Error = Connection::Error;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* subprotocol = "cdx.v1";
constexpr std::size_t largestMessage = 2 * 1024 * 1024;
/// What a peer gets for its goodbye, whoever ends the connection and why.
constexpr milliseconds goodbye(250);

class WebSocketChannel : public Channel, public std::enable_shared_from_this<WebSocketChannel> {
    /// A completion handler that keeps the channel alive and does nothing once it is over.
    template <class Function>
    auto bound(Function function) {
        return [self = shared_from_this(), function = std::move(function)](auto&&... arguments) {
            if (!self->m_isOver)
                function(*self, std::forward<decltype(arguments)>(arguments)...);
        };
    }

public:
    WebSocketChannel(const std::shared_ptr<EventLoop>& loop, const Options& options,
                     std::weak_ptr<ChannelListener> listener)
        : m_options(options), m_listener(std::move(listener)), m_loop(loop), m_clock(std::make_shared<ReadingClock>()),
          m_connection(Connection::make(*loop, options.uri, m_clock)), m_reader(*m_connection, subprotocol),
          m_stream(*m_connection, m_reader, loop->context().io.get_executor()), m_timer(*loop) {}

    void begin() {
        resolve(m_loop.lock(), m_options.uri.host, m_options.uri.port,
                [weak = weak_from_this()](std::vector<Address> addresses, const std::string& error) {
                    if (const auto self = weak.lock(); self && !self->m_isOver)
                        self->connect(std::move(addresses), error);
                });
        // Last: once the timer holds the channel, it lives until it has told its listener of its end.
        m_timer.start(m_options.deadline - steady_clock::now(),
                      bound([](WebSocketChannel& self) { self.finish("timed out"); }));
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
        m_timer.start(goodbye, bound([reason](WebSocketChannel& self) { self.finish(reason); }));
        m_stream.async_close(websocket::close_reason(static_cast<websocket::close_code>(code)),
                             bound([reason](WebSocketChannel& self, const Error&) { self.finish(reason); }));
    }

    void abort(const std::string& reason) override { finish(reason); }

private:
    void connect(std::vector<Address> addresses, const std::string& whyNone) {
        if (addresses.empty())
            return finish(whyNone);
        m_connection->open(std::move(addresses), m_options.deadline,
                           bound([](WebSocketChannel& self, const std::string& failure) {
                               if (failure.empty())
                                   self.upgrade();
                               else
                                   self.finish(failure);
                           }));
    }

    void upgrade() {
        m_stream.set_option(
            websocket::stream_base::timeout{websocket::stream_base::none(), websocket::stream_base::none(), false});
        m_stream.next_layer().onLeaving = [this] { leave(); };
        m_stream.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
            for (const auto& [name, value] : m_options.headers)
                request.insert(name, value);
            request.set(beast::http::field::sec_websocket_protocol, subprotocol);
        }));
        m_stream.read_message_max(largestMessage);
        m_stream.auto_fragment(false);
        m_stream.text(true);
        m_stream.async_handshake(m_options.uri.authority(), m_options.target,
                                 bound([](WebSocketChannel& self, const Error& failure) { self.upgraded(failure); }));
    }

    void upgraded(const Error& failure) {
        if (failure)
            return finish(m_reader.getRefusal().empty() ? failure.message() : m_reader.getRefusal());
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
        m_stream.async_read(
            m_buffer, bound([](WebSocketChannel& self, const Error& failure, std::size_t) { self.received(failure); }));
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
        m_timer.start(goodbye, bound([](WebSocketChannel& self) {
                          const bool saidGoodbye = self.m_stream.reason().code != websocket::close_code::none;
                          self.finish(saidGoodbye ? self.describeEnd(websocket::error::closed) : "unreadable frame");
                      }));
    }

    std::string describeEnd(const Error& failure) {
        // The end of the bytes behind a close frame says less than the frame.
        const auto& reason = m_stream.reason();
        if (failure != websocket::error::closed && reason.code == websocket::close_code::none)
            return failure.message();
        std::string text = "closed by the service with " + std::to_string(reason.code);
        if (!reason.reason.empty())
            text += " " + std::string(reason.reason.c_str());
        return text;
    }

    void write() {
        m_stream.async_write(net::buffer(m_outbox.front()),
                             bound([](WebSocketChannel& self, const Error& failure, std::size_t) {
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
                                             : m_connection->lastReceived() + m_options.pingInterval;
            next = next ? std::min(*next, sign) : sign;
        }
        if (next)
            m_timer.start(std::max(*next - m_clock->now(), Duration::zero()),
                          bound([](WebSocketChannel& self) { self.checkTime(); }));
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
            const Duration last = m_connection->lastReceived();
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
        m_stream.async_ping({}, bound([](WebSocketChannel& self, const Error&) { self.m_isPinging = false; }));
    }

    static long long toMilliseconds(Duration time) { return std::chrono::duration_cast<milliseconds>(time).count(); }

    void finish(const std::string& reason) {
        if (m_isOver)
            return;
        m_isOver = true;
        m_timer.cancel();
        m_connection->close();
        if (const auto listener = m_listener.lock())
            listener->channelClosed(reason);
    }

    const Options m_options;
    const std::weak_ptr<ChannelListener> m_listener;
    const std::weak_ptr<EventLoop> m_loop;
    const std::shared_ptr<ReadingClock> m_clock;
    const std::unique_ptr<Connection> m_connection;
    UpgradeReader m_reader;
    websocket::stream<ConnectionStream, false> m_stream;
    EventLoop::Timer m_timer;

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

} // namespace

std::shared_ptr<Channel> Channel::open(const std::shared_ptr<EventLoop>& loop, const Options& options,
                                       std::weak_ptr<ChannelListener> listener) {
    auto channel = std::make_shared<WebSocketChannel>(loop, options, std::move(listener));
    channel->begin();
    return channel;
}

} // namespace xal
