#include "CdxLog.h"
#include "ElementText.h"

#include <CdxMoroClient.h>

#include <cstdint>

namespace zepclient {

namespace {

oru::Json::Value toJson(const std::string& text) {
    return text;
}
oru::Json::Value toJson(bool flag) {
    return flag;
}
oru::Json::Value toJson(std::int64_t number) {
    return oru::Json::Int64{number};
}
oru::Json::Value toJson(xalobjects_GX2::CardataexchangeService::CDXDATA_DELIVERYMODE mode) {
    return static_cast<oru::Json::Int>(mode);
}

/// In whose name the data document's lines are logged, and the two ways in which its two forms differ.
struct DataForm {
    const char* signature;
    bool isTimeToLiveTraced; ///< like all other fields; else it is a notice without a line number
    bool isReportTraced;
};

/// `document[key]` is assigned after the value was read, so that an absent field leaves no member behind.
template <class Field>
void setMandatory(oru::Json::Value& document, const char* key, const Field& field) {
    document[key] = toJson(field.getValue());
}

void fillDataDocument(const CdxDataObject& data, oru::Json::Value& document, const DataForm& form) {
    const auto set = [&document](const char* key, const auto& field) {
        if (field.isValid())
            document[key] = toJson(field.getValue());
        return field.isValid();
    };
    const auto setTraced = [&](const char* key, const auto& field, const char* text) {
        if (set(key, field))
            CDX_LOG_UNDER((LogHead{form.signature, __LINE__}), LogDebug) << text;
    };
    setTraced("version", data.getVersion(), "Version valid ");
    setTraced("uri", data.getUri(), "URI valid ");
    setTraced("id", data.getId(), "ID valid ");
    setTraced("messageId", data.getMessageId(), "Msg Id valid ");
    setTraced("name", data.getName(), "Name valid ");
    setTraced("authenticode", data.getAuthenticode(), "AuthCode is valid ");
    setTraced("correlationTag", data.getCorrelationTag(), "CorTag is valid ");
    setTraced("deliveryMode", data.getDeliveryMode(), "DelMode is valid ");
    setTraced("eventId", data.getEventId(), "Event Id is valid ");
    setTraced("isCallbackAbilityRequested", data.getIsCallbackAbilityRequested(), "Callback is valid ");
    setTraced("isMixinOfUserIdRequested", data.getIsMixinOfUserIdRequested(), "Mixin User valid ");
    setTraced("isMixinOfVinRequested", data.getIsMixinOfVinRequested(), "Mixin VIN valid ");
    if (set("timeToLive", data.getTimeToLive())) {
        const bool isTraced = form.isTimeToLiveTraced;
        CDX_LOG_UNDER((LogHead{form.signature, isTraced ? __LINE__ : 0}), isTraced ? LogDebug : LogNotice)
            << "TTL valid ";
    }
    setTraced("timestamp", data.getTimestamp(), "Timestamp valid ");
    setTraced("timezone", data.getTimezone(), "Timezone valid ");

    if (data.getCdxClientDataReport().isValid()) {
        if (form.isReportTraced)
            CDX_LOG_UNDER((LogHead{form.signature, __LINE__}), LogDebug) << "CDX Client Data Report Valid";
        const std::string report = joined(data.getCdxClientDataReport().getValue());
        if (form.isReportTraced)
            CDX_LOG_UNDER((LogHead{form.signature, __LINE__}), LogDebug) << "Data Report Size =  " << report.size();
        document["cdxClientDataReport"] = report;
    }
    document["elementId"] = 1; // always, whatever the element holds
    CDX_LOG_UNDER((LogHead{form.signature, __LINE__}), LogDebug) << "New JSON DATA =" << document;
}

} // namespace

void CdxMoroClient::PopulateCdxDataInJson(CdxDataObject data, oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    fillDataDocument(data, document, {__PRETTY_FUNCTION__, false, false});
}

void CdxMoroClient::PopulateCdxDataInJson(std::shared_ptr<const CdxDataObject> data, oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    fillDataDocument(*data, document, {__PRETTY_FUNCTION__, true, true});
}

void CdxMoroClient::PopulateCdxConfigInJson(CdxConfigObject config, oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    setMandatory(document, "name", config.getName());
    setMandatory(document, "id", config.getId());
    setMandatory(document, "uri", config.getUri());
    setMandatory(document, "elementId", config.getElementId());
    setMandatory(document, "expiryTime", config.getExpiryTime());
    setMandatory(document, "receiveTime", config.getReceiveTime());
    setMandatory(document, "recordBody", config.getRecordBody());
    setMandatory(document, "recordId", config.getRecordId());
    setMandatory(document, "spApplication", config.getSpApplication());
    CDX_LOG(LogDebug) << "New JSON DATA =" << document;
}

void CdxMoroClient::PopulateCdxTriggerInJson(CdxTriggerObject trigger, oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    setMandatory(document, "name", trigger.getName());
    setMandatory(document, "id", trigger.getId());
    setMandatory(document, "uri", trigger.getUri());
    setMandatory(document, "elementId", trigger.getElementId());
    setMandatory(document, "expirationTime", trigger.getExpirationTime());
    setMandatory(document, "receiveTime", trigger.getReceiveTime());
    setMandatory(document, "messageContent", trigger.getMessageContent());
    setMandatory(document, "messageSignature", trigger.getMessageSignature());
    setMandatory(document, "messageType", trigger.getMessageType());
    setMandatory(document, "messageId", trigger.getMessageId());
    setMandatory(document, "isTechnicalReceiptRequested", trigger.getIsTechnicalReceiptRequested());
    setMandatory(document, "correlationTag", trigger.getCorrelationTag());
    CDX_LOG(LogDebug) << "New JSON Trigger =" << document;
}

} // namespace zepclient
