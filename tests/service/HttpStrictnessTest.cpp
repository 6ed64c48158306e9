#include <cdxservice/Server.h>
#include <support/ConformanceReport.h>
#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

namespace cdxtest {
namespace {

/// A request as its bytes, and the status that it must be answered with before the connection ends.
struct StrictnessCase {
    const char* title;
    std::string bytes;
    int status;
};

std::string get(const std::string& headers) {
    return "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
}

std::string line(const std::string& requestLine) {
    return requestLine + "\r\nHost: localhost\r\n\r\n";
}

/// A creation that would be accepted if its framing were.
std::string post(const std::string& framing, const std::string& body = R"({"name":"a"})") {
    return "POST /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n" +
           framing + "\r\n" + body;
}

std::string chunked(const std::string& body) {
    return post("Transfer-Encoding: chunked\r\n", body);
}

const std::vector<StrictnessCase>& lengthCases() {
    static const std::vector<StrictnessCase> cases = {
        {"two lengths that differ", post("Content-Length: 12\r\nContent-Length: 13\r\n"), 400},
        {"two lengths that agree", post("Content-Length: 12\r\nContent-Length: 12\r\n"), 400},
        {"a list of lengths", post("Content-Length: 12, 12\r\n"), 400},
        {"an empty length", post("Content-Length:\r\n"), 400},
        {"a length with a plus", post("Content-Length: +12\r\n"), 400},
        {"a length with a minus", post("Content-Length: -12\r\n"), 400},
        {"a hexadecimal length", post("Content-Length: 0xC\r\n"), 400},
        {"a length with a blank inside", post("Content-Length: 1 2\r\n"), 400},
        {"a length with a fraction", post("Content-Length: 12.0\r\n"), 400},
        {"a length with a vertical tab", post("Content-Length: \v12\r\n"), 400},
        {"a length beyond 64 bits", post("Content-Length: 99999999999999999999999\r\n"), 413},
        {"a length and a transfer coding", post("Content-Length: 12\r\nTransfer-Encoding: chunked\r\n"), 400},
        {"a transfer coding and a length", post("Transfer-Encoding: chunked\r\nContent-Length: 12\r\n"), 400},
    };
    return cases;
}

const std::vector<StrictnessCase>& codingCases() {
    static const std::vector<StrictnessCase> cases = {
        {"chunkedchunked", post("Transfer-Encoding: chunkedchunked\r\n"), 400},
        {"chunked twice", post("Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n"), 400},
        {"chunked twice in a list", post("Transfer-Encoding: chunked, chunked\r\n"), 400},
        {"chunked that is not the last", post("Transfer-Encoding: chunked, gzip\r\n"), 400},
        {"an unknown coding", post("Transfer-Encoding: gzip, chunked\r\n"), 501},
        {"identity", post("Transfer-Encoding: identity\r\n"), 400},
        {"an empty coding", post("Transfer-Encoding:\r\n"), 400},
        {"chunked with a parameter", post("Transfer-Encoding: chunked;a=b\r\n"), 400},
        {"chunked after a vertical tab", post("Transfer-Encoding: \vchunked\r\n"), 400},
        {"chunked in quotes", post("Transfer-Encoding: \"chunked\"\r\n"), 400},
        {"a transfer coding in HTTP/1.0",
         "POST /CarDataExchange/cdxConfig HTTP/1.0\r\nHost: localhost\r\nContent-Type: application/json\r\n"
         "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         400},
        {"a chunk without a size", chunked("\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's size that is no number", chunked("x\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's size with 0x", chunked("0x2\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's size with a sign", chunked("+2\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's size behind a blank", chunked(" 2\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's size beyond 64 bits", chunked("10000000000000002\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's line that ends with a bare line feed", chunked("2\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk that ends with a bare line feed", chunked("2\r\n{}\n0\r\n\r\n"), 400},
        {"a chunk longer than its size", chunked("2\r\n{}a\r\n0\r\n\r\n"), 400},
        {"a chunk's extension with a bare line feed", chunked("2;a\n\r\n{}\r\n0\r\n\r\n"), 400},
        {"a chunk's extension with a bare carriage return", chunked("2;a\rb\r\n{}\r\n0\r\n\r\n"), 400},
        {"an over-long chunk extension", chunked("2;" + std::string(70'000, 'a') + "\r\n{}\r\n0\r\n\r\n"), 400},
        {"a trailer that is no header", chunked("2\r\n{}\r\n0\r\nno header\r\n\r\n"), 400},
        {"a folded trailer", chunked("2\r\n{}\r\n0\r\na: b\r\n c\r\n\r\n"), 400},
        {"over-long trailers", chunked("2\r\n{}\r\n0\r\na: " + std::string(70'000, 'a') + "\r\n\r\n"), 400},
        {"a chunk over the limit", chunked("100001\r\n"), 413},
    };
    return cases;
}

const std::vector<StrictnessCase>& headerCases() {
    static const std::vector<StrictnessCase> cases = {
        {"bare line feeds", "GET /CarDataExchange HTTP/1.1\nHost: localhost\n\n", 400},
        {"a header that ends with a bare line feed", get("A: b\nC: d\r\n"), 400},
        {"a bare carriage return in a header", get("A: b\rC: d\r\n"), 400},
        {"a folded header", get("A: b\r\n c\r\n"), 400},
        {"a header folded with a tab", get("A: b\r\n\tc\r\n"), 400},
        {"a first header that begins with a blank", "GET / HTTP/1.1\r\n Host: localhost\r\n\r\n", 400},
        {"a blank before the colon", get("A : b\r\n"), 400},
        {"a tab before the colon", get("A\t: b\r\n"), 400},
        {"a blank before the colon of the length", post("Content-Length : 12\r\n"), 400},
        {"a header without a colon", get("A\r\n"), 400},
        {"a header without a name", get(": b\r\n"), 400},
        {"a name with a blank", get("A B: c\r\n"), 400},
        {"a name with a delimiter", get("A(B: c\r\n"), 400},
        {"a name that is no ASCII", get("\xc3\xa4: c\r\n"), 400},
        {"a NUL in a value", get(std::string("A: \0b\r\n", 7)), 400},
        {"a NUL in a name", get(std::string("A\0: b\r\n", 7)), 400},
        {"a control character in a value", get("A: \x01\r\n"), 400},
        {"an over-long header", get("A: " + std::string(70'000, 'a') + "\r\n"), 431},
        {"a header of one MiB", get("A: " + std::string(1'048'576, 'a') + "\r\n"), 431},
        {"too many headers", get([] {
             std::string many;
             for (int i = 0; i < 20'000; ++i)
                 many += "A: b\r\n";
             return many;
         }()),
         431},
        {"no host", "GET /CarDataExchange HTTP/1.1\r\n\r\n", 400},
        {"two hosts", "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\n\r\n", 400},
        {"a host with a blank", "GET / HTTP/1.1\r\nHost: local host\r\n\r\n", 400},
        {"a host with a path", "GET / HTTP/1.1\r\nHost: localhost/a\r\n\r\n", 400},
        {"a host with a user", "GET / HTTP/1.1\r\nHost: a@localhost\r\n\r\n", 400},
    };
    return cases;
}

const std::vector<StrictnessCase>& requestLineCases() {
    static const std::vector<StrictnessCase> cases = {
        {"no version", line("GET /"), 400},
        {"two blanks before the address", line("GET  / HTTP/1.1"), 400},
        {"two blanks before the version", line("GET /  HTTP/1.1"), 400},
        {"a blank behind the version", line("GET / HTTP/1.1 "), 400},
        {"a blank in the address", line("GET /a b HTTP/1.1"), 400},
        {"a tab for a blank", line("GET\t/ HTTP/1.1"), 400},
        {"a blank before the method", line(" GET / HTTP/1.1"), 400},
        {"a method that is no token", line("G@T / HTTP/1.1"), 400},
        {"a version in lower case", line("GET / http/1.1"), 400},
        {"a version of two digits", line("GET / HTTP/1.10"), 400},
        {"a version that is none", line("GET / HTTP/1,1"), 400},
        {"a version of another protocol", line("GET / HTPP/1.1"), 400},
        {"another major version", line("GET / HTTP/2.0"), 505},
        {"the preface of another version", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 505},
        {"a fragment in the address", line("GET /#a HTTP/1.1"), 400},
        {"an address that is no path", line("GET a HTTP/1.1"), 400},
        {"an address that is no ASCII", line("GET /\xc3\xa4 HTTP/1.1"), 400},
        {"a bad escape", line("GET /%4x HTTP/1.1"), 400},
        {"an over-long address", line("GET /" + std::string(70'000, 'a') + " HTTP/1.1"), 414},
        {"an over-long method", line(std::string(70'000, 'A') + " / HTTP/1.1"), 501},
        {"the first bytes of a TLS handshake", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11), 400},
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
    HttpStrictness() { m_service.start(); }

    /// What is not as it must be, with a good request hidden behind the bad one; empty when all is.
    std::string difference(const StrictnessCase& sent) {
        HttpTestClient client(m_service.port());
        client.send(sent.bytes);
        client.send(get("X-Hidden: 1\r\n"));
        const HttpAnswer answer = client.read();
        if (answer.status != sent.status)
            return "answered with " + std::to_string(answer.status);
        if (answer.header("Content-Type") != "application/problem+json")
            return "no problem document: " + answer.head;
        const HttpAnswer hidden = client.read();
        return hidden.status == 0 ? "" : "what stood behind it was answered with " + std::to_string(hidden.status);
    }

    cdxservice::Server m_service;
};

TEST_P(HttpStrictness, RefusesTheRequestAndTakesNothingBehindIt) {
    ConformanceReport report("service", std::string("http_") + GetParam().name);
    int number = 0;
    for (const StrictnessCase& sent : GetParam().cases()) {
        const std::string found = difference(sent);
        EXPECT_EQ(found, "") << sent.title << "; expected " << sent.status;
        report.add(std::to_string(++number), sent.title, std::to_string(sent.status) + ", then closed", "", found);
    }
    HttpTestClient other(m_service.port());
    EXPECT_EQ(other.get("/CarDataExchange/cdxConfig").body, "[]") << "nothing of it was carried out";
}

INSTANTIATE_TEST_SUITE_P(Section, HttpStrictness,
                         ::testing::Values(StrictnessSection{"lengths", lengthCases},
                                           StrictnessSection{"codings", codingCases},
                                           StrictnessSection{"headers", headerCases},
                                           StrictnessSection{"request_lines", requestLineCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
} // namespace cdxtest
