#include "CdxXalInterfaceImpl.h"

#include "CdxBaseXalClient.h"
#include "CdxLog.h"
#include "CdxXalCallback.h"

#include <exception>
#include <utility>

namespace zepclient {

CdxXalInterfaceImpl::CdxXalInterfaceImpl(oru::Json::Value& registryConfig, oru::Json::Value& serviceConfig) {
    m_baseXalClient = CdxXalClient::CreateCdxBaseRasiClient(registryConfig, serviceConfig);
    try {
        const std::string& serviceName = xalobjects_GX2::CardataexchangeService::getServiceName();
        const auto services = CdxXalClient::CreateCdxXalAccessor(*m_baseXalClient, serviceName, "CDX XAL Access");
        m_cdxXalAccess.reset(new CdxXalAccess(services));
    } catch (const std::exception&) {
        CDX_LOG(LogError) << "Error while creating the Cdx Xal Accsor";
    }
}

CdxXalInterfaceImpl::~CdxXalInterfaceImpl() {
    CDX_LOG(LogDebug);
    // The access object was built on the framework's services and goes before them.
    m_cdxXalAccess.reset();
    m_baseXalClient.reset();
}

void CdxXalInterfaceImpl::Start() {
    if (m_cdxXalAccess)
        m_cdxXalAccess->start();
}

void CdxXalInterfaceImpl::Stop() {
    CDX_LOG(LogDebug);
    if (!m_cdxXalAccess)
        return;
    m_cdxXalAccess->ResetsSubscriptions();
    if (m_baseXalClient)
        m_baseXalClient->Stop();
    m_cdxXalAccess->Stop();
}

void CdxXalInterfaceImpl::AssignCallback(std::shared_ptr<CdxXalCallback> callback) {
    CDX_LOG(LogDebug);
    if (m_cdxXalAccess)
        m_cdxXalAccess->AssignCallback(std::move(callback));
}

bool CdxXalInterfaceImpl::SubscribeClientStateObject(std::string clientName) {
    CDX_LOG(LogDebug);
    return m_cdxXalAccess && m_cdxXalAccess->SubscribeClientStateObject(std::move(clientName));
}

bool CdxXalInterfaceImpl::SubscribeCdxDataObject(std::string clientName) {
    return m_cdxXalAccess && m_cdxXalAccess->SubscribeCdxDataObject(std::move(clientName));
}

bool CdxXalInterfaceImpl::SubscribeCdxDataObject() {
    return m_cdxXalAccess && m_cdxXalAccess->SubscribeCdxDataObject();
}

void CdxXalInterfaceImpl::CreateNewCdxMasterControlElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    if (hasService(CDX_HEAD, &CdxXalCallback::CdxMasterControlElementCreateStatus, document))
        m_cdxXalAccess->CreateNewCdxMasterControlElement(std::move(document));
}

void CdxXalInterfaceImpl::UpdateMasterControlElement(oru::Json::Value document) {
    if (hasAccess(CDX_HEAD))
        m_cdxXalAccess->UpdateMasterControlElement(std::move(document));
}

void CdxXalInterfaceImpl::CreateNewCdxConfigElement(oru::Json::Value document) {
    if (hasService(CDX_HEAD, &CdxXalCallback::CdxConfigCreateStatus, document))
        m_cdxXalAccess->CreateNewCdxConfigElement(std::move(document));
}

void CdxXalInterfaceImpl::UpdateConfigElement(oru::Json::Value document) {
    if (hasAccess(CDX_HEAD))
        m_cdxXalAccess->UpdateConfigElement(std::move(document));
}

void CdxXalInterfaceImpl::CreateNewCdxTriggerElement(oru::Json::Value document) {
    if (hasService(CDX_HEAD, &CdxXalCallback::CdxTriggerCreateStatus, document))
        m_cdxXalAccess->CreateNewCdxTriggerElement(std::move(document));
}

void CdxXalInterfaceImpl::UpdateTriggerElement(oru::Json::Value document) {
    if (hasAccess(CDX_HEAD))
        m_cdxXalAccess->UpdateTriggerElement(std::move(document));
}

void CdxXalInterfaceImpl::DeleteConfig(oru::Json::Value document) {
    // A delete has no outcome of its own for the application; a record that could not be written is the nearest.
    if (hasService(CDX_HEAD, &CdxXalCallback::CdxConfigCreateStatus, document))
        m_cdxXalAccess->DeleteConfig(std::move(document));
}

bool CdxXalInterfaceImpl::hasAccess(const LogHead& head) const {
    if (m_cdxXalAccess)
        return true;
    CDX_LOG_UNDER(head, LogError) << "There is no access to the service, the request is dropped";
    return false;
}

bool CdxXalInterfaceImpl::hasService(const LogHead& head, CdxXalAccess::CreateStatus status,
                                     const oru::Json::Value& document) const {
    if (!hasAccess(head))
        return false;
    if (m_cdxXalAccess->isServiceConnected())
        return true;
    CDX_LOG_UNDER(head, LogError) << "The service was never connected, the request has failed";
    m_cdxXalAccess->reportCreateFailed(status, document["name"].asString());
    return false;
}

} // namespace zepclient
