#include "HttpTestClient.h"

#include <support/WebSocketPeer.h>

#include <cstdlib>

namespace cdxtest {

std::string HttpAnswer::header(const std::string& name) const {
    return headerValue(head, name);
}

TcpPeer& HttpTestClient::tcp() {
    if (!m_tcp.isOpen())
        m_tcp = TcpPeer::connect(m_port);
    return m_tcp;
}

bool HttpTestClient::send(std::string_view bytes) {
    return tcp().send(bytes);
}

HttpAnswer HttpTestClient::request(std::string_view method, std::string_view target, std::string_view body,
                                   std::string_view headers) {
    std::string bytes;
    bytes.append(method).append(" ").append(target).append(" HTTP/1.1\r\n");
    if (headers.find("Host:") == std::string_view::npos)
        bytes.append("Host: 127.0.0.1:").append(std::to_string(m_port)).append("\r\n");
    if (!body.empty())
        bytes.append("Content-Length: ").append(std::to_string(body.size())).append("\r\n");
    bytes.append(headers).append("\r\n").append(body);
    send(bytes);
    HttpAnswer answer = read(method == "HEAD");
    if (answer.status == 0 || answer.header("Connection") == "close")
        close();
    return answer;
}

HttpAnswer HttpTestClient::post(std::string_view target, std::string_view json) {
    return request("POST", target, json, "Content-Type: application/json\r\n");
}

HttpAnswer HttpTestClient::patch(std::string_view target, std::string_view json) {
    return request("PATCH", target, json, "Content-Type: application/merge-patch+json\r\n");
}

HttpAnswer HttpTestClient::read(bool toHead, std::chrono::milliseconds within) {
    HttpAnswer answer;
    const auto head = tcp().takeUntil("\r\n\r\n", within);
    if (!head || head->rfind("HTTP/1.1 ", 0) != 0)
        return answer;
    answer.head = *head;
    const int status = std::atoi(head->c_str() + 9);
    const bool bodiless = toHead || status < 200 || status == 204 || status == 304;
    if (!bodiless) {
        const auto body = tcp().take(std::strtoull(answer.header("Content-Length").c_str(), nullptr, 10), within);
        if (!body)
            return answer;
        answer.body = *body;
    }
    answer.status = status;
    return answer;
}

HttpAnswer HttpTestClient::exchange(std::string_view bytes) {
    close();
    send(bytes);
    return read();
}

bool HttpTestClient::isEnded(std::chrono::milliseconds within) {
    return tcp().readToEnd(within);
}

} // namespace cdxtest
