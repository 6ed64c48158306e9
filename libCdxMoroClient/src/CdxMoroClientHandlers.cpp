#include "CdxLog.h"
#include "CopyCall.h"
#include "ElementText.h"
#include "MoroClientCallback.h"

#include <CdxMoroClient.h>

#include <cstdint>
#include <mutex>
#include <utility>

namespace zepclient {

namespace {

using Registry = std::map<std::string, std::shared_ptr<MoroClientCallback>>;

/// A copy of the entry: it outlives what its handlers do to the registry. Empty where there is none.
std::shared_ptr<MoroClientCallback> find(const Registry& registry, const std::string& name) {
    const auto entry = registry.find(name);
    return entry == registry.end() ? nullptr : entry->second;
}

std::shared_ptr<MoroClientCallback> findInMap(const Registry& registry, const std::string& name, const LogHead& head) {
    auto entry = find(registry, name);
    if (!entry)
        CDX_LOG_UNDER(head, LogError)
            << "The service " << name
            << "  does not exists in map,. It may be that service would be lost or not created.";
    return entry;
}

std::shared_ptr<MoroClientCallback> findService(const Registry& registry, const std::string& name,
                                                const LogHead& head) {
    auto entry = find(registry, name);
    if (!entry)
        CDX_LOG_UNDER(head, LogError) << "The service " << name << "is not found";
    return entry;
}

template <class Handler>
void store(const Registry& registry, const std::string& name, Handler MoroClientCallback::*member, Handler handler,
           const LogHead& head) {
    if (const auto entry = findInMap(registry, name, head))
        (*entry).*member = std::move(handler);
}

oru::Json::Value clientStateDocument(const CdxClientStateObject& state) {
    oru::Json::Value document;
    document["canonicalName"] = state.getCanonicalName().getValue();
    document["id"] = textOrInvalid(state.getId());
    document["name"] = state.getName().getValue();
    document["elementId"] = oru::Json::Int64{state.getElementId().getValue()};
    document["isNewConfigRequested"] = state.getIsNewConfigRequested().getValue();
    document["isShutdownRequested"] = state.getIsShutdownRequested().getValue();
    document["uri"] = state.getUri().getValue();
    oru::Json::Value& offered = document["offeredDataType"]; // stays null when nothing is offered
    for (const std::string& type : state.getOfferedDataType().getValue())
        offered.append(type);
    return document;
}

} // namespace

void CdxMoroClient::setMsgProcessorCallback(cdxEventHandler handler) {
    CDX_LOG(LogDebug);
    m_msgProcessorCallback = std::move(handler);
}

void CdxMoroClient::setMsgProcessorDeleteCallback(cdxEventDeleteHandler handler) {
    CDX_LOG(LogDebug);
    m_msgProcessorDeleteCallback = std::move(handler);
}

void CdxMoroClient::setCdxClientStateRecieveHandler(cdxEventHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxClientHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxMasterControlCreateRecieveHandler(cdxMasterControlCreateRecieveHandler handler,
                                                            std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxMasterControlCreateHandler, std::move(handler),
          CDX_HEAD);
}

void CdxMoroClient::setCdxMasterControlUpdateHandler(cdxMasterControlUpdateHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxMasterControlUpdateHandler, std::move(handler),
          CDX_HEAD);
}

void CdxMoroClient::setCdxDataStateSubsRecieveHandler(cdxEventHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxDataSubHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxDataStateUpdateRecieveHandler(cdxEventHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxDataUpdateHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxConfigCreateRecieveHandler(cdxConfigCreateHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxConfigCreateHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxConfigUpdateRecieveHandler(cdxConfigUpdateHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxConfigUpdateHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxTriggerCreateRecieveHandler(cdxTriggerCreateHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxTriggerCreateHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::setCdxTriggerUpdateRecieveHandler(cdxTriggerUpdateHandler handler, std::string clientName) {
    CDX_LOG(LogDebug);
    store(m_clientCallbacks, clientName, &MoroClientCallback::m_cdxTriggerUpdateHandler, std::move(handler), CDX_HEAD);
}

void CdxMoroClient::cleanUpService(std::string clientName) {
    CDX_LOG(LogDebug);
    const auto entry = m_clientCallbacks.find(clientName);
    if (entry == m_clientCallbacks.end())
        return;
    CDX_LOG_NO_LINE(LogNotice) << "Resetting the service " << clientName;
    entry->second.reset();
    // Deliberately local, so that it excludes nobody: the application serialises whoever uses the registry.
    oru::Mutex mutex;
    const std::lock_guard<oru::Mutex> lock(mutex);
    m_clientCallbacks.erase(clientName);
}

void CdxMoroClient::xalHandleCdxClientState(CdxClientStateObject state) {
    CDX_LOG(LogDebug);
    CDX_LOG(LogDebug) << "MORO CLIENT UUID = " << textOrInvalid(state.getId());
    const std::string name = state.getName().getValue();
    const auto known = find(m_clientCallbacks, name);
    oru::Json::Value document = clientStateDocument(state);
    if (known) {
        known->executeCdxClientHandler(std::move(document));
        return;
    }
    CDX_LOG_NO_LINE(LogNotice) << "Creating a new Service with service Name = " << state.getCanonicalName().getValue();
    // Copied first: without memory for it the client stays new, and its next state is announced.
    const cdxEventHandler announce = m_msgProcessorCallback;
    m_clientCallbacks.emplace(name, std::make_shared<MoroClientCallback>());
    announce(std::move(document));
}

void CdxMoroClient::xalHandleCdxClientDisconnectState(std::string name) {
    CDX_LOG(LogDebug);
    if (find(m_clientCallbacks, name))
        callCopyOf(m_msgProcessorDeleteCallback, std::move(name));
    else
        CDX_LOG(LogError) << "Didn't find the service " << name << "  in the callback map.";
}

void CdxMoroClient::xalHandleCdxDataSubscription(CdxDataObject data) {
    CDX_LOG(LogDebug);
    if (const auto entry = findService(m_clientCallbacks, data.getName().getValue(), CDX_HEAD)) {
        oru::Json::Value document;
        PopulateCdxDataInJson(std::move(data), document);
        entry->executeCdxDataSubHandler(std::move(document));
    }
}

void CdxMoroClient::xalHandleCdxDataUpdate(std::shared_ptr<const CdxDataObject> data) {
    CDX_LOG(LogDebug);
    if (const auto entry = findService(m_clientCallbacks, data->getName().getValue(), CDX_HEAD)) {
        oru::Json::Value document;
        PopulateCdxDataInJson(std::move(data), document);
        entry->executeCdxDataUpdateHandler(std::move(document));
    }
    CDX_LOG_NO_LINE(LogNotice) << "Now returning";
}

void CdxMoroClient::xalHandleCdxMasterCtlCreateElement(bool isCreated, oru::Json::Value document) {
    CDX_LOG(LogDebug);
    // Read as a constant: what the document lacks is not added to it.
    if (const auto entry = findInMap(m_clientCallbacks, std::as_const(document)["name"].asString(), CDX_HEAD))
        entry->executeCdxMasterControlCreateHandler(isCreated, document["id"].asString());
}

void CdxMoroClient::xalHandleCdxMasterCtlUpdateElement(bool isUpdated, std::string name) {
    CDX_LOG(LogDebug);
    if (const auto entry = findInMap(m_clientCallbacks, name, CDX_HEAD))
        entry->executeCdxMasterControlUpdateHandler(isUpdated);
}

void CdxMoroClient::xalHandleConfigCreateElement(bool isCreated, oru::Json::Value document) {
    CDX_LOG(LogDebug);
    if (const auto entry = findService(m_clientCallbacks, std::as_const(document)["name"].asString(), CDX_HEAD))
        entry->executeCdxConfigCreateHandler(isCreated, std::move(document));
}

void CdxMoroClient::xalHandleConfigUpdateElement(bool isUpdated, std::string name) {
    CDX_LOG(LogDebug);
    if (const auto entry = findService(m_clientCallbacks, name, CDX_HEAD))
        entry->executeCdxConfigUpdateHandler(isUpdated);
}

void CdxMoroClient::xalHandleTriggerCreateElement(bool isCreated, oru::Json::Value document) {
    CDX_LOG(LogDebug);
    CDX_LOG(LogDebug) << "Trigger element is created, name = ";
    if (const auto entry = findService(m_clientCallbacks, std::as_const(document)["name"].asString(), CDX_HEAD))
        entry->executeCdxTriggerCreateHandler(isCreated, std::move(document));
}

void CdxMoroClient::xalHandleTriggerUpdateElement(bool isUpdated, std::string name) {
    CDX_LOG(LogDebug);
    CDX_LOG(LogDebug) << "Trigger element is updated with status = " << isUpdated;
    if (const auto entry = findService(m_clientCallbacks, name, CDX_HEAD))
        entry->executeCdxTriggerUpdateHandler(isUpdated);
}

} // namespace zepclient
