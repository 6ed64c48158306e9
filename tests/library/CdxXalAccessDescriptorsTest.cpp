#include "AccessFixture.h"

#include <json/json.h>

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using CardataexchangeService = xalobjects_GX2::CardataexchangeService;
using Config = CardataexchangeService::CdxConfigDescriptor;
using Trigger = CardataexchangeService::CdxTriggerDescriptor;
using MasterControl = CardataexchangeService::CdxMasterControlDescriptor;

class CdxXalAccessDescriptorsTest : public cdxtest::AccessFixture {
protected:
    Config config(const std::string& json) {
        Config descriptor;
        oru::Json::Value document = cdxtest::documentOf(json);
        access->PopulateConfigDescFromJson(descriptor, document, "Prefix");
        return descriptor;
    }
    Trigger trigger(const std::string& json) {
        Trigger descriptor;
        oru::Json::Value document = cdxtest::documentOf(json);
        access->PopulateTriggerDescFromJson(descriptor, document, "Prefix");
        return descriptor;
    }
    MasterControl masterControl(const std::string& json) {
        MasterControl descriptor;
        oru::Json::Value document = cdxtest::documentOf(json);
        access->PopulateMasterCtlDescFromJson(descriptor, document, "Prefix");
        return descriptor;
    }
};

TEST_F(CdxXalAccessDescriptorsTest, AConfigurationRecordTakesEveryKeyOfItsTable) {
    const Config descriptor =
        config(R"({"name":"A","id":"7","uri":"/u","elementId":5,"expiryTime":6000000000,"receiveTime":7000000000,)"
               R"("recordBody":"b","recordId":"r","spApplication":"s"})");

    EXPECT_EQ(R"({"id":"7","name":"Prefix>>A","uri":"/u","elementId":5,"expiryTime":6000000000,)"
              R"("receiveTime":7000000000,"recordBody":"b","recordId":"r","spApplication":"s"})",
              descriptor.getAsJson()->toString());
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::PopulateConfigDescFromJson: "));
}

TEST_F(CdxXalAccessDescriptorsTest, ATriggerTakesEveryKeyOfItsTable) {
    const Trigger descriptor =
        trigger(R"({"name":"A","id":"7","uri":"/u","elementId":5,"expirationTime":6000000000,"receiveTime":7000000000,)"
                R"("messageContent":"c","messageSignature":"s","messageType":"t","messageId":"m",)"
                R"("correlationTag":"k","isTechnicalReceiptRequested":true})");

    EXPECT_EQ(R"({"id":"7","name":"Prefix>>A","uri":"/u","correlationTag":"k","elementId":5,)"
              R"("expirationTime":6000000000,"isTechnicalReceiptRequested":true,"messageContent":"c","messageId":"m",)"
              R"("messageSignature":"s","messageType":"t","receiveTime":7000000000})",
              descriptor.getAsJson()->toString());
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::PopulateTriggerDescFromJson: "));
}

TEST_F(CdxXalAccessDescriptorsTest, AMasterControlTakesEveryKeyOfItsTable) {
    const MasterControl descriptor =
        masterControl(R"({"name":"A","id":"7","uri":"/u","eventTicket":"e","elementId":5,"dataDeliveryResult":2,)"
                      R"("backendChannelControl":4,"permittedDataType":["x","y"]})");

    EXPECT_EQ(R"({"id":"7","name":"Prefix>>A","uri":"/u","backendChannelControl":"stopProtocolViolation",)"
              R"("dataDeliveryResult":"failOffline","elementId":5,"eventTicket":"e","permittedDataType":["x","y"]})",
              descriptor.getAsJson()->toString());
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalAccess::PopulateMasterCtlDescFromJson: ",
                            "5 CdxXalAccess::PopulateMasterCtlDescFromJson Given Permitted data type = 2",
                            "7 CdxXalAccess::PopulateMasterCtlDescFromJson: Given Permitted data type is Array ",
                            "7 CdxXalAccess::PopulateMasterCtlDescFromJson: Pushing the data type for update = x",
                            "7 CdxXalAccess::PopulateMasterCtlDescFromJson: Pushing the data type for update = y",
                            "5 CdxXalAccess::PopulateMasterCtlDescFromJson Size of permistted data type = 2"));
}

/// The keys whose setters were called, in that order.
std::vector<std::string> keysSet(const xal::XalFilter& filter) {
    std::vector<std::string> keys;
    for (const auto& pair : filter.getPairs())
        keys.push_back(pair.first);
    return keys;
}

TEST_F(CdxXalAccessDescriptorsTest, KeysAreTakenInTheirTablesOrder) {
    EXPECT_THAT(keysSet(config(R"({"expiryTime":1,"elementId":1,"recordBody":"b","receiveTime":1,"recordId":"r",)"
                               R"("spApplication":"s"})")
                            .getFilter()),
                ElementsAre("elementId", "expiryTime", "receiveTime", "recordBody", "recordId", "spApplication"));
    EXPECT_THAT(keysSet(trigger(R"({"correlationTag":"k","elementId":1,"expirationTime":1,"messageContent":"c",)"
                                R"("isTechnicalReceiptRequested":true,"messageId":"m","messageSignature":"s",)"
                                R"("messageType":"t","receiveTime":1})")
                            .getFilter()),
                ElementsAre("elementId", "expirationTime", "receiveTime", "messageContent", "messageSignature",
                            "messageType", "messageId", "correlationTag", "isTechnicalReceiptRequested"));
    EXPECT_THAT(
        keysSet(masterControl(R"({"backendChannelControl":1,"dataDeliveryResult":1,"elementId":1,)"
                              R"("eventTicket":"e","permittedDataType":["x"]})")
                    .getFilter()),
        ElementsAre("eventTicket", "elementId", "dataDeliveryResult", "backendChannelControl", "permittedDataType"));
}

TEST_F(CdxXalAccessDescriptorsTest, AbsentKeysLeaveEveryFieldUnset) {
    EXPECT_EQ("{}", config("{}").getAsJson()->toString());
    EXPECT_EQ("{}", trigger("{}").getAsJson()->toString());
    EXPECT_EQ("{}", masterControl("{}").getAsJson()->toString());
    EXPECT_EQ("{}", config("null").getAsJson()->toString());
}

TEST_F(CdxXalAccessDescriptorsTest, ATriggersExpirationAndARecordsExpiryAreKeysOfTheirOwn) {
    EXPECT_FALSE(config(R"({"expirationTime":1})").getExpiryTime().isValid());
    EXPECT_FALSE(trigger(R"({"expiryTime":1})").getExpirationTime().isValid());
}

TEST_F(CdxXalAccessDescriptorsTest, ValuesAreConvertedAsTheJsonLibraryDoes) {
    const Config descriptor = config(R"({"recordBody":12,"elementId":3.0,"expiryTime":null,"recordId":true})");

    EXPECT_EQ("12", descriptor.getRecordBody().getValue());
    EXPECT_EQ(3, descriptor.getElementId().getValue());
    EXPECT_EQ(0, descriptor.getExpiryTime().getValue());
    EXPECT_EQ("true", descriptor.getRecordId().getValue());
}

TEST_F(CdxXalAccessDescriptorsTest, AValueThatCannotBeConvertedThrowsTheJsonLibrarysException) {
    EXPECT_THROW(config(R"({"elementId":"5"})"), Json::Exception);
    EXPECT_THROW(config(R"({"elementId":2147483648})"), Json::Exception) << "read as a 32-bit number";
    EXPECT_THROW(config(R"({"recordBody":{}})"), Json::Exception);
    EXPECT_THROW(trigger(R"({"isTechnicalReceiptRequested":"yes"})"), Json::Exception);
    EXPECT_THROW(config("[]"), Json::Exception);
}

TEST_F(CdxXalAccessDescriptorsTest, AnEnumNumberWithoutALiteralThrows) {
    EXPECT_THROW(masterControl(R"({"dataDeliveryResult":8})"), std::out_of_range);
    EXPECT_THROW(masterControl(R"({"backendChannelControl":-1})"), std::out_of_range);
}

TEST_F(CdxXalAccessDescriptorsTest, PermittedDataTypesGivenAsOneStringAreIgnored) {
    EXPECT_FALSE(masterControl(R"({"permittedDataType":"x"})").getPermittedDataType().isValid());

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalAccess::PopulateMasterCtlDescFromJson: ",
                            "5 CdxXalAccess::PopulateMasterCtlDescFromJson Given Permitted data type = 0"));
}

TEST_F(CdxXalAccessDescriptorsTest, PermittedDataTypesGivenAsAnEmptyArrayAreAnEmptyList) {
    const MasterControl descriptor = masterControl(R"({"permittedDataType":[]})");

    EXPECT_THAT(descriptor.getPermittedDataType().getValue(), IsEmpty());
    EXPECT_THAT(log.outlines(5),
                ElementsAre("5 CdxXalAccess::PopulateMasterCtlDescFromJson Given Permitted data type = 0",
                            "5 CdxXalAccess::PopulateMasterCtlDescFromJson Size of permistted data type = 0"));
}

} // namespace
