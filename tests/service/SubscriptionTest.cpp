#include "Subscription.h"

#include <support/WebSocketFrames.h>

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

class SubscriptionTest : public ::testing::Test {
protected:
    void put(const std::string& id) {
        const Revision previous = revisions[id];
        revisions[id] = log.latest() + 1;
        Values values(schema.fields.size());
        values[idField] = id;
        values[uriField] = elementUri(schema, id);
        log.prepare(std::make_shared<const Element>(schema, values, std::nullopt, revisions[id]));
        log.commit(revisions[id], previous);
    }
    void remove(const std::string& id) {
        log.prepareRemoval(id, log.latest() + 1);
        log.commit(log.latest() + 1, revisions[id]);
        revisions[id] = 0;
    }

    Subscription subscribe(std::optional<Revision> position = {}, std::optional<std::string> id = {}) {
        return Subscription({7, 0, std::move(id)}, log, position);
    }

    /// What is sent until nothing is left: "prev>rev" and what it tells.
    std::string told(Subscription& subscription) {
        OutBuffer out;
        std::string result;
        std::size_t steps = 1000;
        while (subscription.writeNext(out, log, "e", steps)) {
        }
        std::string bytes = out.text();
        while (const auto frame = cdxtest::takeFrame(bytes)) {
            const auto field = [&](const std::string& key) {
                const auto at = frame->payload.find("\"" + key + "\":");
                return at == std::string::npos
                           ? std::string()
                           : frame->payload.substr(at + key.size() + 3,
                                                   frame->payload.find_first_of(",}", at) - at - key.size() - 3);
            };
            result += field("op") == "\"subscribed\"" ? "anew" : field("prev") + ">" + field("rev");
            result += field("op") == "\"current\"" ? " current" : "";
            result += field("removed").empty() ? "" : " -" + field("removed");
            result += ";";
        }
        return result;
    }

    const ResourceSchema& schema = cdxservice::schema()[0];
    RevisionLog log{3};
    std::map<std::string, Revision> revisions;
};

TEST_F(SubscriptionTest, FromNothingTellsWhatIsThereThenThatItIsCurrent) {
    put("a");
    put("b");
    put("a");
    remove("b");
    Subscription subscription = subscribe();
    EXPECT_FALSE(subscription.resumed());
    EXPECT_EQ(told(subscription), "0>3;3>4 current;");
    put("c");
    EXPECT_EQ(told(subscription), "4>5;");
}

TEST_F(SubscriptionTest, OfAnEmptyResourceIsCurrentAtOnce) {
    Subscription subscription = subscribe();
    EXPECT_EQ(told(subscription), "0>0 current;");
}

TEST_F(SubscriptionTest, FromAPositionTellsWhatCameAfter) {
    put("a");
    put("b");
    remove("a");
    Subscription subscription = subscribe(2);
    EXPECT_TRUE(subscription.resumed());
    EXPECT_EQ(told(subscription), "2>3 -\"a\";3>3 current;");
}

TEST_F(SubscriptionTest, FromNothingLearnsOfRemovalsMadeSince) {
    put("a");
    put("b");
    Subscription subscription = subscribe();
    remove("a");
    EXPECT_EQ(told(subscription), "0>2;2>3 -\"a\";3>3 current;");
}

TEST_F(SubscriptionTest, BeginsAnewFromAPositionThatIsAhead) {
    put("a");
    Subscription subscription = subscribe(2);
    EXPECT_FALSE(subscription.resumed());
    EXPECT_EQ(told(subscription), "0>1;1>1 current;");
}

TEST_F(SubscriptionTest, BeginsAnewFromBeforeAForgottenRemoval) {
    for (int i = 0; i < 4; ++i) {
        put("a");
        remove("a");
    }
    EXPECT_EQ(log.forgotten(), 2u);
    EXPECT_FALSE(subscribe(1).resumed());
    EXPECT_TRUE(subscribe(2).resumed());
}

TEST_F(SubscriptionTest, BeginsAnewWhenAForgottenRemovalOvertakesIt) {
    put("a");
    Subscription subscription = subscribe();
    EXPECT_EQ(told(subscription), "0>1;1>1 current;");
    for (int i = 0; i < 4; ++i) {
        put("b");
        remove("b");
    }
    EXPECT_EQ(told(subscription), "anew;0>1;1>9 current;");
}

TEST_F(SubscriptionTest, MergesWhatChangesWhileItWaits) {
    Subscription subscription = subscribe();
    EXPECT_EQ(told(subscription), "0>0 current;");
    put("a");
    put("b");
    put("a");
    EXPECT_EQ(told(subscription), "0>2;2>3;");
}

TEST_F(SubscriptionTest, OfAnElementPassesOverOthers) {
    put("a");
    put("b");
    Subscription subscription = subscribe({}, "b");
    EXPECT_EQ(told(subscription), "0>2;2>2 current;");
    put("a");
    put("b");
    remove("a");
    remove("b");
    put("c");
    EXPECT_EQ(told(subscription), "2>6 -\"b\";");
}

TEST_F(SubscriptionTest, OfAnElementThatIsNotThereIsCurrentAlone) {
    put("a");
    Subscription subscription = subscribe({}, "x");
    EXPECT_EQ(told(subscription), "0>1 current;");
}

} // namespace
} // namespace cdxservice
