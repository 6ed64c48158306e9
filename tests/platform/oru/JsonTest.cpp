#include <oru/Json.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

TEST(OruJson, IsJsonCppItself) {
    EXPECT_TRUE((std::is_same_v<oru::Json::Value, ::Json::Value>));
    EXPECT_TRUE((std::is_same_v<oru::Json::FastWriter, ::Json::FastWriter>));
    EXPECT_TRUE((std::is_same_v<oru::Json::ValueIterator, ::Json::ValueIterator>));
}

} // namespace
