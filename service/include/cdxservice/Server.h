#ifndef SERVICE_INCLUDE_CDXSERVICE_SERVER_H
#define SERVICE_INCLUDE_CDXSERVICE_SERVER_H

#include <cdxservice/Clock.h>
#include <cdxservice/Store.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cdxservice {

/// A data element that a master control's event ticket removed.
struct Settlement {
    std::string clientName;
    std::string eventId;                           ///< The control's "eventTicket".
    std::optional<std::string> dataDeliveryResult; ///< The literal that the control holds after the write.
    std::string dataId;                            ///< The removed element.
};

struct ServerOptions {
    /// A literal address. Beyond loopback a token is needed.
    std::string bindAddress = "127.0.0.1";
    /// 0: any free one, see Server::port().
    std::uint16_t port = 0;
    /// Names, besides loopback and the bound address, that a request's "Host" may bear.
    std::vector<std::string> hostNames;

    /// A file whose content, without surrounding white space, every request must present. Empty: none is asked for.
    std::string tokenFile;
    /// PEM files; both or neither. With them the server speaks TLS only.
    std::string tlsCertificateFile;
    std::string tlsKeyFile;

    /// Connections served at a time; those beyond are told so and closed.
    std::size_t maxConnections = 4096;
    std::size_t maxBodyBytes = 1'048'576;
    /// From the last byte, either way, to the end of a connection without a request or with an unfinished one.
    std::chrono::milliseconds idleTimeout = std::chrono::seconds(60);
    /// From an unfinished request's first byte to the end of its connection.
    std::chrono::milliseconds requestTimeout = std::chrono::minutes(5);
    /// From the last byte that a channel's peer took, while more waits for it, to the end of the channel.
    std::chrono::milliseconds stallTimeout = std::chrono::hours(1);
    /// What all requests that are not whole yet, all answers and events that are not taken yet, and all subscriptions
    /// may hold together, each for itself. Beyond, connections end that have moved no byte for five seconds, those
    /// first that hold the most; beyond four times of it, at once. Nobody ends who keeps to an equal share, by
    /// maxConnections, of these four times.
    std::size_t maxHeldBytes = 67'108'864;
    /// How long stop() waits for peers to close their side.
    std::chrono::milliseconds closeTimeout = std::chrono::milliseconds(500);

    /// Empty: a new one, which goes with the server. Its limit on elements is its own.
    std::shared_ptr<Store> store;
    /// Empty: the machine's clocks.
    std::shared_ptr<Clock> clock;

    /// Called on the server's thread, one line at a time without a line end; must return soon and not call the server.
    std::function<void(const std::string& line)> log;
    /// Called on the server's thread for each data element settled, after the change is stored; the same rules hold.
    std::function<void(const Settlement&)> onSettled;
};

/// The car data exchange service on a socket: HTTP, and events over WebSocket, on one thread of its own.
///
/// start() and stop() are called by the owner, one at a time, on any thread but the server's own; a stopped server may
/// be started again and listens on the port that it had.
class Server {
public:
    explicit Server(ServerOptions options = {});
    /// Stops.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Returns once the socket listens. Throws std::runtime_error that says what stands in the way: an option, a file,
    /// the address. Does nothing while the server runs.
    void start();

    /// Tells channels that the service stops (1001), ends every connection and joins the thread. May be repeated.
    void stop();

    /// The port listened on; of a server stopped, the one it had; 0 before the first start.
    std::uint16_t port() const;

    /// Scheme, address and port, without a slash at the end: "http://127.0.0.1:41234".
    std::string uri() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace cdxservice

#endif
