#include "Resource.h"

#include <gtest/gtest.h>

#include <limits>

namespace cdxservice {
namespace {

class DataResource : public ::testing::Test {
protected:
    ElementPtr data(const std::string& id, const std::string& name, const std::string& eventId,
                    std::optional<std::int64_t> timestamp = {}, std::optional<std::int64_t> timeToLive = {}) {
        Values values(schema.fields.size());
        values[idField] = id;
        values[nameField] = name;
        values[uriField] = elementUri(schema, id);
        values[wellKnown().dataEventId] = eventId;
        if (timestamp) {
            values[wellKnown().dataTimestamp] = *timestamp;
        }
        if (timeToLive) {
            values[wellKnown().dataTimeToLive] = *timeToLive;
        }
        return std::make_shared<const Element>(schema, values, std::nullopt, ++revision);
    }

    void put(const ElementPtr& element) {
        resource.prepare(element);
        resource.commit(element);
    }

    const ResourceSchema& schema = cdxservice::schema()[wellKnown().data];
    Resource resource{schema, 10};
    Revision revision = 0;
};

TEST_F(DataResource, FindsWhatATicketSettles) {
    put(data("1", "a", "bc"));
    put(data("2", "ab", "c"));
    put(data("3", "a", "bc"));
    put(data("4", "", "bc"));
    const auto found = resource.findEvent("a", "bc");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]->id(), "1");
    EXPECT_EQ(found[1]->id(), "3");
    EXPECT_TRUE(resource.findEvent("", "bc").empty());
}

TEST_F(DataResource, FollowsAnElementThatChanges) {
    put(data("1", "a", "x", 0, 10));
    put(data("1", "b", "y", 0, 20));
    EXPECT_EQ(resource.size(), 1u);
    EXPECT_TRUE(resource.findEvent("a", "x").empty());
    EXPECT_EQ(resource.findEvent("b", "y").size(), 1u);
    EXPECT_TRUE(resource.expired(19'999).empty());
    EXPECT_EQ(resource.expired(20'000).size(), 1u);
    resource.prepareRemoval("1", ++revision);
    resource.commitRemoval("1", revision);
    EXPECT_TRUE(resource.findEvent("b", "y").empty());
    EXPECT_TRUE(resource.expired(30'000).empty());
    EXPECT_EQ(resource.find("1"), nullptr);
}

TEST_F(DataResource, IsAsItWasAfterChangesThatWereTakenBack) {
    put(data("1", "a", "x", 0, 10));
    const ElementPtr changed = data("1", "b", "y", 0, 20);
    const ElementPtr added = data("2", "b", "y");
    resource.prepare(changed);
    resource.prepare(added);
    resource.prepareRemoval("1", ++revision);
    resource.revert(changed);
    resource.revert(added);
    resource.revertRemoval(revision);
    EXPECT_EQ(resource.size(), 1u);
    EXPECT_EQ(resource.find("2"), nullptr);
    EXPECT_EQ(resource.findEvent("a", "x").size(), 1u);
    EXPECT_TRUE(resource.findEvent("b", "y").empty());
    EXPECT_EQ(resource.expired(10'000).size(), 1u);
    EXPECT_EQ(resource.log().latest(), 1u);
}

TEST_F(DataResource, KeepsForEverWhatLacksATimeOrALife) {
    put(data("1", "a", "x", 0));
    put(data("2", "a", "x", std::nullopt, 0));
    EXPECT_TRUE(resource.expired(std::numeric_limits<std::int64_t>::max()).empty());
}

TEST_F(DataResource, SaturatesTheEndOfAnElementsTime) {
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 1000, 2)), 3000);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 1000, -2)), -1000);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 1000, highest)), highest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", highest, 1)), highest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", lowest, -1)), lowest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -1000, lowest)), lowest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", lowest, highest)), highest) << "though its beginning is as far as can be";
    EXPECT_EQ(endOfTime(*data("1", "a", "x", highest, lowest)), lowest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", lowest, 0)), lowest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", highest, 0)), highest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", lowest, 1)), lowest + 1000);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", highest, -1)), highest - 1000);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -1500, 1)), -500);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -500, 1)), 500);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 1500, -2)), -500);
    const std::int64_t mostSeconds = highest / 1000; // 9223372036854775, and 807 milliseconds are left
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 807, mostSeconds)), highest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 806, mostSeconds)), highest - 1);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", 808, mostSeconds)), highest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -808, -mostSeconds)), lowest);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -807, -mostSeconds)), lowest + 1);
    EXPECT_EQ(endOfTime(*data("1", "a", "x", -809, -mostSeconds)), lowest);
}

} // namespace
} // namespace cdxservice
