#include "JsonReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

namespace {

using namespace xalutiltest;
using testing::AllOf;
using testing::HasSubstr;
using xalutil::JsonFactory;
using xalutil::JsonValue;

std::string nested(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') + std::string(static_cast<std::size_t>(depth), ']');
}

TEST(JsonParserTest, MalformedTextIsRefusedWithItsPlaceAndTheReason) {
    EXPECT_THAT(failureOf([] { parse("{\"a\":1,\n \"b\":x}"); }),
                AllOf(HasSubstr("line 2, column 6"), HasSubstr("syntax error")));
}

TEST(JsonParserTest, PlaceOnTheFirstLineIsCountedFromOne) {
    EXPECT_THAT(failureOf([] { parse("x"); }), HasSubstr("line 1, column 1"));
    EXPECT_THAT(failureOf([] { parse("[1,]"); }), HasSubstr("line 1, column 4"));
}

TEST(JsonParserTest, TextThatEndsTooEarlyIsRefusedAtItsEnd) {
    EXPECT_THAT(failureOf([] { parse("{\"a\":\n"); }), AllOf(HasSubstr("line 2, column 1"), HasSubstr("incomplete")));
    EXPECT_THAT(failureOf([] { parse(""); }), HasSubstr("line 1, column 1"));
}

TEST(JsonParserTest, TextBehindTheValueIsRefused) {
    EXPECT_THAT(failureOf([] { parse("{} {}"); }), HasSubstr("line 1, column 4"));
    EXPECT_NO_THROW(parse(" {} \r\n\t"));
}

TEST(JsonParserTest, InvalidUtf8IsRefused) {
    EXPECT_THAT(failureOf([] { parse("{\"a\":\"\xff\"}"); }), HasSubstr("line 1, column 7"));
}

TEST(JsonParserTest, LoneSurrogateIsRefused) {
    EXPECT_THROW(parse(R"(["\ud800"])"), std::exception);
    EXPECT_THROW(parse(R"(["\udc00"])"), std::exception);
}

TEST(JsonParserTest, NestingIsTakenTo128AndNoDeeper) {
    EXPECT_NO_THROW(parse(nested(128)));
    EXPECT_THAT(failureOf([] { parse(nested(129)); }), HasSubstr("line 1, column 129"));
    EXPECT_THROW(parse(std::string(1'000'000, '[')), std::exception);
}

TEST(JsonParserTest, LongStringIsTaken) {
    const std::string megabyte(1024 * 1024, 'x');
    EXPECT_EQ(parse("{\"k\":\"" + megabyte + "\"}").asObject()->getString("k"), megabyte);
}

struct NoObject {
    const char* name;
    const char* text;
    const char* kind;
};

class ValueThatIsNoObject : public testing::TestWithParam<NoObject> {};

TEST_P(ValueThatIsNoObject, SaysWhatItIsInstead) {
    EXPECT_THAT(failureOf([] { parse(GetParam().text).asObject(); }),
                AllOf(HasSubstr("asked for an object"), HasSubstr(GetParam().kind)));
}

INSTANTIATE_TEST_SUITE_P(Value, ValueThatIsNoObject,
                         testing::Values(NoObject{"Array", "[]", "an array"}, NoObject{"String", "\"x\"", "a string"},
                                         NoObject{"Int64", "1", "an int64"}, NoObject{"Null", "null", "null"},
                                         NoObject{"Bool", "true", "a bool"}, NoObject{"Fraction", "0.5", "a number"}),
                         [](const auto& tested) { return tested.param.name; });

TEST(JsonParserTest, ValueThatIsNoArraySaysWhatItIsInstead) {
    EXPECT_THAT(failureOf([] { parse("{}").asArray(); }),
                AllOf(HasSubstr("asked for an array"), HasSubstr("an object")));
}

TEST(JsonParserTest, ValueIsTakenAsAnObjectAsOftenAsOneLikes) {
    const JsonValue value = parse(R"({"k":1})");
    const auto first = value.asObject();
    first->set("k", 2);
    EXPECT_EQ(value.asObject()->getInt64("k"), 1);
}

TEST(JsonParserTest, ValueCanBeSharedAndCopied) {
    auto shared = std::make_shared<JsonValue>(parse(R"({"k":1})"));
    const JsonValue copy = *shared;
    shared.reset();
    EXPECT_EQ(copy.asObject()->getInt64("k"), 1);
}

TEST(JsonParserTest, OneParserServesSeveralThreads) {
    const auto parser = JsonFactory::createJsonParser();
    const auto use = [&] {
        for (int i = 0; i < 300; ++i)
            ASSERT_EQ(parser->parse("{\"k\":" + std::to_string(i) + "}").asObject()->getInt64("k"), i);
    };
    std::thread other(use);
    use();
    other.join();
}

} // namespace
