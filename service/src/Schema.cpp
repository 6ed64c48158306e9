#include "Schema.h"

namespace cdxservice {

namespace {

ResourceSchema resource(std::string_view name, std::vector<Field> own) {
    ResourceSchema result;
    result.name = name;
    result.fields = {{"id"}, {"name"}, {"uri"}};
    result.fields.insert(result.fields.end(), own.begin(), own.end());
    return result;
}

Schema makeSchema() {
    Schema all = {
        resource("cdxData",
                 {
                     {"authenticode", Kind::Text},
                     {"cdxClientDataReport", Kind::TextList},
                     {"correlationTag", Kind::Text},
                     {"deliveryMode", Kind::Literal, {"atMostOnce", "atLeastOnce"}},
                     {"elementId", Kind::Integer},
                     {"eventId", Kind::Text},
                     {"isCallbackAbilityRequested", Kind::Flag},
                     {"isMixinOfUserIdRequested", Kind::Flag},
                     {"isMixinOfVinRequested", Kind::Flag},
                     {"messageId", Kind::Text},
                     {"timeToLive", Kind::Integer},
                     {"timestamp", Kind::Integer},
                     {"timezone", Kind::Integer},
                     {"version", Kind::Text},
                 }),
        resource("cdxClientStates",
                 {
                     {"canonicalName", Kind::Text},
                     {"elementId", Kind::Integer},
                     {"isNewConfigRequested", Kind::Flag},
                     {"isShutdownRequested", Kind::Flag},
                     {"offeredDataType", Kind::TextList},
                 }),
        resource("cdxConfig",
                 {
                     {"elementId", Kind::Integer},
                     {"expiryTime", Kind::Integer},
                     {"receiveTime", Kind::Integer},
                     {"recordBody", Kind::Text},
                     {"recordId", Kind::Text},
                     {"spApplication", Kind::Text},
                 }),
        resource("cdxTrigger",
                 {
                     {"correlationTag", Kind::Text},
                     {"elementId", Kind::Integer},
                     {"expirationTime", Kind::Integer},
                     {"isTechnicalReceiptRequested", Kind::Flag},
                     {"messageContent", Kind::Text},
                     {"messageId", Kind::Text},
                     {"messageSignature", Kind::Text},
                     {"messageType", Kind::Text},
                     {"receiveTime", Kind::Integer},
                 }),
        resource("cdxMasterControls",
                 {
                     {"backendChannelControl",
                      Kind::Literal,
                      {"okTalkNormal", "pauseOtaDisconnected", "pauseMasterBusy", "pauseDataPrivacyProtection",
                       "stopProtocolViolation"}},
                     {"dataDeliveryResult",
                      Kind::Literal,
                      {"okDelivered", "failExpired", "failOffline", "failPrivacy", "failSecurity", "failUnknownClient",
                       "failProtocolViolation", "failMessageTooBig"}},
                     {"elementId", Kind::Integer},
                     {"eventTicket", Kind::Text},
                     {"permittedDataType", Kind::TextList},
                 }),
    };
    all[0].expires = true;
    all[1].oneOfEachName = true;
    all[4].oneOfEachName = true;
    all[4].settlesData = true;
    return all;
}

WellKnown makeWellKnown() {
    WellKnown known = {};
    known.data = findResource("cdxData").value();
    const ResourceSchema& data = schema()[known.data];
    known.dataEventId = data.find("eventId").value();
    known.dataTimestamp = data.find("timestamp").value();
    known.dataTimeToLive = data.find("timeToLive").value();
    known.masterControls = findResource("cdxMasterControls").value();
    const ResourceSchema& controls = schema()[known.masterControls];
    known.controlEventTicket = controls.find("eventTicket").value();
    known.controlDeliveryResult = controls.find("dataDeliveryResult").value();
    return known;
}

} // namespace

std::optional<std::size_t> ResourceSchema::find(std::string_view key) const {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].key == key) {
            return i;
        }
    }
    return std::nullopt;
}

const Schema& schema() {
    static const Schema all = makeSchema();
    return all;
}

std::optional<std::size_t> findResource(std::string_view name) {
    const Schema& all = schema();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

const WellKnown& wellKnown() {
    static const WellKnown known = makeWellKnown();
    return known;
}

} // namespace cdxservice
