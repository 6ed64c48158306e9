#include "ScriptedService.h"
#include "TestClient.h"

#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/ProcessState.h>

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

using namespace xaltest;
using cdxtest::Event;
using cdxtest::WebSocketPeer;
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
    /// The same for the one element that notify() is about.
    void watch(std::function<void()> onNotification) {
        connect();
        subscription = service->subscribeElement<Item>(
            ItemDescriptor::withId("a"), [handler = std::move(onNotification)](const auto&) { handler(); });
        readMessage(*channel);
        channel->text(subscribed(1));
    }
    void notify() {
        channel->text(changed(1, m_revision, m_revision + 1, "a"));
        ++m_revision;
    }
    /// Inside a handler: returns once the service was told that its subscription is released, and the test waits for
    /// the handler to return.
    void awaitUnsubscribe() {
        EXPECT_EQ(readMessage(*channel).at("op"), "unsubscribe");
        awaitTest();
    }
    /// The same for close(); first the connection ends, which close() waits for too.
    void awaitClose() {
        EXPECT_TRUE(channel->readClose());
        channel->tcp().close();
        EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("xal:CarDataExchange"); }));
        awaitTest();
    }
    /// Waits until the test's thread waits.
    void awaitTest() const {
        EXPECT_TRUE(cdxtest::comesTrue([this] { return isAsleep(m_testThread); }));
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
    /// Whether the thread waits, as the system tells it: "number (name) state ...".
    static bool isAsleep(pid_t thread) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string stat;
        return std::getline(file, stat) && stat.compare(stat.rfind(')'), 3, ") S") == 0;
    }

    const pid_t m_testThread = ::gettid();
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
    HungryService::tries = 0;
    client.makeRegistry();
    xal::ServiceListener<HungryService> listener;
    listener.connected = [this](const auto&) { notified.add("connected"); };
    client.registry->registerServiceListener(listener);
    channel.emplace(peer.accept());
    const bool isTriedAgain = cdxtest::comesTrue([] { return HungryService::tries > 1; });
    client.close();
    EXPECT_TRUE(isTriedAgain);
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
    Event isRunning;
    std::atomic<bool> hasReturned = false;
    subscribe([&] {
        isRunning.set();
        awaitUnsubscribe();
        hasReturned = true;
    });
    notify();
    ASSERT_TRUE(isRunning.await());
    subscription->unsubscribe();
    EXPECT_TRUE(hasReturned);
    client.onTaskExecutor([] {}); // where it has not, it still uses what goes now
}

TEST_F(Lifetime, DroppingDoesNotWaitForACallback) {
    Event isRunning, goOn;
    subscribe([&] {
        isRunning.set();
        EXPECT_TRUE(goOn.await());
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
    std::atomic<bool> isGone = false;
    // Goes with the handler that captures it, and takes its time.
    std::shared_ptr<void> captured(nullptr, [&](void*) {
        awaitTest();
        isGone = true;
    });
    Event isRunning;
    subscribe([&, captured] {
        isRunning.set();
        awaitUnsubscribe();
    });
    captured.reset();
    notify();
    ASSERT_TRUE(isRunning.await());
    subscription->unsubscribe();
    EXPECT_TRUE(isGone);
    client.onTaskExecutor([] {}); // where it is not, it still uses what goes now
}

TEST_F(Lifetime, CloseWaitsForAHandlerOnAnotherThread) {
    Event isRunning;
    std::atomic<bool> hasReturned = false;
    subscribe([&] {
        isRunning.set();
        awaitClose();
        hasReturned = true;
    });
    notify();
    notify();
    ASSERT_TRUE(isRunning.await());
    client.close();
    EXPECT_TRUE(hasReturned);
    client.onTaskExecutor([] {}); // where it has not, it still uses what goes now
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
    EXPECT_TRUE(channel->readClose());
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

    /// A connection with the subscription that the actions are about, which has been told something.
    void begin() {
        client.onConnected = [this](const auto&) { actIn("Connected"); };
        client.onDisconnected = [this] { actIn("Disconnected"); };
        if (kind() == "ElementNotification")
            watch(toldIn("ElementNotification"));
        else
            subscribe(toldIn("Notification"));
        notify();
        ASSERT_NE(notified.await("told"), "");
    }
    /// Lets a handler of the kind run, and waits until it has done the action.
    bool hasActed() {
        m_isAsked = true;
        const auto acts = [this](const char* inKind) { return [this, inKind](const auto&...) { actIn(inKind); }; };
        if (kind() == "Notification" || kind() == "ElementNotification") {
            notify();
        } else if (kind() == "Created") {
            service->createElement<Item>(ItemDescriptor::named("n"), acts("Created"), nullptr);
            peer.answerRequest("201 Created", R"({"id":"b","name":"n"})");
        } else if (kind() == "Updated") {
            service->updateElement<Item>(ItemDescriptor::withId("a"), acts("Updated"), nullptr);
            peer.answerRequest("200 OK", "{}");
        } else if (kind() == "Deleted") {
            service->deleteElement<Item>(ItemDescriptor::withId("a"), acts("Deleted"), nullptr);
            peer.answerRequest("200 OK");
        } else if (kind() == "Read") {
            service->readElements<Item>(ItemDescriptor(), acts("Read"), nullptr);
            peer.answerRequest("200 OK", R"([{"id":"a","name":"n"}])");
        } else if (kind() == "Failed") {
            service->readElements<Item>(ItemDescriptor(), nullptr, acts("Failed"));
            peer.answerRequest("500 Internal Server Error");
        } else if (kind() == "FailedUnsent") {
            service->updateElement<Item>(ItemDescriptor(), nullptr, acts("FailedUnsent"));
        } else if (kind() == "Error") {
            client.config->known = false;
            xal::ServiceListener<UnknownService> listener;
            listener.error = acts("Error");
            client.registry->registerServiceListener(listener);
        } else {
            channel->tcp().reset();
            if (kind() == "Connected")
                channel.emplace(peer.accept());
        }
        return m_done.await();
    }

private:
    static std::string kind() { return std::get<0>(GetParam()); }

    std::function<void()> toldIn(const char* inKind) {
        return [this, inKind] {
            notified.add("told");
            actIn(inKind);
        };
    }
    /// Does it once, in the first handler of the kind after this was asked for.
    void actIn(const std::string& inKind) {
        if (inKind != kind() || !m_isAsked.exchange(false))
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

    std::atomic<bool> m_isAsked{false};
    Event m_done;
};

TEST_P(InsideAHandler, NothingBlocksAndNothingIsToldAfterwards) {
    begin();
    ASSERT_TRUE(hasActed());
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
    testing::Combine(testing::Values("Notification", "ElementNotification", "Created", "Updated", "Deleted", "Read",
                                     "Failed", "FailedUnsent", "Error", "Connected", "Disconnected"),
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
