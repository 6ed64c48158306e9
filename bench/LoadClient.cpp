#include "LoadClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>

#include <stdexcept>

namespace asio = boost::asio;
namespace http = boost::beast::http;

struct LoadClient::Connection {
    explicit Connection(std::uint16_t port) : host("127.0.0.1:" + std::to_string(port)), socket(io) {
        socket.connect({asio::ip::address_v4::loopback(), port});
        socket.set_option(asio::ip::tcp::no_delay(true));
    }

    std::string encoded(const std::string& method, const std::string& target, const std::string& body) const {
        return method + " " + target + " HTTP/1.1\r\nHost: " + host +
               "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
               body;
    }

    std::string readAnswer() {
        http::response<http::string_body> answer;
        http::read(socket, buffer, answer);
        if (answer.result_int() / 100 != 2)
            throw std::runtime_error("the service answered " + std::to_string(answer.result_int()) + " " +
                                     answer.body());
        return std::move(answer.body());
    }

    std::string host;
    asio::io_context io;
    asio::ip::tcp::socket socket;
    boost::beast::flat_buffer buffer;
};

LoadClient::LoadClient(std::uint16_t port) : m_connection(std::make_unique<Connection>(port)) {}
LoadClient::~LoadClient() = default;

std::string LoadClient::request(const std::string& method, const std::string& target, const std::string& jsonBody) {
    asio::write(m_connection->socket, asio::buffer(m_connection->encoded(method, target, jsonBody)));
    return m_connection->readAnswer();
}

void LoadClient::patchAll(const std::vector<Change>& changes) {
    std::string requests;
    for (const Change& change : changes)
        requests += m_connection->encoded("PATCH", change.target, change.patch);
    asio::write(m_connection->socket, asio::buffer(requests));
    for (std::size_t i = 0; i < changes.size(); ++i)
        m_connection->readAnswer();
}
