#include "RequestHead.h"

#include <gtest/gtest.h>

#include <string>

namespace cdxservice {
namespace {

using State = HeadParser::State;

/// The status that a head is refused with; 200: it is whole and good; 0: more of it is awaited.
int judged(const std::string& bytes, std::size_t slice = 0) {
    HeadParser parser;
    State state = State::Reading;
    for (std::size_t end = slice == 0 ? bytes.size() : slice; state == State::Reading; end += slice) {
        state = parser.read(std::string_view(bytes).substr(0, end));
        if (end >= bytes.size()) {
            break;
        }
    }
    return state == State::Failed ? parser.failure() : state == State::Complete ? 200 : 0;
}

std::string withHeaders(const std::string& lines) {
    return "POST /a HTTP/1.1\r\nHost: x\r\n" + lines + "\r\n";
}

TEST(RequestHead, IsReadHoweverItComes) {
    const std::string bytes =
        "PATCH /a/b?c=d HTTP/1.1\r\nHost: localhost:1\r\nIf-Match: \"x\"\r\nContent-Length: 12\r\n\r\n";
    for (std::size_t slice = 0; slice < bytes.size(); ++slice) {
        EXPECT_EQ(judged(bytes, slice), 200) << slice;
    }
    HeadParser parser;
    ASSERT_EQ(parser.read(bytes + "body"), State::Complete);
    EXPECT_EQ(parser.size(), bytes.size());
}

TEST(RequestHead, HasItsParts) {
    const std::string bytes =
        "PATCH /a/b?c=d HTTP/1.1\r\nhOST: localhost:1\r\nif-match: \t\"x\" \r\nContent-Length: 012\r\n\r\n";
    HeadParser parser;
    ASSERT_EQ(parser.read(bytes), State::Complete);
    const RequestHead& head = parser.head();
    EXPECT_EQ(head.method, "PATCH");
    EXPECT_EQ(head.path, "/a/b");
    EXPECT_EQ(head.query, "c=d");
    EXPECT_EQ(head.host, "localhost:1");
    EXPECT_EQ(head.value("If-Match"), "\"x\"");
    EXPECT_EQ(head.length, 12u);
    EXPECT_TRUE(head.keepAlive);
}

TEST(RequestHead, TakesALiteralForAHostAndBracketsNowhereElse) {
    const std::string bytes = "GET http://[::1]:8/a?b HTTP/1.1\r\nHost: other\r\n\r\n";
    HeadParser parser;
    ASSERT_EQ(parser.read(bytes), State::Complete);
    EXPECT_EQ(parser.head().host, "[::1]:8");
    EXPECT_EQ(parser.head().path, "/a");
    EXPECT_EQ(parser.head().query, "b");
    for (const char* target : {"/a[b", "http://[::1]/a[b", "http://[::1]/a]", "http://[::1", "http://[::1]x/a",
                               "http://[a/b]/", "http://[::1]:x/a", "/http://[::1]/a", "http://a[::1]/", "[::1]",
                               "http://[::1]a://[::1]/", "http://[::1]/%4x"}) {
        EXPECT_EQ(judged(std::string("GET ") + target + " HTTP/1.1\r\nHost: x\r\n\r\n"), 400) << target;
    }
    EXPECT_EQ(judged("CONNECT [::1]:8 HTTP/1.1\r\nHost: x\r\n\r\n"), 200);
}

TEST(RequestHead, TakesTheHostOfAnAbsoluteAddress) {
    const std::string bytes = "GET http://localhost:1/a HTTP/1.1\r\nHost: other\r\n\r\n";
    HeadParser parser;
    ASSERT_EQ(parser.read(bytes), State::Complete);
    EXPECT_EQ(parser.head().host, "localhost:1");
    EXPECT_EQ(parser.head().path, "/a");
}

TEST(RequestHead, MayFollowOneEmptyLine) {
    EXPECT_EQ(judged("\r\nGET / HTTP/1.1\r\nHost: x\r\n\r\n"), 200);
    EXPECT_EQ(judged("\r\n\r\n"), 400);
}

TEST(RequestHead, IsRefusedForABadRequestLine) {
    for (const char* line :
         {"GET /", "GET  / HTTP/1.1", "GET /  HTTP/1.1", "GET / a HTTP/1.1", " GET / HTTP/1.1", "GET / HTTP/1.1 ",
          "G@T / HTTP/1.1", "GET a HTTP/1.1", "GET /\"a HTTP/1.1", "GET /a#b HTTP/1.1", "GET /%4 HTTP/1.1",
          "GET / http/1.1", "GET / HTTP/1", "GET / HTTP/1.10", "GET / HTTPS/1.1", "GET\t/ HTTP/1.1", "GET * HTTP/1.1",
          "GET /\xc3\xa9 HTTP/1.1", "GET http:/// HTTP/1.1"}) {
        EXPECT_EQ(judged(std::string(line) + "\r\nHost: x\r\n\r\n"), 400) << line;
    }
}

TEST(RequestHead, IsRefusedForAnotherMajorVersion) {
    EXPECT_EQ(judged("GET / HTTP/2.0\r\n"), 505);
    EXPECT_EQ(judged("GET / HTTP/0.9\r\n"), 505);
    EXPECT_EQ(judged("PRI * HTTP/2.0\r\n"), 505);
    EXPECT_EQ(judged("GET / HTTP/1.2\r\nHost: x\r\n\r\n"), 200);
}

TEST(RequestHead, IsRefusedForLinesThatEndInAnotherWay) {
    EXPECT_EQ(judged("GET / HTTP/1.1\nHost: x\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: x\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: x\r\n\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: x\rA: b\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\r\nHost: x\r\n\r\n"), 400);
}

TEST(RequestHead, IsRefusedForBadHeaderLines) {
    for (const char* line :
         {"A : b", "A\t: b", ": b", "A", "A B: c", " A: b", "\tA: b", "A(: b", "A: \x01", "A: \x7f"}) {
        EXPECT_EQ(judged(withHeaders(std::string(line) + "\r\n")), 400) << line;
    }
    EXPECT_EQ(judged(withHeaders("A: b\r\n folded\r\n")), 400);
    EXPECT_EQ(judged(withHeaders(std::string("A: \0b\r\n", 7))), 400);
}

TEST(RequestHead, IsRefusedAsSoonAsItIsSeenToBeBad) {
    EXPECT_EQ(judged("GET / HTTP/1.1\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\n "), 400);
    EXPECT_EQ(judged("GET / HTTP/3.0\r\n"), 505);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nA : b\r\n"), 400);
}

TEST(RequestHead, NamesItsHostOnce) {
    EXPECT_EQ(judged("GET / HTTP/1.1\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: a b\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: u@a\r\n\r\n"), 400);
    EXPECT_EQ(judged("GET / HTTP/1.0\r\n\r\n"), 200);
}

TEST(RequestHead, IsRefusedForLengthsThatAreUnclear) {
    for (const char* lines :
         {"Content-Length:\r\n", "Content-Length: x\r\n", "Content-Length: +1\r\n", "Content-Length: -1\r\n",
          "Content-Length: 1 2\r\n", "Content-Length: 1, 1\r\n", "Content-Length: 0x1\r\n",
          "Content-Length: 1\r\nContent-Length: 1\r\n", "Content-Length: 1\r\nContent-Length: 2\r\n",
          "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"}) {
        EXPECT_EQ(judged(withHeaders(lines)), 400) << lines;
    }
}

TEST(RequestHead, KnowsNoCodingButChunked) {
    EXPECT_EQ(judged(withHeaders("Transfer-Encoding: Chunked\r\n")), 200);
    EXPECT_EQ(judged(withHeaders("Transfer-Encoding: gzip, chunked\r\n")), 501);
    for (const char* value :
         {"", "gzip", "chunked, gzip", "chunkedchunked", "chunked, chunked", "identity", ",chunked", "chunked,",
          "\"chunked\"", "chunked;q=1", "xchunked", "chunked\r\nTransfer-Encoding: chunked"}) {
        EXPECT_EQ(judged(withHeaders("Transfer-Encoding: " + std::string(value) + "\r\n")), 400) << value;
    }
    EXPECT_EQ(judged("POST / HTTP/1.0\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n"), 400);
}

TEST(RequestHead, IsRefusedBeforeItsEndWhenItGrowsTooLarge) {
    const std::string path(maxTargetBytes - 1, 'a');
    EXPECT_EQ(judged("GET /" + path + " HTTP/1.1\r\nHost: x\r\n\r\n"), 200);
    EXPECT_EQ(judged("GET /" + path + "a HTTP/1.1\r\nHost: x\r\n\r\n"), 414);
    EXPECT_EQ(judged("GET /" + path + std::string(100, 'a')), 414);
    EXPECT_EQ(judged(std::string(maxTargetBytes + 100, 'A')), 501);
    EXPECT_EQ(judged("GET / HTTP/1.1\r\nHost: x\r\nA: " + std::string(maxHeaderBytes, 'a')), 431);
    std::string many = "GET / HTTP/1.1\r\nHost: x\r\n";
    while (many.size() < maxHeaderBytes + 100) {
        many += "a: b\r\n";
    }
    EXPECT_EQ(judged(many), 431);
}

TEST(RequestHead, AsksForAWebSocketWithBothFields) {
    const auto asks = [](const std::string& bytes) {
        HeadParser parser;
        return parser.read(bytes) == State::Complete && parser.head().isUpgrade();
    };
    EXPECT_TRUE(asks("GET / HTTP/1.1\r\nHost: x\r\nConnection: keep-alive, upgrade\r\nUpgrade: WebSocket\r\n\r\n"));
    EXPECT_FALSE(asks("GET / HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\n\r\n"));
    EXPECT_FALSE(asks("GET / HTTP/1.1\r\nHost: x\r\nConnection: upgrade\r\nUpgrade: h2c\r\n\r\n"));
    EXPECT_FALSE(asks("GET / HTTP/1.0\r\nHost: x\r\nConnection: upgrade\r\nUpgrade: websocket\r\n\r\n"));
    EXPECT_FALSE(asks("POST / HTTP/1.1\r\nHost: x\r\nConnection: upgrade\r\nUpgrade: websocket\r\n\r\n"));
}

} // namespace
} // namespace cdxservice
