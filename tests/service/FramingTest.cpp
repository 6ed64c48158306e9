#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class Framing : public ServiceFixture {
protected:
    /// The status of the answer, which must be the connection's last.
    int lastAnswer(const std::string& bytes) {
        const auto answer = client->exchange(bytes);
        EXPECT_EQ(answer.header("Connection"), "close") << bytes.substr(0, 80);
        EXPECT_EQ(answer.header("Content-Type"), "application/problem+json");
        EXPECT_TRUE(client->isEnded());
        return answer.status;
    }
};

TEST_F(Framing, ARequestThatCannotBeFramedEndsTheConnection) {
    const std::string get = "GET /health HTTP/1.1\r\n" + host();
    EXPECT_EQ(lastAnswer(get + "A : b\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "A: b\r\n c\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "A: b\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "Content-Length: 1\r\nContent-Length: 1\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "Transfer-Encoding: chunkedchunked\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "Transfer-Encoding: br, chunked\r\n\r\n"), 501);
    EXPECT_EQ(lastAnswer("GET /health HTTP/2.0\r\n\r\n"), 505);
    EXPECT_EQ(lastAnswer("GET /health HTTP/1.1\r\n\r\n"), 400);
    EXPECT_EQ(lastAnswer(get + "Transfer-Encoding: chunked\r\n\r\nx\r\n"), 400);
}

TEST_F(Framing, ABadRequestIsAnsweredAsSoonAsItIsSeen) {
    EXPECT_EQ(lastAnswer("GET /health HTTP/1.1\n"), 400);
    EXPECT_EQ(lastAnswer("GET /" + std::string(9000, 'a')), 414);
    EXPECT_EQ(lastAnswer("GET /health HTTP/1.1\r\n" + host() + "A: " + std::string(40'000, 'a')), 431);
}

TEST_F(Framing, TheAnswerReachesAClientThatGoesOnSending) {
    EXPECT_EQ(lastAnswer("GET /health HTTP/1.1\r\n" + host() + "A: " + std::string(1024 * 1024, 'a')), 431);
}

TEST_F(Framing, FramingIsLookedAtBeforeTheHost) {
    EXPECT_EQ(lastAnswer("GET /health HTTP/1.1\r\nHost: evil\r\nContent-Length: x\r\n\r\n"), 400);
}

TEST_F(Framing, WhatFollowsABadRequestIsNoRequest) {
    const auto answer =
        client->exchange("GET /health HTTP/1.1\r\n" + host() + "A\r\n\r\nGET /health HTTP/1.1\r\n" + host() + "\r\n");
    EXPECT_EQ(answer.status, 400);
    EXPECT_TRUE(client->isEnded());
    EXPECT_EQ(client->tcp().received(), "");
}

TEST_F(Framing, AClientThatSaysSoIsTheLastToBeAnswered) {
    const auto answer = client->exchange("GET /health HTTP/1.1\r\n" + host() + "Connection: close\r\n\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Connection"), "close");
    EXPECT_TRUE(client->isEnded());
}

TEST_F(Framing, AnOlderClientKeepsItsConnectionOnlyIfItAsks) {
    EXPECT_EQ(client->exchange("GET /health HTTP/1.0\r\n" + host() + "\r\n").status, 200);
    EXPECT_TRUE(client->isEnded());
    EXPECT_EQ(
        client->exchange("GET /health HTTP/1.0\r\n" + host() + "Connection: keep-alive\r\n\r\n").header("Connection"),
        "keep-alive");
    EXPECT_EQ(client->get("/health").status, 200);
}

TEST_F(Framing, ARequestMayComeByteByByte) {
    ASSERT_TRUE(client->tcp().send("\r\nGET /health HTTP/1.1\r\n" + host() + "\r\n", 1));
    EXPECT_EQ(client->read().status, 200);
}

TEST_F(Framing, AnAbsoluteAddressIsTakenForItsHostAndPath) {
    EXPECT_EQ(client->exchange("GET http://localhost/health HTTP/1.1\r\nHost: evil\r\n\r\n").status, 200);
    EXPECT_EQ(client->exchange("GET http://evil/health HTTP/1.1\r\n" + host() + "\r\n").status, 421);
    EXPECT_EQ(client->exchange("GET http://[::1]:8/health HTTP/1.1\r\nHost: evil\r\n\r\n").status, 200);
    EXPECT_EQ(client->exchange("GET http://[::2]/health HTTP/1.1\r\n" + host() + "\r\n").status, 421);
    EXPECT_EQ(client->exchange("GET https://localhost/health HTTP/1.1\r\n" + host() + "\r\n").status, 421);
}

} // namespace
} // namespace cdxservice
