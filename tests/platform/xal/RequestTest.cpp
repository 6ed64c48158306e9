#include "RecordingConnection.h"
#include "TestClient.h"

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Response = std::shared_ptr<const xal::XalResponse>;

class ThrowingDescriptor : public xal::XObjectDescriptor {
public:
    ThrowingDescriptor() : XObjectDescriptor("CarDataExchange", "cdxConfig") {}
    std::shared_ptr<xalutil::JsonObject> getAsXALBody() const override { throw std::runtime_error("no body"); }
};
class ThrowingItem : public xal::XObject<ThrowingDescriptor> {
public:
    using Desctype = ThrowingDescriptor;
    explicit ThrowingItem(const std::shared_ptr<xalutil::JsonObject>& json) : XObject<ThrowingDescriptor>(json) {}
};

class Requests : public testing::Test {
protected:
    void create() {
        service.createElement<Item>(
            ItemDescriptor::named("x"),
            [this](const std::shared_ptr<const Item>& item, const Response& response) {
                results.push_back("created " + item->name() + " " + std::to_string(response->getStatusCode()));
            },
            failed);
    }
    void update() { service.updateElement<Item>(ItemDescriptor::withId("a"), done, failed); }
    void remove() { service.deleteElement<Item>(ItemDescriptor::withId("a"), done, failed); }
    void read() {
        service.readElements<Item>(
            ItemDescriptor(),
            [this](const std::vector<std::shared_ptr<const Item>>& items, const Response& response) {
                results.push_back("read " + describe(items) + " " + std::to_string(response->getStatusCode()));
            },
            failed);
    }

    std::shared_ptr<RecordingConnection> connection = std::make_shared<RecordingConnection>();
    ItemService service{connection};
    std::vector<std::string> results;
    xal::Service::Done done = [this](const Response& response) {
        results.push_back("done " + std::to_string(response->getStatusCode()));
    };
    xal::Service::Done failed = [this](const Response& response) {
        results.push_back("failed " + std::to_string(response->getStatusCode()));
    };
};

TEST_F(Requests, CreateSendsTheBody) {
    create();
    const auto& request = connection->requests.back();
    EXPECT_EQ(request.kind, xal::Request::CREATE);
    EXPECT_EQ(request.serviceName, "CarDataExchange");
    EXPECT_EQ(request.resourceName, "cdxConfig");
    EXPECT_EQ(request.body->toString(), R"({"name":"x"})");
}

TEST_F(Requests, CreateGivesTheNewElement) {
    create();
    connection->answer(201, R"({"id":"a","name":"x"})");
    EXPECT_THAT(results, ElementsAre("created x 201"));
}

TEST_F(Requests, CreateGivesTheElementThatWasThere) {
    create();
    connection->answer(200, R"({"id":"a","name":"x"})");
    EXPECT_THAT(results, ElementsAre("created x 200"));
}

TEST_F(Requests, CreateFailsWithTheStatusOfTheAnswer) {
    for (const int status : {0, 202, 204, 301, 401, 409, 413, 422, 500, 503}) {
        create();
        connection->answer(status, R"({"id":"a","name":"x"})");
        EXPECT_EQ(results.back(), "failed " + std::to_string(status));
    }
}

TEST_F(Requests, CreateFailsWhereTheAnswerHoldsNoElement) {
    for (const auto* const json : {"", "[]", "5", R"({"id":5})"}) {
        results.clear();
        create();
        connection->answer(201, json);
        EXPECT_THAT(results, ElementsAre("failed 201")) << json;
    }
}

TEST_F(Requests, UpdateIsJudgedByItsStatusAlone) {
    update();
    EXPECT_EQ(connection->requests.back().kind, xal::Request::UPDATE);
    EXPECT_EQ(connection->requests.back().id, "a");
    connection->answer(200, "[]");
    EXPECT_THAT(results, ElementsAre("done 200"));
    update();
    connection->answer(412);
    EXPECT_EQ(results.back(), "failed 412");
}

TEST_F(Requests, DeleteIsJudgedByItsStatusAlone) {
    remove();
    EXPECT_EQ(connection->requests.back().kind, xal::Request::REMOVE);
    connection->answer(204);
    EXPECT_THAT(results, ElementsAre("done 204"));
    remove();
    connection->answer(301);
    EXPECT_EQ(results.back(), "failed 301");
}

TEST_F(Requests, ReadGivesTheListAsItCame) {
    read();
    connection->answer(200, R"([{"id":"b"},{"id":"a"}])");
    EXPECT_THAT(results, ElementsAre("read b a 200"));
}

TEST_F(Requests, ReadLeavesOutAndLogsWhatItCannotUse) {
    read();
    connection->answer(200, R"([{"id":"b"},5,{"name":"x"},{"id":"a"}])");
    EXPECT_THAT(results, ElementsAre("read b a 200"));
    EXPECT_EQ(connection->log.lines.size(), 2u);
}

TEST_F(Requests, ReadFailsWhereTheAnswerIsNoList) {
    read();
    connection->answer(200, R"({"id":"b"})");
    EXPECT_THAT(results, ElementsAre("failed 200"));
}

TEST_F(Requests, ReadCarriesFilterAndOptions) {
    ItemDescriptor descriptor;
    descriptor.addFilter("name", "x");
    descriptor.setQueryOptions({"name"}, xal::QueryOptions::EXPAND_ALL);
    service.readElements<Item>(descriptor, nullptr, nullptr);
    EXPECT_EQ(connection->requests.back().filter.getPairs().size(), 1u);
    EXPECT_EQ(connection->requests.back().options.getFields().size(), 1u);
}

TEST_F(Requests, WhatMakingTheBodyThrewTravelsInTheRequest) {
    service.createElement<ThrowingItem>(ThrowingDescriptor(), nullptr, failed);
    ASSERT_TRUE(connection->requests.back().failure);
    EXPECT_THROW(std::rethrow_exception(connection->requests.back().failure), std::runtime_error);
}

TEST_F(Requests, AnExceptionIsNoSuccessWhateverItsStatus) {
    update();
    connection->answers.back()(std::make_shared<const xal::XalException>(200, "update element failed"), nullptr);
    EXPECT_THAT(results, ElementsAre("failed 200"));
}

TEST_F(Requests, WithoutAnErrorHandlerTheLoggerIsTold) {
    service.createElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answer(404);
    service.updateElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answer(404);
    service.deleteElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answer(404);
    service.readElements<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answer(404);
    EXPECT_THAT(connection->log.lines, ElementsAre("error: createElement: error occurred but no error callback given",
                                                   "error: updateElement: error occurred but no error callback given",
                                                   "error: deleteElement: error occurred but no error callback given",
                                                   "error: readElements: error occurred but no error callback given"));
}

TEST_F(Requests, WithoutAnErrorHandlerTheLoggerIsToldOfAnException) {
    const auto thrown = std::make_shared<const xal::XalException>(0, "failed");
    service.createElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answers.back()(thrown, nullptr);
    service.updateElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answers.back()(thrown, nullptr);
    service.deleteElement<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answers.back()(thrown, nullptr);
    service.readElements<Item>(ItemDescriptor(), nullptr, nullptr);
    connection->answers.back()(thrown, nullptr);
    EXPECT_THAT(connection->log.lines,
                ElementsAre("error: createElement: exception error occurred but no error callback given",
                            "error: updateElement: exception error occurred but no error callback given",
                            "error: deleteElement: exception error occurred but no error callback given",
                            "error: readElements: exception error occurred but no error callback given"));
}

TEST_F(Requests, SucceedQuietlyWithoutAResultHandler) {
    service.createElement<Item>(ItemDescriptor(), nullptr, failed);
    connection->answer(201, R"({"id":"a"})");
    service.updateElement<Item>(ItemDescriptor::withId("a"), nullptr, failed);
    connection->answer(200);
    EXPECT_THAT(results, IsEmpty());
    EXPECT_THAT(connection->log.lines, IsEmpty());
}

TEST_F(Requests, AnAnswerMayComeAfterTheServiceObject) {
    auto other = std::make_unique<ItemService>(connection);
    other->updateElement<Item>(ItemDescriptor::withId("a"), done, failed);
    other.reset();
    connection->answer(200);
    EXPECT_THAT(results, ElementsAre("done 200"));
}

TEST(ServiceWithoutAConnection, LetsRequestsFailAtOnce) {
    ItemService service(nullptr);
    int status = -1;
    service.deleteElement<Item>(ItemDescriptor::withId("a"), nullptr,
                                [&](const Response& response) { status = response->getStatusCode(); });
    EXPECT_EQ(status, 0);
}

} // namespace
