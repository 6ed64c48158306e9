#include "ScriptedService.h"
#include "TestClient.h"

#include <support/Event.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace xaltest;
using cdxtest::TcpPeer;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Response = std::shared_ptr<const xal::XalResponse>;

struct Received {
    std::string head, body;
};

class HttpRequests : public testing::Test {
protected:
    HttpRequests() {
        client.setting.requestTimeout.setValue(2000);
        client.onConnected = [this](const std::shared_ptr<ItemService>& now) { service = now; };
    }
    void connect() {
        client.listen();
        channel.emplace(peer.accept());
        ASSERT_TRUE(client.connection());
    }
    /// The next request on a connection; takes the next connection where there is none.
    Received receive(TcpPeer& from) {
        if (!from.isOpen())
            from = peer.acceptTcp();
        Received received;
        received.head = from.takeUntil("\r\n\r\n").value_or("");
        const std::string length = cdxtest::headerValue(received.head, "Content-Length");
        if (!length.empty())
            received.body = from.take(std::stoul(length)).value_or("");
        return received;
    }
    void answer(TcpPeer& from, const std::string& status, const std::string& body = {}) {
        from.send("HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    void create(const std::string& name = "x") {
        service->createElement<Item>(
            ItemDescriptor::named(name),
            [this](const std::shared_ptr<const Item>& item, const Response& response) {
                results.add("created " + item->id() + " " + std::to_string(response->getStatusCode()));
            },
            failed);
    }
    void update(const std::string& id = "a") {
        auto descriptor = ItemDescriptor::withId(id);
        descriptor.setName("new");
        service->updateElement<Item>(descriptor, done, failed);
    }

    ScriptedService peer;
    Journal results;
    xal::Service::Done done = [this](const Response& response) {
        results.add("done " + std::to_string(response->getStatusCode()));
    };
    xal::Service::Done failed = [this](const Response& response) {
        const auto* const thrown = dynamic_cast<const xal::XalException*>(response.get());
        results.add("failed " + std::to_string(response->getStatusCode()) +
                    (thrown != nullptr ? std::string(" ") + thrown->what() : ""));
    };
    std::shared_ptr<ItemService> service;
    TestClient client{peer.uri()};
    // Goes before the client, which would wait for its goodbye.
    std::optional<cdxtest::WebSocketPeer> channel;
    TcpPeer tcp;
};

TEST_F(HttpRequests, CreatesWithPost) {
    connect();
    create();
    const auto received = receive(tcp);
    EXPECT_THAT(received.head, StartsWith("POST /CarDataExchange/cdxConfig HTTP/1.1\r\n"));
    EXPECT_EQ(cdxtest::headerValue(received.head, "Content-Type"), "application/json");
    EXPECT_EQ(received.body, R"({"name":"x"})");
    answer(tcp, "201 Created", R"({"id":"a"})");
    EXPECT_EQ(results.await("a"), "created a 201");
}

TEST_F(HttpRequests, UpdatesWithPatch) {
    connect();
    update();
    const auto received = receive(tcp);
    EXPECT_THAT(received.head, StartsWith("PATCH /CarDataExchange/cdxConfig/a HTTP/1.1\r\n"));
    EXPECT_EQ(received.body, R"({"name":"new"})");
    answer(tcp, "200 OK", "whatever");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, DeletesWithDelete) {
    connect();
    service->deleteElement<Item>(ItemDescriptor::withId("a"), done, failed);
    EXPECT_THAT(receive(tcp).head, StartsWith("DELETE /CarDataExchange/cdxConfig/a HTTP/1.1\r\n"));
    tcp.send("HTTP/1.1 204 No Content\r\n\r\n");
    EXPECT_EQ(results.await("done"), "done 204");
}

TEST_F(HttpRequests, ReadsWithItsQuery) {
    connect();
    ItemDescriptor descriptor;
    descriptor.addFilter("na me", "a+b&c");
    descriptor.setQueryOptions({"name", "x,y"}, xal::QueryOptions::EXPAND_ALL, {"f"},
                               {{xal::QueryOptions::DESCENDING, "b"}, {xal::QueryOptions::ASCENDING, "a"}}, 5, 2);
    service->readElements<Item>(
        descriptor,
        [this](const std::vector<std::shared_ptr<const Item>>& items, const Response&) {
            results.add("read " + describe(items));
        },
        failed);
    EXPECT_THAT(receive(tcp).head,
                StartsWith("GET /CarDataExchange/cdxConfig?fields=name,x%2Cy&sort=-b,a&limit=5&offset=2&"
                           "na%20me=a%2Bb%26c HTTP/1.1\r\n"));
    answer(tcp, "200 OK", R"([{"id":"b"},{"id":"a"}])");
    EXPECT_EQ(results.await("read"), "read b a");
}

TEST_F(HttpRequests, UseTheSeparatorWhereTheServiceIsSetTo) {
    client.setting.useSeparator.setValue(true);
    connect();
    create();
    EXPECT_THAT(receive(tcp).head, StartsWith("POST /CarDataExchange/cdxConfig/ HTTP/1.1\r\n"));
    answer(tcp, "500 No");
    update();
    EXPECT_THAT(receive(tcp).head, StartsWith("PATCH /CarDataExchange/cdxConfig/a HTTP/1.1\r\n"));
}

TEST_F(HttpRequests, CarryWhatTheMapHoldsAtThatMoment) {
    connect();
    const auto headers = std::make_shared<xal::IServiceRegistry::RequestHeaders>();
    (*headers)["X-One"] = std::make_shared<std::string>("1");
    client.registry->setRequestHeaders(headers);
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("X-One: 1\r\n"));
    answer(tcp, "200 OK");
    ASSERT_NE(results.await("done"), "");
    *(*headers)["X-One"] = "2";
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("X-One: 2\r\n"));
}

TEST_F(HttpRequests, CarryTheMapsHeaderInThePlaceOfTheirOwn) {
    connect();
    const auto headers = std::make_shared<xal::IServiceRegistry::RequestHeaders>();
    (*headers)["content-type"] = std::make_shared<std::string>("application/json");
    (*headers)["Accept"] = nullptr;
    client.registry->setRequestHeaders(headers);
    update();
    EXPECT_THAT(receive(tcp).head, AllOf(HasSubstr("content-type: application/json\r\n"),
                                         Not(HasSubstr("Content-Type")), HasSubstr("Accept: application/json\r\n")));
}

/// A file with a token, named by the environment.
class TokenFile : public HttpRequests {
protected:
    TokenFile() {
        write(" \n secret\t\r\n");
        ::setenv("XAL_TOKEN_FILE", m_path.c_str(), 1);
    }
    ~TokenFile() override {
        ::unsetenv("XAL_TOKEN_FILE");
        ::unlink(m_path.c_str());
    }
    void write(const std::string& content) const { std::ofstream(m_path) << content; }

private:
    const std::string m_path = testing::TempDir() + "xal-token-" + std::to_string(::getpid());
};

TEST_F(TokenFile, IsSentWithoutSurroundingBlanks) {
    connect();
    EXPECT_THAT(channel->head(), HasSubstr("Authorization: Bearer secret\r\n"));
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("Authorization: Bearer secret\r\n"));
}

TEST_F(TokenFile, IsReadAnewForEachConnection) {
    connect();
    write("renewed");
    channel->tcp().reset();
    EXPECT_THAT(peer.accept().head(), HasSubstr("Authorization: Bearer renewed\r\n"));
}

TEST_F(TokenFile, StaysAsItWasOverAKeptConnection) {
    connect();
    update();
    ASSERT_THAT(receive(tcp).head, HasSubstr("Bearer secret\r\n"));
    answer(tcp, "200 OK");
    write("renewed");
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("Bearer secret\r\n"));
    answer(tcp, "200 OK");
    ASSERT_TRUE(results.awaitCount(2));
    tcp.close();
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("Bearer renewed\r\n"));
}

TEST_F(TokenFile, IsReadAnewOnceItWasRefused) {
    connect();
    update();
    ASSERT_THAT(receive(tcp).head, HasSubstr("Bearer secret\r\n"));
    write("renewed");
    answer(tcp, "401 Unauthorized");
    EXPECT_THAT(results.await("failed"), StartsWith("failed 401"));
    EXPECT_TRUE(tcp.readToEnd());
    tcp.close();
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("Bearer renewed\r\n"));
}

TEST_F(TokenFile, IsReadOnceItIsThere) {
    write("");
    connect();
    update();
    ASSERT_THAT(receive(tcp).head, Not(HasSubstr("Authorization")));
    write("late");
    answer(tcp, "401 Unauthorized");
    EXPECT_THAT(results.await("failed"), StartsWith("failed 401"));
    EXPECT_TRUE(tcp.readToEnd());
    tcp.close();
    update();
    EXPECT_THAT(receive(tcp).head, HasSubstr("Bearer late\r\n"));
}

TEST_F(TokenFile, ThatIsNoFileIsLeftOutWithAWarning) {
    const std::string pipe = testing::TempDir() + "xal-pipe-" + std::to_string(::getpid());
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string folder = testing::TempDir();
    for (const std::string& path : {std::string("/nonexistent/token"), folder, pipe}) {
        ::setenv("XAL_TOKEN_FILE", path.c_str(), 1);
        if (!channel)
            connect();
        update();
        EXPECT_THAT(receive(tcp).head, Not(HasSubstr("Authorization")));
        tcp.close();
        EXPECT_NE(client.log->await("no token: cannot read " + path), "");
    }
    ::unlink(pipe.c_str());
}

TEST_F(TokenFile, GivesWayToTheMapsOwnAuthorization) {
    client.makeRegistry();
    const auto headers = std::make_shared<xal::IServiceRegistry::RequestHeaders>();
    (*headers)["authorization"] = std::make_shared<std::string>("Basic x");
    client.registry->setRequestHeaders(headers);
    connect();
    EXPECT_THAT(channel->head(), AllOf(HasSubstr("authorization: Basic x\r\n"), Not(HasSubstr("secret"))));
}

TEST_F(HttpRequests, KeepTheirOrderAndTheConnection) {
    connect();
    for (int i = 0; i < 5; ++i)
        update("e" + std::to_string(i));
    for (int i = 0; i < 5; ++i) {
        EXPECT_THAT(receive(tcp).head, HasSubstr("/e" + std::to_string(i) + " "));
        answer(tcp, std::to_string(200 + i) + " OK");
    }
    ASSERT_TRUE(results.awaitCount(5));
    EXPECT_THAT(results.lines(), ElementsAre("done 200", "done 201", "done 202", "done 203", "done 204"));
}

TEST_F(HttpRequests, SendNothingForAnIdThatNoElementHas) {
    connect();
    update("");
    update("a/b");
    update(std::string(129, 'a'));
    service->deleteElement<Item>(ItemDescriptor(), done, failed);
    ASSERT_TRUE(results.awaitCount(4));
    EXPECT_EQ(results.count("failed 0"), 4u);
    EXPECT_FALSE(peer.listener().accept(milliseconds(100)));
}

/// Answers that let an update fail, with the status that it fails with.
struct Failing {
    const char* answer;
    int status;
};

class FailingAnswer : public HttpRequests, public testing::WithParamInterface<Failing> {};

TEST_P(FailingAnswer, IsOneFailureWithItsStatusAndTheNextRequestIsAnsweredRight) {
    connect();
    update();
    receive(tcp);
    tcp.send(GetParam().answer);
    tcp.endSending();
    EXPECT_THAT(results.await("failed"), StartsWith("failed " + std::to_string(GetParam().status)));
    TcpPeer next;
    update("b");
    EXPECT_THAT(receive(next).head, HasSubstr("/b "));
    answer(next, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
    EXPECT_EQ(results.size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Http, FailingAnswer,
    testing::Values(Failing{"HTTP/1.1 301 Moved\r\nLocation: /other\r\nContent-Length: 0\r\n\r\n", 301},
                    Failing{"HTTP/1.1 401 Who\r\nContent-Length: 0\r\n\r\n", 401},
                    Failing{"HTTP/1.1 413 Large\r\nConnection: close\r\nContent-Length: 0\r\n\r\n", 413},
                    Failing{"HTTP/1.1 500 No\r\nContent-Length: 2\r\n\r\nno", 500},
                    Failing{"HTTP/1.1 503 Away\r\nRetry-After: 5\r\nContent-Length: 0\r\n\r\n", 503},
                    Failing{"HTTP/1.1 304 Same\r\n\r\n", 304},
                    Failing{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\ncut", 200},
                    Failing{"HTTP/1.1 200 OK\r\nContent-Length: x\r\n\r\n", 200},
                    Failing{"HTTP/1.1 200 OK\r\nContent-Len", 200}, Failing{"HTTP/1.1 20", 0},
                    Failing{"SSH-2.0-server\r\n\r\n", 0}, Failing{"", 0}));

TEST_F(HttpRequests, PassOverInterimAnswers) {
    connect();
    update();
    receive(tcp);
    tcp.send("HTTP/1.1 100 Continue\r\n\r\n");
    answer(tcp, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, FailAfterTheirTimeout) {
    client.setting.requestTimeout.setValue(1000);
    connect();
    update();
    receive(tcp);
    EXPECT_EQ(results.await("failed"), "failed 0 update element failed");
    EXPECT_TRUE(tcp.readToEnd());
    answer(tcp, "200 OK");
    update("b");
    TcpPeer next;
    receive(next);
    answer(next, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, AreCountedFromTheirTurn) {
    client.setting.requestTimeout.setValue(1000);
    connect();
    update();
    update("b");
    receive(tcp);
    EXPECT_EQ(results.await("failed"), "failed 0 update element failed");
    TcpPeer next;
    receive(next);
    answer(next, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, FailWhereTheServiceIsAway) {
    connect();
    peer.listener().refuse();
    create();
    EXPECT_EQ(results.await("failed"), "failed 0 create element failed");
}

TEST_F(HttpRequests, CarryTheCauseOfASendingThatThrew) {
    connect();
    peer.listener().refuse();
    cdxtest::Event hasCause;
    service->deleteElement<Item>(ItemDescriptor::withId("a"), nullptr, [&](const Response& response) {
        const auto* const nested = dynamic_cast<const std::nested_exception*>(response.get());
        if (nested != nullptr && nested->nested_ptr())
            hasCause.set();
    });
    EXPECT_TRUE(hasCause.await());
}

/// Takes no task.
class RefusingExecutor : public xalutil::ITaskExecutor {
public:
    void execute(std::function<void()>) override { throw std::runtime_error("no more tasks"); }
    void stop() override {}
};

TEST_F(HttpRequests, CarryTheCauseWhereTheExecutorTakesNoTask) {
    client.makeRegistry();
    client.registry =
        std::make_shared<xal::XalServiceRegistry>(client.websockets, client.config, nullptr, nullptr, client.task,
                                                  std::make_shared<RefusingExecutor>(), client.settings, nullptr);
    connect();
    service->updateElement<Item>(ItemDescriptor::withId("a"), done, [this](const Response& response) {
        failed(response);
        try {
            if (const auto* const nested = dynamic_cast<const std::nested_exception*>(response.get()))
                nested->rethrow_nested();
        } catch (const std::exception& cause) {
            results.add(cause.what());
        }
    });
    EXPECT_NE(results.await("no more tasks"), "");
    EXPECT_THAT(results.lines(), ElementsAre("failed 0 update element failed", "no more tasks"));
}

TEST_F(HttpRequests, DoNotDependOnTheChannel) {
    connect();
    channel->tcp().reset();
    ASSERT_TRUE(client.awaitDisconnected(1));
    update();
    TcpPeer next;
    Received received;
    // The channel's next attempt may come first.
    do {
        next = TcpPeer();
        received = receive(next);
    } while (received.head.find("PATCH") != 0);
    answer(next, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, WithoutAnErrorHandlerAreLogged) {
    connect();
    peer.listener().refuse();
    service->deleteElement<Item>(ItemDescriptor::withId("a"), nullptr, nullptr);
    EXPECT_NE(client.log->await("deleteElement: exception error occurred but no error callback given"), "");
    service->deleteElement<Item>(ItemDescriptor(), nullptr, nullptr);
    EXPECT_NE(client.log->await("deleteElement: error occurred but no error callback given"), "");
}

TEST_F(HttpRequests, AResultHandlersExceptionIsLoggedWithServiceAndResource) {
    connect();
    service->updateElement<Item>(
        ItemDescriptor::withId("a"), [](const Response&) { throw std::runtime_error("no taste"); }, nullptr);
    receive(tcp);
    answer(tcp, "200 OK");
    EXPECT_THAT(client.executorLog->await("no taste"), HasSubstr("CarDataExchange/cdxConfig"));
    update("b");
    receive(tcp);
    answer(tcp, "200 OK");
    EXPECT_EQ(results.await("done"), "done 200");
}

TEST_F(HttpRequests, WriteOneLineEach) {
    connect();
    update();
    receive(tcp);
    answer(tcp, "200 OK");
    ASSERT_NE(results.await("done"), "");
    EXPECT_THAT(client.log->await("PATCH"),
                AllOf(HasSubstr("/CarDataExchange/cdxConfig/a: 200 after "), HasSubstr("ms")));
    EXPECT_EQ(client.log->size(), 2u);
}

TEST_F(HttpRequests, FailBeforeCloseReturns) {
    connect();
    update();
    create();
    receive(tcp);
    client.close();
    EXPECT_EQ(results.size(), 2u);
    EXPECT_EQ(results.count("failed 0"), 2u);
    answer(tcp, "200 OK");
    client.onTaskExecutor([] {});
    EXPECT_EQ(results.size(), 2u);
}

TEST_F(HttpRequests, FailInsideACloseOnTheTaskExecutor) {
    connect();
    update();
    create();
    receive(tcp);
    std::size_t atReturn = 0;
    client.onTaskExecutor([&] {
        client.close();
        atReturn = results.size();
    });
    EXPECT_EQ(atReturn, 2u);
    EXPECT_EQ(results.count("failed 0"), 2u);
    client.onTaskExecutor([] {});
    EXPECT_EQ(results.size(), 2u);
}

TEST_F(HttpRequests, HaveNoResultOnceTheTaskExecutorStopped) {
    connect();
    update();
    receive(tcp);
    client.task->stop();
    client.close();
    EXPECT_EQ(results.size(), 0u);
}

TEST_F(HttpRequests, HaveNoResultInACloseOnATaskExecutorThatWasStopped) {
    connect();
    update();
    receive(tcp);
    std::size_t atReturn = 1;
    client.onTaskExecutor([&] {
        client.task->stop();
        client.close();
        atReturn = results.size();
    });
    EXPECT_EQ(atReturn, 0u);
}

TEST_F(HttpRequests, FailWhereTheHttpExecutorDropsThem) {
    connect();
    client.http->stop();
    update();
    EXPECT_EQ(results.await("failed"), "failed 0");
}

TEST_F(HttpRequests, UnderWayFailWhenTheHttpExecutorIsStopped) {
    connect();
    update();
    create();
    receive(tcp);
    client.http->stop();
    ASSERT_TRUE(results.awaitCount(2));
    EXPECT_EQ(results.count("failed 0"), 2u);
}

TEST_F(HttpRequests, OfAServiceObjectThatOutlivesTheRegistryFail) {
    connect();
    client.close();
    client.registry.reset();
    update();
    EXPECT_EQ(results.await("failed"), "failed 0");
    EXPECT_TRUE(service->subscribeResource<Item>(ItemDescriptor(), nullptr));
}

} // namespace
