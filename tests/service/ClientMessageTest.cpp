#include "ClientMessage.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

TEST(ClientMessage, IsReadWhole) {
    const auto message = readClientMessage(
        R"({"op":"subscribe","sub":9007199254740991,"resource":"cdxData","id":"a-1","since":{"epoch":"e","rev":3}})");
    EXPECT_TRUE(message.readable);
    EXPECT_TRUE(message.subscribes);
    EXPECT_FALSE(message.problem);
    EXPECT_EQ(message.sub, 9007199254740991u);
    EXPECT_EQ(message.resource, "cdxData");
    EXPECT_EQ(message.id, "a-1");
    EXPECT_EQ(message.since->revision, 3u);
}

TEST(ClientMessage, IsNotReadableWithoutAnOperationAndANumber) {
    for (const char* text :
         {"", "x", "[]", "1", R"({"op":"subscribe"})", R"({"sub":1})", R"({"op":"list","sub":1})",
          R"({"op":1,"sub":1})", R"({"op":"subscribe","sub":"1","resource":"cdxData"})",
          R"({"op":"subscribe","sub":1.0,"resource":"cdxData"})",
          R"({"op":"subscribe","sub":1e0,"resource":"cdxData"})", R"({"op":"subscribe","sub":-1,"resource":"cdxData"})",
          R"({"op":"subscribe","sub":9007199254740992,"resource":"cdxData"})",
          R"({"op":"unsubscribe","sub":1,"sub":1})", R"({"op":"unsubscribe","sub":1,"x":"\ud800"})"}) {
        EXPECT_FALSE(readClientMessage(text).readable) << text;
        EXPECT_TRUE(readClientMessage(text).problem) << text;
    }
}

TEST(ClientMessage, IsRefusedForAWrongMember) {
    for (const char* rest :
         {R"("x":1)", R"("resource":1)", R"("resource":"cdxData","x":1)", R"("resource":"cdxData","id":1)",
          R"("resource":"cdxData","id":null)", R"("resource":"cdxData","id":"a b")", R"("resource":"cdxData","id":"")",
          R"("resource":"cdxData","since":1)", R"("resource":"cdxData","since":{})",
          R"("resource":"cdxData","since":{"epoch":"e"})", R"("resource":"cdxData","since":{"epoch":1,"rev":1})",
          R"("resource":"cdxData","since":{"epoch":"e","rev":-1})",
          R"("resource":"cdxData","since":{"epoch":"e","rev":1.5})",
          R"("resource":"cdxData","since":{"epoch":"e","rev":1,"x":1})", R"("resource":1e99999999999)",
          R"("resource":"cdxData","since":{"epoch":"e","rev":1e99999999999})"}) {
        const auto message = readClientMessage(std::string(R"({"op":"subscribe","sub":1,)") + rest + "}");
        EXPECT_TRUE(message.readable) << rest;
        ASSERT_TRUE(message.problem) << rest;
        EXPECT_EQ(message.problem->status, 400) << rest;
    }
    EXPECT_EQ(readClientMessage(R"({"op":"unsubscribe","sub":1,"resource":"cdxData"})").problem->status, 400);
}

TEST(ClientMessage, OfAnErrorNamesItsSubscriptionWhereThereIsOne) {
    EXPECT_EQ(writeError(3, {404, "d"}), R"({"op":"error","sub":3,"status":404,"title":"Not Found","detail":"d"})");
    EXPECT_EQ(writeError({}, {400, "d"}), R"({"op":"error","status":400,"title":"Bad Request","detail":"d"})");
}

} // namespace
} // namespace cdxservice
