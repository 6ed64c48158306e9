#include "TestClient.h"

#include <support/ConformanceReport.h>

#include <gtest/gtest.h>

namespace {

using namespace cdxtest;
using namespace xaltest;

/// An answer to a GET as its bytes, and the status of the one failure that must come of it.
struct StrictnessCase {
    const char* title;
    std::string bytes;
    int status;
    /// The peer ends the connection behind these bytes: only then is the answer known to be cut short.
    bool ends = false;
};

std::string answer(const std::string& headers, const std::string& body = "[]") {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n" + headers + "\r\n" + body;
}

std::string chunked(const std::string& body) {
    return answer("Transfer-Encoding: chunked\r\n", body);
}

std::string statusLine(const std::string& line) {
    return line + "\r\nContent-Length: 2\r\n\r\n[]";
}

const std::vector<StrictnessCase>& lengthCases() {
    static const std::vector<StrictnessCase> cases = {
        {"two lengths that differ", answer("Content-Length: 2\r\nContent-Length: 3\r\n"), 200},
        {"two lengths that agree", answer("Content-Length: 2\r\nContent-Length: 2\r\n"), 200},
        {"a list of lengths", answer("Content-Length: 2, 2\r\n"), 200},
        {"an empty length", answer("Content-Length:\r\n"), 200},
        {"a length with a plus", answer("Content-Length: +2\r\n"), 200},
        {"a length with a minus", answer("Content-Length: -2\r\n"), 200},
        {"a hexadecimal length", answer("Content-Length: 0x2\r\n"), 200},
        {"a length with a blank inside", answer("Content-Length: 2 2\r\n"), 200},
        {"a length beyond 64 bits", answer("Content-Length: 99999999999999999999999\r\n"), 200},
        {"a length beyond the limit", answer("Content-Length: 67108865\r\n"), 200},
        {"a length and a transfer coding",
         answer("Content-Length: 2\r\nTransfer-Encoding: chunked\r\n", "2\r\n[]\r\n0\r\n\r\n"), 200},
        {"a transfer coding and a length",
         answer("Transfer-Encoding: chunked\r\nContent-Length: 2\r\n", "2\r\n[]\r\n0\r\n\r\n"), 200},
        {"a body shorter than its length", answer("Content-Length: 3\r\n"), 200, true},
        {"a head cut short", "HTTP/1.1 200 OK\r\nContent-Le", 200, true},
        {"a status line cut short", "HTTP/1.1 20", 0, true},
        {"nothing", "", 0, true},
    };
    return cases;
}

const std::vector<StrictnessCase>& codingCases() {
    static const std::vector<StrictnessCase> cases = {
        {"chunkedchunked", answer("Transfer-Encoding: chunkedchunked\r\n", "2\r\n[]\r\n0\r\n\r\n"), 200},
        {"chunked twice", answer("Transfer-Encoding: chunked, chunked\r\n", "2\r\n[]\r\n0\r\n\r\n"), 200},
        {"chunked in two headers",
         answer("Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n", "2\r\n[]\r\n0\r\n\r\n"), 200},
        {"an unknown coding", answer("Transfer-Encoding: gzip\r\n"), 200, true},
        {"an unknown coding before chunked", answer("Transfer-Encoding: gzip, chunked\r\n", "2\r\n[]\r\n0\r\n\r\n"),
         200},
        {"identity", answer("Transfer-Encoding: identity\r\n"), 200, true},
        {"an empty coding", answer("Transfer-Encoding:\r\n"), 200, true},
        {"a chunk's size that is no number", chunked("x\r\n[]\r\n0\r\n\r\n"), 200},
        {"a chunk's size with 0x", chunked("0x2\r\n[]\r\n0\r\n\r\n"), 200},
        {"a chunk's size with a sign", chunked("+2\r\n[]\r\n0\r\n\r\n"), 200},
        {"a chunk's size beyond 64 bits", chunked("10000000000000002\r\n[]\r\n0\r\n\r\n"), 200},
        {"a chunk beyond the limit", chunked("4000001\r\n"), 200},
        {"a chunk's line that ends with a bare line feed", chunked("2\n[]\r\n0\r\n\r\n"), 200},
        {"a chunk longer than its size", chunked("2\r\n[] \r\n0\r\n\r\n"), 200},
        {"chunks that end too early", chunked("2\r\n[]\r\n"), 200, true},
        {"a trailer that is no header", chunked("2\r\n[]\r\n0\r\nno header\r\n\r\n"), 200},
        {"over-long trailers", chunked("2\r\n[]\r\n0\r\na: " + std::string(70'000, 'a') + "\r\n\r\n"), 200},
    };
    return cases;
}

const std::vector<StrictnessCase>& headerCases() {
    static const std::vector<StrictnessCase> cases = {
        {"bare line feeds", "HTTP/1.1 200 OK\nContent-Length: 2\n\n[]", 0},
        {"a header that ends with a bare line feed", answer("A: b\nContent-Length: 2\r\n"), 200},
        {"a bare carriage return in a header", answer("A: b\rC: d\r\nContent-Length: 2\r\n"), 200},
        {"a folded header", answer("A: b\r\n c\r\nContent-Length: 2\r\n"), 200},
        {"a header folded with a tab", answer("A: b\r\n\tc\r\nContent-Length: 2\r\n"), 200},
        {"a first header that begins with a blank", "HTTP/1.1 200 OK\r\n A: b\r\nContent-Length: 2\r\n\r\n[]", 200},
        {"a blank before the colon", answer("Content-Length : 2\r\n"), 200},
        {"a header without a colon", answer("A\r\nContent-Length: 2\r\n"), 200},
        {"a header without a name", answer(": b\r\nContent-Length: 2\r\n"), 200},
        {"a name with a blank", answer("A B: c\r\nContent-Length: 2\r\n"), 200},
        {"a NUL in a value", answer(std::string("A: \0b\r\n", 7) + "Content-Length: 2\r\n"), 200},
        {"a control character in a value", answer("A: \x01\r\nContent-Length: 2\r\n"), 200},
        {"an over-long header", answer("A: " + std::string(70'000, 'a') + "\r\nContent-Length: 2\r\n"), 200},
        {"too many headers", answer([] {
             std::string many;
             for (int i = 0; i < 20'000; ++i)
                 many += "A: b\r\n";
             return many + "Content-Length: 2\r\n";
         }()),
         200},
    };
    return cases;
}

const std::vector<StrictnessCase>& statusCases() {
    static const std::vector<StrictnessCase> cases = {
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
    return cases;
}

struct StrictnessSection {
    const char* name;
    const std::vector<StrictnessCase>& (*cases)();
};

std::ostream& operator<<(std::ostream& out, const StrictnessSection& section) {
    return out << section.name;
}

class HttpStrictness : public ::testing::TestWithParam<StrictnessSection> {
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
    std::string resultOf(const StrictnessCase& sent) {
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
    ConformanceReport report("framework", std::string("http_") + GetParam().name);
    int number = 0;
    for (const StrictnessCase& sent : GetParam().cases()) {
        const std::string expected = "failed " + std::to_string(sent.status);
        const std::string result = resultOf(sent);
        EXPECT_EQ(result, expected) << sent.title;
        report.add(std::to_string(++number), sent.title, expected, "", result == expected ? "" : result);
    }
    const StrictnessCase good{"", answer("Content-Length: 2\r\n"), 200};
    EXPECT_EQ(resultOf(good), "read 0 200") << "the next request fares well";
}

INSTANTIATE_TEST_SUITE_P(Section, HttpStrictness,
                         ::testing::Values(StrictnessSection{"lengths", lengthCases},
                                           StrictnessSection{"codings", codingCases},
                                           StrictnessSection{"headers", headerCases},
                                           StrictnessSection{"status_lines", statusCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
