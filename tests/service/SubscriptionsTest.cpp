#include "Subscriptions.h"

#include "Exchange.h"
#include "ManualClock.h"

#include <support/WebSocketFrames.h>

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <vector>

namespace cdxservice {
namespace {

constexpr std::size_t endless = SIZE_MAX;

class SubscriptionsTest : public ::testing::Test {
protected:
    SubscriptionsTest() { exchange.attach({}, std::make_shared<ManualClock>(), 1000); }

    void post(const char* resource, const std::string& body) {
        const auto written = exchange.post(*findResource(resource), boost::json::parse(body).as_object(), body.size());
        ASSERT_TRUE(std::holds_alternative<Exchange::Written>(written));
    }
    void subscribe(std::uint64_t sub, const char* resource, std::optional<std::string> id = {}) {
        const std::size_t index = *findResource(resource);
        subscriptions.add(Subscription({sub, index, std::move(id)}, exchange.resource(index).log(), {}));
    }
    /// A turn; `more`: whether something is left afterwards. Returns the numbers of those that told something, in the
    /// order of what they told.
    std::vector<std::int64_t> turn(bool more, std::size_t enough = endless) {
        OutBuffer out;
        EXPECT_EQ(subscriptions.write(out, enough), more);
        std::vector<std::int64_t> subs;
        std::string bytes = out.text();
        while (const auto frame = cdxtest::takeFrame(bytes)) {
            subs.push_back(boost::json::parse(frame->payload).at("sub").as_int64());
        }
        return subs;
    }
    int turns() {
        int count = 1;
        OutBuffer out;
        while (subscriptions.write(out, endless)) {
            ++count;
            EXPECT_TRUE(out.empty()) << "nothing is told";
        }
        return count;
    }

    Exchange exchange{nullptr, 100};
    Subscriptions subscriptions{exchange};
    using Subs = std::vector<std::int64_t>;
};

TEST_F(SubscriptionsTest, TellWhatTheirResourceHasAndNothingTwice) {
    post("cdxConfig", R"({"id":"a"})");
    subscribe(1, "cdxConfig");
    subscribe(2, "cdxTrigger");
    EXPECT_EQ(turn(false), Subs({1, 1, 2})) << "an element and that it is current; that nothing is there";
    EXPECT_EQ(turn(false), Subs());
    post("cdxConfig", R"({"id":"b"})");
    EXPECT_EQ(turn(false), Subs({1}));
    subscribe(3, "cdxConfig");
    EXPECT_EQ(turn(false), Subs({3, 3, 3})) << "one that is new is looked at though nothing changed";
    EXPECT_EQ(turn(false), Subs());
}

TEST_F(SubscriptionsTest, ThatAreCutOffGoOnAfterTheOthers) {
    for (std::uint64_t sub = 1; sub <= 3; ++sub) {
        subscribe(sub, "cdxConfig");
    }
    EXPECT_EQ(turn(true, 1), Subs({1}));
    EXPECT_EQ(turn(true, 1), Subs({2}));
    post("cdxConfig", R"({"id":"a"})");
    EXPECT_EQ(turn(false), Subs({3, 3, 1, 2})) << "and the change reaches those who had their turn";
}

TEST_F(SubscriptionsTest, OfAClientThatLagsAllHaveTheirTurn) {
    for (const char* id : {"a", "b", "c"}) {
        post("cdxConfig", std::string(R"({"id":")") + id + "\"}");
    }
    subscribe(1, "cdxConfig");
    subscribe(2, "cdxConfig");
    subscribe(3, "cdxTrigger");
    Subs told;
    for (int i = 0; i < 9; ++i) {
        post("cdxConfig", R"({"id":"new)" + std::to_string(i) + "\"}");
        const Subs now = turn(true, 1);
        told.insert(told.end(), now.begin(), now.end());
    }
    EXPECT_EQ(told, Subs({1, 3, 2, 1, 2, 1, 2, 1, 2})) << "though the first one never comes to an end";
}

TEST_F(SubscriptionsTest, OfOtherElementsHoldUpNobodyWhileTheirResourceChanges) {
    for (std::uint64_t sub = 1; sub <= 5'000; ++sub) {
        subscribe(sub, "cdxConfig", "other");
    }
    OutBuffer out;
    while (subscriptions.write(out, 32'768)) {
        out.clear();
    }
    subscribe(5'001, "cdxTrigger");
    EXPECT_EQ(turn(false), Subs({5'001}));
    post("cdxConfig", "{}");
    EXPECT_EQ(turn(true), Subs());
    post("cdxTrigger", "{}");
    post("cdxConfig", "{}");
    EXPECT_EQ(turn(true), Subs({5'001})) << "before the thousands have been looked at";
}

TEST_F(SubscriptionsTest, ThatAreMadeOrReleasedMeanwhileAreServedOrNot) {
    for (std::uint64_t sub = 1; sub <= 4; ++sub) {
        subscribe(sub, "cdxConfig");
    }
    EXPECT_EQ(turn(true, 1), Subs({1}));
    subscriptions.remove(1);
    subscriptions.remove(2);
    subscribe(5, "cdxConfig");
    post("cdxConfig", R"({"id":"a"})");
    EXPECT_EQ(turn(false), Subs({3, 3, 4, 4, 5, 5}));
    subscriptions.clear();
    post("cdxConfig", R"({"id":"b"})");
    EXPECT_EQ(turn(false), Subs());
}

TEST_F(SubscriptionsTest, OfOtherElementsAreLookedAtInBoundedTurns) {
    for (std::uint64_t sub = 1; sub <= 5'000; ++sub) {
        subscribe(sub, "cdxConfig", "other");
    }
    std::size_t current = 0;
    for (bool more = true; more;) {
        OutBuffer out;
        more = subscriptions.write(out, 32'768);
        current += out.size();
    }
    EXPECT_GT(current, 5'000u);
    EXPECT_EQ(turns(), 1) << "none is looked at while nothing changes";
    post("cdxTrigger", "{}");
    EXPECT_EQ(turns(), 1) << "nor for what is no concern of theirs";
    post("cdxConfig", R"({"id":"a"})");
    EXPECT_GT(turns(), 5);
    EXPECT_EQ(turns(), 1);
}

TEST_F(SubscriptionsTest, OfOneElementPassOverTheOthersInBoundedTurns) {
    for (int i = 0; i < 5'000; ++i) {
        post("cdxConfig", "{}");
    }
    subscribe(1, "cdxConfig", "other");
    int count = 1;
    OutBuffer out;
    while (subscriptions.write(out, endless)) {
        ++count;
    }
    EXPECT_GE(count, 5);
    EXPECT_EQ(out.text().find("event"), std::string::npos);
    EXPECT_NE(out.text().find("current"), std::string::npos) << "which comes when all are looked at";
}

TEST_F(SubscriptionsTest, HoldMemory) {
    EXPECT_EQ(subscriptions.held(), 0u);
    for (std::uint64_t sub = 1; sub <= 100; ++sub) {
        subscribe(sub, "cdxConfig");
    }
    EXPECT_GE(subscriptions.held(), 100 * sizeof(Subscription));
}

} // namespace
} // namespace cdxservice
