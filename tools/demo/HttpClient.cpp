#include "HttpClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <chrono>
#include <stdexcept>

namespace cdxtools {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

HttpAnswer httpRequest(std::uint16_t port, const std::string& method, const std::string& target,
                       const std::string& jsonBody) {
    asio::io_context io;
    beast::tcp_stream stream(io);
    stream.expires_after(std::chrono::seconds(5));

    http::request<http::string_body> request(http::string_to_verb(method), target, 11);
    request.set(http::field::host, "127.0.0.1:" + std::to_string(port));
    request.set(http::field::connection, "close");
    if (!jsonBody.empty()) {
        request.set(http::field::content_type, "application/json");
        request.body() = jsonBody;
    }
    request.prepare_payload();

    http::response<http::string_body> response;
    beast::flat_buffer buffer;
    beast::error_code failure;
    // Only the asynchronous operations heed the stream's time-out.
    stream.async_connect({asio::ip::address_v4::loopback(), port}, [&](beast::error_code error) {
        if ((failure = error))
            return;
        http::async_write(stream, request, [&](beast::error_code writeError, std::size_t) {
            if ((failure = writeError))
                return;
            http::async_read(stream, buffer, response,
                             [&](beast::error_code readError, std::size_t) { failure = readError; });
        });
    });
    io.run();
    if (failure)
        throw std::runtime_error(method + " " + target + ": " + failure.message());
    return {static_cast<int>(response.result_int()), response.body()};
}

} // namespace cdxtools
