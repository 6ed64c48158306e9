#include <cdxservice/Server.h>
#include <support/HttpMistakes.h>
#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

namespace cdxtest {
namespace {

// A request as its bytes, and the status that it must be answered with before the connection ends.
using Cases = std::vector<HttpStrictnessCase>;

const std::string creation = R"({"name":"a"})";

std::string get(const std::string& headers) {
    return "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
}

std::string line(const std::string& requestLine) {
    return requestLine + "\r\nHost: localhost\r\n\r\n";
}

int statusOf(HttpFlaw flaw) {
    switch (flaw) {
    case HttpFlaw::unknownCoding:
        return 501;
    case HttpFlaw::lengthOverLimit:
        return 413;
    case HttpFlaw::headerOverLimit:
        return 431;
    default:
        return 400;
    }
}

/// Creations that would be accepted if their framing were.
Cases creations(const std::vector<HttpMistake>& mistakes, Cases others = {}) {
    Cases cases = std::move(others);
    for (const HttpMistake& mistake : mistakes) {
        cases.push_back({mistake.title,
                         "POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + mistake.headers +
                             "Host: localhost\r\nContent-Type: application/json\r\n\r\n" + mistake.body,
                         statusOf(mistake.flaw)});
    }
    return cases;
}

Cases lengthCases() {
    return creations(lengthMistakes(creation));
}

Cases codingCases() {
    return creations(
        codingMistakes(creation),
        {{"a transfer coding in HTTP/1.0",
          "POST /CarDataExchange/cdxConfig HTTP/1.0\r\nHost: localhost\r\nContent-Type: application/json\r\n"
          "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
          400}});
}

Cases headerCases() {
    return creations(
        headerMistakes("Content-Length: " + std::to_string(creation.size()) + "\r\n", creation),
        {
            {"bare line feeds", "GET /CarDataExchange HTTP/1.1\nHost: localhost\n\n", 400},
            {"no host", "GET /CarDataExchange HTTP/1.1\r\n\r\n", 400},
            {"two hosts", "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\n\r\n", 400},
            {"a host with a blank", "GET / HTTP/1.1\r\nHost: local host\r\n\r\n", 400},
            {"a host with a path", "GET / HTTP/1.1\r\nHost: localhost/a\r\n\r\n", 400},
            {"a host with a user", "GET / HTTP/1.1\r\nHost: a@localhost\r\n\r\n", 400},
        });
}

Cases requestLineCases() {
    return {
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
}

class HttpStrictness : public ::testing::TestWithParam<HttpStrictnessSection> {
protected:
    HttpStrictness() { m_service.start(); }

    /// What is not as it must be, with a good request hidden behind the bad one; empty when all is.
    std::string difference(const HttpStrictnessCase& sent) {
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
    playSection("service", GetParam(), ", then closed",
                [this](const HttpStrictnessCase& sent) { return difference(sent); });
    HttpTestClient other(m_service.port());
    EXPECT_EQ(other.get("/CarDataExchange/cdxConfig").body, "[]") << "nothing of it was carried out";
}

INSTANTIATE_TEST_SUITE_P(Section, HttpStrictness,
                         ::testing::Values(HttpStrictnessSection{"lengths", lengthCases},
                                           HttpStrictnessSection{"codings", codingCases},
                                           HttpStrictnessSection{"headers", headerCases},
                                           HttpStrictnessSection{"request_lines", requestLineCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
} // namespace cdxtest
