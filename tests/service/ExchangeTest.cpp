#include "Exchange.h"

#include "ManualClock.h"
#include "Query.h"
#include "ScriptedBackend.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace cdxservice {
namespace {

class ExchangeTest : public ::testing::Test {
protected:
    ExchangeTest() { attach(exchange); }

    void attach(Exchange& which, std::size_t maxElementBytes = 1000) {
        Exchange::Observer observer;
        observer.changed = [this](std::size_t resource) { changed.push_back(resource); };
        observer.settled = [this](const Settlement& settlement) { settled.push_back(settlement); };
        which.attach(observer, clock, maxElementBytes);
    }

    Exchange::Result post(const char* resource, const std::string& body) {
        return exchange.post(*findResource(resource), boost::json::parse(body).as_object(), body.size());
    }
    Exchange::Result patch(const char* resource, const std::string& id, const std::string& body) {
        const std::size_t index = *findResource(resource);
        return exchange.patch(index, exchange.resource(index).find(id), boost::json::parse(body).as_object(),
                              body.size());
    }
    static int status(const Exchange::Result& result) {
        const Problem* problem = std::get_if<Problem>(&result);
        return problem ? problem->status : std::get<Exchange::Written>(result).created ? 201 : 200;
    }
    static std::string pointer(const Exchange::Result& result) {
        const Problem* problem = std::get_if<Problem>(&result);
        return problem ? problem->pointer : "none";
    }
    static ElementPtr element(const Exchange::Result& result) { return std::get<Exchange::Written>(result).element; }
    Revision revision(const char* resource) { return exchange.resource(*findResource(resource)).log().latest(); }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    Exchange exchange{nullptr, 100};
    std::vector<std::size_t> changed;
    std::vector<Settlement> settled;
};

TEST_F(ExchangeTest, NumbersElementsThatBringNoNumber) {
    EXPECT_EQ(*element(post("cdxConfig", "{}"))->integer(3), 1);
    EXPECT_EQ(*element(post("cdxConfig", R"({"elementId":77})"))->integer(3), 77);
    EXPECT_EQ(*element(post("cdxConfig", "{}"))->integer(3), 2);
    EXPECT_EQ(*element(post("cdxTrigger", "{}"))->integer(4), 1);
}

TEST_F(ExchangeTest, RefusesWrongFieldsWithAPointerAndStoresNothing) {
    EXPECT_EQ(pointer(post("cdxData", R"({"color":"red"})")), "/color");
    EXPECT_EQ(pointer(post("cdxData", R"({"a/b~c":1})")), "/a~1b~0c");
    EXPECT_EQ(pointer(post("cdxData", R"({"version":1})")), "/version");
    EXPECT_EQ(pointer(post("cdxData", R"({"timestamp":1.0})")), "/timestamp");
    EXPECT_EQ(pointer(post("cdxData", R"({"timestamp":1e3})")), "/timestamp");
    EXPECT_EQ(pointer(post("cdxData", R"({"timestamp":9223372036854775808})")), "/timestamp");
    EXPECT_EQ(pointer(post("cdxData", R"({"timestamp":"1"})")), "/timestamp");
    EXPECT_EQ(pointer(post("cdxData", R"({"isMixinOfVinRequested":0})")), "/isMixinOfVinRequested");
    EXPECT_EQ(pointer(post("cdxData", R"({"deliveryMode":"atmostonce"})")), "/deliveryMode");
    EXPECT_EQ(pointer(post("cdxData", R"({"deliveryMode":0})")), "/deliveryMode");
    EXPECT_EQ(pointer(post("cdxData", R"({"cdxClientDataReport":"a"})")), "/cdxClientDataReport");
    EXPECT_EQ(pointer(post("cdxData", R"({"cdxClientDataReport":["a",null]})")), "/cdxClientDataReport/1");
    EXPECT_EQ(pointer(post("cdxData", R"({"version":null})")), "/version");
    EXPECT_EQ(pointer(post("cdxData", R"({"name":7})")), "/name");
    EXPECT_EQ(pointer(post("cdxData", R"({"id":"a b"})")), "/id");
    EXPECT_EQ(pointer(post("cdxData", R"({"id":null})")), "/id");
    EXPECT_EQ(pointer(post("cdxData", R"({"id":"a","uri":"/CarDataExchange/cdxData/b"})")), "/uri");
    EXPECT_EQ(pointer(post("cdxData", R"({"uri":"/CarDataExchange/cdxData/b"})")), "/uri");
    EXPECT_EQ(revision("cdxData"), 0u);
    EXPECT_TRUE(changed.empty());
}

TEST_F(ExchangeTest, TakesAPostedIdAndUri) {
    const auto made = post("cdxData", R"({"id":"A_b-9","uri":"/CarDataExchange/cdxData/A_b-9"})");
    EXPECT_EQ(status(made), 201);
    EXPECT_EQ(status(post("cdxData", R"({"id":"A_b-9"})")), 409);
    EXPECT_EQ(status(post("cdxData", R"({"id":"A_b-9","color":"red"})")), 409) << "before its fields are looked at";
}

TEST_F(ExchangeTest, MergesAPatchAndLeavesIdentityAlone) {
    const std::string id = element(post("cdxConfig", R"({"name":"A","recordId":"r","recordBody":"b"})"))->id();
    const auto merged = element(patch("cdxConfig", id, R"({"recordId":null,"recordBody":"c","expiryTime":5})"));
    EXPECT_EQ(merged->json(), "{\"id\":\"" + id + "\",\"name\":\"A\",\"uri\":\"/CarDataExchange/cdxConfig/" + id +
                                  "\",\"elementId\":1,\"expiryTime\":5,\"recordBody\":\"c\"}");
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"id\":\"" + id + "\"}")), 200);
    EXPECT_EQ(pointer(patch("cdxConfig", id, R"({"id":"other"})")), "/id");
    EXPECT_EQ(pointer(patch("cdxConfig", id, R"({"id":null})")), "/id");
    EXPECT_EQ(pointer(patch("cdxConfig", id, R"({"uri":null})")), "/uri");
    EXPECT_EQ(pointer(patch("cdxConfig", id, R"({"uri":"/x"})")), "/uri");
    EXPECT_EQ(pointer(patch("cdxConfig", id, R"({"color":null})")), "/color");
}

TEST_F(ExchangeTest, RaisesNoRevisionForAWriteThatChangesNothing) {
    const std::string id = element(post("cdxConfig", R"({"name":"A"})"))->id();
    EXPECT_EQ(element(patch("cdxConfig", id, R"({"name":"A","recordId":null})"))->revision(), 1u);
    EXPECT_EQ(element(patch("cdxConfig", id, "{}"))->revision(), 1u);
    EXPECT_EQ(changed.size(), 1u);
}

TEST_F(ExchangeTest, KeepsTheFlagOfTheLatestWriteWithAName) {
    const std::string id = element(post("cdxConfig", R"({"name":"RefreshField^true>>A"})"))->id();
    const auto isNew = [&](const char* body) { return element(patch("cdxConfig", id, body))->isNew(); };
    EXPECT_EQ(isNew(R"({"recordId":"x"})"), true);
    EXPECT_EQ(revision("cdxConfig"), 2u);
    EXPECT_EQ(isNew(R"({"name":"RefreshField^false>>A"})"), false);
    EXPECT_EQ(revision("cdxConfig"), 3u) << "the flag alone is a change";
    EXPECT_EQ(isNew(R"({"name":"A"})"), std::nullopt);
    EXPECT_EQ(isNew(R"({"name":"RefreshField^true>>A"})"), true);
    EXPECT_EQ(isNew(R"({"name":null})"), std::nullopt);
    EXPECT_EQ(revision("cdxConfig"), 6u);
}

TEST_F(ExchangeTest, ReplacesTheElementThatHasTheName) {
    const auto first =
        element(post("cdxClientStates", R"({"name":"A","canonicalName":"A","isShutdownRequested":true})"));
    const auto again = post("cdxClientStates", R"({"name":"RefreshField^false>>A","canonicalName":"B"})");
    EXPECT_EQ(status(again), 200);
    EXPECT_EQ(element(again)->json(), "{\"id\":\"" + first->id() + "\",\"name\":\"A\",\"uri\":\"" + first->uri() +
                                          "\",\"canonicalName\":\"B\",\"elementId\":1}");
    EXPECT_EQ(element(again)->isNew(), false);
    EXPECT_EQ(status(post("cdxClientStates", "{\"name\":\"A\",\"id\":\"" + first->id() + "\",\"elementId\":9}")), 200);
    EXPECT_EQ(status(post("cdxClientStates", R"({"name":"A","id":"other"})")), 409);
    EXPECT_EQ(revision("cdxClientStates"), 3u);
}

TEST_F(ExchangeTest, ReplacesWithoutANumberWhatHasNone) {
    const std::string id = element(post("cdxClientStates", R"({"name":"A"})"))->id();
    patch("cdxClientStates", id, R"({"elementId":null})");
    EXPECT_EQ(element(post("cdxClientStates", R"({"name":"A","canonicalName":"B"})"))->integer(4), nullptr);
}

TEST_F(ExchangeTest, KeepsNamesApartOnlyWhereTheyAreUniqueAndNotEmpty) {
    const std::string a = element(post("cdxMasterControls", R"({"name":"A"})"))->id();
    const std::string b = element(post("cdxMasterControls", R"({"name":"B"})"))->id();
    EXPECT_EQ(status(patch("cdxMasterControls", b, R"({"name":"RefreshField^true>>A"})")), 409);
    EXPECT_EQ(pointer(patch("cdxMasterControls", b, R"({"name":"A"})")), "/name");
    EXPECT_EQ(status(patch("cdxMasterControls", a, R"({"name":"A"})")), 200);
    EXPECT_EQ(status(post("cdxMasterControls", R"({"name":""})")), 201);
    EXPECT_EQ(status(post("cdxMasterControls", R"({"name":""})")), 201);
    EXPECT_EQ(status(patch("cdxMasterControls", b, R"({"name":""})")), 200);
    EXPECT_EQ(status(post("cdxMasterControls", R"({"name":"B"})")), 201) << "the name is free again";
    EXPECT_EQ(status(post("cdxConfig", R"({"name":"A"})")), 201);
    EXPECT_EQ(status(post("cdxConfig", R"({"name":"A"})")), 201);
}

TEST_F(ExchangeTest, SettlesTheDataOfTheNameTheControlThenHas) {
    const std::string control = element(post("cdxMasterControls", R"({"name":"A"})"))->id();
    const std::string mine = element(post("cdxData", R"({"name":"B","eventId":"E"})"))->id();
    post("cdxData", R"({"name":"A","eventId":"E"})");
    post("cdxData", R"({"name":"B","eventId":"F"})");
    patch("cdxMasterControls", control, R"({"name":"B","eventTicket":"E","dataDeliveryResult":"failOffline"})");
    EXPECT_EQ(exchange.resource(0).size(), 2u);
    ASSERT_EQ(settled.size(), 1u);
    EXPECT_EQ(settled[0].clientName, "B");
    EXPECT_EQ(settled[0].eventId, "E");
    EXPECT_EQ(settled[0].dataDeliveryResult, "failOffline");
    EXPECT_EQ(settled[0].dataId, mine);
}

TEST_F(ExchangeTest, SettlesEvenWhenTheControlDoesNotChange) {
    const std::string control = element(post("cdxMasterControls", R"({"name":"A","eventTicket":"E"})"))->id();
    post("cdxData", R"({"name":"A","eventId":"E"})");
    post("cdxData", R"({"name":"A","eventId":"E"})");
    patch("cdxMasterControls", control, R"({"permittedDataType":[]})");
    EXPECT_EQ(exchange.resource(0).size(), 2u) << "a ticket not written settles nothing";
    patch("cdxMasterControls", control, R"({"eventTicket":"E"})");
    EXPECT_EQ(exchange.resource(0).size(), 0u);
    EXPECT_EQ(revision("cdxData"), 4u);
    EXPECT_EQ(revision("cdxMasterControls"), 2u);
}

TEST_F(ExchangeTest, SettlesNothingByAPostOrWithoutAName) {
    post("cdxData", R"({"name":"A","eventId":"E"})");
    post("cdxData", R"({"name":"","eventId":"E"})");
    post("cdxData", R"({"eventId":"E"})");
    const std::string control = element(post("cdxMasterControls", R"({"name":"A","eventTicket":"E"})"))->id();
    post("cdxMasterControls", R"({"name":"A","eventTicket":"E","dataDeliveryResult":"okDelivered"})");
    patch("cdxMasterControls", control, R"({"name":"","eventTicket":"E"})");
    patch("cdxMasterControls", control, R"({"name":"A","eventTicket":null})");
    EXPECT_EQ(exchange.resource(0).size(), 3u);
    EXPECT_TRUE(settled.empty());
}

TEST_F(ExchangeTest, ForgetsDataWhenItsTimeIsOver) {
    const std::int64_t now = clock->sinceEpoch().count();
    const auto id = element(post("cdxData", R"({"timeToLive":2,"timestamp":)" + std::to_string(now) + "}"))->id();
    clock->advance(std::chrono::milliseconds(1999));
    exchange.expire();
    EXPECT_NE(exchange.resource(0).find(id), nullptr);
    clock->advance(std::chrono::milliseconds(1));
    exchange.expire();
    EXPECT_EQ(exchange.resource(0).find(id), nullptr);
    EXPECT_EQ(revision("cdxData"), 2u);
}

TEST_F(ExchangeTest, AnswersDataThatComesTooLateAndForgetsItAtOnce) {
    const auto late = post("cdxData", R"({"timeToLive":1,"timestamp":0})");
    EXPECT_EQ(status(late), 201);
    EXPECT_EQ(element(late)->revision(), 1u);
    EXPECT_EQ(exchange.resource(0).size(), 0u);
    EXPECT_EQ(revision("cdxData"), 2u);
}

TEST_F(ExchangeTest, RefusesElementsThatWouldBeTooLarge) {
    const std::string id = element(post("cdxConfig", "{\"recordBody\":\"" + std::string(600, 'x') + "\"}"))->id();
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordId\":\"" + std::string(600, 'x') + "\"}")), 413);
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordId\":\"" + std::string(600, 'x') + "\",\"color\":1}")), 413)
        << "before its fields are looked at";
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordBody\":\"" + std::string(700, 'x') + "\"}")), 200);
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordBody\":null,\"recordId\":\"" + std::string(700, 'x') + "\"}")),
              200);
    EXPECT_EQ(revision("cdxConfig"), 3u);
}

TEST_F(ExchangeTest, TakesAnElementOfExactlyTheSizeAllowed) {
    const std::string id = element(post("cdxConfig", R"({"recordBody":""})"))->id();
    const std::size_t rest = exchange.resource(2).find(id)->json().size();
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordBody\":\"" + std::string(1001 - rest, 'x') + "\"}")), 413);
    EXPECT_EQ(status(patch("cdxConfig", id, "{\"recordBody\":\"" + std::string(1000 - rest, 'x') + "\"}")), 200);
}

TEST_F(ExchangeTest, CountsOfAPatchWhatTheElementKeepsOfIt) {
    const std::string id = element(post("cdxConfig", R"({"recordBody":"","name":""})"))->id();
    const std::size_t rest = exchange.resource(2).find(id)->json().size();
    const std::string body = R"("recordBody":")" + std::string(1000 - rest, 'x') + '"';
    EXPECT_EQ(status(patch("cdxConfig", id, "{" + body + R"(,"receiveTime":null})")), 200);
    EXPECT_EQ(status(patch("cdxConfig", id, "{" + body + R"(,"name":"RefreshField^true>>"})")), 200);
    EXPECT_EQ(status(patch("cdxConfig", id, "{" + body + R"(,"name":"RefreshField^true>>x"})")), 413);
}

TEST_F(ExchangeTest, StoresNothingWhenTheBackendDoesNot) {
    ScriptedBackend::Kept kept;
    Exchange stored(std::make_unique<ScriptedBackend>(kept), 100);
    attach(stored);
    const auto postTo = [&] { return stored.post(2, boost::json::parse("{}").as_object(), 2); };
    kept.next = StoreBackend::Outcome::Away;
    EXPECT_EQ(status(postTo()), 503);
    EXPECT_FALSE(stored.answers());
    kept.next = StoreBackend::Outcome::Full;
    EXPECT_EQ(status(postTo()), 507);
    EXPECT_EQ(stored.resource(2).size(), 0u);
    EXPECT_TRUE(changed.empty());
    kept.next = StoreBackend::Outcome::Stored;
    EXPECT_EQ(*element(postTo())->integer(3), 1) << "numbers are not used up by what was not stored";
    EXPECT_EQ(changed.size(), 1u);
}

TEST_F(ExchangeTest, CountsNoDataWhoseTimeIsOverThoughTheStoreIsAway) {
    ScriptedBackend::Kept kept;
    Exchange stored(std::make_unique<ScriptedBackend>(kept), 100);
    attach(stored);
    const Resource& data = stored.resource(0);
    const auto postData = [&](const std::string& body) {
        return stored.post(0, boost::json::parse(body).as_object(), body.size());
    };
    const std::string now = std::to_string(clock->sinceEpoch().count());
    postData(R"({"id":"short","name":"A","eventId":"E","timeToLive":2,"timestamp":)" + now + "}");
    postData(R"({"id":"long","timeToLive":20,"timestamp":)" + now + "}");
    postData(R"({"id":"endless"})");
    changed.clear();
    kept.next = StoreBackend::Outcome::Away;
    clock->advance(std::chrono::seconds(2));
    stored.expire();
    EXPECT_EQ(data.find("short"), nullptr);
    EXPECT_EQ(data.size(), 2u);
    EXPECT_TRUE(data.findEvent("A", "E").empty());
    EXPECT_EQ(data.log().after(0, 0).revision, 2u) << "no subscriber is told of it any more";
    EXPECT_EQ(std::get<Query>(Query::parse(data.schema(), "")).select(data.log()).elements.size(), 2u);
    EXPECT_EQ(std::get<Query>(Query::parse(data.schema(), "sort=id")).select(data.log()).elements.size(), 2u);
    EXPECT_EQ(data.log().latest(), 3u) << "what is not stored is not told";
    EXPECT_TRUE(changed.empty());
    clock->advance(-std::chrono::seconds(1));
    stored.expire();
    EXPECT_EQ(data.find("short"), nullptr) << "nor does it come back";
    kept.next = StoreBackend::Outcome::Stored;
    EXPECT_EQ(status(postData(R"({"id":"short"})")), 201) << "its id is free";
    EXPECT_EQ(data.size(), 3u);
}

TEST_F(ExchangeTest, RemovesDataWhoseTimeIsOverOnceTheStoreIsBack) {
    ScriptedBackend::Kept kept;
    Exchange stored(std::make_unique<ScriptedBackend>(kept), 100);
    attach(stored);
    const std::string body =
        R"({"id":"a","timeToLive":2,"timestamp":)" + std::to_string(clock->sinceEpoch().count()) + "}";
    stored.post(0, boost::json::parse(body).as_object(), body.size());
    changed.clear();
    kept.next = StoreBackend::Outcome::Away;
    clock->advance(std::chrono::seconds(2));
    stored.expire();
    kept.next = StoreBackend::Outcome::Stored;
    stored.expire();
    EXPECT_EQ(changed.size(), 1u);
    ASSERT_NE(stored.resource(0).log().after(1, 0).removedId, nullptr);
    EXPECT_EQ(*stored.resource(0).log().after(1, 0).removedId, "a");
    EXPECT_FALSE(stored.resource(0).log().passedOver());
}

TEST_F(ExchangeTest, GoesOnFromWhatTheBackendHolds) {
    ScriptedBackend::Kept kept;
    std::string epoch;
    std::string id;
    {
        Exchange before(std::make_unique<ScriptedBackend>(kept), 100);
        attach(before);
        epoch = before.epoch();
        const auto body =
            boost::json::parse(R"({"name":"RefreshField^true>>RefreshField^false>>A","recordBody":"b"})").as_object();
        id = element(before.post(2, body, 50))->id();
        const auto gone = element(before.post(2, boost::json::parse("{}").as_object(), 2));
        before.remove(2, gone);
    }
    Exchange after(std::make_unique<ScriptedBackend>(kept), 100);
    attach(after);
    EXPECT_EQ(after.epoch(), epoch);
    EXPECT_EQ(after.resource(2).log().latest(), 3u);
    ASSERT_NE(after.resource(2).find(id), nullptr);
    EXPECT_EQ(after.resource(2).find(id)->name(), "RefreshField^false>>A");
    EXPECT_EQ(after.resource(2).find(id)->isNew(), true);
    EXPECT_EQ(after.resource(2).nextElementId, 3u);
}

TEST_F(ExchangeTest, KnowsWhichRemovalsAreForgottenOfWhatTheBackendHolds) {
    ScriptedBackend::Kept kept;
    {
        Exchange before(std::make_unique<ScriptedBackend>(kept), 1);
        attach(before);
        for (int i = 0; i < 2; ++i) {
            before.remove(2, element(before.post(2, boost::json::parse("{}").as_object(), 2)));
        }
        EXPECT_EQ(before.resource(2).log().forgotten(), 2u);
    }
    const Exchange after(std::make_unique<ScriptedBackend>(kept), 1);
    EXPECT_EQ(after.resource(2).log().forgotten(), 2u);
    EXPECT_EQ(after.resource(2).log().latest(), 4u);
}

TEST_F(ExchangeTest, IsUsedByOneServerAtATime) {
    EXPECT_THROW(attach(exchange), std::runtime_error);
    exchange.detach();
    EXPECT_NO_THROW(attach(exchange));
}

TEST_F(ExchangeTest, HasAnEpochOfItsOwn) {
    EXPECT_EQ(exchange.epoch().size(), 32u);
    EXPECT_EQ(exchange.epoch().find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(Exchange(nullptr, 1).epoch(), exchange.epoch());
}

} // namespace
} // namespace cdxservice
