#include <support/Event.h>
#include <support/FullListener.h>
#include <support/NamedAddresses.h>
#include <support/ScriptedPeer.h>
#include <xalutil/HttpSession.h>
#include <xalutil/TaskExecutor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using cdxtest::Event;
using cdxtest::FullListener;
using cdxtest::NamedAddresses;
using cdxtest::PeerConnection;
using cdxtest::ScriptedPeer;
using cdxtest::SilentName;
using testing::HasSubstr;
using xalutil::HttpError;
using xalutil::HttpLimits;
using xalutil::HttpRequest;
using xalutil::HttpResponse;
using xalutil::HttpSession;
using xalutil::PocoHttpSessionFactory;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds patience(10'000);
/// Within this a cancelled exchange has ended, and some more for a busy computer.
constexpr milliseconds prompt(1'000);

const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

std::unique_ptr<HttpSession> sessionWith(const ScriptedPeer& peer) {
    return PocoHttpSessionFactory().createSession(peer.uri());
}

HttpResponse exchange(HttpSession& session, const HttpRequest& request = {}, const HttpLimits& limits = {}) {
    return session.exchange(request, Clock::now() + patience, limits);
}

/// The failure's status and text; nothing where there is an answer.
struct Failure {
    int status;
    std::string what;
};

std::optional<Failure> failureOf(HttpSession& session, const HttpRequest& request = {},
                                 Clock::time_point deadline = Clock::now() + patience) {
    try {
        session.exchange(request, deadline);
        return std::nullopt;
    } catch (const HttpError& failure) {
        return Failure{failure.getStatus(), failure.what()};
    }
}

/// Answers every request of one connection alike, until the client goes.
ScriptedPeer::Script always(const std::string& answer) {
    return [answer](PeerConnection& client) {
        for (;;) {
            client.readRequest();
            client.write(answer);
        }
    };
}

HttpRequest post(const std::string& body) {
    HttpRequest request;
    request.method = "POST";
    request.body = body;
    return request;
}

TEST(HttpSessionTest, RequestIsSentAsWordedWithHostAndLength) {
    std::string seen;
    ScriptedPeer peer([&](PeerConnection& client) {
        seen = client.readRequest();
        client.write(ok);
    });
    HttpRequest request = post("{\"a\":1}");
    request.target = "/base/Service/res?limit=1";
    request.headers = {{"Content-Type", "application/json"}, {"Authorization", "Bearer x"}};
    exchange(*sessionWith(peer), request);
    ASSERT_TRUE(peer.awaitScripts());
    EXPECT_EQ(seen, "POST /base/Service/res?limit=1 HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(peer.port()) +
                        "\r\nContent-Type: application/json\r\nAuthorization: Bearer x\r\nContent-Length: 7\r\n\r\n"
                        "{\"a\":1}");
}

TEST(HttpSessionTest, GetHasNoLengthAndAnEmptyPostHasOne) {
    std::vector<std::string> seen;
    ScriptedPeer peer([&](PeerConnection& client) {
        for (int i = 0; i < 2; ++i) {
            seen.push_back(client.readRequest());
            client.write(ok);
        }
    });
    const auto session = sessionWith(peer);
    exchange(*session);
    exchange(*session, post(""));
    ASSERT_TRUE(peer.awaitScripts());
    EXPECT_THAT(seen.at(0), testing::Not(HasSubstr("Content-Length")));
    EXPECT_THAT(seen.at(1), HasSubstr("Content-Length: 0\r\n"));
}

TEST(HttpSessionTest, AnswerHasStatusHeadersAndBody) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.writeSliced("HTTP/1.1 503 Later\r\nRetry-After: 3\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nno\r\n"
                           "0\r\n\r\n");
    });
    const HttpResponse answer = exchange(*sessionWith(peer));
    EXPECT_EQ(answer.status, 503);
    ASSERT_NE(answer.find("retry-after"), nullptr);
    EXPECT_EQ(*answer.find("retry-after"), "3");
    EXPECT_EQ(answer.body, "no");
}

TEST(HttpSessionTest, RedirectIsAnAnswerAndIsNotFollowed) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.write("HTTP/1.1 301 Moved\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n");
        EXPECT_TRUE(client.awaitClose());
    });
    {
        const auto session = sessionWith(peer);
        EXPECT_EQ(exchange(*session).status, 301);
    }
    ASSERT_TRUE(peer.awaitScripts());
    EXPECT_EQ(peer.getConnections(), 1U);
}

TEST(HttpSessionTest, LargeBodiesGoBothWays) {
    const std::string body(3 * 1024 * 1024, 'x');
    ScriptedPeer peer([&](PeerConnection& client) {
        const std::string request = client.readRequest();
        client.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                     request.substr(request.size() - body.size()));
    });
    EXPECT_EQ(exchange(*sessionWith(peer), post(body)).body, body);
}

TEST(HttpSessionTest, ConnectionIsKeptForTheNextExchange) {
    ScriptedPeer peer(always(ok));
    const auto session = sessionWith(peer);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(peer.getConnections(), 1U);
}

struct Named {
    const char* name;
    std::string text;
};

template <class T>
std::string nameOf(const testing::TestParamInfo<T>& tested) {
    return tested.param.name;
}

class UnsafeToKeep : public testing::TestWithParam<Named> {};

TEST_P(UnsafeToKeep, HasTheNextExchangeOnANewConnection) {
    ScriptedPeer peer({always(GetParam().text), always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session);
    EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(peer.getConnections(), 2U);
}

INSTANTIATE_TEST_SUITE_P(
    Answer, UnsafeToKeep,
    testing::Values(Named{"CloseAsked", "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 1\r\n\r\nx"},
                    Named{"OldVersion", "HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx"},
                    Named{"LeftOver", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nxHTTP/1.1 200 OK\r\n"},
                    Named{"NoContentThatClaimsOne", "HTTP/1.1 204 No Content\r\nContent-Length: 3\r\n\r\n"}),
    nameOf<Named>);

TEST(HttpSessionTest, ConnectionThatWasIdleTooLongIsNotUsedAgain) {
    ScriptedPeer peer({always(ok), always(ok)});
    const auto session = sessionWith(peer);
    HttpLimits limits;
    EXPECT_EQ(limits.keepIdle, std::chrono::seconds(30));
    limits.keepIdle = milliseconds(0);
    exchange(*session, {}, limits);
    exchange(*session, {}, limits);
    EXPECT_EQ(peer.getConnections(), 2U);
}

TEST(HttpSessionTest, KeptConnectionThatTheServerClosedIsReplacedBeforeAnythingIsSent) {
    Event isClosed;
    ScriptedPeer peer({[&](PeerConnection& client) {
                           client.readRequest();
                           client.write(ok);
                           client.close();
                           isClosed.set();
                       },
                       always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session, post("first"));
    ASSERT_TRUE(isClosed.await());
    EXPECT_EQ(exchange(*session, post("second")).body, "ok");
    EXPECT_EQ(peer.getConnections(), 2U);
}

TEST(HttpSessionTest, KeptConnectionOnWhichSomethingUnaskedCameIsNotUsedAgain) {
    Event isWritten;
    ScriptedPeer peer({[&](PeerConnection& client) {
                           client.readRequest();
                           client.write(ok);
                           client.readRequest();
                           client.write(ok);
                           client.write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwrong");
                           isWritten.set();
                           client.awaitClose();
                       },
                       always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session);
    exchange(*session);
    ASSERT_TRUE(isWritten.await());
    EXPECT_EQ(exchange(*session).body, "ok");
}

/// Answers the first request, and goes after reading the second one, without an answer or with the beginning of one.
ScriptedPeer::Script goesAtTheSecondRequest(const std::string& beginning = "") {
    return [beginning](PeerConnection& client) {
        client.readRequest();
        client.write(ok);
        client.readRequest();
        client.write(beginning);
    };
}

TEST(HttpSessionTest, GetIsRepeatedOnceWhenAKeptConnectionTurnsOutClosed) {
    ScriptedPeer peer({goesAtTheSecondRequest(), always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session);
    EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(peer.getConnections(), 2U);
}

TEST(HttpSessionTest, GetIsNotRepeatedTwice) {
    ScriptedPeer peer({goesAtTheSecondRequest(), [](PeerConnection& client) { client.readRequest(); }, always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session);
    EXPECT_NE(failureOf(*session), std::nullopt);
    EXPECT_EQ(peer.getConnections(), 2U);
}

TEST(HttpSessionTest, GetIsNotRepeatedOnceItsAnswerHasBegun) {
    ScriptedPeer peer({goesAtTheSecondRequest("H"), always(ok)});
    const auto session = sessionWith(peer);
    exchange(*session);
    EXPECT_NE(failureOf(*session), std::nullopt);
    EXPECT_EQ(peer.getConnections(), 1U);
}

TEST(HttpSessionTest, GetOnANewConnectionIsNotRepeated) {
    ScriptedPeer peer({[](PeerConnection& client) { client.readRequest(); }, always(ok)});
    EXPECT_NE(failureOf(*sessionWith(peer)), std::nullopt);
    EXPECT_EQ(peer.getConnections(), 1U);
}

TEST(HttpSessionTest, OtherRequestsAreNeverRepeated) {
    for (const char* method : {"POST", "PATCH", "DELETE", "PUT", "HEAD"}) {
        ScriptedPeer peer({goesAtTheSecondRequest(), always(ok)});
        const auto session = sessionWith(peer);
        exchange(*session);
        HttpRequest request;
        request.method = method;
        const auto failure = failureOf(*session, request);
        ASSERT_NE(failure, std::nullopt) << method;
        EXPECT_EQ(failure->status, 0);
        EXPECT_EQ(peer.getConnections(), 1U);
    }
}

/// A request whose connection's header says how often it was asked for.
HttpRequest numbered(int& asked) {
    HttpRequest request;
    request.connectionHeaders = [&asked] { return xalutil::HttpHeaders{{"Asked", std::to_string(++asked)}}; };
    return request;
}

/// Answers requests of one connection as long as they carry this text, until the client goes.
ScriptedPeer::Script whileSent(const std::string& text, const std::string& answer = ok) {
    return [=](PeerConnection& client) {
        while (client.readRequest().find(text) != std::string::npos)
            client.write(answer);
    };
}

TEST(HttpSessionTest, HeadersOfAConnectionAreAskedForOnceOnEach) {
    ScriptedPeer peer({whileSent("\r\nAsked: 1\r\n"), whileSent("\r\nAsked: 2\r\n")});
    const auto session = sessionWith(peer);
    int asked = 0;
    exchange(*session, numbered(asked));
    exchange(*session, numbered(asked));
    EXPECT_EQ(peer.getConnections(), 1U);
    HttpLimits limits;
    limits.keepIdle = milliseconds(0);
    EXPECT_EQ(exchange(*session, numbered(asked), limits).body, "ok");
    EXPECT_EQ(asked, 2);
}

TEST(HttpSessionTest, HeadersOfAConnectionAreSentOnlyWithRequestsThatHaveThem) {
    ScriptedPeer peer([](PeerConnection& client) {
        for (;;)
            client.write(client.readRequest().find("Asked") == std::string::npos
                             ? ok
                             : "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nasked");
    });
    const auto session = sessionWith(peer);
    int asked = 0;
    EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(exchange(*session, numbered(asked)).body, "asked");
    EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(exchange(*session, numbered(asked)).body, "asked");
    EXPECT_EQ(asked, 1);
}

TEST(HttpSessionTest, HeadersOfAConnectionAreAskedForAnewByARepeatedGet) {
    ScriptedPeer peer({goesAtTheSecondRequest(), whileSent("\r\nAsked: 2\r\n")});
    const auto session = sessionWith(peer);
    int asked = 0;
    exchange(*session, numbered(asked));
    EXPECT_EQ(exchange(*session, numbered(asked)).body, "ok");
}

TEST(HttpSessionTest, ConnectionWhoseHeadersWereRefusedIsNotKept) {
    const std::string unauthorized = "HTTP/1.1 401 Who\r\nContent-Length: 0\r\n\r\n";
    ScriptedPeer peer({whileSent("\r\nAsked: 1\r\n", unauthorized), whileSent("\r\nAsked: 2\r\n")});
    const auto session = sessionWith(peer);
    int asked = 0;
    EXPECT_EQ(exchange(*session, numbered(asked)).status, 401);
    EXPECT_EQ(exchange(*session, numbered(asked)).status, 200);
}

TEST(HttpSessionTest, HeadersOfAConnectionThatCannotBeSentAreAFailure) {
    ScriptedPeer peer(always(ok));
    HttpRequest request;
    request.connectionHeaders = [] { return xalutil::HttpHeaders{{"A", "b\r\nC: d"}}; };
    const auto failure = failureOf(*sessionWith(peer), request);
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
}

TEST(HttpSessionTest, SessionGoesOnAfterAFailedExchange) {
    ScriptedPeer peer({[](PeerConnection& client) {
                           client.readRequest();
                           client.write("nonsense\r\n");
                       },
                       always(ok)});
    const auto session = sessionWith(peer);
    EXPECT_NE(failureOf(*session), std::nullopt);
    EXPECT_EQ(exchange(*session).body, "ok");
}

TEST(HttpSessionTest, MalformedAnswerHasTheStatusOfItsStatusLine) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.write("HTTP/1.1 201 Created\r\nContent-Length: 5\r\nContent-Length: 5\r\n\r\nhello");
        client.awaitClose();
    });
    const auto failure = failureOf(*sessionWith(peer));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 201);
}

TEST(HttpSessionTest, AnswerCutShortHasTheStatusOfItsStatusLine) {
    for (const bool isHalfClosed : {false, true}) {
        ScriptedPeer peer([&](PeerConnection& client) {
            client.readRequest();
            client.write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhel");
            if (isHalfClosed) {
                client.closeWriting();
                client.awaitClose();
            }
        });
        const auto failure = failureOf(*sessionWith(peer));
        ASSERT_NE(failure, std::nullopt);
        EXPECT_EQ(failure->status, 200);
    }
}

TEST(HttpSessionTest, ConnectionThatIsResetIsAFailureWithoutStatus) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.reset();
    });
    const auto failure = failureOf(*sessionWith(peer));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
}

TEST(HttpSessionTest, AnswerThatComesBeforeTheBodyWasTakenIsTheAnswer) {
    Event mayClose;
    ScriptedPeer peer({[&](PeerConnection& client) {
                           client.readUntil("\r\n\r\n");
                           client.write("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n");
                           EXPECT_TRUE(mayClose.await());
                       },
                       always(ok)});
    const auto session = sessionWith(peer);
    EXPECT_EQ(exchange(*session, post(std::string(32 * 1024 * 1024, 'x'))).status, 413);
    EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(peer.getConnections(), 2U);
    mayClose.set();
}

TEST(HttpSessionTest, WritingToAConnectionThatWasResetRaisesNoSignal) {
    ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    ScriptedPeer peer([](PeerConnection& client) {
        client.readBytes(1);
        client.reset();
    });
    EXPECT_NE(failureOf(*sessionWith(peer), post(std::string(32 * 1024 * 1024, 'x'))), std::nullopt);
}

TEST(HttpSessionTest, SilentServerIsATimeOutWithoutStatus) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.awaitClose();
    });
    const auto failure = failureOf(*sessionWith(peer), {}, Clock::now() + milliseconds(30));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
    EXPECT_THAT(failure->what, HasSubstr("timed out"));
}

TEST(HttpSessionTest, DeadlineIsForAllOfTheAnswerHoweverSteadilyItComes) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        client.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (;;)
            client.write("1\r\nx\r\n");
    });
    const auto begin = Clock::now();
    const auto failure = failureOf(*sessionWith(peer), {}, begin + milliseconds(50));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 200);
    EXPECT_THAT(failure->what, HasSubstr("timed out"));
    EXPECT_LT(Clock::now() - begin, prompt);
}

TEST(HttpSessionTest, DeadlineThatIsOverFailsWithoutAConnection) {
    ScriptedPeer peer(always(ok));
    EXPECT_NE(failureOf(*sessionWith(peer), {}, Clock::now()), std::nullopt);
    EXPECT_EQ(peer.getConnections(), 0U);
}

std::string uriOf(const FullListener& listener) {
    return "http://127.0.0.1:" + std::to_string(listener.port());
}

TEST(HttpSessionTest, DeadlineIsForTheConnectingToo) {
    const FullListener listener;
    const auto session = PocoHttpSessionFactory().createSession(uriOf(listener));
    const auto begin = Clock::now();
    const auto failure = failureOf(*session, {}, begin + milliseconds(50));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_THAT(failure->what, HasSubstr("timed out"));
    EXPECT_LT(Clock::now() - begin, prompt);
}

/// Runs an exchange that only a cancel can end, cancels it once `isReached`, and tells how long it took to end.
Clock::duration cancelledExchange(HttpSession& session, const HttpRequest& request, Event* isReached) {
    std::optional<Failure> failure;
    std::thread exchanging([&] { failure = failureOf(session, request, Clock::now() + std::chrono::minutes(1)); });
    EXPECT_TRUE(isReached == nullptr || isReached->await());
    const auto begin = Clock::now();
    session.cancel();
    exchanging.join();
    const auto duration = Clock::now() - begin;
    EXPECT_NE(failure, std::nullopt);
    EXPECT_THAT(failure->what, HasSubstr("cancelled"));
    return duration;
}

TEST(HttpSessionTest, CancelEndsAnExchangeThatWaitsForItsAnswer) {
    Event isReached;
    ScriptedPeer peer([&](PeerConnection& client) {
        client.readRequest();
        isReached.set();
        client.awaitClose();
    });
    EXPECT_LT(cancelledExchange(*sessionWith(peer), {}, &isReached), prompt);
}

TEST(HttpSessionTest, CancelEndsAnExchangeWhoseBodyIsNotTaken) {
    Event isReached;
    Event mayClose;
    ScriptedPeer peer([&](PeerConnection& client) {
        client.readBytes(1);
        isReached.set();
        EXPECT_TRUE(mayClose.await());
    });
    EXPECT_LT(cancelledExchange(*sessionWith(peer), post(std::string(32 * 1024 * 1024, 'x')), &isReached), prompt);
    mayClose.set();
}

TEST(HttpSessionTest, CancelEndsAnExchangeThatShakesHands) {
    Event isReached;
    ScriptedPeer peer([&](PeerConnection& client) {
        client.readBytes(1);
        isReached.set();
        client.readUntil("nothing of the kind");
    });
    const auto session = PocoHttpSessionFactory().createSession(peer.uri("https"));
    EXPECT_LT(cancelledExchange(*session, {}, &isReached), prompt);
}

TEST(HttpSessionTest, CancelEndsAnExchangeThatConnects) {
    const FullListener listener;
    const auto session = PocoHttpSessionFactory().createSession(uriOf(listener));
    EXPECT_LT(cancelledExchange(*session, {}, nullptr), prompt);
}

TEST(HttpSessionTest, CancelledSessionIsOver) {
    ScriptedPeer peer(always(ok));
    const auto session = sessionWith(peer);
    session->cancel();
    EXPECT_NE(failureOf(*session), std::nullopt);
    EXPECT_EQ(peer.getConnections(), 0U);
}

TEST(HttpSessionTest, StoppingTheExecutorBreaksOffTheExchangeOfItsTask) {
    Event isReached;
    ScriptedPeer peer([&](PeerConnection& client) {
        client.readRequest();
        isReached.set();
        client.awaitClose();
    });
    const auto session = sessionWith(peer);
    std::optional<Failure> failure;
    xalutil::SingleThreadAsyncTaskExecutor executor("http", nullptr);
    executor.execute([&] { failure = failureOf(*session, {}, Clock::now() + std::chrono::minutes(1)); });
    ASSERT_TRUE(isReached.await());
    const auto begin = Clock::now();
    executor.stop();
    EXPECT_LT(Clock::now() - begin, prompt);
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
}

TEST(HttpSessionTest, RefusedConnectionIsAFailureThatNamesTheServer) {
    std::string uri;
    {
        const ScriptedPeer gone{std::vector<ScriptedPeer::Script>()};
        uri = gone.uri();
    }
    const auto failure = failureOf(*PocoHttpSessionFactory().createSession(uri));
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
    EXPECT_THAT(failure->what, HasSubstr("127.0.0.1"));
}

TEST(HttpSessionTest, NameWithSeveralAddressesIsTriedToTheLast) {
    const NamedAddresses name("several.test", {"127.0.0.3", "127.0.0.2", "127.0.0.1"}); // nobody listens on the others
    ScriptedPeer peer(always(ok));
    const auto session = PocoHttpSessionFactory().createSession("http://several.test:" + std::to_string(peer.port()));
    EXPECT_EQ(exchange(*session).body, "ok");
}

TEST(HttpSessionTest, AddressThatIsSilentCostsItsShareOfTheDeadline) {
    const NamedAddresses name("several.test", {"127.0.0.2", "127.0.0.1"});
    ScriptedPeer peer(always(ok));
    const FullListener silent("127.0.0.2", peer.port());
    const auto session = PocoHttpSessionFactory().createSession("http://several.test:" + std::to_string(peer.port()));
    EXPECT_EQ(session->exchange({}, Clock::now() + milliseconds(1000)).body, "ok");
}

TEST(HttpSessionTest, NameThatIsNotResolvedFailsAtTheDeadlineOrWhenCancelled) {
    const SilentName name("silent.test");
    const auto session = PocoHttpSessionFactory().createSession("http://silent.test");
    const auto failure = failureOf(*session, {}, Clock::now() + milliseconds(50));
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what, HasSubstr("timed out"));
    std::thread other([&] { session->cancel(); });
    const auto cancelled = failureOf(*session, {}, Clock::now() + std::chrono::hours(1));
    other.join();
    ASSERT_TRUE(cancelled);
    EXPECT_THAT(cancelled->what, HasSubstr("cancelled"));
}

TEST(HttpSessionTest, NameThatDoesNotExistIsAFailureThatSaysSo) {
    const auto session = PocoHttpSessionFactory().createSession("http://none.invalid");
    const auto failure = failureOf(*session);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, 0);
    EXPECT_THAT(failure->what, HasSubstr("cannot resolve none.invalid: "));
}

TEST(HttpSessionTest, HeadHasAnAnswerWithoutABody) {
    ScriptedPeer peer(always("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n"));
    const auto session = sessionWith(peer);
    HttpRequest request;
    request.method = "HEAD";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(exchange(*session, request).body, "");
    EXPECT_EQ(peer.getConnections(), 1U);
}

TEST(HttpSessionTest, LimitsHoldForTheAnswer) {
    ScriptedPeer peer({always(ok), always(ok)});
    const auto session = sessionWith(peer);
    HttpLimits limits;
    limits.bodyBytes = 1;
    EXPECT_THROW(exchange(*session, {}, limits), HttpError);
    EXPECT_EQ(exchange(*session).body, "ok");
}

struct NamedRequest {
    const char* name;
    HttpRequest request;
};

class UnsendableRequest : public testing::TestWithParam<NamedRequest> {};

TEST_P(UnsendableRequest, IsRefusedBeforeAConnectionIsMade) {
    ScriptedPeer peer(always(ok));
    const auto failure = failureOf(*sessionWith(peer), GetParam().request);
    ASSERT_NE(failure, std::nullopt);
    EXPECT_EQ(failure->status, 0);
    EXPECT_EQ(peer.getConnections(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Request, UnsendableRequest,
    testing::Values(NamedRequest{"NoMethod", {"", "/", {}, ""}},
                    NamedRequest{"MethodWithBlank", {"GET /x", "/", {}, ""}},
                    NamedRequest{"NoTarget", {"GET", "", {}, ""}}, NamedRequest{"NoPath", {"GET", "x", {}, ""}},
                    NamedRequest{"TargetWithBlank", {"GET", "/a b", {}, ""}},
                    NamedRequest{"TargetWithLineEnd", {"GET", "/a\r\nB: c", {}, ""}},
                    NamedRequest{"TargetNotEncoded", {"GET", "/\xc3\xa4", {}, ""}},
                    NamedRequest{"HeaderNameWithBlank", {"GET", "/", {{"A b", "c"}}, ""}},
                    NamedRequest{"HeaderWithLineEnd", {"GET", "/", {{"A", "b\r\nC: d"}}, ""}},
                    NamedRequest{"HeaderWithNul", {"GET", "/", {{"A", std::string("b\0", 2)}}, ""}},
                    NamedRequest{"OwnHost", {"GET", "/", {{"host", "other"}}, ""}},
                    NamedRequest{"OwnLength", {"POST", "/", {{"Content-Length", "1"}}, "xy"}},
                    NamedRequest{"OwnCoding", {"POST", "/", {{"Transfer-Encoding", "chunked"}}, "x"}}),
    nameOf<NamedRequest>);

class UnusableUri : public testing::TestWithParam<Named> {};

TEST_P(UnusableUri, IsRefusedAndNamed) {
    try {
        PocoHttpSessionFactory().createSession(GetParam().text);
        FAIL() << "a session was made";
    } catch (const std::invalid_argument& failure) {
        EXPECT_THAT(failure.what(), HasSubstr('"' + GetParam().text + '"'));
    }
}

INSTANTIATE_TEST_SUITE_P(Uri, UnusableUri,
                         testing::Values(Named{"Empty", ""}, Named{"NoScheme", "127.0.0.1"},
                                         Named{"OtherScheme", "ftp://127.0.0.1"}, Named{"NoHost", "http://"},
                                         Named{"NoHostButPath", "http:///path"}, Named{"NoPort", "http://h:0"},
                                         Named{"PortTooLarge", "http://h:99999"}, Named{"HalfBracketed", "http://[::1"},
                                         Named{"NoSchemeButHost", "//h"}),
                         nameOf<Named>);

/// The open descriptors that are sockets or events.
std::vector<int> waitables() {
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (target.rfind("socket:", 0) == 0 || target == "anon_inode:[eventfd]")
            found.push_back(std::stoi(entry.path().filename()));
    }
    return found;
}

TEST(HttpSessionTest, NothingOfASessionIsInheritedByPrograms) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readRequest();
        for (const int descriptor : waitables())
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
        client.write(ok);
    });
    EXPECT_EQ(exchange(*sessionWith(peer)).body, "ok");
}

TEST(HttpSessionTest, SessionLeavesNoDescriptorBehind) {
    const std::size_t before = waitables().size();
    for (int i = 0; i < 20; ++i) {
        ScriptedPeer peer({always(ok), always("nonsense")});
        const auto session = sessionWith(peer);
        exchange(*session);
        session->cancel();
    }
    EXPECT_EQ(waitables().size(), before);
}

} // namespace
