#include "JsonReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using namespace xalutiltest;
using testing::AllOf;
using testing::HasSubstr;
using xalutil::JsonArray;
using xalutil::JsonFactory;
using xalutil::JsonObject;

TEST(JsonArrayTest, ReadsStringsAndObjectsByIndex) {
    const auto array = parseArray(R"(["a",{"k":1},"c"])");
    EXPECT_EQ(array->size(), 3U);
    EXPECT_EQ(array->getString(0), "a");
    EXPECT_EQ(array->getObject(1)->getInt64("k"), 1);
    EXPECT_EQ(array->getString(2), "c");
}

TEST(JsonArrayTest, WrongTypeIsNamedTogetherWithTheIndexAndTheTypeAskedFor) {
    const auto array = parseArray(R"(["a",null,1])");
    EXPECT_THAT(failureOf([&] { array->getString(1); }),
                AllOf(HasSubstr("index 1"), HasSubstr("a string"), HasSubstr("null")));
    EXPECT_THAT(failureOf([&] { array->getString(2); }),
                AllOf(HasSubstr("index 2"), HasSubstr("a string"), HasSubstr("an int64")));
    EXPECT_THAT(failureOf([&] { array->getObject(0); }),
                AllOf(HasSubstr("index 0"), HasSubstr("an object"), HasSubstr("a string")));
}

TEST(JsonArrayTest, IndexBeyondTheEndHoldsNothing) {
    const auto array = parseArray(R"(["a"])");
    EXPECT_THAT(failureOf([&] { array->getString(1); }), AllOf(HasSubstr("index 1"), HasSubstr("nothing")));
    EXPECT_THAT(failureOf([&] { array->getObject(7); }), AllOf(HasSubstr("index 7"), HasSubstr("nothing")));
}

TEST(JsonArrayTest, WritesWhatWasAddedInItsOrder) {
    const auto array = JsonFactory::createJsonArray();
    EXPECT_EQ(array->toString(), "[]");
    const auto object = JsonFactory::createJsonObject();
    object->set("k", "v");
    array->add("first");
    array->add(object);
    array->add(std::string("last"));
    EXPECT_EQ(array->toString(), R"(["first",{"k":"v"},"last"])");
    EXPECT_EQ(array->size(), 3U);
}

TEST(JsonArrayTest, ObjectIsCopiedAsItIsWhenAdded) {
    const auto array = JsonFactory::createJsonArray();
    const auto object = JsonFactory::createJsonObject();
    array->add(object);
    object->set("later", 1);
    EXPECT_EQ(array->toString(), "[{}]");
}

TEST(JsonArrayTest, EmptyPointerAddsAnEmptyObject) {
    const auto array = JsonFactory::createJsonArray();
    array->add(std::shared_ptr<const JsonObject>());
    EXPECT_EQ(array->toString(), "[{}]");
}

TEST(JsonArrayTest, AddingToAViewChangesItAlone) {
    const auto parsed = JsonFactory::createJsonParser()->parse(R"(["a"])");
    const auto changed = parsed.asArray();
    changed->add("b");
    EXPECT_EQ(changed->toString(), R"(["a","b"])");
    EXPECT_EQ(parsed.asArray()->toString(), R"(["a"])");
}

TEST(JsonArrayTest, ObjectOfAChangedArrayStaysAsItWas) {
    const auto array = parseArray(R"([{"k":1}])");
    array->add("b");
    const auto object = array->getObject(0);
    for (int i = 0; i < 100; ++i)
        array->add("more");
    EXPECT_EQ(object->getInt64("k"), 1);
}

} // namespace
