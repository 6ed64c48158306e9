#ifndef XAL_CHANNEL_H
#define XAL_CHANNEL_H

#include "EventLoop.h"
#include "Uri.h"

#include <xalutil/HttpSession.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace xal {

/// What becomes of a channel. All of it runs on the loop's thread; nothing comes after channelClosed().
class ChannelListener {
public:
    virtual ~ChannelListener() = default;
    virtual void channelOpen() = 0;
    /// One text message. Whether to go on reading; if not, Channel::resume() does.
    virtual bool channelMessage(const std::string& text) = 0;
    /// The reading deadline passed.
    virtual void channelDeadline() = 0;
    /// The attempt failed, or the connection is gone; said once.
    virtual void channelClosed(const std::string& reason) = 0;
};

/// One WebSocket connection with a service, from the attempt to its end: RFC 6455 with the subprotocol cdx.v1 and no
/// extension, over TLS where the URI asks for it.
///
/// Time that concerns the peer is counted only while the channel reads: a reader that was told to wait says nothing
/// about the peer. Belongs to the loop's thread.
class Channel {
public:
    using Duration = std::chrono::steady_clock::duration;

    struct Options {
        Uri uri;            ///< of the service's host
        std::string target; ///< path of the channel
        xalutil::HttpHeaders headers;
        std::chrono::steady_clock::time_point deadline; ///< for the attempt
        /// The peer is asked for a sign of life when nothing was received for the interval, and is lost when nothing is
        /// received for the time-out after that. Off unless both are positive.
        std::chrono::milliseconds pingInterval{0};
        std::chrono::milliseconds pongTimeout{0};
    };

    static constexpr int outOfOrder = 4000; ///< close code: the order of the messages does not hold

    static std::shared_ptr<Channel> open(const std::shared_ptr<EventLoop>& loop, const Options& options,
                                         std::weak_ptr<ChannelListener> listener);
    virtual ~Channel() = default;

    virtual void send(std::string text) = 0;
    virtual void resume() = 0;
    /// How long the channel has been reading since it opened.
    virtual Duration readingTime() const = 0;
    /// When, in reading time, channelDeadline() is to be called; replaces the one before.
    virtual void setDeadline(std::optional<Duration> readingTime) = 0;

    /// Ends the connection, or the attempt, with what is said to the peer and to the listener. The peer gets a moment
    /// to say goodbye.
    virtual void close(int code, const std::string& reason) = 0;
    /// Ends it at once, without a word to the peer.
    virtual void abort(const std::string& reason) = 0;
};

} // namespace xal

#endif
