#include "CdxLog.h"
#include "CdxXalAccess.h"

#include <cstdint>
#include <utility>
#include <vector>

using xalobjects_GX2::CardataexchangeService;
using CdxConfigDescriptor = CardataexchangeService::CdxConfigDescriptor;
using CdxTriggerDescriptor = CardataexchangeService::CdxTriggerDescriptor;
using CdxMasterControlDescriptor = CardataexchangeService::CdxMasterControlDescriptor;

namespace zepclient {

namespace {

/// Passes those keys that a document has to a descriptor's setters, by the JSON library's conversions.
template <class Descriptor>
class DescriptorFiller {
public:
    DescriptorFiller(Descriptor& descriptor, const oru::Json::Value& document)
        : m_descriptor(descriptor), m_document(document) {}

    void identity(const std::string& namePrefix) const {
        if (has("name"))
            m_descriptor.setName(namePrefix + ">>" + m_document["name"].asString());
        text("id", &Descriptor::setId);
        text("uri", &Descriptor::setUri);
    }

    void text(const char* key, void (Descriptor::*set)(const std::string&)) const {
        if (has(key))
            (m_descriptor.*set)(m_document[key].asString());
    }

    void flag(const char* key, void (Descriptor::*set)(const bool&)) const {
        if (has(key))
            (m_descriptor.*set)(m_document[key].asBool());
    }

    void number32(const char* key, void (Descriptor::*set)(const std::int64_t&)) const {
        if (has(key))
            (m_descriptor.*set)(m_document[key].asInt());
    }

    void number64(const char* key, void (Descriptor::*set)(const std::int64_t&)) const {
        if (has(key))
            (m_descriptor.*set)(m_document[key].asInt64());
    }

    template <class Enum>
    void choice(const char* key, void (Descriptor::*set)(Enum)) const {
        if (has(key))
            (m_descriptor.*set)(static_cast<Enum>(m_document[key].asInt()));
    }

private:
    bool has(const char* key) const { return m_document.isMember(key); }

    Descriptor& m_descriptor;
    const oru::Json::Value& m_document;
};

} // namespace

void CdxXalAccess::PopulateConfigDescFromJson(CdxConfigDescriptor& descriptor, oru::Json::Value& document,
                                              std::string namePrefix) {
    CDX_LOG(LogDebug);
    const DescriptorFiller fill(descriptor, document);
    fill.identity(namePrefix);
    fill.number32("elementId", &CdxConfigDescriptor::setElementId);
    fill.number64("expiryTime", &CdxConfigDescriptor::setExpiryTime);
    fill.number64("receiveTime", &CdxConfigDescriptor::setReceiveTime);
    fill.text("recordBody", &CdxConfigDescriptor::setRecordBody);
    fill.text("recordId", &CdxConfigDescriptor::setRecordId);
    fill.text("spApplication", &CdxConfigDescriptor::setSpApplication);
}

void CdxXalAccess::PopulateTriggerDescFromJson(CdxTriggerDescriptor& descriptor, oru::Json::Value& document,
                                               std::string namePrefix) {
    CDX_LOG(LogDebug);
    const DescriptorFiller fill(descriptor, document);
    fill.identity(namePrefix);
    fill.number32("elementId", &CdxTriggerDescriptor::setElementId);
    fill.number64("expirationTime", &CdxTriggerDescriptor::setExpirationTime);
    fill.number64("receiveTime", &CdxTriggerDescriptor::setReceiveTime);
    fill.text("messageContent", &CdxTriggerDescriptor::setMessageContent);
    fill.text("messageSignature", &CdxTriggerDescriptor::setMessageSignature);
    fill.text("messageType", &CdxTriggerDescriptor::setMessageType);
    fill.text("messageId", &CdxTriggerDescriptor::setMessageId);
    fill.text("correlationTag", &CdxTriggerDescriptor::setCorrelationTag);
    fill.flag("isTechnicalReceiptRequested", &CdxTriggerDescriptor::setIsTechnicalReceiptRequested);
}

void CdxXalAccess::PopulateMasterCtlDescFromJson(CdxMasterControlDescriptor& descriptor, oru::Json::Value& document,
                                                 std::string namePrefix) {
    CDX_LOG(LogDebug);
    const DescriptorFiller fill(descriptor, document);
    fill.identity(namePrefix);
    fill.text("eventTicket", &CdxMasterControlDescriptor::setEventTicket);
    fill.number32("elementId", &CdxMasterControlDescriptor::setElementId);
    fill.choice("dataDeliveryResult", &CdxMasterControlDescriptor::setDataDeliveryResult);
    fill.choice("backendChannelControl", &CdxMasterControlDescriptor::setBackendChannelControl);

    if (!document.isMember("permittedDataType"))
        return;
    const oru::Json::Value& permitted = document["permittedDataType"];
    CDX_LOG_NO_LINE(LogNotice) << "Given Permitted data type = " << permitted.size();
    if (!permitted.isArray())
        return;
    CDX_LOG(LogDebug) << "Given Permitted data type is Array ";
    std::vector<std::string> types;
    for (const oru::Json::Value& type : permitted) {
        types.push_back(type.asString());
        CDX_LOG(LogDebug) << "Pushing the data type for update = " << types.back();
    }
    const std::size_t count = types.size();
    descriptor.setPermittedDataType(std::move(types));
    CDX_LOG_NO_LINE(LogNotice) << "Size of permistted data type = " << count;
}

} // namespace zepclient
