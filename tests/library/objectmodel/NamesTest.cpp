// The 16 name tables, the enums' numbers and their texts.
#include "ElementTables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace {

using namespace cdxtest;
using S = Service;

template <class Enum>
void expectTables(const std::vector<std::string>& literals, const std::map<Enum, const char*>& toLiteral,
                  const std::map<const char*, Enum, xalobjects_GX2::cmp_str>& toValue) {
    static_assert(std::is_same_v<std::underlying_type_t<Enum>, std::int32_t>);
    static_assert(std::is_convertible_v<Enum, int>, "unscoped");
    ASSERT_EQ(toLiteral.size(), literals.size());
    ASSERT_EQ(toValue.size(), literals.size());
    for (std::size_t number = 0; number < literals.size(); ++number) {
        EXPECT_EQ(toLiteral.at(static_cast<Enum>(number)), literals[number]);
        EXPECT_EQ(toValue.at(literals[number].c_str()), static_cast<Enum>(number)) << literals[number];
    }
}

template <class Element>
std::vector<std::string> keysAndIdentity() {
    std::vector<std::string> keys;
    for (const auto& row : ElementTable<Element>::rows())
        keys.push_back(row.key);
    keys.insert(keys.end(), {"id", "name", "uri"});
    return keys;
}

TEST(FieldNames, AreTheKeysThenTheIdentityForEachElement) {
    expectTables<S::CDXDATA_FIELDS>(keysAndIdentity<S::CdxData>(), S::mapCdxDataFields2String,
                                    S::mapString2CdxDataFields);
    expectTables<S::CDXCLIENTSTATE_FIELDS>(keysAndIdentity<S::CdxClientState>(), S::mapCdxClientStateFields2String,
                                           S::mapString2CdxClientStateFields);
    expectTables<S::CDXCONFIG_FIELDS>(keysAndIdentity<S::CdxConfig>(), S::mapCdxConfigFields2String,
                                      S::mapString2CdxConfigFields);
    expectTables<S::CDXTRIGGER_FIELDS>(keysAndIdentity<S::CdxTrigger>(), S::mapCdxTriggerFields2String,
                                       S::mapString2CdxTriggerFields);
    expectTables<S::CDXMASTERCONTROL_FIELDS>(keysAndIdentity<S::CdxMasterControl>(),
                                             S::mapCdxMasterControlFields2String, S::mapString2CdxMasterControlFields);
}

TEST(FieldNames, NumberTheSameKeyDifferentlyInDifferentElements) {
    EXPECT_EQ(S::mapString2CdxDataFields.at("elementId"), 4);
    EXPECT_EQ(S::mapString2CdxClientStateFields.at("elementId"), 1);
    EXPECT_EQ(S::mapString2CdxTriggerFields.at("elementId"), 1);
    EXPECT_EQ(S::mapString2CdxConfigFields.at("elementId"), 0);
    EXPECT_EQ(S::mapString2CdxMasterControlFields.at("elementId"), 2);
}

TEST(FieldNames, AreTheEnumeratorsNames) {
    EXPECT_EQ(S::CDXDATA_FIELDS_timeToLive, 10);
    EXPECT_EQ(S::CDXDATA_FIELDS_timestamp, 11);
    EXPECT_EQ(S::CDXDATA_FIELDS_uri, 16);
    EXPECT_EQ(S::CDXTRIGGER_FIELDS_id, 9);
}

TEST(ValueNames, KeepTheirDeclarationOrder) {
    expectTables<S::CDXDATA_DELIVERYMODE>({"atMostOnce", "atLeastOnce"}, S::mapCdxDataDeliveryMode2String,
                                          S::mapString2CdxDataDeliveryMode);
    expectTables<S::CDXMASTERCONTROL_BACKENDCHANNELCONTROL>({"okTalkNormal", "pauseOtaDisconnected", "pauseMasterBusy",
                                                             "pauseDataPrivacyProtection", "stopProtocolViolation"},
                                                            S::mapCdxMasterControlBackendChannelControl2String,
                                                            S::mapString2CdxMasterControlBackendChannelControl);
    expectTables<S::CDXMASTERCONTROL_DATADELIVERYRESULT>(
        {"okDelivered", "failExpired", "failOffline", "failPrivacy", "failSecurity", "failUnknownClient",
         "failProtocolViolation", "failMessageTooBig"},
        S::mapCdxMasterControlDataDeliveryResult2String, S::mapString2CdxMasterControlDataDeliveryResult);
}

TEST(NameTables, AreOrderedByTheCharactersOfTheirLiterals) {
    const xalobjects_GX2::cmp_str less;
    EXPECT_TRUE(less("timeToLive", "timestamp"));
    EXPECT_FALSE(less("same", std::string("same").c_str()));
    const char* before = "";
    for (const auto& [literal, value] : S::mapString2CdxMasterControlDataDeliveryResult) {
        EXPECT_LT(std::strcmp(before, literal), 0);
        before = literal;
    }
}

TEST(NameTables, FindALiteralByItsCharactersAndNotItsAddress) {
    const std::string literal = "pauseMasterBusy";
    EXPECT_EQ(S::mapString2CdxMasterControlBackendChannelControl.at(literal.c_str()), 2);
}

TEST(ToString, WritesAKnownValueAsLiteralAndNumber) {
    EXPECT_EQ(S::to_string(S::CDXDATA_DELIVERYMODE_atMostOnce), "atMostOnce(0)");
    EXPECT_EQ(S::to_string(S::CDXDATA_DELIVERYMODE_atLeastOnce), "atLeastOnce(1)");
    EXPECT_EQ(S::to_string(S::CDXMASTERCONTROL_BACKENDCHANNELCONTROL_okTalkNormal), "okTalkNormal(0)");
    EXPECT_EQ(S::to_string(S::CDXMASTERCONTROL_BACKENDCHANNELCONTROL_stopProtocolViolation),
              "stopProtocolViolation(4)");
    EXPECT_EQ(S::to_string(S::CDXMASTERCONTROL_DATADELIVERYRESULT_okDelivered), "okDelivered(0)");
    EXPECT_EQ(S::to_string(S::CDXMASTERCONTROL_DATADELIVERYRESULT_failMessageTooBig), "failMessageTooBig(7)");
}

TEST(ToString, WritesTheTablesSizeForAnyUnknownValue) {
    for (const int number : {-1, 2, 3, 1000}) {
        EXPECT_EQ(S::to_string(static_cast<S::CDXDATA_DELIVERYMODE>(number)), "unknown value(2)");
    }
    for (const int number : {-1, 5, 8})
        EXPECT_EQ(S::to_string(static_cast<S::CDXMASTERCONTROL_BACKENDCHANNELCONTROL>(number)), "unknown value(5)");
    for (const int number : {-1, 8, 2147483647})
        EXPECT_EQ(S::to_string(static_cast<S::CDXMASTERCONTROL_DATADELIVERYRESULT>(number)), "unknown value(8)");
}

TEST(ToString, WritesAnOptionalAsItsValueOrInvalid) {
    using xalutil::Optional;
    EXPECT_EQ(S::to_string(Optional<S::CDXDATA_DELIVERYMODE>()), "optional invalid");
    EXPECT_EQ(S::to_string(Optional<S::CDXMASTERCONTROL_BACKENDCHANNELCONTROL>()), "optional invalid");
    EXPECT_EQ(S::to_string(Optional<S::CDXMASTERCONTROL_DATADELIVERYRESULT>()), "optional invalid");
    EXPECT_EQ(S::to_string(Optional<S::CDXDATA_DELIVERYMODE>(S::CDXDATA_DELIVERYMODE_atLeastOnce)), "atLeastOnce(1)");
    EXPECT_EQ(S::to_string(Optional<S::CDXDATA_DELIVERYMODE>(static_cast<S::CDXDATA_DELIVERYMODE>(7))),
              "unknown value(2)");
}

} // namespace
