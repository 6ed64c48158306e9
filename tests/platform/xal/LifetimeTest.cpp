#include "ScriptedService.h"
#include "TestClient.h"

#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/ProcessState.h>

#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <tuple>

namespace {

using namespace xaltest;
using cdxtest::Event;
using cdxtest::WebSocketPeer;
using std::chrono::milliseconds;
using testing::ElementsAre;
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
    void settle() { settleOn(*service); }
    void settleOn(ItemService& itsService) {
        Event settled;
        const auto held = itsService.subscribeResource<Item>(ItemDescriptor("cdxData"),
                                                             [&](const Items&, const auto&) { settled.set(); });
        auto message = readMessage(*channel);
        while (message.at("op") != "subscribe")
            message = readMessage(*channel);
        const auto number = static_cast<int>(message.at("sub").as_int64());
        channel->text(subscribed(number));
        channel->text(current(number, 0, 0));
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

/// A service class that no memory ever suffices for.
struct HungryService {
    explicit HungryService(const std::shared_ptr<xal::IServiceConnection>&) {
        ++tries;
        throw std::bad_alloc();
    }
    static std::string getServiceName() { return "CarDataExchange"; }
    static std::atomic<int> tries;
};

std::atomic<int> HungryService::tries{0};

TEST_F(Lifetime, CloseEndsAConnectedCallThatHasNoMemory) {
    client.makeRegistry();
    xal::ServiceListener<HungryService> listener;
    listener.connected = [this](const auto&) { notified.add("connected"); };
    client.registry->registerServiceListener(listener);
    channel.emplace(peer.accept());
    while (HungryService::tries < 2)
        std::this_thread::yield();
    client.close();
    const int tries = HungryService::tries;
    client.onTaskExecutor([] {});
    EXPECT_EQ(HungryService::tries, tries);
    EXPECT_EQ(notified.size(), 0u);
}

TEST_F(Lifetime, AConnectedCallThatRunsOutOfMemoryTakesTheConnectionFromOthersOnlyOnce) {
    client.onConnected = [this](const auto&) { notified.add("good"); };
    client.listen();
    xal::ServiceListener<ItemService> hungry;
    hungry.connected = [this](const auto&) {
        notified.add("hungry");
        throw std::bad_alloc();
    };
    client.registry->registerServiceListener(hungry);
    channel.emplace(peer.accept());
    ASSERT_TRUE(notified.awaitCount(2));
    ASSERT_TRUE(channel->readClose());
    channel->tcp().close();
    channel.emplace(peer.accept());
    ASSERT_TRUE(notified.awaitCount(4));
    settleOn(*client.connection(2));
    EXPECT_EQ(notified.lines(), (std::vector<std::string>{"good", "hungry", "good", "hungry"}));
}

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

TEST_F(Lifetime, CloseInAResultHandlerRunsTheOtherResults) {
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

TEST_F(Lifetime, NoRefusalIsToldAfterAllWereUnsubscribed) {
    connect();
    Event isRunning, goOn;
    client.task->execute([&] {
        isRunning.set();
        goOn.await();
    });
    ASSERT_TRUE(isRunning.await());
    ItemDescriptor narrowed;
    narrowed.addFilter("name", "x");
    const auto refusedAtOnce =
        service->subscribeResource<Item>(narrowed, [this](const Items&, const auto&) { notified.add("refused"); });
    xal::ElementRegistry(client.registry, nullptr).unsubscribeFromAll();
    goOn.set();
    client.onTaskExecutor([] {});
    EXPECT_EQ(notified.size(), 0u);
}

/// What a program may do, and the handlers in which it may.
class InsideAHandler : public Lifetime, public testing::WithParamInterface<std::tuple<const char*, const char*>> {
protected:
    /// A service that nobody has configured.
    struct UnknownService : ItemService {
        using ItemService::ItemService;
        static std::string getServiceName() { return "Unknown"; }
    };

    ~InsideAHandler() override {
        channel.reset(); // nobody is left to say goodbye
        client.close();  // no handler runs on what goes now
    }

    /// Does it once, in the first handler of the kind after this was asked for.
    void actIn(const std::string& kind) {
        if (kind != std::get<0>(GetParam()) || !m_isAsked.exchange(false))
            return;
        const std::string action = std::get<1>(GetParam());
        if (action == "Close")
            client.close();
        else if (action == "DropRegistry")
            client.registry.reset();
        else if (action == "Unsubscribe")
            subscription->unsubscribe();
        else if (action == "DropSubscription")
            subscription.reset();
        else
            xal::ElementRegistry(client.registry, nullptr).unsubscribeFromAll();
        m_done.set();
    }
    /// Lets a handler of the kind run.
    void cause() {
        m_isAsked = true;
        const std::string kind = std::get<0>(GetParam());
        if (kind == "Notification") {
            notify();
        } else if (kind == "Result") {
            service->updateElement<Item>(ItemDescriptor(), nullptr, [this](const Response&) { actIn("Result"); });
        } else if (kind == "Error") {
            client.config->known = false;
            xal::ServiceListener<UnknownService> listener;
            listener.error = [this](const std::exception&) { actIn("Error"); };
            client.registry->registerServiceListener(listener);
        } else {
            channel->tcp().reset();
            if (kind == "Connected")
                channel.emplace(peer.accept());
        }
    }
    bool isDone() { return m_done.await(); }

private:
    std::atomic<bool> m_isAsked{false};
    Event m_done;
};

TEST_P(InsideAHandler, NothingBlocksAndNothingIsToldAfterwards) {
    client.onConnected = [this](const auto&) { actIn("Connected"); };
    client.onDisconnected = [this] { actIn("Disconnected"); };
    subscribe([this] {
        notified.add("told");
        actIn("Notification");
    });
    notify();
    ASSERT_NE(notified.await("told"), "");
    cause();
    ASSERT_TRUE(isDone());
    client.onTaskExecutor([] {});
    const auto before = notified.size();
    notify();
    channel->tcp().endSending(); // what was sent is read before the loss is noticed
    channel->tcp().readToEnd();
    client.onTaskExecutor([] {});
    EXPECT_EQ(notified.size(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Of, InsideAHandler,
    testing::Combine(testing::Values("Notification", "Result", "Error", "Connected", "Disconnected"),
                     testing::Values("Close", "DropRegistry", "Unsubscribe", "DropSubscription", "UnsubscribeFromAll")),
    [](const auto& tested) { return std::get<0>(tested.param) + std::string(std::get<1>(tested.param)); });

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
    client.makeRegistry();
    const std::size_t before = cdxtest::threads().size();
    connect();
    EXPECT_EQ(cdxtest::threads().size(), before + 1);
    client.close();
    EXPECT_TRUE(cdxtest::comesTrue([&] { return cdxtest::threads().size() == before; }));
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
