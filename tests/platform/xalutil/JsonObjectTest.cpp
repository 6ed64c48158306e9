#include "JsonReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace xalutiltest;
using testing::AllOf;
using testing::HasSubstr;
using xalutil::JsonArray;
using xalutil::JsonFactory;
using xalutil::JsonObject;

TEST(JsonObjectTest, TypedReadsGiveWhatStandsInTheText) {
    const auto object = parseObject(R"({"s":"tex\u0074","i":-12,"t":true,"f":false,"a":["x"],"o":{"k":"v"}})");
    EXPECT_EQ(object->getString("s"), "text");
    EXPECT_EQ(object->getInt64("i"), -12);
    EXPECT_TRUE(object->getBool("t"));
    EXPECT_FALSE(object->getBool("f"));
    EXPECT_EQ(object->getArray("a")->getString(0), "x");
    EXPECT_EQ(object->getObject("o")->getString("k"), "v");
}

TEST(JsonObjectTest, StringKeepsItsZeroBytes) {
    EXPECT_EQ(parseObject(R"({"s":"a\u0000b"})")->getString("s"), std::string("a\0b", 3));
}

TEST(JsonObjectTest, Int64IsReadToItsLimits) {
    const auto object = parseObject(R"({"least":-9223372036854775808,"most":9223372036854775807})");
    EXPECT_EQ(object->getInt64("least"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(object->getInt64("most"), std::numeric_limits<std::int64_t>::max());
}

class NoInt64 : public testing::TestWithParam<std::string> {};

TEST_P(NoInt64, IsRefusedAsOne) {
    const auto object = parseObject(R"({"n":)" + GetParam() + '}');
    EXPECT_THAT(failureOf([&] { object->getInt64("n"); }), AllOf(HasSubstr("\"n\""), HasSubstr("int64")));
}

INSTANTIATE_TEST_SUITE_P(Number, NoInt64,
                         testing::Values("3.0", "3e0", "3E2", "0.5", "-1.0", "9223372036854775808",
                                         "-9223372036854775809", "18446744073709551616", "1e400", "\"3\"", "true",
                                         "null"),
                         [](const auto& tested) { return "No" + std::to_string(tested.index); });

TEST(JsonObjectTest, HasTellsOfNullsToo) {
    const auto object = parseObject(R"({"null":null,"":1})");
    EXPECT_TRUE(object->has("null"));
    EXPECT_TRUE(object->has(""));
    EXPECT_FALSE(object->has("absent"));
}

struct Mismatch {
    const char* name;
    const char* text;
    const char* found;
};

class WrongType : public testing::TestWithParam<Mismatch> {};

TEST_P(WrongType, IsNamedTogetherWithTheKeyAndTheTypeAskedFor) {
    const auto object = parseObject(GetParam().text);
    const std::string found = std::string("but there is ") + GetParam().found;
    const auto namesAll = [&](const char* asked) {
        return AllOf(HasSubstr("\"key\""), HasSubstr(std::string("asked for ") + asked), HasSubstr(found));
    };
    const std::vector<std::pair<const char*, std::function<void()>>> reads = {
        {"a string", [&] { object->getString("key"); }},
        {"an int64", [&] { object->getInt64("key"); }},
        {"a bool", [&] { object->getBool("key"); }},
        {"an array", [&] { object->getArray("key"); }},
        {"an object", [&] { object->getObject("key"); }}};
    for (const auto& [asked, read] : reads) {
        if (asked != std::string(GetParam().found)) {
            EXPECT_THAT(failureOf(read), namesAll(asked));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Member, WrongType,
    testing::Values(Mismatch{"Absent", "{}", "nothing"}, Mismatch{"Null", R"({"key":null})", "null"},
                    Mismatch{"String", R"({"key":"x"})", "a string"}, Mismatch{"Int64", R"({"key":1})", "an int64"},
                    Mismatch{"Bool", R"({"key":true})", "a bool"}, Mismatch{"Array", R"({"key":[]})", "an array"},
                    Mismatch{"Object", R"({"key":{}})", "an object"},
                    Mismatch{"Fraction", R"({"key":1.5})", "a number that is no int64"}),
    [](const auto& tested) { return tested.param.name; });

TEST(JsonObjectTest, OfADoubledKeyTheLastValueHolds) {
    const auto object = parseObject(R"({"k":1,"x":0,"k":"two"})");
    EXPECT_EQ(object->getString("k"), "two");
}

TEST(JsonObjectTest, KeysAreFoundInWhateverOrderTheyAreAskedFor) {
    constexpr int sizes[] = {1, 2, 17, 18, 19, 40, 300};
    for (const int size : sizes) {
        std::string text = "{";
        for (int i = 0; i < size; ++i)
            text += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
        const auto object = parseObject(text + "}");
        for (const int step : {1, size - 1, 7}) {
            for (int asked = 0, i = 0; asked < size; ++asked, i = (i + step) % size) {
                const std::string key = "k" + std::to_string(i);
                ASSERT_TRUE(object->has(key));
                ASSERT_EQ(object->getInt64(key), i);
                ASSERT_FALSE(object->has(key + "x"));
            }
        }
    }
}

TEST(JsonObjectTest, InnerObjectsOutliveTheOuterOnes) {
    std::shared_ptr<JsonObject> inner;
    std::shared_ptr<JsonArray> array;
    {
        const auto outer = parseObject(R"({"o":{"k":"a string that is too long to be kept in place"},"a":[{"n":1}]})");
        inner = outer->getObject("o");
        array = outer->getArray("a");
    }
    EXPECT_EQ(inner->getString("k"), "a string that is too long to be kept in place");
    EXPECT_EQ(array->getObject(0)->getInt64("n"), 1);
}

TEST(JsonObjectTest, ChangingAViewChangesItAlone) {
    const auto outer = parseObject(R"({"o":{"k":"old"}})");
    const auto changed = outer->getObject("o");
    const auto other = outer->getObject("o");
    changed->set("k", "new");
    EXPECT_EQ(changed->getString("k"), "new");
    EXPECT_EQ(other->getString("k"), "old");
    EXPECT_EQ(outer->toString(), R"({"o":{"k":"old"}})");
}

TEST(JsonObjectTest, InnerObjectOfAChangedOneStaysAsItWas) {
    const auto object = parseObject(R"({"o":{"k":"v"}})");
    object->set("x", 1);
    const auto inner = object->getObject("o");
    object->set("o", "gone");
    EXPECT_EQ(inner->getString("k"), "v");
    EXPECT_EQ(object->getString("o"), "gone");
}

TEST(JsonObjectTest, IsWrittenCompactlyInTheOrderInWhichKeysWereSet) {
    const auto object = JsonFactory::createJsonObject();
    EXPECT_EQ(object->toString(), "{}");
    const auto array = JsonFactory::createJsonArray();
    array->add("x");
    object->set("zebra", std::string("a \"quoted\" \\ text\n"));
    object->set("c", "literal");
    object->set("int", -1);
    object->set("long", 9223372036854775807L);
    object->set("apple", true);
    object->set("array", array);
    EXPECT_EQ(object->toString(), R"({"zebra":"a \"quoted\" \\ text\n","c":"literal","int":-1,)"
                                  R"("long":9223372036854775807,"apple":true,"array":["x"]})");
}

TEST(JsonObjectTest, ManyKeysKeepTheirOrderToo) {
    const auto object = JsonFactory::createJsonObject();
    std::string expected = "{";
    for (int i = 100; i > 0; --i) {
        object->set(std::to_string(i), i);
        expected += (i == 100 ? "\"" : ",\"") + std::to_string(i) + "\":" + std::to_string(i);
    }
    EXPECT_EQ(object->toString(), expected + "}");
}

TEST(JsonObjectTest, SettingAKeyAgainKeepsItsPlace) {
    const auto object = JsonFactory::createJsonObject();
    object->set("first", 1);
    object->set("second", 2);
    object->set("first", "again");
    EXPECT_EQ(object->toString(), R"({"first":"again","second":2})");
}

TEST(JsonObjectTest, WhatWasSetCanBeRead) {
    const auto object = JsonFactory::createJsonObject();
    const auto array = JsonFactory::createJsonArray();
    array->add("x");
    object->set("s", "text");
    object->set("i", 7);
    object->set("b", false);
    object->set("a", array);
    EXPECT_EQ(object->getString("s"), "text");
    EXPECT_EQ(object->getInt64("i"), 7);
    EXPECT_FALSE(object->getBool("b"));
    EXPECT_EQ(object->getArray("a")->getString(0), "x");
    EXPECT_FALSE(object->has("x"));
}

TEST(JsonObjectTest, ArrayIsCopiedAsItIsWhenSet) {
    const auto object = JsonFactory::createJsonObject();
    const auto array = JsonFactory::createJsonArray();
    object->set("a", array);
    array->add("later");
    EXPECT_EQ(object->toString(), R"({"a":[]})");
}

TEST(JsonObjectTest, EmptyPointerSetsAnEmptyArray) {
    const auto object = JsonFactory::createJsonObject();
    object->set("a", std::shared_ptr<const JsonArray>());
    EXPECT_EQ(object->toString(), R"({"a":[]})");
}

TEST(JsonObjectTest, ArrayOfItsOwnTextCanBeSet) {
    const auto object = parseObject(R"({"a":["x"],"b":1})");
    object->set("b", object->getArray("a"));
    EXPECT_EQ(object->toString(), R"({"a":["x"],"b":["x"]})");
}

TEST(JsonObjectTest, WhatIsWrittenReadsAsTheSame) {
    const std::string text = R"({"s":"\u00e4 \ud83d\ude00","n":null,"d":1.5,"i":-3,"a":[1,[true]],"o":{}})";
    const auto object = parseObject(text);
    EXPECT_EQ(*parseObject(object->toString()), *object);
}

TEST(JsonObjectTest, NumberThatIsTooLargeForADoubleIsWrittenAsTheLargestOne) {
    const auto object = parseObject(R"({"a":1e999,"b":[-1e999,{"c":1e999}],"s":"Infinity"})");
    EXPECT_EQ(object->toString(), R"({"a":1.7976931348623157E308,"b":[-1.7976931348623157E308,)"
                                  R"({"c":1.7976931348623157E308}],"s":"Infinity"})");
    EXPECT_EQ(object->getArray("b")->toString(), R"([-1.7976931348623157E308,{"c":1.7976931348623157E308}])");
}

TEST(JsonObjectTest, EqualityLooksAtTheMembersAndNotAtTheirOrder) {
    EXPECT_EQ(*parseObject(R"({"a":1,"b":{"c":[1,2]}})"), *parseObject(R"({"b":{"c":[1,2]},"a":1})"));
    EXPECT_NE(*parseObject(R"({"a":1})"), *parseObject(R"({"a":2})"));
    EXPECT_NE(*parseObject(R"({"a":1})"), *parseObject(R"({"a":1,"b":null})"));
    EXPECT_NE(*parseObject(R"({"a":[1,2]})"), *parseObject(R"({"a":[2,1]})"));
    EXPECT_NE(*parseObject(R"({"a":"1"})"), *parseObject(R"({"a":1})"));
    EXPECT_EQ(*JsonFactory::createJsonObject(), *parseObject("{}"));
}

TEST(JsonObjectTest, SeveralThreadsReadOneObject) {
    const auto object = parseObject(R"({"a":"1","b":"2","c":"3","d":"4","e":"5"})");
    const auto read = [&] {
        for (int i = 0; i < 1000; ++i)
            for (const char* key : {"a", "b", "c", "d", "e", "f"})
                ASSERT_EQ(object->has(key) ? object->getString(key).size() : 0U, *key == 'f' ? 0U : 1U);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(read);
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
