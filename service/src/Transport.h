#ifndef SERVICE_SRC_TRANSPORT_H
#define SERVICE_SRC_TRANSPORT_H

#include "OutBuffer.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>

#include <memory>
#include <optional>
#include <utility>

namespace cdxservice {

/// A connection's bytes, with TLS or without. One reading and one writing may be outstanding.
class Transport {
public:
    using Socket = boost::asio::ip::tcp::socket;

    Transport(Socket socket, boost::asio::ssl::context* tls) : m_socket(std::move(socket)) {
        if (tls) {
            m_tls.emplace(m_socket, *tls);
        }
    }

    bool isTls() const { return m_tls.has_value(); }

    template <class Handler>
    void asyncHandshake(Handler handler) {
        m_tls->async_handshake(boost::asio::ssl::stream_base::server, std::move(handler));
    }

    template <class Handler>
    void asyncReadSome(boost::asio::mutable_buffer buffer, Handler handler) {
        if (m_tls) {
            m_tls->async_read_some(buffer, std::move(handler));
        } else {
            m_socket.async_read_some(buffer, std::move(handler));
        }
    }

    template <class Handler>
    void asyncWriteSome(OutBuffer::View bytes, Handler handler) {
        if (m_tls) {
            m_tls->async_write_some(bytes, std::move(handler));
        } else {
            m_socket.async_write_some(bytes, std::move(handler));
        }
    }

    /// Writes what fits without waiting; 0 under TLS, and when nothing fits. False: the connection is broken.
    bool writeNow(OutBuffer::View bytes, std::size_t& written) {
        written = 0;
        if (m_tls) {
            return true;
        }
        boost::system::error_code error;
        written = m_socket.write_some(bytes, error);
        return !error || error == boost::asio::error::would_block;
    }

    /// Tells the peer that nothing more comes; what it still sends can be read. `keepAlive` lives until that is done.
    void endSending(std::shared_ptr<const void> keepAlive) {
        if (m_tls) {
            m_tls->async_shutdown([kept = std::move(keepAlive)](boost::system::error_code) {});
            return;
        }
        boost::system::error_code ignored;
        m_socket.shutdown(Socket::shutdown_send, ignored);
    }

    void close() {
        boost::system::error_code ignored;
        m_socket.close(ignored);
    }

private:
    Socket m_socket;
    std::optional<boost::asio::ssl::stream<Socket&>> m_tls;
};

} // namespace cdxservice

#endif
