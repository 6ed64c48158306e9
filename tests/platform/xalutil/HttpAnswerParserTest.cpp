#include <xalutil/HttpAnswerParser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using Asked = xalutil::HttpAnswerParser::Asked;
using xalutil::HttpAnswerParser;
using xalutil::HttpError;
using xalutil::HttpLimits;
using xalutil::HttpResponse;

struct Reading {
    std::optional<int> failedWith = {}; ///< the failure's status
    std::string reason = {};
    bool isComplete = false;
    bool mayReuse = false;
    HttpResponse answer = {};
    std::string behind = {};
};

constexpr bool isCutByteByByte = true;

Reading read(const std::string& bytes, bool sliced = false, bool isEnded = false, Asked asked = Asked::RESOURCE,
             const HttpLimits& limits = {}) {
    HttpAnswerParser parser(asked, limits);
    Reading reading;
    try {
        if (sliced)
            for (const char& byte : bytes)
                reading.behind += parser.take(std::string_view(&byte, 1));
        else
            reading.behind = parser.take(bytes);
        if (isEnded)
            parser.takeEnd();
    } catch (const HttpError& failure) {
        reading.failedWith = failure.getStatus();
        reading.reason = failure.what();
        return reading;
    }
    reading.isComplete = parser.isComplete();
    reading.mayReuse = reading.isComplete && parser.mayReuseConnection();
    reading.answer = parser.takeAnswer();
    return reading;
}

struct Good {
    const char* name;
    std::string bytes;
    int status;
    std::string body;
    bool mayReuse;
};

class GoodAnswer : public testing::TestWithParam<Good> {};

TEST_P(GoodAnswer, IsReadInOnePieceAndByteByByte) {
    for (const bool sliced : {false, isCutByteByByte}) {
        const Reading reading = read(GetParam().bytes, sliced);
        ASSERT_EQ(reading.failedWith, std::nullopt) << reading.reason;
        EXPECT_TRUE(reading.isComplete);
        EXPECT_EQ(reading.answer.status, GetParam().status);
        EXPECT_EQ(reading.answer.body, GetParam().body);
        EXPECT_EQ(reading.mayReuse, GetParam().mayReuse);
    }
}

const std::string ok = "HTTP/1.1 200 OK\r\n";

INSTANTIATE_TEST_SUITE_P(
    Answer, GoodAnswer,
    testing::Values(
        Good{"Length", ok + "Content-Length: 5\r\n\r\nhello", 200, "hello", true},
        Good{"LengthInAnyCase", ok + "cOnTeNt-LENGTH:5\t \r\n\r\nhello", 200, "hello", true},
        Good{"EmptyBody", ok + "Content-Length: 0\r\n\r\n", 200, "", true},
        Good{"NoReason", "HTTP/1.1 201 \r\nContent-Length: 0\r\n\r\n", 201, "", true},
        Good{"Chunks", ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nA\r\n, my world\r\n0\r\n\r\n", 200,
             "hello, my world", true},
        Good{"ChunkExtension", ok + "Transfer-Encoding: Chunked\r\n\r\n1;a=\"b\"\r\nx\r\n0;c\r\n\r\n", 200, "x", true},
        Good{"Trailer", ok + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\nDigest: y\r\n\r\n", 200, "x", true},
        Good{"NoContent", "HTTP/1.1 204 No Content\r\n\r\n", 204, "", true},
        Good{"NoContentOfLengthNought", "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n", 204, "", true},
        Good{"NoContentThatClaimsOne", "HTTP/1.1 204 No Content\r\nContent-Length: 5\r\n\r\n", 204, "", false},
        Good{"NotModified", "HTTP/1.1 304 Not Modified\r\nContent-Length: 500\r\n\r\n", 304, "", true},
        Good{"Interim",
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nLink: x\r\n\r\n" + ok + "Content-Length: 1\r\n\r\nx",
             200, "x", true},
        Good{"Redirect", "HTTP/1.1 301 Moved\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n", 301, "", true},
        Good{"CloseAsked", ok + "Connection: foo, Close\r\nContent-Length: 1\r\n\r\nx", 200, "x", false},
        Good{"Old", "HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx", 200, "x", false},
        Good{"OldButKept", "HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 1\r\n\r\nx", 200, "x", true},
        Good{"LeftOver", ok + "Content-Length: 1\r\n\r\nxyz", 200, "x", false}),
    [](const auto& tested) { return tested.param.name; });

struct Bad {
    const char* name;
    std::string bytes;
    int status;
};

class BadAnswer : public testing::TestWithParam<Bad> {};

TEST_P(BadAnswer, IsRefusedWithTheStatusOfItsStatusLine) {
    for (const bool sliced : {false, isCutByteByByte}) {
        const Reading reading = read(GetParam().bytes, sliced);
        EXPECT_EQ(reading.failedWith, GetParam().status) << reading.reason;
    }
}

const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";

INSTANTIATE_TEST_SUITE_P(
    Answer, BadAnswer,
    testing::Values(
        Bad{"NotHttp", "SSH-2.0-x\r\n", 0}, //
        Bad{"NotHttpWithoutALine", "\x16\x03\x01", 0}, Bad{"WrongVersion", "HTTP/2.0 200 OK\r\n\r\n", 0},
        Bad{"UnknownMinorVersion", "HTTP/1.2 200 OK\r\n\r\n", 0},
        Bad{"LowerCaseProtocol", "http/1.1 200 OK\r\n\r\n", 0}, Bad{"ShortStatus", "HTTP/1.1 20 OK\r\n\r\n", 0},
        Bad{"LongStatus", "HTTP/1.1 2000 OK\r\n\r\n", 0}, Bad{"SignedStatus", "HTTP/1.1 +20 OK\r\n\r\n", 0},
        Bad{"StatusBelow100", "HTTP/1.1 099 OK\r\n\r\n", 0}, Bad{"TwoBlanks", "HTTP/1.1  200 OK\r\n\r\n", 0},
        Bad{"NoBlankAfterStatus", "HTTP/1.1 200\r\n\r\n", 0}, Bad{"BareLfStatus", "HTTP/1.1 200 OK\n\r\n", 0},
        Bad{"BareLfHeader", ok + "A: b\nContent-Length: 0\r\n\r\n", 200},
        Bad{"BareLfEnd", ok + "Content-Length: 0\r\n\n", 200},
        Bad{"BareCr", ok + "A: b\rContent-Length: 0\r\n\r\n", 200},
        Bad{"Nul", ok + std::string("A: b\0c\r\n\r\n", 10), 200},
        Bad{"FoldedHeader", ok + "A: b\r\n c\r\nContent-Length: 0\r\n\r\n", 200},
        Bad{"FoldedFirstHeader", ok + " A: b\r\nContent-Length: 0\r\n\r\n", 200},
        Bad{"BlankBeforeColon", ok + "Content-Length : 0\r\n\r\n", 200},
        Bad{"NoColon", ok + "Content-Length\r\n\r\n", 200}, Bad{"NoName", ok + ": 0\r\n\r\n", 200},
        Bad{"NoTokenAsName", ok + "Content(Length): 0\r\n\r\n", 200},
        Bad{"DoubledLength", ok + "Content-Length: 1\r\nContent-Length: 1\r\n\r\nx", 200},
        Bad{"DifferentLengths", ok + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nxy", 200},
        Bad{"EmptyLength", ok + "Content-Length:\r\n\r\n", 200},
        Bad{"ListedLength", ok + "Content-Length: 1, 1\r\n\r\nx", 200},
        Bad{"SignedLength", ok + "Content-Length: +1\r\n\r\nx", 200},
        Bad{"NegativeLength", ok + "Content-Length: -1\r\n\r\n", 200},
        Bad{"HexadecimalLength", ok + "Content-Length: 0x1\r\n\r\nx", 200},
        Bad{"HugeLength", ok + "Content-Length: 18446744073709551616\r\n\r\n", 200},
        Bad{"LengthAndChunked", ok + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n", 200},
        Bad{"ChunkedTwice", ok + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n", 200},
        Bad{"ChunkedListedTwice", ok + "Transfer-Encoding: chunked, chunked\r\n\r\n", 200},
        Bad{"ChunkedChunked", ok + "Transfer-Encoding: chunkedchunked\r\n\r\n", 200},
        Bad{"OtherCoding", ok + "Transfer-Encoding: gzip, chunked\r\n\r\n", 200},
        Bad{"IdentityCoding", ok + "Transfer-Encoding: identity\r\n\r\n", 200},
        Bad{"EmptyCoding", ok + "Transfer-Encoding:\r\n\r\n", 200},
        Bad{"OldAndChunked", "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", 200},
        Bad{"SwitchedProtocol", "HTTP/1.1 101 Switching\r\nUpgrade: x\r\n\r\n", 101},
        Bad{"InterimWithBody", "HTTP/1.1 100 Continue\r\nContent-Length: 1\r\n\r\nx", 100},
        Bad{"NoChunkSize", chunked + "\r\n", 200}, Bad{"NoHexadecimalSize", chunked + "x\r\n", 200},
        Bad{"PrefixedSize", chunked + "0x1\r\n", 200}, Bad{"SignedSize", chunked + "+1\r\n", 200},
        Bad{"BlankAfterSize", chunked + "1 \r\nx\r\n0\r\n\r\n", 200},
        Bad{"HugeSize", chunked + "ffffffffffffffff\r\n", 200},
        Bad{"ChunkLongerThanItsSize", chunked + "1\r\nxy\r\n", 200},
        Bad{"BareLfAfterSize", chunked + "1\nx\r\n0\r\n\r\n", 200},
        Bad{"BareLfAfterChunk", chunked + "1\r\nx\n0\r\n\r\n", 200},
        Bad{"EndlessExtension", chunked + "1;" + std::string(2000, 'x'), 200},
        Bad{"FoldedTrailer", chunked + "0\r\nA: b\r\n c\r\n\r\n", 200},
        Bad{"EndlessHeader", ok + "A: " + std::string(70'000, 'x'), 200},
        Bad{"EndlessStatusLine", "HTTP/1.1 200 " + std::string(70'000, 'x'), 0}),
    [](const auto& tested) { return tested.param.name; });

TEST(HttpAnswerParserTest, AnswerCutShortAnywhereIsRefused) {
    const std::string whole = ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\nA: b\r\n\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const Reading reading = read(whole.substr(0, length), false, true);
        EXPECT_EQ(reading.failedWith, length < ok.size() ? 0 : 200) << length;
    }
}

TEST(HttpAnswerParserTest, AnswerWithoutALengthReachesToTheConnectionsEnd) {
    const Reading reading = read(ok + "\r\nall of it", false, true);
    EXPECT_TRUE(reading.isComplete);
    EXPECT_EQ(reading.answer.body, "all of it");
    EXPECT_FALSE(reading.mayReuse);
}

TEST(HttpAnswerParserTest, AnswerToHeadHasNoBodyWhateverItsLength) {
    const Reading reading = read(ok + "Content-Length: 500\r\n\r\n", false, false, Asked::HEAD);
    EXPECT_TRUE(reading.isComplete);
    EXPECT_TRUE(reading.mayReuse);
    EXPECT_EQ(reading.answer.body, "");
}

TEST(HttpAnswerParserTest, AnswerToAnUpgradeEndsWithItsHeaderWhateverItsStatus) {
    const std::string switching = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n";
    for (const bool sliced : {false, isCutByteByByte}) {
        for (const std::string& head :
             {switching, "HTTP/1.1 100 Continue\r\n\r\n" + switching, ok + "Content-Length: 2\r\n\r\n", chunked,
              ok + "\r\n", std::string("HTTP/1.1 204 No Content\r\n\r\n")}) {
            const Reading reading = read(head + "behind", sliced, false, Asked::UPGRADE);
            EXPECT_TRUE(reading.isComplete) << head << reading.reason;
            EXPECT_EQ(reading.answer.body, "");
            EXPECT_EQ(reading.behind, "behind");
            EXPECT_FALSE(reading.mayReuse) << head;
            EXPECT_FALSE(read(head, sliced, false, Asked::UPGRADE).mayReuse) << head;
        }
    }
}

TEST(HttpAnswerParserTest, SwitchOfProtocolsIsOneOnlyWhereItWasAskedForAndHasNoBody) {
    const std::string switching = " 101 Switching Protocols\r\nUpgrade: x\r\n";
    EXPECT_EQ(read("HTTP/1.1" + switching + "\r\n").failedWith, 101);
    EXPECT_EQ(read("HTTP/1.0" + switching + "\r\n", false, false, Asked::UPGRADE).failedWith, 101);
    EXPECT_EQ(read("HTTP/1.1" + switching + "Content-Length: 0\r\n\r\n", false, false, Asked::UPGRADE).failedWith, 101);
    EXPECT_EQ(
        read("HTTP/1.1" + switching + "Transfer-Encoding: chunked\r\n\r\n", false, false, Asked::UPGRADE).failedWith,
        101);
}

TEST(HttpAnswerParserTest, InterimAnswersDoNotGoOnForEver) {
    std::string interim;
    for (int i = 0; i < 5000; ++i)
        interim += "HTTP/1.1 102 Processing\r\n\r\n";
    EXPECT_EQ(read(interim).failedWith, 0);
}

TEST(HttpAnswerParserTest, HeaderIsTakenToItsLimitAndNotBeyond) {
    HttpLimits limits;
    const std::string head = ok + "Content-Length: 0\r\n\r\n";
    limits.headerBytes = head.size();
    EXPECT_TRUE(read(head, false, false, Asked::RESOURCE, limits).isComplete);
    --limits.headerBytes;
    EXPECT_EQ(read(head, false, false, Asked::RESOURCE, limits).failedWith, 200);
}

TEST(HttpAnswerParserTest, HeaderLimitIs64KiBAndBodyLimit64MiB) {
    EXPECT_EQ(HttpLimits().headerBytes, 65'536U);
    EXPECT_EQ(HttpLimits().bodyBytes, 67'108'864U);
}

TEST(HttpAnswerParserTest, BodyIsTakenToItsLimitAndNotBeyond) {
    HttpLimits limits;
    limits.bodyBytes = 4;
    const auto failure = [&](const std::string& bytes) {
        return read(bytes, false, false, Asked::RESOURCE, limits).failedWith;
    };
    EXPECT_EQ(failure(ok + "Content-Length: 4\r\n\r\nbody"), std::nullopt);
    EXPECT_EQ(failure(ok + "Content-Length: 5\r\n\r\n"), 200);
    EXPECT_EQ(failure(chunked + "2\r\nbo\r\n2\r\ndy\r\n0\r\n\r\n"), std::nullopt);
    EXPECT_EQ(failure(chunked + "2\r\nbo\r\n3\r\n"), 200);
    EXPECT_EQ(failure(ok + "\r\nbody"), std::nullopt);
    EXPECT_EQ(failure(ok + "\r\nbodys"), 200);
}

TEST(HttpAnswerParserTest, HeadersAreKeptInTheirOrderAndFoundInAnyCase) {
    const Reading reading = read(ok + "Retry-After:  3 \r\nX: 1\r\nx: 2\r\nContent-Length: 0\r\n\r\n");
    ASSERT_NE(reading.answer.find("retry-after"), nullptr);
    EXPECT_EQ(*reading.answer.find("retry-after"), "3");
    EXPECT_EQ(*reading.answer.find("X"), "1");
    EXPECT_EQ(reading.answer.find("absent"), nullptr);
    ASSERT_NE(reading.answer.findOnly("RETRY-AFTER"), nullptr);
    EXPECT_EQ(*reading.answer.findOnly("RETRY-AFTER"), "3");
    EXPECT_EQ(reading.answer.findOnly("X"), nullptr);
    EXPECT_EQ(reading.answer.findOnly("absent"), nullptr);
    EXPECT_EQ(reading.answer.headers.at(2), (std::pair<std::string, std::string>("x", "2")));
}

} // namespace
