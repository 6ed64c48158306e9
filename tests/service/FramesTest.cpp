#include "Frames.h"

#include <support/WebSocketFrames.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cdxservice {
namespace {

using Kind = FrameReader::Event::Kind;
using cdxtest::Frame;

struct Seen {
    Kind kind;
    int code;
    std::string payload;
    bool operator==(const Seen& other) const {
        return kind == other.kind && code == other.code && payload == other.payload;
    }
};

std::vector<Seen> read(const std::string& bytes, std::size_t slice = 0, std::size_t limit = 1000) {
    FrameReader reader(limit);
    std::vector<Seen> seen;
    for (std::size_t begin = 0; begin < bytes.size(); begin += slice == 0 ? bytes.size() : slice) {
        std::string_view input = std::string_view(bytes).substr(begin, slice == 0 ? std::string_view::npos : slice);
        for (;;) {
            const auto event = reader.next(input);
            if (event.kind == Kind::More) {
                break;
            }
            seen.push_back({event.kind, static_cast<int>(event.code), std::string(event.payload)});
            if (event.kind == Kind::Failure) {
                return seen;
            }
        }
    }
    return seen;
}

std::string bytes(const Frame& frame) {
    return cdxtest::encode(frame, true);
}

int failureOf(const std::string& raw) {
    const auto seen = read(raw);
    return !seen.empty() && seen.back().kind == Kind::Failure ? seen.back().code : 0;
}

Frame frame(unsigned opcode, std::string payload, bool fin = true) {
    Frame result;
    result.opcode = opcode;
    result.payload = std::move(payload);
    result.fin = fin;
    return result;
}

TEST(FrameReader, ReadsMessagesHoweverTheyCome) {
    const std::string raw = bytes(frame(1, "one")) + bytes(frame(1, "tw", false)) + bytes(frame(9, "ping")) +
                            bytes(frame(0, "", false)) + bytes(frame(0, "o")) + bytes(frame(1, std::string(300, 'x'))) +
                            bytes(frame(10, "pong"));
    const std::vector<Seen> expected = {{Kind::Message, 1000, "one"},
                                        {Kind::Ping, 1000, "ping"},
                                        {Kind::Message, 1000, "two"},
                                        {Kind::Message, 1000, std::string(300, 'x')}};
    for (std::size_t slice = 0; slice < 10; ++slice) {
        EXPECT_EQ(read(raw, slice), expected) << slice;
    }
}

TEST(FrameReader, RefusesFramesThatNoClientSends) {
    Frame reserved = frame(1, "x");
    reserved.reserved = 4;
    Frame unmasked = frame(1, "x");
    unmasked.masked = false;
    Frame longForm = frame(1, "x");
    longForm.lengthBytes = 2;
    Frame longerForm = frame(1, std::string(200, 'x'));
    longerForm.lengthBytes = 8;
    Frame negative = frame(1, "x");
    negative.lengthBytes = 8;
    negative.claimedLength = std::uint64_t(1) << 63;
    for (const Frame& bad :
         {reserved, unmasked, longForm, longerForm, negative, frame(3, ""), frame(7, ""), frame(11, ""), frame(15, ""),
          frame(9, std::string(126, 'x')), frame(9, "", false), frame(8, "", false), frame(0, "x")}) {
        EXPECT_EQ(failureOf(bytes(bad)), 1002) << bad.opcode << " " << bad.payload.size();
    }
    EXPECT_EQ(failureOf(bytes(frame(1, "x", false)) + bytes(frame(1, "y"))), 1002);
}

TEST(FrameReader, RefusesBinaryAtItsHeader) {
    const std::string raw = bytes(frame(2, "x"));
    EXPECT_EQ(failureOf(raw.substr(0, 2)), 1003);
}

TEST(FrameReader, RefusesTextThatIsNotUtf8AtItsFirstBadByte) {
    EXPECT_EQ(failureOf(bytes(frame(1, "a\xff"))), 1007);
    EXPECT_EQ(failureOf(bytes(frame(1, "\xc3"))), 1007);
    EXPECT_EQ(failureOf(bytes(frame(1, "\xed\xa0\x80", false))), 1007);
    EXPECT_EQ(failureOf(bytes(frame(1, "\xc3", false)) + bytes(frame(0, "\xa9"))), 0);
    const std::string raw = bytes(frame(1, "\xf4\x90\x80\x80"));
    EXPECT_EQ(failureOf(raw.substr(0, raw.size() - 2)), 1007);
}

TEST(FrameReader, RefusesMessagesOverTheLimitAtTheHeader) {
    EXPECT_EQ(failureOf(bytes(frame(1, std::string(1000, 'x')))), 0);
    EXPECT_EQ(failureOf(bytes(frame(1, std::string(1001, 'x'))).substr(0, 8)), 1009);
    EXPECT_EQ(failureOf(bytes(frame(1, std::string(600, 'x'), false)) + bytes(frame(0, std::string(401, 'x')))), 1009);
}

TEST(FrameReader, ReadsCloseFrames) {
    EXPECT_EQ(read(bytes(frame(8, ""))), (std::vector<Seen>{{Kind::Close, 1005, ""}}));
    for (const unsigned code : {1000u, 1001u, 1003u, 1007u, 1011u, 1014u, 3000u, 4999u}) {
        EXPECT_EQ(read(bytes(frame(8, cdxtest::closePayload(code, "why")))).back().code, static_cast<int>(code));
        EXPECT_EQ(read(bytes(frame(8, cdxtest::closePayload(code, "why")))).back().kind, Kind::Close);
    }
}

TEST(FrameReader, RefusesCloseFramesThatMayNotBeSent) {
    EXPECT_EQ(failureOf(bytes(frame(8, "x"))), 1002);
    for (const unsigned code : {0u, 999u, 1004u, 1005u, 1006u, 1015u, 1016u, 2999u, 5000u, 65535u}) {
        EXPECT_EQ(failureOf(bytes(frame(8, cdxtest::closePayload(code)))), 1002) << code;
    }
    EXPECT_EQ(failureOf(bytes(frame(8, cdxtest::closePayload(1000, "\xff")))), 1007);
}

TEST(FrameWriter, UsesTheShortestLength) {
    for (const std::size_t size : {0u, 125u, 126u, 65535u, 65536u}) {
        std::string out;
        writeFrameHeader(out, Opcode::Text, size);
        Frame expected = frame(1, std::string(size, 'x'));
        EXPECT_EQ(out + expected.payload, cdxtest::encode(expected, false)) << size;
    }
}

} // namespace
} // namespace cdxservice
