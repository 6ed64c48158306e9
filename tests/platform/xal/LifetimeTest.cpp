#include "ScriptedService.h"
#include "TestClient.h"

#include <support/Event.h>

#include <gmock/gmock.h>

#include <fstream>
#include <thread>

namespace {

using namespace xaltest;
using cdxtest::Event;
using cdxtest::WebSocketPeer;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Items = std::vector<std::shared_ptr<const Item>>;
using Response = std::shared_ptr<const xal::XalResponse>;

/// A connection whose subscription's handler does what the test sets.
class Lifetime : public testing::Test {
protected:
    void connect() {
        client.listen();
        channel.emplace(peer.accept());
        service = client.connection();
        ASSERT_TRUE(service);
    }
    void subscribe(std::function<void()> onNotification) {
        connect();
        subscription = service->subscribeResource<Item>(
            ItemDescriptor(), [handler = std::move(onNotification)](const Items&, const auto&) { handler(); });
        readMessage(*channel);
        channel->text(subscribed(1));
    }
    void notify() {
        channel->text(changed(1, m_revision, m_revision + 1, "a"));
        ++m_revision;
    }
    /// Waits until everything sent so far has been told.
    void settle() {
        Event settled;
        const auto held = service->subscribeResource<Item>(ItemDescriptor("cdxData"),
                                                           [&](const Items&, const auto&) { settled.set(); });
        for (auto message = readMessage(*channel); message.at("op") != "subscribe"; message = readMessage(*channel)) {
        }
        channel->text(subscribed(2));
        channel->text(current(2, 0, 0));
        ASSERT_TRUE(settled.await());
        held->unsubscribe();
    }

    ScriptedService peer;
    Journal notified;
    std::shared_ptr<ItemService> service;
    std::shared_ptr<xal::Subscription> subscription;
    TestClient client{peer.uri()};
    std::optional<WebSocketPeer> channel;

private:
    std::int64_t m_revision = 0;
};

TEST_F(Lifetime, UnsubscribeWaitsForACallbackOnAnotherThread) {
    Event isRunning, goOn;
    bool hasReturned = false;
    subscribe([&] {
        isRunning.set();
        goOn.await();
        std::this_thread::sleep_for(milliseconds(50));
        hasReturned = true;
    });
    notify();
    ASSERT_TRUE(isRunning.await());
    goOn.set();
    subscription->unsubscribe();
    EXPECT_TRUE(hasReturned);
}

TEST_F(Lifetime, DroppingDoesNotWaitForACallback) {
    Event isRunning, goOn;
    subscribe([&] {
        isRunning.set();
        goOn.await();
    });
    notify();
    ASSERT_TRUE(isRunning.await());
    subscription.reset();
    goOn.set();
    client.onTaskExecutor([] {});
}

TEST_F(Lifetime, NoCallbackStartsAfterUnsubscribe) {
    subscribe([this] { notified.add("told"); });
    notify();
    ASSERT_NE(notified.await("told"), "");
    subscription->unsubscribe();
    notify();
    notify();
    settle();
    EXPECT_EQ(notified.size(), 1u);
}

TEST_F(Lifetime, NoQueuedNotificationIsToldAfterTheDrop) {
    Event isRunning, goOn;
    subscribe([&] {
        notified.add("told");
        isRunning.set();
        goOn.await();
    });
    for (int i = 0; i < 5; ++i)
        notify();
    ASSERT_TRUE(isRunning.await());
    subscription.reset();
    goOn.set();
    settle();
    EXPECT_EQ(notified.size(), 1u);
}

TEST_F(Lifetime, AHandlerMayUnsubscribeItself) {
    subscribe([this] {
        notified.add("told");
        subscription->unsubscribe();
        subscription->unsubscribe();
    });
    notify();
    notify();
    settle();
    EXPECT_EQ(notified.size(), 1u);
}

TEST_F(Lifetime, AHandlerLivesUntilItReturned) {
    const auto alive = std::make_shared<int>(7);
    subscribe([this, alive] {
        subscription->unsubscribe();
        subscription.reset();
        notified.add(std::to_string(*alive));
    });
    notify();
    EXPECT_EQ(notified.await("7"), "7");
}

TEST_F(Lifetime, AHandlersCaptureIsGoneWhenUnsubscribeReturns) {
    auto alive = std::make_shared<int>(7);
    const std::weak_ptr<int> weak = alive;
    Event isRunning;
    subscribe([&isRunning, alive] {
        isRunning.set();
        std::this_thread::sleep_for(milliseconds(20));
    });
    alive.reset();
    notify();
    ASSERT_TRUE(isRunning.await());
    subscription->unsubscribe();
    EXPECT_TRUE(weak.expired());
}

TEST_F(Lifetime, CloseWaitsForAHandlerOnAnotherThread) {
    Event isRunning;
    bool hasReturned = false;
    subscribe([&] {
        isRunning.set();
        std::this_thread::sleep_for(milliseconds(50));
        hasReturned = true;
    });
    notify();
    notify();
    ASSERT_TRUE(isRunning.await());
    client.close();
    EXPECT_TRUE(hasReturned);
}

TEST_F(Lifetime, NothingIsToldAfterClose) {
    Event isRunning, goOn;
    subscribe([&] {
        notified.add("told");
        isRunning.set();
        goOn.await();
    });
    notify();
    notify();
    ASSERT_TRUE(isRunning.await());
    std::thread closer([&] { client.close(); });
    // close() first stops what has not begun, then waits for what has.
    while (!channel->readClose(milliseconds(10)))
        if (channel->tcp().read(milliseconds(1)) == cdxtest::TcpPeer::Read::End)
            break;
    goOn.set();
    closer.join();
    client.onTaskExecutor([] {});
    EXPECT_EQ(notified.size(), 1u);
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(Lifetime, CloseMayBeCalledFromANotification) {
    subscribe([this] {
        client.close();
        notified.add("closed");
    });
    notify();
    notify();
    EXPECT_NE(notified.await("closed"), "");
    client.onTaskExecutor([] {});
    EXPECT_EQ(notified.size(), 1u);
}

TEST_F(Lifetime, CloseMayBeCalledFromAConnectedCall) {
    Event closed;
    client.onConnected = [&](const auto&) {
        client.close();
        closed.set();
    };
    client.listen();
    channel.emplace(peer.accept());
    EXPECT_TRUE(closed.await());
}

TEST_F(Lifetime, CloseMayBeCalledFromADisconnectedCall) {
    Event closed;
    client.onDisconnected = [&] {
        client.close();
        closed.set();
    };
    connect();
    channel->tcp().reset();
    EXPECT_TRUE(closed.await());
}

TEST_F(Lifetime, CloseMayBeCalledFromAResultHandler) {
    connect();
    Event closed;
    int failures = 0;
    const auto failed = [&](const Response&) {
        ++failures;
        client.close();
        if (failures == 2)
            closed.set();
    };
    service->updateElement<Item>(ItemDescriptor(), nullptr, failed);
    service->updateElement<Item>(ItemDescriptor(), nullptr, failed);
    ASSERT_TRUE(closed.await());
    client.onTaskExecutor([] {});
    EXPECT_EQ(failures, 2);
}

TEST_F(Lifetime, TheRegistryMayGoInsideANotification) {
    subscribe([this] {
        client.registry.reset();
        notified.add("gone");
    });
    notify();
    EXPECT_NE(notified.await("gone"), "");
}

TEST_F(Lifetime, SeveralThreadsMayCloseAtOnce) {
    Event isRunning;
    subscribe([&] {
        isRunning.set();
        client.close();
    });
    notify();
    ASSERT_TRUE(isRunning.await());
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([this] { client.close(); });
    for (auto& thread : threads)
        thread.join();
}

TEST_F(Lifetime, ASubscriptionMayOutliveTheRegistry) {
    subscribe([] {});
    client.close();
    client.registry.reset();
    subscription->unsubscribe();
}

TEST_F(Lifetime, AClosedRegistryLeavesNoThread) {
    const auto countThreads = [] {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("Threads:", 0) == 0)
                return std::stoi(line.substr(8));
        return -1;
    };
    client.makeRegistry();
    const int before = countThreads();
    connect();
    EXPECT_EQ(countThreads(), before + 1);
    client.close();
    EXPECT_EQ(countThreads(), before);
}

TEST_F(Lifetime, TheHandlersRunOnOneThreadWithTheExecutorsName) {
    std::vector<std::thread::id> threads;
    client.onConnected = [&](const auto&) { threads.push_back(std::this_thread::get_id()); };
    Event told;
    subscribe([&] {
        threads.push_back(std::this_thread::get_id());
        service->updateElement<Item>(ItemDescriptor(), nullptr, [&](const Response&) {
            threads.push_back(std::this_thread::get_id());
            told.set();
        });
    });
    notify();
    ASSERT_TRUE(told.await());
    EXPECT_THAT(threads, ElementsAre(threads[0], threads[0], threads[0]));
}

} // namespace
