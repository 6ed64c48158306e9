#include "StrictJson.h"

#include <gtest/gtest.h>

#include <string>

namespace cdxservice {
namespace {

bool isRead(const std::string& text) {
    std::string problem;
    const bool read = readStrictJson(text, {}, problem).has_value();
    EXPECT_EQ(read, problem.empty()) << text;
    return read;
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(StrictJson, ReadsOneText) {
    EXPECT_TRUE(isRead(" {\"a\":[1,2.5,null,true,\"x\"]} "));
    EXPECT_FALSE(isRead(""));
    EXPECT_FALSE(isRead("{} {}"));
    EXPECT_FALSE(isRead("{\"a\":1,}"));
    EXPECT_FALSE(isRead("{'a':1}"));
    EXPECT_FALSE(isRead("[01]"));
    EXPECT_FALSE(isRead("[NaN]"));
    EXPECT_FALSE(isRead("// no\n1"));
}

TEST(StrictJson, RefusesAKeyTwiceAtAnyLevel) {
    EXPECT_FALSE(isRead(R"({"a":1,"a":1})"));
    EXPECT_FALSE(isRead(R"({"b":[{"a":1,"c":2,"a":3}]})"));
    EXPECT_FALSE(isRead(R"({"a":1,"\u0061":2})"));
    EXPECT_TRUE(isRead(R"({"a":{"a":1},"b":{"a":1}})"));
}

TEST(StrictJson, RefusesLoneSurrogates) {
    EXPECT_TRUE(isRead(R"(["\ud83d\ude00"])"));
    EXPECT_FALSE(isRead(R"(["\ud83d"])"));
    EXPECT_FALSE(isRead(R"(["\ude00"])"));
    EXPECT_FALSE(isRead(R"(["\ud83d\u0041"])"));
    EXPECT_FALSE(isRead(R"({"\ud83d":1})"));
}

TEST(StrictJson, RefusesWhatIsNotUtf8) {
    EXPECT_TRUE(isRead("[\"\xc3\xa9\"]"));
    EXPECT_FALSE(isRead("[\"\xc3\"]"));
    EXPECT_FALSE(isRead("[\"\xc0\x80\"]"));
    EXPECT_FALSE(isRead("[\"\xed\xa0\x80\"]"));
    EXPECT_FALSE(isRead("\xef\xbb\xbf[]"));
}

TEST(StrictJson, ReadsThirtyTwoLevelsAndNoMore) {
    EXPECT_TRUE(isRead(nested(32)));
    EXPECT_FALSE(isRead(nested(33)));
    EXPECT_FALSE(isRead(std::string(100'000, '[')));
}

TEST(StrictJson, ReadsANumberWhateverItsExponent) {
    EXPECT_TRUE(isRead("1e99999999999"));
    EXPECT_TRUE(isRead("[-1.5E+99999999999,1e-99999999999,0e00000000000099999999999]"));
    EXPECT_TRUE(isRead(R"({"1e99999999999":"\"1e99999999999","a":1e99999999999})"));
    EXPECT_FALSE(isRead("1e99999999999x"));
    EXPECT_FALSE(isRead("[1e99999999999"));
    EXPECT_FALSE(isRead("1e99999999999e1"));
    EXPECT_FALSE(isRead(R"({"a":1e99999999999,"a":1})"));
}

TEST(StrictJson, LeavesTextsThatLookLikeExponentsAsTheyAre) {
    std::string problem;
    const auto value = readStrictJson(R"(["1e99999999999","\"1e99999999999",1e99999999999])", {}, problem);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->at(0).as_string(), "1e99999999999");
    EXPECT_EQ(value->at(1).as_string(), "\"1e99999999999");
    EXPECT_TRUE(value->at(2).is_double());
}

TEST(StrictJson, EscapesOnlyWhatJsonDemandsInTheShortForm) {
    std::string out;
    writeJsonString(out, std::string("\"\\/\b\f\n\r\t\x01\x1f\x7f\xc3\xa9", 13) + std::string(1, '\0'));
    EXPECT_EQ(out, "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\xc3\xa9\\u0000\"");
}

} // namespace
} // namespace cdxservice
