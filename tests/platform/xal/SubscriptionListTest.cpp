#include "RecordingConnection.h"
#include "TestClient.h"

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using testing::ElementsAre;
using testing::IsEmpty;
using Items = std::vector<std::shared_ptr<const Item>>;
using xal::Event;

/// A class that refuses some of its elements.
class Picky : public xal::XObject<ItemDescriptor> {
public:
    using Desctype = ItemDescriptor;
    explicit Picky(const std::shared_ptr<xalutil::JsonObject>& json) : XObject<ItemDescriptor>(json) {
        if (getName().isValid() && getName().getValue() == "bad")
            throw std::runtime_error("picky");
        if (getName().isValid() && getName().getValue() == "odd")
            throw 5;
        if (getName().isValid() && getName().getValue() == "vast")
            throw std::bad_array_new_length();
        if (getName().isValid() && getName().getValue() == "hungry")
            throw std::bad_alloc();
    }
};

class ResourceSubscription : public testing::Test {
protected:
    ResourceSubscription() { subscribe(ItemDescriptor()); }

    void subscribe(const ItemDescriptor& descriptor) {
        service.subscribeResource<Item>(
            descriptor, [this](const Items& items, const std::shared_ptr<const xal::SubscriptionResponse>& response) {
                told.push_back(describe(items, response->getStatusCode()));
                last = items;
            });
    }

    std::shared_ptr<RecordingConnection> connection = std::make_shared<RecordingConnection>();
    ItemService service{connection};
    std::vector<std::string> told;
    Items last;
};

TEST_F(ResourceSubscription, NamesTheNthNotificationsOldestElementsLatestFirst) {
    connection->changedId("a");
    connection->changedId("b");
    connection->changedId("c");
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("a", "b a", "c b a"));
}

TEST_F(ResourceSubscription, MovesWhatChangesToTheFront) {
    connection->changedId("a");
    connection->changedId("b");
    connection->tell(Event::CURRENT);
    connection->changedId("a", "new");
    EXPECT_EQ(told.back(), "a b");
    EXPECT_EQ(last.front()->name(), "new");
}

TEST_F(ResourceSubscription, SharesElementsThatDidNotChange) {
    connection->changedId("a");
    const auto a = last.front();
    connection->changedId("b");
    EXPECT_EQ(last.back(), a);
}

TEST_F(ResourceSubscription, TellsOfAnEmptyResourceOnce) {
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("-"));
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("-"));
}

TEST_F(ResourceSubscription, ShowsARemovalInTheNextList) {
    connection->changedId("a");
    connection->changedId("b");
    connection->removed("a");
    EXPECT_THAT(told, ElementsAre("a", "b a"));
    connection->changedId("c");
    EXPECT_EQ(told.back(), "c b");
}

TEST_F(ResourceSubscription, TellsOfARemovalThatLeavesNothing) {
    connection->changedId("a");
    connection->tell(Event::CURRENT);
    connection->removed("a");
    EXPECT_THAT(told, ElementsAre("a", "-"));
}

TEST_F(ResourceSubscription, DoesNotTellTwiceThatNothingIsLeft) {
    connection->changedId("a");
    connection->removed("a");
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("a", "-"));
}

TEST_F(ResourceSubscription, PassesOverTheRemovalOfWhatItNeverKnew) {
    connection->removed("x");
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(ResourceSubscription, DoesNotTellAgainOfEqualElementsAfterARestart) {
    connection->changedId("a");
    connection->changedId("b");
    connection->tell(Event::CURRENT);
    told.clear();
    connection->tell(Event::RESTARTED);
    connection->changedId("a");
    connection->changedId("b");
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(ResourceSubscription, ComparesElementsByTheirMembersNotTheirOrder) {
    connection->changed(R"({"id":"a","name":"n","x":1})");
    connection->tell(Event::RESTARTED);
    connection->changed(R"({"x":1,"name":"n","id":"a"})");
    EXPECT_THAT(told, ElementsAre("a"));
}

TEST_F(ResourceSubscription, ComparesElementsAfterARestartHoweverDeeplyTheyAreNested) {
    // As deep as a text may be read.
    const auto nested = [](const std::string& core) {
        constexpr int depth = 126;
        std::string text = core;
        for (int i = 0; i < depth; ++i)
            text = i % 2 == 0 ? "[" + text + "]" : R"({"x":)" + text + "}";
        return R"({"id":"a","x":)" + text + "}";
    };
    connection->changed(nested("1"));
    connection->tell(Event::RESTARTED);
    connection->changed(nested("1"));
    EXPECT_THAT(told, ElementsAre("a"));
    connection->tell(Event::RESTARTED);
    connection->changed(nested("2"));
    EXPECT_THAT(told, ElementsAre("a", "a"));
}

TEST_F(ResourceSubscription, KeepsOldElementsUntilCurrentAfterARestart) {
    connection->changedId("a");
    connection->changedId("b");
    connection->tell(Event::CURRENT);
    connection->tell(Event::RESTARTED);
    connection->changedId("c");
    EXPECT_EQ(told.back(), "c b a");
    connection->tell(Event::CURRENT);
    connection->changedId("d");
    EXPECT_EQ(told.back(), "d c");
}

TEST_F(ResourceSubscription, TellsOfChangesMadeBeforeARestart) {
    connection->changedId("a");
    connection->tell(Event::CURRENT);
    connection->tell(Event::RESTARTED);
    connection->changedId("a", "new");
    EXPECT_THAT(told, ElementsAre("a", "a"));
    EXPECT_EQ(last.front()->name(), "new");
}

TEST_F(ResourceSubscription, CountsAsRemovedWhatWasNotSentAgain) {
    connection->changedId("a");
    connection->tell(Event::CURRENT);
    connection->tell(Event::RESTARTED);
    EXPECT_THAT(told, ElementsAre("a"));
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("a", "-"));
}

TEST_F(ResourceSubscription, OrdersTheListByTheNewSendingAfterARestart) {
    connection->changedId("a");
    connection->changedId("b");
    connection->tell(Event::CURRENT);
    connection->tell(Event::RESTARTED);
    connection->changedId("b");
    connection->changedId("a");
    connection->tell(Event::CURRENT);
    connection->changedId("c");
    EXPECT_EQ(told.back(), "c a b");
}

TEST_F(ResourceSubscription, TellsAChangeAfterTheElementWasConfirmed) {
    connection->changedId("a");
    connection->tell(Event::RESTARTED);
    connection->changedId("a");
    connection->changedId("a");
    EXPECT_THAT(told, ElementsAre("a", "a"));
}

TEST_F(ResourceSubscription, GivesARefusalsStatusAndIsOver) {
    connection->tell(Event::REFUSED, 404);
    EXPECT_THAT(told, ElementsAre("- !404"));
    connection->changedId("a");
    connection->tell(Event::CURRENT);
    EXPECT_EQ(told.size(), 1u);
}

TEST_F(ResourceSubscription, LogsAndDropsAnElementWithoutAnId) {
    connection->changed(R"({"name":"x"})");
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(connection->log.lines, ElementsAre(testing::HasSubstr("CarDataExchange/cdxConfig dropped")));
    connection->changedId("a");
    EXPECT_THAT(told, ElementsAre("a"));
}

TEST_F(ResourceSubscription, LogsAndDropsAnElementWithAnIdThatIsNoText) {
    connection->changed(R"({"id":5})");
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(connection->log.lines.size(), 1u);
}

TEST_F(ResourceSubscription, LogsAndDropsAnElementWhoseConstructionThrows) {
    std::size_t count = 0;
    service.subscribeResource<Picky>(ItemDescriptor(),
                                     [&](const std::vector<std::shared_ptr<const Picky>>&, const auto&) { ++count; });
    connection->changedId("a", "bad");
    connection->changedId("b", "odd");
    connection->changedId("c", "vast");
    connection->changedId("d", "hungry");
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(connection->log.lines.size(), 4u);
    connection->changedId("c", "good");
    EXPECT_EQ(count, 1u);
}

TEST_F(ResourceSubscription, KeepsTheOldElementWhereTheNewOneIsUnusable) {
    std::vector<std::string> ids;
    service.subscribeResource<Picky>(ItemDescriptor(),
                                     [&](const std::vector<std::shared_ptr<const Picky>>& items, const auto&) {
                                         ids.clear();
                                         for (const auto& item : items)
                                             ids.push_back(item->getId().getValue());
                                     });
    connection->changedId("a", "good");
    connection->tell(Event::RESTARTED);
    connection->changedId("a", "bad");
    connection->tell(Event::CURRENT);
    connection->changedId("b", "good");
    EXPECT_THAT(ids, ElementsAre("b", "a"));
}

TEST_F(ResourceSubscription, GoesOnAfterAHandlerThrew) {
    bool mustThrow = true;
    std::vector<std::string> seen;
    service.subscribeResource<Item>(ItemDescriptor(), [&](const Items& items, const auto&) {
        seen.push_back(describe(items));
        if (mustThrow)
            throw std::runtime_error("handler");
    });
    EXPECT_THROW(connection->changedId("a"), std::runtime_error);
    mustThrow = false;
    connection->changedId("b");
    EXPECT_THAT(seen, ElementsAre("a", "b a"));
}

TEST_F(ResourceSubscription, LivesUntilItsHandlerReturned) {
    const auto alive = std::make_shared<int>(1);
    std::weak_ptr<int> weak = alive;
    bool wasAlive = false;
    service.subscribeResource<Item>(ItemDescriptor(), [this, &wasAlive, weak, alive](const Items&, const auto&) {
        connection->callbacks.back() = nullptr;
        wasAlive = !weak.expired();
    });
    const auto callback = connection->callbacks.back();
    connection->changedId("a");
    EXPECT_TRUE(wasAlive);
}

TEST_F(ResourceSubscription, SaysWhetherItWasNarrowed) {
    EXPECT_FALSE(connection->subscribeRequests.back().narrowed);
    ItemDescriptor filtered;
    filtered.addFilter("name", "x");
    subscribe(filtered);
    EXPECT_TRUE(connection->subscribeRequests.back().narrowed);
    ItemDescriptor chosen;
    chosen.setQueryOptions({"name"}, xal::QueryOptions::EXPAND_NONE);
    subscribe(chosen);
    EXPECT_TRUE(connection->subscribeRequests.back().narrowed);
}

TEST_F(ResourceSubscription, NamesItsServiceAndResource) {
    const auto& request = connection->subscribeRequests.back();
    EXPECT_EQ(request.kind, xal::SubscribeRequest::RESOURCE);
    EXPECT_EQ(request.serviceName, "CarDataExchange");
    EXPECT_EQ(request.resourceName, "cdxConfig");
}

class ElementSubscription : public testing::Test {
protected:
    ElementSubscription() {
        service.subscribeElement<Item>(ItemDescriptor::withId("a"), [this](const std::shared_ptr<const Item>& item) {
            told.push_back(item ? item->name() : "-");
        });
    }

    std::shared_ptr<RecordingConnection> connection = std::make_shared<RecordingConnection>();
    ItemService service{connection};
    std::vector<std::string> told;
};

TEST_F(ElementSubscription, IsNotCalledBeforeItsElementExists) {
    connection->tell(Event::CURRENT);
    connection->removed("a");
    EXPECT_THAT(told, IsEmpty());
    connection->changedId("a", "1");
    EXPECT_THAT(told, ElementsAre("1"));
}

TEST_F(ElementSubscription, IsToldOfRemovalWithNothing) {
    connection->changedId("a", "1");
    connection->removed("a");
    EXPECT_THAT(told, ElementsAre("1", "-"));
}

TEST_F(ElementSubscription, IsToldOfNoOtherElement) {
    connection->changedId("b", "2");
    EXPECT_THAT(told, IsEmpty());
    connection->changedId("a", "1");
    connection->removed("b");
    connection->removed("a");
    EXPECT_THAT(told, ElementsAre("1", "-"));
}

TEST_F(ElementSubscription, IsToldOnceOfRemoval) {
    connection->changedId("a", "1");
    connection->removed("a");
    connection->removed("a");
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("1", "-"));
}

TEST_F(ElementSubscription, IsNotToldAgainOfAnEqualElementAfterARestart) {
    connection->changedId("a", "1");
    connection->tell(Event::RESTARTED);
    connection->changedId("a", "1");
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("1"));
}

TEST_F(ElementSubscription, IsToldOfRemovalThatARestartBrings) {
    connection->changedId("a", "1");
    connection->tell(Event::RESTARTED);
    connection->tell(Event::CURRENT);
    EXPECT_THAT(told, ElementsAre("1", "-"));
}

TEST_F(ElementSubscription, GetsNothingOnceWhenRefusedAndTheStatusIsLogged) {
    connection->tell(Event::REFUSED, 404);
    connection->changedId("a", "1");
    EXPECT_THAT(told, ElementsAre("-"));
    EXPECT_THAT(connection->log.lines, ElementsAre(testing::HasSubstr("404")));
}

TEST_F(ElementSubscription, CarriesItsId) {
    EXPECT_EQ(connection->subscribeRequests.back().kind, xal::SubscribeRequest::ELEMENT);
    EXPECT_EQ(connection->subscribeRequests.back().id, "a");
}

TEST(SubscriptionWithoutAHandler, DoesNothing) {
    const auto connection = std::make_shared<RecordingConnection>();
    ItemService service(connection);
    service.subscribeResource<Item>(ItemDescriptor(), nullptr);
    EXPECT_NO_THROW(connection->changedId("a"));
    service.subscribeElement<Item>(ItemDescriptor::withId("a"), nullptr);
    EXPECT_NO_THROW(connection->changedId("a"));
}

TEST(Subscriptions, DoNotKeepTheConnectionAlive) {
    auto connection = std::make_shared<RecordingConnection>();
    auto service = std::make_unique<ItemService>(connection);
    service->subscribeResource<Item>(ItemDescriptor(), [](const Items&, const auto&) {});
    const auto callback = connection->callbacks.back();
    const std::weak_ptr<RecordingConnection> weak = connection;
    service.reset();
    connection.reset();
    EXPECT_TRUE(weak.expired());
}

/// A descriptor that puts its filter together when it is asked for it.
class LazyDescriptor : public ItemDescriptor {
public:
    const xal::XalFilter& getFilter() const {
        m_filter = XObjectDescriptor::getFilter();
        m_filter.add("late", "x");
        return m_filter;
    }

private:
    mutable xal::XalFilter m_filter;
};
class LazyItem : public xal::XObject<LazyDescriptor> {
public:
    using Desctype = LazyDescriptor;
    explicit LazyItem(const std::shared_ptr<xalutil::JsonObject>& json) : XObject<LazyDescriptor>(json) {}
};

TEST(Subscriptions, AskTheDescriptorsOwnClassForItsFilter) {
    const auto connection = std::make_shared<RecordingConnection>();
    ItemService service(connection);
    service.subscribeResource<LazyItem>(LazyDescriptor(), nullptr);
    EXPECT_TRUE(connection->subscribeRequests.back().narrowed);
    service.readElements<LazyItem>(LazyDescriptor(), nullptr, nullptr);
    ASSERT_EQ(connection->requests.back().filter.getPairs().size(), 1u);
}

} // namespace
