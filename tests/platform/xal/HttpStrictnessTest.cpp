#include "TestClient.h"

#include <support/HttpMistakes.h>
#include <support/WebSocketPeer.h>

#include <gtest/gtest.h>

namespace {

using namespace cdxtest;
using namespace xaltest;

// An answer to a GET as its bytes, and the status of the one failure that must come of it.
using Cases = std::vector<HttpStrictnessCase>;

std::string answer(const std::string& headers, const std::string& body = "[]") {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n" + headers + "\r\n" + body;
}

std::string statusLine(const std::string& line) {
    return line + "\r\nContent-Length: 2\r\n\r\n[]";
}

/// Whatever stands behind a good status line.
Cases answers(const std::vector<HttpMistake>& mistakes, Cases others) {
    Cases cases = std::move(others);
    for (const HttpMistake& mistake : mistakes) {
        // The mistake comes first: a header that begins with a blank must follow the status line.
        cases.push_back({mistake.title, "HTTP/1.1 200 OK\r\n" + mistake.headers + "\r\n" + mistake.body, 200,
                         mistake.flaw == HttpFlaw::endless});
    }
    return cases;
}

Cases lengthCases() {
    return answers(lengthMistakes("[]"),
                   {
                       {"a body shorter than its length", answer("Content-Length: 3\r\n"), 200, true},
                       {"a head cut short", "HTTP/1.1 200 OK\r\nContent-Le", 200, true},
                       {"a status line cut short", "HTTP/1.1 20", 0, true},
                       {"nothing", "", 0, true},
                   });
}

Cases codingCases() {
    return answers(codingMistakes("[]"), {
                                             {"an unknown coding", answer("Transfer-Encoding: gzip\r\n"), 200, true},
                                             {"chunks that end too early",
                                              answer("Transfer-Encoding: chunked\r\n", "2\r\n[]\r\n"), 200, true},
                                         });
}

Cases headerCases() {
    return answers(headerMistakes("Content-Length: 2\r\n", "[]"),
                   {{"bare line feeds", "HTTP/1.1 200 OK\nContent-Length: 2\n\n[]", 0}});
}

Cases statusCases() {
    return {
        {"no HTTP at all", "SSH-2.0-server\r\n", 0},
        {"another protocol's name", statusLine("ICY 200 OK"), 0},
        {"a misspelled name", statusLine("HTPP/1.1 200 OK"), 0},
        {"a name in lower case", statusLine("http/1.1 200 OK"), 0},
        {"another major version", statusLine("HTTP/2.0 200 OK"), 0},
        {"a version of two digits", statusLine("HTTP/1.10 200 OK"), 0},
        {"no status", statusLine("HTTP/1.1"), 0},
        {"a status that is no number", statusLine("HTTP/1.1 abc OK"), 0},
        {"a status of two digits", statusLine("HTTP/1.1 20 OK"), 0},
        {"a status of four digits", statusLine("HTTP/1.1 2000 OK"), 0},
        {"a status with a sign", statusLine("HTTP/1.1 +20 OK"), 0},
        {"two blanks before the status", statusLine("HTTP/1.1  200 OK"), 0},
        {"an over-long status line", statusLine("HTTP/1.1 200 " + std::string(70'000, 'a')), 0},
        {"an empty line first", "\r\n" + statusLine("HTTP/1.1 200 OK"), 0},
        {"an upgrade that nobody asked for", "HTTP/1.1 101 Switching Protocols\r\nUpgrade: a\r\n\r\n", 101},
        {"a redirect", "HTTP/1.1 301 Moved Permanently\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n", 301},
        {"unauthorised", "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n", 401},
        {"too large", "HTTP/1.1 413 Content Too Large\r\nContent-Length: 0\r\n\r\n", 413},
        {"a fault of the service", "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 2\r\n\r\n[]", 500},
        {"a service away", "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 1\r\nContent-Length: 0\r\n\r\n", 503},
        {"a body that is no JSON", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n[", 200},
        {"a body that is no list", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}", 200},
        {"no content", "HTTP/1.1 204 No Content\r\n\r\n", 204},
    };
}

class HttpStrictness : public ::testing::TestWithParam<HttpStrictnessSection> {
protected:
    HttpStrictness() : m_client("http://127.0.0.1:" + std::to_string(m_listener.port())) {
        m_client.listen();
        m_channel.emplace(WebSocketPeer::accept(TcpPeer(m_listener.accept())));
        m_service = m_client.connection();
    }

    void read() {
        m_service->readElements<Item>(
            ItemDescriptor(),
            [this](const std::vector<std::shared_ptr<const Item>>& items,
                   const std::shared_ptr<const xal::XalResponse>& response) {
                m_results.add("read " + std::to_string(items.size()) + " " + std::to_string(response->getStatusCode()));
            },
            [this](const std::shared_ptr<const xal::XalResponse>& response) {
                m_results.add("failed " + std::to_string(response->getStatusCode()));
            });
    }
    /// Answers the next request, on the connection that is kept or on a new one, and gives the result.
    std::string resultOf(const HttpStrictnessCase& sent) {
        read();
        if (!m_kept.isOpen() || !m_kept.takeUntil("\r\n\r\n")) {
            m_kept = TcpPeer(m_listener.accept());
            if (!m_kept.takeUntil("\r\n\r\n"))
                return "no request";
        }
        m_kept.send(sent.bytes);
        if (sent.ends)
            m_kept.endSending();
        m_results.awaitCount(++m_asked);
        const std::vector<std::string> results = m_results.lines();
        return results.size() == m_asked ? results.back() : std::to_string(results.size()) + " results";
    }

    Listener m_listener;
    TestClient m_client;
    std::optional<WebSocketPeer> m_channel;
    std::shared_ptr<ItemService> m_service;
    TcpPeer m_kept;
    Journal m_results;
    std::size_t m_asked = 0;
};

TEST_P(HttpStrictness, TakesTheAnswerForOneFailureWithItsStatus) {
    playSection("framework", GetParam(), "", [this](const HttpStrictnessCase& sent) {
        const std::string result = resultOf(sent);
        return result == "failed " + std::to_string(sent.status) ? "" : result;
    });
    const HttpStrictnessCase good{"", answer("Content-Length: 2\r\n"), 200};
    EXPECT_EQ(resultOf(good), "read 0 200") << "the next request fares well";
}

INSTANTIATE_TEST_SUITE_P(Section, HttpStrictness,
                         ::testing::Values(HttpStrictnessSection{"lengths", lengthCases},
                                           HttpStrictnessSection{"codings", codingCases},
                                           HttpStrictnessSection{"headers", headerCases},
                                           HttpStrictnessSection{"status_lines", statusCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
