#include "CdxLog.h"
#include "CdxXalCallback.h"
#include "CdxXalInterfaceImpl.h"
#include "MoroClientCallback.h"

#include <CdxMoroClient.h>

#include <mutex>
#include <utility>

namespace zepclient {

namespace {

/// A slot's function that calls `client`, which must outlive the slot's use.
template <class... Arguments>
auto bound(CdxMoroClient* client, void (CdxMoroClient::*handler)(Arguments...)) {
    return [client, handler](Arguments... arguments) { (client->*handler)(std::move(arguments)...); };
}

} // namespace

std::shared_ptr<CdxMoroClient> CdxMoroClient::m_inst;

std::shared_ptr<CdxMoroClient> CdxMoroClient::getInstance() {
    if (!m_inst)
        m_inst.reset(new CdxMoroClient);
    return m_inst;
}

void CdxMoroClient::ReleaseCdxMoroClientThread() {
    CDX_LOG(LogDebug);
    // Emptied first, so that whatever the client's end calls finds no client here.
    const std::shared_ptr<CdxMoroClient> released = std::exchange(m_inst, nullptr);
}

CdxMoroClient::CdxMoroClient() {
    CDX_LOG(LogDebug);
    m_isRunning = true;
    m_msgProcessorCallback = nullptr;
    m_msgProcessorDeleteCallback = nullptr;
    m_clientCallbacks.clear();
}

CdxMoroClient::~CdxMoroClient() {
    m_isRunning = false;
    m_xalInterface.reset();
    m_xalCallback.reset();
    m_clientCallbacks.clear();
}

void CdxMoroClient::StartCdxMoroClient(oru::Json::Value& registryConfig, oru::Json::Value& serviceConfig) {
    m_xalInterface = std::make_shared<CdxXalInterfaceImpl>(registryConfig, serviceConfig);
    m_xalCallback = std::make_shared<CdxXalCallback>();
    CdxXalCallback& callback = *m_xalCallback;
    callback.clientStateCallback = bound(this, &CdxMoroClient::xalHandleCdxClientState);
    callback.clientDisconnectCallback = bound(this, &CdxMoroClient::xalHandleCdxClientDisconnectState);
    callback.masterCtlCreateCallback = bound(this, &CdxMoroClient::xalHandleCdxMasterCtlCreateElement);
    callback.masterCtlUpdateCallback = bound(this, &CdxMoroClient::xalHandleCdxMasterCtlUpdateElement);
    callback.dataSubscriptionCallback = bound(this, &CdxMoroClient::xalHandleCdxDataSubscription);
    callback.dataUpdateCallback = bound(this, &CdxMoroClient::xalHandleCdxDataUpdate);
    callback.configCreateCallback = bound(this, &CdxMoroClient::xalHandleConfigCreateElement);
    callback.configUpdateCallback = bound(this, &CdxMoroClient::xalHandleConfigUpdateElement);
    callback.triggerCreateCallback = bound(this, &CdxMoroClient::xalHandleTriggerCreateElement);
    callback.triggerUpdateCallback = bound(this, &CdxMoroClient::xalHandleTriggerUpdateElement);
    m_xalInterface->AssignCallback(m_xalCallback);
    m_xalInterface->Start();
}

void CdxMoroClient::StopCdxMoroClient() {
    CDX_LOG(LogDebug);
    m_xalInterface->Stop();
    m_msgProcessorDeleteCallback = nullptr;
    m_msgProcessorCallback = nullptr;
}

void CdxMoroClient::run() {
    CDX_LOG_NO_LINE(LogNotice) << "CDX MORO Client has started";
    {
        const std::lock_guard<oru::Mutex> lock(m_mutex);
        CDX_LOG(LogDebug) << "Conditional wait";
        m_condition.wait(m_mutex); // once: whatever wakes the thread ends it
        CDX_LOG(LogDebug) << "Awaken CdxMoroClient thread to exit. ";
    }
    CDX_LOG_NO_LINE(LogNotice) << "Exiting from CdxMoroClient";
}

void CdxMoroClient::stopMoroClient() {
    CDX_LOG(LogDebug);
    m_isRunning = false;
    SendWakeupSignal();
}

void CdxMoroClient::SendWakeupSignal() {
    const std::lock_guard<oru::Mutex> lock(m_mutex);
    CDX_LOG(LogDebug) << "Waking up CdxMoroClient Thread";
    m_condition.broadcast();
}

void CdxMoroClient::SubscribeToCdxClientObject(std::string id) {
    CDX_LOG(LogDebug);
    m_xalInterface->SubscribeClientStateObject(std::move(id));
}

void CdxMoroClient::SubscribeToCdxDataObject() {
    CDX_LOG(LogDebug);
    m_xalInterface->SubscribeCdxDataObject();
}

void CdxMoroClient::SubscribeToCdxDataObject(std::string id) {
    CDX_LOG(LogDebug);
    m_xalInterface->SubscribeCdxDataObject(std::move(id));
}

void CdxMoroClient::CreateCdxMasterControlElement(oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    m_xalInterface->CreateNewCdxMasterControlElement(document);
}

void CdxMoroClient::UpdateCdxMasterControlElement(oru::Json::Value& document) {
    CDX_LOG(LogDebug);
    m_xalInterface->UpdateMasterControlElement(document);
}

void CdxMoroClient::CreateCdxConfigElement(oru::Json::Value document) {
    m_xalInterface->CreateNewCdxConfigElement(std::move(document));
}

void CdxMoroClient::UpdateCdxConfigElement(oru::Json::Value document) {
    m_xalInterface->UpdateConfigElement(std::move(document));
}

void CdxMoroClient::DeleteCdxConfigElement(oru::Json::Value document) {
    // Deleting is no operation of the access interface; StartCdxMoroClient makes facades of one kind only.
    std::static_pointer_cast<CdxXalInterfaceImpl>(m_xalInterface)->DeleteConfig(std::move(document));
}

void CdxMoroClient::CreateCdxTriggerElement(oru::Json::Value document) {
    m_xalInterface->CreateNewCdxTriggerElement(std::move(document));
}

void CdxMoroClient::UpdateCdxTriggerElement(oru::Json::Value document) {
    m_xalInterface->UpdateTriggerElement(std::move(document));
}

} // namespace zepclient
