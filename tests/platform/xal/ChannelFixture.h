#ifndef CDXTESTS_PLATFORM_XAL_CHANNELFIXTURE_H
#define CDXTESTS_PLATFORM_XAL_CHANNELFIXTURE_H

#include "ScriptedService.h"
#include "TestClient.h"

#include <gmock/gmock.h>

#include <memory>
#include <vector>

namespace xaltest {

/// A program and the service that it is connected with, which the test plays.
class Channel : public testing::Test {
protected:
    /// Subscribes to a resource; its notifications go to `notified`.
    std::shared_ptr<xal::Subscription> subscribe(ItemService& from,
                                                 const ItemDescriptor& descriptor = ItemDescriptor()) {
        return from.subscribeResource<Item>(descriptor,
                                            [this](const std::vector<std::shared_ptr<const Item>>& items,
                                                   const std::shared_ptr<const xal::SubscriptionResponse>& response) {
                                                notified.add(describe(items, response->getStatusCode()));
                                            });
    }
    std::shared_ptr<xal::Subscription> watch(ItemService& from, const ItemDescriptor& descriptor) {
        return from.subscribeElement<Item>(
            descriptor, [this](const std::shared_ptr<const Item>& item) { notified.add(item ? item->name() : "-"); });
    }
    cdxtest::WebSocketPeer connect() {
        client.listen();
        auto channel = peer.accept();
        connection = client.connection();
        return channel;
    }
    /// A connection with one resource subscription that has the element "a" at revision 1.
    cdxtest::WebSocketPeer connectAndSubscribe() {
        auto channel = connect();
        subscription = subscribe(*connection);
        readMessage(channel);
        channel.text(subscribed(1));
        channel.text(changed(1, 0, 1, "a"));
        channel.text(current(1, 1, 1));
        EXPECT_EQ(notified.await("a"), "a");
        return channel;
    }
    /// The next channel, with its subscription asked for from revision 1 and resumed.
    cdxtest::WebSocketPeer resume() {
        auto channel = peer.accept();
        EXPECT_EQ(readMessage(channel).at("since").at("rev").as_int64(), 1);
        channel.text(subscribed(1, true));
        return channel;
    }

    Journal notified;
    ScriptedService peer;
    TestClient client{peer.uri()};
    std::shared_ptr<ItemService> connection;
    std::shared_ptr<xal::Subscription> subscription;
};

} // namespace xaltest

#endif
