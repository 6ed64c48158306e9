#include "TestClient.h"

#include <cdxservice/Server.h>

#include <gtest/gtest.h>

namespace {

using namespace xaltest;

class LiveService : public testing::Test {
protected:
    LiveService() { server.start(); }

    std::shared_ptr<xal::Subscription> subscribe(ItemService& service, const ItemDescriptor& descriptor) {
        return service.subscribeResource<Item>(
            descriptor, [this](const std::vector<std::shared_ptr<const Item>>& items,
                               const std::shared_ptr<const xal::SubscriptionResponse>& response) {
                std::string line;
                for (const auto& item : items)
                    line += (line.empty() ? "" : " ") + item->name();
                notified.add((line.empty() ? "-" : line) + (response->getStatusCode() == 200
                                                                ? ""
                                                                : " !" + std::to_string(response->getStatusCode())));
            });
    }
    void create(ItemService& service, const std::string& name) {
        service.createElement<Item>(
            ItemDescriptor::named(name),
            [this](const std::shared_ptr<const Item>& item, const std::shared_ptr<const xal::XalResponse>& response) {
                lastId = item->id();
                results.add("created " + item->name() + " " + std::to_string(response->getStatusCode()));
            },
            [this](const std::shared_ptr<const xal::XalResponse>& response) {
                results.add("failed " + std::to_string(response->getStatusCode()));
            });
    }

    std::shared_ptr<cdxservice::Store> store = std::make_shared<cdxservice::Store>();
    cdxservice::Server server{[this] {
        cdxservice::ServerOptions options;
        options.store = store;
        return options;
    }()};
    Journal notified;
    Journal results;
    std::string lastId;
};

TEST_F(LiveService, NamesWhatIsCreated) {
    TestClient client(server.uri());
    client.listen();
    const auto service = client.connection();
    ASSERT_TRUE(service);
    const auto subscription = subscribe(*service, ItemDescriptor());
    ASSERT_EQ(notified.await("-"), "-");
    create(*service, "a");
    ASSERT_EQ(results.await("a"), "created a 201");
    ASSERT_EQ(notified.await("a"), "a");
    create(*service, "b");
    EXPECT_EQ(notified.await("b"), "b a");
}

TEST_F(LiveService, ResumesAfterTheServiceWasAway) {
    TestClient client(server.uri());
    client.listen();
    const auto service = client.connection();
    ASSERT_TRUE(service);
    const auto subscription = subscribe(*service, ItemDescriptor());
    ASSERT_EQ(notified.await("-"), "-");
    create(*service, "a");
    ASSERT_EQ(notified.await("a"), "a");
    server.stop();
    ASSERT_TRUE(client.awaitDisconnected(1));
    server.start();
    ASSERT_TRUE(client.connection(2));
    create(*service, "b");
    EXPECT_EQ(notified.await("b"), "b a");
    EXPECT_EQ(client.told.lines(), (std::vector<std::string>{"connected", "disconnected", "connected"}));
    EXPECT_NE(client.log->await("resumed at 1"), "");
}

TEST_F(LiveService, StartsAnewWhenTheServiceForgot) {
    TestClient client(server.uri());
    client.listen();
    const auto service = client.connection();
    ASSERT_TRUE(service);
    const auto subscription = subscribe(*service, ItemDescriptor());
    ASSERT_EQ(notified.await("-"), "-");
    create(*service, "a");
    ASSERT_EQ(notified.await("a"), "a");
    const auto port = server.port();
    server.stop();
    cdxservice::ServerOptions options;
    options.port = port;
    cdxservice::Server other(options);
    other.start();
    ASSERT_TRUE(client.connection(2));
    ASSERT_TRUE(notified.awaitCount(3));
    EXPECT_EQ(notified.lines().back(), "-");
}

} // namespace
