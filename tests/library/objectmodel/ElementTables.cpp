#include "ElementTables.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <algorithm>

namespace cdxtest {
namespace {

using Strings = std::vector<std::string>;

std::string toJson(const std::string& value, const Strings&) {
    return boost::json::serialize(boost::json::string(value));
}
std::string toJson(std::int64_t value, const Strings&) {
    return std::to_string(value);
}
std::string toJson(bool value, const Strings&) {
    return value ? "true" : "false";
}
std::string toJson(const Strings& value, const Strings&) {
    return boost::json::serialize(boost::json::array(value.begin(), value.end()));
}
template <class Enum, class = std::enable_if_t<std::is_enum_v<Enum>>>
std::string toJson(Enum value, const Strings& literals) {
    return '"' + literals.at(static_cast<std::size_t>(value)) + '"';
}

template <class T>
T fromJson(const std::string& text, const Strings& literals) {
    const auto json = boost::json::parse(text);
    if constexpr (std::is_same_v<T, std::string>) {
        return std::string(json.as_string());
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        return json.as_int64();
    } else if constexpr (std::is_same_v<T, bool>) {
        return json.as_bool();
    } else if constexpr (std::is_same_v<T, Strings>) {
        Strings strings;
        for (const auto& entry : json.as_array())
            strings.emplace_back(entry.as_string());
        return strings;
    } else {
        const std::string literal(json.as_string());
        return static_cast<T>(std::find(literals.begin(), literals.end(), literal) - literals.begin());
    }
}

template <class T>
constexpr Kind kindOf() {
    if constexpr (std::is_same_v<T, std::string>)
        return Kind::TEXT;
    else if constexpr (std::is_same_v<T, std::int64_t>)
        return Kind::NUMBER;
    else if constexpr (std::is_same_v<T, bool>)
        return Kind::FLAG;
    else if constexpr (std::is_same_v<T, Strings>)
        return Kind::TEXTS;
    else
        return Kind::ENUM;
}

template <class T>
std::string toJson(const xalutil::Optional<T>& value, const Strings& literals) {
    return value.isValid() ? toJson(value.getValue(), literals) : "absent";
}

/// The member pointers' types hold the operations to their exact signatures.
template <class T, class Element, class Argument>
FieldRow<Element> row(int number, const std::string& key, const xalutil::Optional<T>& (Element::*elementGetter)() const,
                      const xalutil::Optional<T>& (Element::Desctype::*descriptorGetter)() const,
                      void (Element::Desctype::*setter)(Argument), const Strings& literals,
                      xalutil::Optional<std::string> (Element::*rawText)() const) {
    using Descriptor = typename Element::Desctype;
    FieldRow<Element> result;
    result.number = number;
    result.key = key;
    result.kind = kindOf<T>();
    result.literals = literals;
    result.set = [=](Descriptor& descriptor, const std::string& json) {
        (descriptor.*setter)(fromJson<T>(json, literals));
    };
    result.valueInDescriptor = [=](const Descriptor& descriptor) {
        return toJson((descriptor.*descriptorGetter)(), literals);
    };
    result.valueInElement = [=](const Element& element) { return toJson((element.*elementGetter)(), literals); };
    if (rawText)
        result.rawText = [=](const Element& element) { return (element.*rawText)(); };
    return result;
}

/// A string, a number or a flag.
template <class T, class Element>
FieldRow<Element>
scalar(int number, const std::string& key, const xalutil::Optional<T>& (Element::*elementGetter)() const,
       const xalutil::Optional<T>& (Element::Desctype::*descriptorGetter)() const,
       void (Element::Desctype::*setter)(const T&), xalutil::Optional<std::string> (Element::*rawText)() const) {
    return row(number, key, elementGetter, descriptorGetter, setter, {}, rawText);
}

/// An array of strings, or with literals an enum.
template <class T, class Element>
FieldRow<Element> other(int number, const std::string& key,
                        const xalutil::Optional<T>& (Element::*elementGetter)() const,
                        const xalutil::Optional<T>& (Element::Desctype::*descriptorGetter)() const,
                        void (Element::Desctype::*setter)(T), const Strings& literals = {}) {
    static_assert(std::is_same_v<T, Strings> || std::is_enum_v<T>);
    return row<T, Element>(number, key, elementGetter, descriptorGetter, setter, literals, nullptr);
}

} // namespace

std::string objectOf(const std::vector<std::pair<std::string, std::string>>& members) {
    std::string text = "{";
    for (const auto& [key, value] : members)
        text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + value;
    return text + "}";
}

template <class Element>
std::string FieldRow<Element>::sample() const {
    switch (kind) {
    case Kind::TEXT:
        return R"("the text of )" + key + '"';
    case Kind::NUMBER:
        return std::to_string(7000000000 + number);
    case Kind::FLAG:
        return number % 2 == 0 ? "true" : "false";
    case Kind::ENUM:
        return '"' + literals.back() + '"';
    case Kind::TEXTS:
        return R"(["first of )" + key + R"(","second"])";
    }
    return {};
}

template <class Element>
std::string FieldRow<Element>::sampleInFilter() const {
    const auto value = boost::json::parse(sample());
    if (value.is_string())
        return std::string(value.as_string());
    return value.is_array() ? std::string(value.as_array().front().as_string()) : sample();
}

template <class Element>
std::string FieldRow<Element>::couldNotGet() const {
    const std::string word = kind == Kind::NUMBER ? "int64_t" : kind == Kind::FLAG ? "bool" : "std::string";
    return "could not get " + key + " as " + word + ", exception=";
}

template struct FieldRow<Service::CdxData>;
template struct FieldRow<Service::CdxClientState>;
template struct FieldRow<Service::CdxConfig>;
template struct FieldRow<Service::CdxTrigger>;
template struct FieldRow<Service::CdxMasterControl>;

const std::vector<FieldRow<Service::CdxData>>& ElementTable<Service::CdxData>::rows() {
    using E = Service::CdxData;
    using D = Service::CdxDataDescriptor;
    static const std::vector<FieldRow<E>> rows = {
        scalar<std::string, E>(0, "authenticode", &E::getAuthenticode, &D::getAuthenticode, &D::setAuthenticode,
                               &E::getAuthenticodeAsString),
        other<Strings, E>(1, "cdxClientDataReport", &E::getCdxClientDataReport, &D::getCdxClientDataReport,
                          &D::setCdxClientDataReport),
        scalar<std::string, E>(2, "correlationTag", &E::getCorrelationTag, &D::getCorrelationTag, &D::setCorrelationTag,
                               &E::getCorrelationTagAsString),
        other<Service::CDXDATA_DELIVERYMODE, E>(3, "deliveryMode", &E::getDeliveryMode, &D::getDeliveryMode,
                                                &D::setDeliveryMode, {"atMostOnce", "atLeastOnce"}),
        scalar<std::int64_t, E>(4, "elementId", &E::getElementId, &D::getElementId, &D::setElementId,
                                &E::getElementIdAsString),
        scalar<std::string, E>(5, "eventId", &E::getEventId, &D::getEventId, &D::setEventId, &E::getEventIdAsString),
        scalar<bool, E>(6, "isCallbackAbilityRequested", &E::getIsCallbackAbilityRequested,
                        &D::getIsCallbackAbilityRequested, &D::setIsCallbackAbilityRequested,
                        &E::getIsCallbackAbilityRequestedAsString),
        scalar<bool, E>(7, "isMixinOfUserIdRequested", &E::getIsMixinOfUserIdRequested, &D::getIsMixinOfUserIdRequested,
                        &D::setIsMixinOfUserIdRequested, &E::getIsMixinOfUserIdRequestedAsString),
        scalar<bool, E>(8, "isMixinOfVinRequested", &E::getIsMixinOfVinRequested, &D::getIsMixinOfVinRequested,
                        &D::setIsMixinOfVinRequested, &E::getIsMixinOfVinRequestedAsString),
        scalar<std::string, E>(9, "messageId", &E::getMessageId, &D::getMessageId, &D::setMessageId,
                               &E::getMessageIdAsString),
        scalar<std::int64_t, E>(10, "timeToLive", &E::getTimeToLive, &D::getTimeToLive, &D::setTimeToLive,
                                &E::getTimeToLiveAsString),
        scalar<std::int64_t, E>(11, "timestamp", &E::getTimestamp, &D::getTimestamp, &D::setTimestamp,
                                &E::getTimestampAsString),
        scalar<std::int64_t, E>(12, "timezone", &E::getTimezone, &D::getTimezone, &D::setTimezone,
                                &E::getTimezoneAsString),
        scalar<std::string, E>(13, "version", &E::getVersion, &D::getVersion, &D::setVersion, &E::getVersionAsString),
    };
    return rows;
}

const std::vector<FieldRow<Service::CdxClientState>>& ElementTable<Service::CdxClientState>::rows() {
    using E = Service::CdxClientState;
    using D = Service::CdxClientStateDescriptor;
    static const std::vector<FieldRow<E>> rows = {
        scalar<std::string, E>(0, "canonicalName", &E::getCanonicalName, &D::getCanonicalName, &D::setCanonicalName,
                               &E::getCanonicalNameAsString),
        scalar<std::int64_t, E>(1, "elementId", &E::getElementId, &D::getElementId, &D::setElementId,
                                &E::getElementIdAsString),
        scalar<bool, E>(2, "isNewConfigRequested", &E::getIsNewConfigRequested, &D::getIsNewConfigRequested,
                        &D::setIsNewConfigRequested, &E::getIsNewConfigRequestedAsString),
        scalar<bool, E>(3, "isShutdownRequested", &E::getIsShutdownRequested, &D::getIsShutdownRequested,
                        &D::setIsShutdownRequested, &E::getIsShutdownRequestedAsString),
        other<Strings, E>(4, "offeredDataType", &E::getOfferedDataType, &D::getOfferedDataType, &D::setOfferedDataType),
    };
    return rows;
}

const std::vector<FieldRow<Service::CdxConfig>>& ElementTable<Service::CdxConfig>::rows() {
    using E = Service::CdxConfig;
    using D = Service::CdxConfigDescriptor;
    static const std::vector<FieldRow<E>> rows = {
        scalar<std::int64_t, E>(0, "elementId", &E::getElementId, &D::getElementId, &D::setElementId,
                                &E::getElementIdAsString),
        scalar<std::int64_t, E>(1, "expiryTime", &E::getExpiryTime, &D::getExpiryTime, &D::setExpiryTime,
                                &E::getExpiryTimeAsString),
        scalar<std::int64_t, E>(2, "receiveTime", &E::getReceiveTime, &D::getReceiveTime, &D::setReceiveTime,
                                &E::getReceiveTimeAsString),
        scalar<std::string, E>(3, "recordBody", &E::getRecordBody, &D::getRecordBody, &D::setRecordBody,
                               &E::getRecordBodyAsString),
        scalar<std::string, E>(4, "recordId", &E::getRecordId, &D::getRecordId, &D::setRecordId,
                               &E::getRecordIdAsString),
        scalar<std::string, E>(5, "spApplication", &E::getSpApplication, &D::getSpApplication, &D::setSpApplication,
                               &E::getSpApplicationAsString),
    };
    return rows;
}

const std::vector<FieldRow<Service::CdxTrigger>>& ElementTable<Service::CdxTrigger>::rows() {
    using E = Service::CdxTrigger;
    using D = Service::CdxTriggerDescriptor;
    static const std::vector<FieldRow<E>> rows = {
        scalar<std::string, E>(0, "correlationTag", &E::getCorrelationTag, &D::getCorrelationTag, &D::setCorrelationTag,
                               &E::getCorrelationTagAsString),
        scalar<std::int64_t, E>(1, "elementId", &E::getElementId, &D::getElementId, &D::setElementId,
                                &E::getElementIdAsString),
        scalar<std::int64_t, E>(2, "expirationTime", &E::getExpirationTime, &D::getExpirationTime,
                                &D::setExpirationTime, &E::getExpirationTimeAsString),
        scalar<bool, E>(3, "isTechnicalReceiptRequested", &E::getIsTechnicalReceiptRequested,
                        &D::getIsTechnicalReceiptRequested, &D::setIsTechnicalReceiptRequested,
                        &E::getIsTechnicalReceiptRequestedAsString),
        scalar<std::string, E>(4, "messageContent", &E::getMessageContent, &D::getMessageContent, &D::setMessageContent,
                               &E::getMessageContentAsString),
        scalar<std::string, E>(5, "messageId", &E::getMessageId, &D::getMessageId, &D::setMessageId,
                               &E::getMessageIdAsString),
        scalar<std::string, E>(6, "messageSignature", &E::getMessageSignature, &D::getMessageSignature,
                               &D::setMessageSignature, &E::getMessageSignatureAsString),
        scalar<std::string, E>(7, "messageType", &E::getMessageType, &D::getMessageType, &D::setMessageType,
                               &E::getMessageTypeAsString),
        scalar<std::int64_t, E>(8, "receiveTime", &E::getReceiveTime, &D::getReceiveTime, &D::setReceiveTime,
                                &E::getReceiveTimeAsString),
    };
    return rows;
}

const std::vector<FieldRow<Service::CdxMasterControl>>& ElementTable<Service::CdxMasterControl>::rows() {
    using E = Service::CdxMasterControl;
    using D = Service::CdxMasterControlDescriptor;
    static const std::vector<FieldRow<E>> rows = {
        other<Service::CDXMASTERCONTROL_BACKENDCHANNELCONTROL, E>(
            0, "backendChannelControl", &E::getBackendChannelControl, &D::getBackendChannelControl,
            &D::setBackendChannelControl,
            {"okTalkNormal", "pauseOtaDisconnected", "pauseMasterBusy", "pauseDataPrivacyProtection",
             "stopProtocolViolation"}),
        other<Service::CDXMASTERCONTROL_DATADELIVERYRESULT, E>(
            1, "dataDeliveryResult", &E::getDataDeliveryResult, &D::getDataDeliveryResult, &D::setDataDeliveryResult,
            {"okDelivered", "failExpired", "failOffline", "failPrivacy", "failSecurity", "failUnknownClient",
             "failProtocolViolation", "failMessageTooBig"}),
        scalar<std::int64_t, E>(2, "elementId", &E::getElementId, &D::getElementId, &D::setElementId,
                                &E::getElementIdAsString),
        scalar<std::string, E>(3, "eventTicket", &E::getEventTicket, &D::getEventTicket, &D::setEventTicket,
                               &E::getEventTicketAsString),
        other<Strings, E>(4, "permittedDataType", &E::getPermittedDataType, &D::getPermittedDataType,
                          &D::setPermittedDataType),
    };
    return rows;
}

} // namespace cdxtest
