#include "ScriptedService.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <stdexcept>

namespace xaltest {

namespace json = boost::json;

cdxtest::TcpPeer ScriptedService::acceptTcp(std::chrono::milliseconds within) {
    auto descriptor = m_listener.accept(within);
    if (!descriptor)
        throw std::runtime_error("no client came");
    return cdxtest::TcpPeer(std::move(descriptor));
}

cdxtest::WebSocketPeer ScriptedService::accept() {
    return cdxtest::WebSocketPeer::accept(acceptTcp());
}

void ScriptedService::answerRequest(const std::string& status, const std::string& body) {
    auto tcp = acceptTcp();
    const auto head = tcp.takeUntil("\r\n\r\n");
    if (!head)
        throw std::runtime_error("no request came");
    if (const std::string length = cdxtest::headerValue(*head, "Content-Length"); !length.empty())
        tcp.take(std::stoul(length));
    tcp.send("HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

json::object readMessage(cdxtest::WebSocketPeer& channel) {
    const auto text = channel.readText();
    if (!text)
        throw std::runtime_error("no message came");
    return json::parse(*text).as_object();
}

std::string subscribed(std::int64_t number, bool isResumed, const std::string& epoch) {
    return json::serialize(
        json::object{{"op", "subscribed"}, {"sub", number}, {"epoch", epoch}, {"resumed", isResumed}});
}

std::string changed(std::int64_t number, std::int64_t previous, std::int64_t revision, const std::string& id,
                    const std::string& name) {
    return json::serialize(json::object{{"op", "event"},
                                        {"sub", number},
                                        {"prev", previous},
                                        {"rev", revision},
                                        {"element", json::object{{"id", id}, {"name", name}}}});
}

std::string removed(std::int64_t number, std::int64_t previous, std::int64_t revision, const std::string& id) {
    return json::serialize(
        json::object{{"op", "event"}, {"sub", number}, {"prev", previous}, {"rev", revision}, {"removed", id}});
}

std::string current(std::int64_t number, std::int64_t previous, std::int64_t revision) {
    return json::serialize(json::object{{"op", "current"}, {"sub", number}, {"prev", previous}, {"rev", revision}});
}

std::string refused(std::int64_t number, int status) {
    return json::serialize(json::object{
        {"op", "error"}, {"sub", number}, {"status", status}, {"title", "Refused"}, {"detail", "by the test"}});
}

} // namespace xaltest
