#include <xal/QueryOptions.h>
#include <xal/XObjectDescriptor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Options = xal::QueryOptions;

TEST(AFilter, KeepsPairsInTheOrderAdded) {
    xal::XalFilter filter;
    filter.add("z", "1");
    filter.add("a", std::string("2"));
    filter.add("m", "3");
    EXPECT_THAT(filter.getPairs(), ElementsAre(Pair("z", "1"), Pair("a", "2"), Pair("m", "3")));
}

TEST(AFilter, ReplacesTheValueOfAKeyInItsPlace) {
    xal::XalFilter filter;
    filter.add("a", "1");
    filter.add("b", "2");
    filter.add("a", "3");
    EXPECT_THAT(filter.getPairs(), ElementsAre(Pair("a", "3"), Pair("b", "2")));
}

TEST(AFilter, TakesAnEmptyKeyAndValueLikeAnyOther) {
    xal::XalFilter filter;
    filter.add("", "");
    EXPECT_THAT(filter.getPairs(), ElementsAre(Pair("", "")));
}

TEST(AFilter, WritesNumbersInDecimalAndFlagsAsWords) {
    xal::XalFilter filter;
    filter.add("int", -7);
    filter.add("long", std::numeric_limits<long>::min());
    filter.add("yes", true);
    filter.add("no", false);
    EXPECT_THAT(filter.getPairs(), ElementsAre(Pair("int", "-7"), Pair("long", "-9223372036854775808"),
                                               Pair("yes", "true"), Pair("no", "false")));
}

TEST(AFilter, TakesAValueOutOfItsOwnPairs) {
    xal::XalFilter filter;
    filter.add("a", std::string(100, 'x'));
    for (int number = 0; number < 20; ++number)
        filter.add("b" + std::to_string(number), filter.getPairs().front().second);
    EXPECT_EQ(filter.getPairs().size(), 21U);
    EXPECT_EQ(filter.getPairs().back().second, std::string(100, 'x'));
}

TEST(QueryOptionsOfADescriptor, AskForNothingAtFirst) {
    const xal::XObjectDescriptor descriptor("S", "r");
    const Options& options = descriptor.getQueryOptions();
    EXPECT_THAT(options.getFields(), IsEmpty());
    EXPECT_EQ(options.getExpandLevel(), Options::EXPAND_NONE);
    EXPECT_THAT(options.getExpandFields(), IsEmpty());
    EXPECT_THAT(options.getSortBy(), IsEmpty());
    EXPECT_FALSE(options.getLimit().isValid());
    EXPECT_FALSE(options.getOffset().isValid());
}

TEST(QueryOptionsOfADescriptor, HoldWhatTheyAreSetTo) {
    xal::XObjectDescriptor descriptor("S", "r");
    descriptor.setQueryOptions({"a", "b"}, Options::EXPAND_ALL, {"c"}, {{Options::DESCENDING, "d"}}, 5, 10);
    const Options& options = descriptor.getQueryOptions();
    EXPECT_THAT(options.getFields(), ElementsAre("a", "b"));
    EXPECT_EQ(options.getExpandLevel(), Options::EXPAND_ALL);
    EXPECT_THAT(options.getExpandFields(), ElementsAre("c"));
    EXPECT_THAT(options.getSortBy(), ElementsAre(Pair(Options::DESCENDING, "d")));
    EXPECT_EQ(options.getLimit().getValue(), "5");
    EXPECT_EQ(options.getOffset().getValue(), "10");
}

TEST(QueryOptionsOfADescriptor, TakeTheOffsetAsTextAsItIs) {
    xal::XObjectDescriptor descriptor("S", "r");
    std::string offset = "after:abc";
    descriptor.setQueryOptions({}, Options::EXPAND_NONE, {}, {}, 5, offset);
    EXPECT_EQ(descriptor.getQueryOptions().getOffset().getValue(), "after:abc");
    offset = "later";
    descriptor.setQueryOptionsOffset({}, Options::EXPAND_NONE, {}, {}, offset);
    EXPECT_EQ(descriptor.getQueryOptions().getOffset().getValue(), "later");
    EXPECT_EQ(descriptor.getQueryOptions().getLimit().getValue(), "5");
}

TEST(QueryOptionsOfADescriptor, StayWhereACallDoesNotNameThem) {
    xal::XObjectDescriptor descriptor("S", "r");
    descriptor.setQueryOptions({"a"}, Options::EXPAND_ALL, {"b"}, {{Options::ASCENDING, "c"}}, 1, 2);
    descriptor.setQueryOptions({"z"}, Options::EXPAND_NONE);
    EXPECT_THAT(descriptor.getQueryOptions().getFields(), ElementsAre("z"));
    EXPECT_EQ(descriptor.getQueryOptions().getExpandLevel(), Options::EXPAND_NONE);
    EXPECT_THAT(descriptor.getQueryOptions().getExpandFields(), ElementsAre("b"));
    descriptor.setQueryOptionsLimit({}, Options::EXPAND_NONE, {}, {}, 3);
    EXPECT_EQ(descriptor.getQueryOptions().getLimit().getValue(), "3");
    EXPECT_EQ(descriptor.getQueryOptions().getOffset().getValue(), "2");
    descriptor.setQueryOptionsOffset({}, Options::EXPAND_NONE, {}, {}, 4);
    EXPECT_EQ(descriptor.getQueryOptions().getLimit().getValue(), "3");
    EXPECT_EQ(descriptor.getQueryOptions().getOffset().getValue(), "4");
}

} // namespace
