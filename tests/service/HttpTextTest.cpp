#include "HttpText.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

TEST(PercentDecoded, ResolvesEscapes) {
    EXPECT_EQ(percentDecoded("a%2fb%2Fc"), "a/b/c");
    EXPECT_EQ(percentDecoded("a+b"), "a+b");
    EXPECT_EQ(percentDecoded("%41"), "A");
}

TEST(PercentDecoded, RefusesHalfEscapes) {
    EXPECT_FALSE(percentDecoded("%"));
    EXPECT_FALSE(percentDecoded("a%4"));
    EXPECT_FALSE(percentDecoded("%4g"));
}

TEST(Authority, IsHostAndPort) {
    EXPECT_EQ(parseAuthority("localhost:80")->host, "localhost");
    EXPECT_EQ(parseAuthority("localhost:80")->port, "80");
    EXPECT_EQ(parseAuthority("[::1]:80")->host, "[::1]");
    EXPECT_EQ(parseAuthority("")->host, "");
}

TEST(Authority, IsNothingElse) {
    for (const char* text : {"a b", "user@host", "host:port", "[::1", "[::1]x", "host:1:2", "a/b", "host:123456"}) {
        EXPECT_FALSE(parseAuthority(text)) << text;
    }
}

TEST(ListMembers, AreTrimmedAndKeptWhenEmpty) {
    EXPECT_EQ(splitList(" a ,\tb,,").size(), 4u);
    EXPECT_EQ(splitList(" a ,\tb,,")[1], "b");
    EXPECT_TRUE(listHas("keep-alive, Upgrade", "upgrade"));
    EXPECT_FALSE(listHas("keep-aliveupgrade", "upgrade"));
}

} // namespace
} // namespace cdxservice
