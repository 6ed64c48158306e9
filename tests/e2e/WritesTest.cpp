#include "EndToEnd.h"
#include "LogLines.h"

namespace cdxtest {
namespace {

using oru::Json::Value;

Value configRecord() {
    return json(R"({"name":"navigation","recordId":"r1","recordBody":"body","spApplication":"app",
                    "expiryTime":1893456000000,"receiveTime":1700000000000})");
}

Value triggerMessage() {
    return json(R"({"name":"navigation","messageId":"m1","messageType":"upload","messageContent":"now",
                    "messageSignature":"s","correlationTag":"t","isTechnicalReceiptRequested":true,
                    "expirationTime":1893456000000,"receiveTime":1700000000000})");
}

Value masterControl() {
    return json(R"({"name":"navigation","eventTicket":"none","dataDeliveryResult":0,"backendChannelControl":2,
                    "permittedDataType":["telemetry","diagnosis"]})");
}

/// More than the service takes in one element.
std::string tooLarge() {
    return std::string(2 * 1024 * 1024, 'x');
}

/// An application that was told of its client, and the writes that tests make more than once.
class Writes : public EndToEnd {
protected:
    Writes() { startWith("navigation"); }

    Value createConfig() {
        client().CreateCdxConfigElement(configRecord());
        return told("config created", "navigation").document;
    }
    Value createTrigger() {
        client().CreateCdxTriggerElement(triggerMessage());
        return told("trigger created", "navigation").document;
    }
    std::string createControl() {
        Value control = masterControl();
        client().CreateCdxMasterControlElement(control);
        return told("control created", "navigation").document.asString();
    }
};

TEST_F(Writes, ACreatedConfigurationRecordIsInTheServiceUnderTheIdThatWasTold) {
    const Value result = createConfig();
    EXPECT_EQ(result["name"].asString(), "navigation");
    const Value stored = vehicle().list("cdxConfig")[0];
    EXPECT_EQ(stored["id"], result["id"]);
    EXPECT_EQ(stored["uri"], result["uri"]);
    EXPECT_EQ(stored["name"].asString(), "navigation");
    EXPECT_EQ(stored["recordBody"].asString(), "body");
    EXPECT_EQ(stored["expiryTime"].asInt64(), 1893456000000);
}

TEST_F(Writes, AnUpdatedConfigurationRecordIsChangedInTheService) {
    Value record = configRecord();
    record["id"] = createConfig()["id"];
    record["recordBody"] = "other";
    client().UpdateCdxConfigElement(record);
    EXPECT_TRUE(told("config updated", "navigation").success);
    EXPECT_EQ(vehicle().list("cdxConfig")[0]["recordBody"].asString(), "other");
}

TEST_F(Writes, AnUpdateOfAnUnknownConfigurationRecordIsToldAsFailed) {
    Value record = configRecord();
    record["id"] = "nobody";
    client().UpdateCdxConfigElement(record);
    EXPECT_FALSE(told("config updated", "navigation").success);
}

TEST_F(Writes, ARefusedConfigurationRecordIsToldWithItsNameOnly) {
    Value record = configRecord();
    record["recordBody"] = tooLarge();
    client().CreateCdxConfigElement(record);
    const Told created = told("config created", "navigation");
    EXPECT_FALSE(created.success);
    EXPECT_EQ(created.document.getMemberNames(), Value::Members{"name"});
}

TEST_F(Writes, ADeletedConfigurationRecordIsGoneFromTheService) {
    Value request;
    request["id"] = createConfig()["id"];
    client().DeleteCdxConfigElement(request);
    // Requests are made in order, so the answer to the next one says that the delete was answered.
    client().UpdateCdxConfigElement(request);
    told("config created", "navigation");
    client().CreateCdxTriggerElement(triggerMessage());
    told("trigger created", "navigation");
    EXPECT_EQ(vehicle().list("cdxConfig").size(), 0U);
}

TEST_F(Writes, ADeleteWithAnUnknownIdOrNoneIsLoggedAndDeletesNothing) {
    createConfig();
    LogLines log(3);
    client().DeleteCdxConfigElement(json(R"({"id":"nobody"})"));
    log.waitForLine("Error in deleting cdx Config element, response code = 404");
    client().DeleteCdxConfigElement(json(R"({"name":"navigation"})"));
    log.waitForLine("Error in deleting cdx Config element, response code = 0");
    EXPECT_EQ(vehicle().list("cdxConfig").size(), 1U);
}

TEST_F(Writes, ACreatedTriggerMessageIsInTheService) {
    const Value result = createTrigger();
    const Value stored = vehicle().list("cdxTrigger")[0];
    EXPECT_EQ(stored["id"], result["id"]);
    EXPECT_EQ(stored["messageContent"].asString(), "now");
    EXPECT_TRUE(stored["isTechnicalReceiptRequested"].asBool());
    EXPECT_EQ(stored["expirationTime"].asInt64(), 1893456000000);
}

TEST_F(Writes, AnUpdatedTriggerMessageIsChangedInTheService) {
    Value trigger = triggerMessage();
    trigger["id"] = createTrigger()["id"];
    trigger["messageContent"] = "later";
    client().UpdateCdxTriggerElement(trigger);
    EXPECT_TRUE(told("trigger updated", "navigation").success);
    EXPECT_EQ(vehicle().list("cdxTrigger")[0]["messageContent"].asString(), "later");
}

TEST_F(Writes, ARefusedTriggerMessageIsToldWithItsNameOnly) {
    Value trigger = triggerMessage();
    trigger["messageContent"] = tooLarge();
    client().CreateCdxTriggerElement(trigger);
    const Told created = told("trigger created", "navigation");
    EXPECT_FALSE(created.success);
    EXPECT_EQ(created.document.getMemberNames(), Value::Members{"name"});
}

TEST_F(Writes, AnUpdateOfAnUnknownTriggerMessageIsToldAsFailed) {
    Value trigger = triggerMessage();
    trigger["id"] = "nobody";
    client().UpdateCdxTriggerElement(trigger);
    EXPECT_FALSE(told("trigger updated", "navigation").success);
}

TEST_F(Writes, ACreatedMasterControlIsInTheServiceWithItsLiterals) {
    const std::string id = createControl();
    const Value stored = vehicle().list("cdxMasterControls")[0];
    EXPECT_EQ(stored["id"].asString(), id);
    EXPECT_EQ(stored["backendChannelControl"].asString(), "pauseMasterBusy");
    EXPECT_EQ(stored["permittedDataType"].size(), 2U);
}

TEST_F(Writes, ThereIsOneMasterControlForEachClient) {
    const std::string first = createControl();
    Value control = masterControl();
    client().CreateCdxMasterControlElement(control);
    EXPECT_EQ(told("control created", "navigation", 2).document.asString(), first);
    EXPECT_EQ(vehicle().list("cdxMasterControls").size(), 1U);
}

TEST_F(Writes, AMasterControlUpdateSettlesTheDataMessageWithItsTicket) {
    client().SubscribeToCdxDataObject();
    vehicle().postData("navigation", "ticket-1");
    vehicle().postData("navigation", "ticket-2");
    told("data", "navigation", 2); // or the service may settle the message before it subscribes
    Value control = masterControl();
    control["id"] = createControl();
    control["eventTicket"] = "ticket-1";
    client().UpdateCdxMasterControlElement(control);
    EXPECT_TRUE(told("control updated", "navigation").success);
    const Value left = vehicle().list("cdxData");
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left[0]["eventId"].asString(), "ticket-2");

    vehicle().postData("navigation", "ticket-3");
    std::vector<std::string> events;
    for (std::size_t i = 1; i <= 3; ++i)
        events.push_back(told("data", "navigation", i).document["eventId"].asString());
    EXPECT_EQ(events, (std::vector<std::string>{"ticket-1", "ticket-2", "ticket-3"})) << "its removal is no news";
}

TEST_F(Writes, AnUpdateOfAnUnknownMasterControlIsToldAsFailed) {
    Value control = masterControl();
    control["id"] = "nobody";
    client().UpdateCdxMasterControlElement(control);
    EXPECT_FALSE(told("control updated", "navigation").success);
}

TEST_F(Writes, ARefusedMasterControlIsToldAsFailed) {
    Value control = masterControl();
    control["eventTicket"] = tooLarge();
    client().CreateCdxMasterControlElement(control);
    EXPECT_FALSE(told("control created", "navigation").success);
}

TEST_F(Writes, AWriteWhileTheServiceIsAwayIsToldAsFailed) {
    m_service.stop();
    told("gone", "navigation");
    client().CreateCdxConfigElement(configRecord());
    EXPECT_FALSE(told("config created", "navigation").success);
}

} // namespace
} // namespace cdxtest
