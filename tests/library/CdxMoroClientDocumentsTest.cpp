#include "Documents.h"
#include "Elements.h"

#include <CdxMoroClient.h>
#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>

namespace {

using cdxtest::documentOf;
using cdxtest::element;
using cdxtest::sharedElement;
using testing::ElementsAre;
using zepclient::CdxConfigObject;
using zepclient::CdxDataObject;
using zepclient::CdxMoroClient;
using zepclient::CdxTriggerObject;

const char fullData[] =
    R"({"id":"7","name":"A","uri":"/u","authenticode":"au","cdxClientDataReport":["a","b","c"],"correlationTag":"ct",)"
    R"("deliveryMode":"atLeastOnce","elementId":99,"eventId":"ev","isCallbackAbilityRequested":true,)"
    R"("isMixinOfUserIdRequested":false,"isMixinOfVinRequested":true,"messageId":"m","timeToLive":30,)"
    R"("timestamp":6000000000,"timezone":2,"version":"1"})";

const char fullConfig[] =
    R"({"id":"7","name":"A","uri":"/u","elementId":5,"expiryTime":6000000000,"receiveTime":7000000000,)"
    R"("recordBody":"b","recordId":"r","spApplication":"s"})";

const char fullTrigger[] =
    R"({"id":"7","name":"A","uri":"/u","correlationTag":"k","elementId":5,"expirationTime":6000000000,)"
    R"("isTechnicalReceiptRequested":true,"messageContent":"c","messageId":"m","messageSignature":"s",)"
    R"("messageType":"t","receiveTime":7000000000})";

std::string streamed(const oru::Json::Value& document) {
    std::ostringstream stream;
    stream << document;
    return stream.str();
}

std::string without(const std::string& json, const std::string& key) {
    oru::Json::Value document = documentOf(json);
    document.removeMember(key);
    return cdxtest::textOf(document);
}

class CdxMoroClientDocumentsTest : public testing::Test {
protected:
    ~CdxMoroClientDocumentsTest() override {
        client.reset();
        CdxMoroClient::ReleaseCdxMoroClientThread();
    }
    void SetUp() override { log.clear(); }

    cdxtest::LogCapture log;
    std::shared_ptr<CdxMoroClient> client = CdxMoroClient::getInstance();
    oru::Json::Value document;
};

/// The two forms of the data document.
class DataDocumentTest : public CdxMoroClientDocumentsTest, public testing::WithParamInterface<bool> {
protected:
    bool isShared() const { return GetParam(); }
    void populate(const std::string& json) {
        if (isShared())
            client->PopulateCdxDataInJson(sharedElement<CdxDataObject>(json), document);
        else
            client->PopulateCdxDataInJson(element<CdxDataObject>(json), document);
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, DataDocumentTest, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "Shared" : "ByValue"; });

TEST_P(DataDocumentTest, HasEveryFieldOfTheElementTheReportAsOneTextAndTheElementIdOne) {
    populate(fullData);

    EXPECT_EQ(documentOf(R"({"id":"7","name":"A","uri":"/u","authenticode":"au","cdxClientDataReport":"abc",)"
                         R"("correlationTag":"ct","deliveryMode":1,"elementId":1,"eventId":"ev",)"
                         R"("isCallbackAbilityRequested":true,"isMixinOfUserIdRequested":false,)"
                         R"("isMixinOfVinRequested":true,"messageId":"m","timeToLive":30,"timestamp":6000000000,)"
                         R"("timezone":2,"version":"1"})"),
              document);
}

TEST_P(DataDocumentTest, OfAnElementWithoutFieldsHasTheElementIdOnly) {
    populate("{}");

    EXPECT_EQ(documentOf(R"({"elementId":1})"), document);
}

TEST_P(DataDocumentTest, AnEmptyReportIsAnEmptyText) {
    populate(R"({"cdxClientDataReport":[]})");

    EXPECT_EQ(documentOf(R"({"elementId":1,"cdxClientDataReport":""})"), document);
    EXPECT_THAT(
        log.outlines(),
        testing::Contains("7 CdxMoroClient::PopulateCdxDataInJson: Data Report Size =  0").Times(isShared() ? 1 : 0));
}

TEST_P(DataDocumentTest, KeepsOtherMembersOfTheCallersDocument) {
    document = documentOf(R"({"other":1,"version":"old"})");

    populate(R"({"version":"new"})");

    EXPECT_EQ(documentOf(R"({"other":1,"version":"new","elementId":1})"), document);
}

TEST_P(DataDocumentTest, LogsEveryFieldInTheDocumentsOrder) {
    populate(fullData);

    const std::string head = "7 CdxMoroClient::PopulateCdxDataInJson: ";
    std::vector<std::string> expected{
        head,
        head + "Version valid ",
        head + "URI valid ",
        head + "ID valid ",
        head + "Msg Id valid ",
        head + "Name valid ",
        head + "AuthCode is valid ",
        head + "CorTag is valid ",
        head + "DelMode is valid ",
        head + "Event Id is valid ",
        head + "Callback is valid ",
        head + "Mixin User valid ",
        head + "Mixin VIN valid ",
        isShared() ? head + "TTL valid " : "5 CdxMoroClient::PopulateCdxDataInJson TTL valid ",
        head + "Timestamp valid ",
        head + "Timezone valid ",
    };
    if (isShared()) {
        expected.push_back(head + "CDX Client Data Report Valid");
        expected.push_back(head + "Data Report Size =  3");
    }
    expected.push_back(head + "New JSON DATA =" + streamed(document));
    EXPECT_EQ(expected, log.outlines());
}

TEST_P(DataDocumentTest, LogsUnderItsOwnSignature) {
    populate(R"({"version":"1"})");

    const std::string argument = isShared() ? "std::shared_ptr<const " : "CdxDataObject";
    for (const cdxtest::LogLine& line : log.lines())
        EXPECT_THAT(line.signature, testing::HasSubstr(argument));
    EXPECT_EQ(isShared(), log.lines().at(0).signature.find("shared_ptr") != std::string::npos);
}

TEST_P(DataDocumentTest, AbsentFieldsAreNotLogged) {
    populate("{}");

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxMoroClient::PopulateCdxDataInJson: ",
                            "7 CdxMoroClient::PopulateCdxDataInJson: New JSON DATA =" + streamed(document)));
}

TEST_F(CdxMoroClientDocumentsTest, AConfigurationDocumentHasEveryField) {
    client->PopulateCdxConfigInJson(element<CdxConfigObject>(fullConfig), document);

    EXPECT_EQ(documentOf(fullConfig), document);
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxMoroClient::PopulateCdxConfigInJson: ",
                            "7 CdxMoroClient::PopulateCdxConfigInJson: New JSON DATA =" + streamed(document)));
}

TEST_F(CdxMoroClientDocumentsTest, ATriggerDocumentHasEveryField) {
    client->PopulateCdxTriggerInJson(element<CdxTriggerObject>(fullTrigger), document);

    EXPECT_EQ(documentOf(fullTrigger), document);
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxMoroClient::PopulateCdxTriggerInJson: ",
                            "7 CdxMoroClient::PopulateCdxTriggerInJson: New JSON Trigger =" + streamed(document)));
}

/// Each absent field ends the document there; what stands before it in this order was set.
void expectHalfFilled(const std::vector<std::string>& keysInOrder, const std::string& full,
                      const std::function<void(const std::string&, oru::Json::Value&)>& populate) {
    oru::Json::Value expected(oru::Json::nullValue);
    for (const std::string& key : keysInOrder) {
        oru::Json::Value document;
        try {
            populate(without(full, key), document);
            ADD_FAILURE() << "nothing was thrown without " << key;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ("getValue called on uninitialized Optional", error.what());
        }
        EXPECT_EQ(expected, document) << "without " << key;
        expected[key] = documentOf(full)[key];
    }
}

TEST_F(CdxMoroClientDocumentsTest, AnAbsentFieldOfARecordThrowsAndLeavesTheDocumentHalfFilled) {
    expectHalfFilled(
        {"name", "id", "uri", "elementId", "expiryTime", "receiveTime", "recordBody", "recordId", "spApplication"},
        fullConfig, [this](const std::string& json, oru::Json::Value& target) {
            client->PopulateCdxConfigInJson(element<CdxConfigObject>(json), target);
        });
}

TEST_F(CdxMoroClientDocumentsTest, AnAbsentFieldOfATriggerThrowsAndLeavesTheDocumentHalfFilled) {
    expectHalfFilled({"name", "id", "uri", "elementId", "expirationTime", "receiveTime", "messageContent",
                      "messageSignature", "messageType", "messageId", "isTechnicalReceiptRequested", "correlationTag"},
                     fullTrigger, [this](const std::string& json, oru::Json::Value& target) {
                         client->PopulateCdxTriggerInJson(element<CdxTriggerObject>(json), target);
                     });
}

} // namespace
