// Every warning to the letter, with its head.
#include "ElementTables.h"
#include "WarningsRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

using namespace cdxtest;
using testing::ElementsAre;
using testing::StartsWith;

/// What the JSON library says when the key is read as another type than it has.
template <class Read>
std::string reasonOf(const std::string& text, Read read) {
    const auto object = xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
    try {
        read(*object);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

class AWarning : public testing::Test {
protected:
    WarningsRecorder m_warnings;
};

TEST_F(AWarning, StandsForEachUnreadableFieldOfDataInFieldOrder) {
    elementFrom<Service::CdxData>(
        R"({"version":1,"timezone":"","timestamp":"","timeToLive":"","messageId":1,"isMixinOfVinRequested":1,)"
        R"("isMixinOfUserIdRequested":1,"isCallbackAbilityRequested":1,"eventId":1,"elementId":"","deliveryMode":"",)"
        R"("correlationTag":1,"cdxClientDataReport":[1],"authenticode":1})");
    EXPECT_THAT(m_warnings.texts(),
                ElementsAre(StartsWith("could not get authenticode as std::string, exception="),
                            StartsWith("could not get cdxClientDataReport as std::string, exception="),
                            StartsWith("could not get correlationTag as std::string, exception="),
                            "unknown enum value in deliveryMode",
                            StartsWith("could not get elementId as int64_t, exception="),
                            StartsWith("could not get eventId as std::string, exception="),
                            StartsWith("could not get isCallbackAbilityRequested as bool, exception="),
                            StartsWith("could not get isMixinOfUserIdRequested as bool, exception="),
                            StartsWith("could not get isMixinOfVinRequested as bool, exception="),
                            StartsWith("could not get messageId as std::string, exception="),
                            StartsWith("could not get timeToLive as int64_t, exception="),
                            StartsWith("could not get timestamp as int64_t, exception="),
                            StartsWith("could not get timezone as int64_t, exception="),
                            StartsWith("could not get version as std::string, exception=")));
}

TEST_F(AWarning, StandsForEachUnreadableFieldOfAClientStateInFieldOrder) {
    elementFrom<Service::CdxClientState>(R"({"offeredDataType":[1],"isShutdownRequested":1,"isNewConfigRequested":1,)"
                                         R"("elementId":"","canonicalName":1})");
    EXPECT_THAT(m_warnings.texts(),
                ElementsAre(StartsWith("could not get canonicalName as std::string, exception="),
                            StartsWith("could not get elementId as int64_t, exception="),
                            StartsWith("could not get isNewConfigRequested as bool, exception="),
                            StartsWith("could not get isShutdownRequested as bool, exception="),
                            StartsWith("could not get offeredDataType as std::string, exception=")));
}

TEST_F(AWarning, StandsForEachUnreadableFieldOfAConfigurationInFieldOrder) {
    elementFrom<Service::CdxConfig>(
        R"({"spApplication":1,"recordId":1,"recordBody":1,"receiveTime":"","expiryTime":"","elementId":""})");
    EXPECT_THAT(m_warnings.texts(), ElementsAre(StartsWith("could not get elementId as int64_t, exception="),
                                                StartsWith("could not get expiryTime as int64_t, exception="),
                                                StartsWith("could not get receiveTime as int64_t, exception="),
                                                StartsWith("could not get recordBody as std::string, exception="),
                                                StartsWith("could not get recordId as std::string, exception="),
                                                StartsWith("could not get spApplication as std::string, exception=")));
}

TEST_F(AWarning, StandsForEachUnreadableFieldOfATriggerInFieldOrder) {
    elementFrom<Service::CdxTrigger>(
        R"({"receiveTime":"","messageType":1,"messageSignature":1,"messageId":1,"messageContent":1,)"
        R"("isTechnicalReceiptRequested":1,"expirationTime":"","elementId":"","correlationTag":1})");
    EXPECT_THAT(m_warnings.texts(),
                ElementsAre(StartsWith("could not get correlationTag as std::string, exception="),
                            StartsWith("could not get elementId as int64_t, exception="),
                            StartsWith("could not get expirationTime as int64_t, exception="),
                            StartsWith("could not get isTechnicalReceiptRequested as bool, exception="),
                            StartsWith("could not get messageContent as std::string, exception="),
                            StartsWith("could not get messageId as std::string, exception="),
                            StartsWith("could not get messageSignature as std::string, exception="),
                            StartsWith("could not get messageType as std::string, exception="),
                            StartsWith("could not get receiveTime as int64_t, exception=")));
}

TEST_F(AWarning, StandsForEachUnreadableFieldOfAMasterControlInFieldOrder) {
    elementFrom<Service::CdxMasterControl>(
        R"({"permittedDataType":[1],"eventTicket":1,"elementId":"","dataDeliveryResult":"","backendChannelControl":""})");
    EXPECT_THAT(m_warnings.texts(),
                ElementsAre("unknown enum value in backendChannelControl", "unknown enum value in dataDeliveryResult",
                            StartsWith("could not get elementId as int64_t, exception="),
                            StartsWith("could not get eventTicket as std::string, exception="),
                            StartsWith("could not get permittedDataType as std::string, exception=")));
}

TEST_F(AWarning, EndsWithTheReadersReason) {
    const std::string text = R"({"elementId":"x","recordId":5})";
    elementFrom<Service::CdxConfig>(text);
    EXPECT_THAT(m_warnings.texts(),
                ElementsAre("could not get elementId as int64_t, exception=" +
                                reasonOf(text, [](const auto& object) { object.getInt64("elementId"); }),
                            "could not get recordId as std::string, exception=" +
                                reasonOf(text, [](const auto& object) { object.getString("recordId"); })));
}

TEST_F(AWarning, ForAnArraysEntryEndsWithTheReasonOfThatEntry) {
    const std::string text = R"({"offeredDataType":["a",{}]})";
    elementFrom<Service::CdxClientState>(text);
    EXPECT_THAT(m_warnings.texts(), ElementsAre("could not get offeredDataType as std::string, exception=" +
                                                reasonOf(text, [](const auto& object) {
                                                    object.getArray("offeredDataType")->getString(1);
                                                })));
}

TEST_F(AWarning, IsOneLineWithPlaceAndTextAndTheTriggersFillGoesOn) {
    const auto element =
        elementFrom<Service::CdxTrigger>(R"({"expirationTime":"soon","isTechnicalReceiptRequested":true})");
    EXPECT_TRUE(element.getIsTechnicalReceiptRequested().getValue());
    const auto lines = m_warnings.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines.front(), StartsWith("libCdxMoroClient/src/Cardataexchange:"));
    EXPECT_THAT(lines.front(), testing::HasSubstr(" could not get expirationTime as int64_t, exception="));
    EXPECT_EQ(lines.front().find('\n'), std::string::npos);
}

TEST_F(AWarning, NamesTheLineOfItsStatementInTheSource) {
    elementFrom<Service::CdxData>(R"({"deliveryMode":"?","elementId":"?","cdxClientDataReport":[1]})");
    elementFrom<Service::CdxData>(R"({"deliveryMode":1})");
    std::vector<std::string> source;
    std::ifstream file(CDX_MODEL_SOURCE);
    for (std::string line; std::getline(file, line);)
        source.push_back(line);

    const auto lines = m_warnings.lines();
    ASSERT_EQ(lines.size(), 4U);
    const std::string statements[] = {R"( as std::string, exception=", error.what())", R"("unknown enum value in ")",
                                      R"(typeWord<T>(), ", exception=", error.what())",
                                      R"("could not fill object from json, exception occured")"};
    for (std::size_t index = 0; index < 4; ++index) {
        const auto number = std::stoul(lines[index].substr(lines[index].find(':') + 1));
        ASSERT_LE(number, source.size());
        EXPECT_NE(source[number - 1].find(statements[index]), std::string::npos) << lines[index];
    }
}

} // namespace
