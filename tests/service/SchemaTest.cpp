#include "Schema.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

TEST(Schema, HoldsTheFiveResourcesWithTheirFields) {
    const auto count = [](const char* name) { return schema()[findResource(name).value()].fields.size(); };
    EXPECT_EQ(count("cdxData"), 14u + 3u);
    EXPECT_EQ(count("cdxClientStates"), 5u + 3u);
    EXPECT_EQ(count("cdxConfig"), 6u + 3u);
    EXPECT_EQ(count("cdxTrigger"), 9u + 3u);
    EXPECT_EQ(count("cdxMasterControls"), 5u + 3u);
}

TEST(Schema, BeginsEveryResourceWithIdNameAndUri) {
    for (const ResourceSchema& resource : schema()) {
        EXPECT_EQ(resource.find("id"), idField);
        EXPECT_EQ(resource.find("name"), nameField);
        EXPECT_EQ(resource.find("uri"), uriField);
    }
}

TEST(Schema, GivesEveryResourceARunningNumber) {
    for (const ResourceSchema& resource : schema()) {
        const auto field = resource.find("elementId");
        ASSERT_TRUE(field) << resource.name;
        EXPECT_EQ(resource.fields[*field].kind, Kind::Integer);
    }
}

TEST(Schema, KeepsNamesUniqueForClientStatesAndMasterControlsOnly) {
    for (const ResourceSchema& resource : schema()) {
        const bool expected = resource.name == "cdxClientStates" || resource.name == "cdxMasterControls";
        EXPECT_EQ(resource.oneOfEachName, expected) << resource.name;
    }
}

TEST(Schema, KnowsNoOtherResource) {
    EXPECT_FALSE(findResource("cdxdata"));
    EXPECT_FALSE(findResource(""));
}

} // namespace
} // namespace cdxservice
