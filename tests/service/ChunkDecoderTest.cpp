#include "ChunkDecoder.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

using State = ChunkDecoder::State;

struct Decoded {
    State state;
    std::string body;
    std::size_t used;
};

Decoded decode(std::string_view bytes, std::size_t slice = 0, std::size_t limit = 100) {
    ChunkDecoder decoder(limit);
    Decoded result{State::Reading, {}, 0};
    while (result.state == State::Reading && result.used < bytes.size()) {
        std::size_t used = 0;
        result.state = decoder.read(bytes.substr(result.used, slice == 0 ? std::string_view::npos : slice), used);
        result.used += used;
    }
    result.body = decoder.body();
    return result;
}

TEST(ChunkDecoder, JoinsChunksHoweverTheyCome) {
    constexpr std::string_view bytes = "5\r\nhello\r\n00A;name=\"value\"\r\n0123456789\r\n0\r\nTrailer: x\r\n\r\nrest";
    for (std::size_t slice = 0; slice < 8; ++slice) {
        const Decoded decoded = decode(bytes, slice);
        EXPECT_EQ(decoded.state, State::Complete) << slice;
        EXPECT_EQ(decoded.body, "hello0123456789") << slice;
        EXPECT_EQ(bytes.substr(decoded.used), "rest") << slice;
    }
}

TEST(ChunkDecoder, RefusesWhatCouldBeReadInTwoWays) {
    for (const char* bytes : {"5\nhello\r\n0\r\n\r\n", "5\r\nhello\n0\r\n\r\n", "5\r\nhelloX\r\n", "x\r\n", "\r\n",
                              "-1\r\n", "0x5\r\n", "+5\r\n", " 5\r\n", "5 \r\nhello", "5;a\nb\r\n", "5;\rx\r\n",
                              "0\r\nTrailer x\r\n\r\n", "0\r\n Trailer: x\r\n", "00000000000000005\r\n"}) {
        EXPECT_EQ(decode(bytes).state, State::Malformed) << bytes;
    }
}

TEST(ChunkDecoder, PassesOverExtensionsAlsoWithBlanksAroundTheirParts) {
    for (const char* extensions : {";a", ";a=b", " ;a=b", "\t; a = b", ";a=\"b;c\\\"d\"", ";a;b=c ; d", " \t;a "}) {
        const Decoded decoded = decode("5" + std::string(extensions) + "\r\nhello\r\n0\r\n\r\n");
        EXPECT_EQ(decoded.state, State::Complete) << extensions;
        EXPECT_EQ(decoded.body, "hello") << extensions;
    }
}

TEST(ChunkDecoder, RefusesExtensionsThatAreNone) {
    for (const char* extensions :
         {" ", " a", ";", ";;a", ";a;", ";=b", ";a=", ";a=\"b", ";a b", ";a=b c", ";a=\"b\"c"}) {
        EXPECT_EQ(decode("5" + std::string(extensions) + "\r\nhello\r\n0\r\n\r\n").state, State::Malformed)
            << extensions;
    }
}

TEST(ChunkDecoder, TellsOfABodyOverTheLimitBeforeItComes) {
    EXPECT_EQ(decode("64\r\n", 0, 100).state, State::Reading);
    EXPECT_EQ(decode("65\r\n", 0, 100).state, State::TooLarge);
    EXPECT_EQ(decode("5\r\nhello\r\n1\r\n", 0, 5).state, State::TooLarge);
    EXPECT_EQ(decode("ffffffffffffffff\r\n", 0, 100).state, State::TooLarge);
}

} // namespace
} // namespace cdxservice
