#include "CdxXalAccess.h"

#include "CdxLog.h"
#include "CdxXalCallback.h"
#include "ElementText.h"

#include <xal/ServiceRegistry.h>

#include <atomic>
#include <exception>
#include <utility>
#include <vector>

using xalobjects_GX2::CardataexchangeService;
using CdxClientState = CardataexchangeService::CdxClientState;
using CdxClientStateDescriptor = CardataexchangeService::CdxClientStateDescriptor;
using CdxData = CardataexchangeService::CdxData;
using CdxDataDescriptor = CardataexchangeService::CdxDataDescriptor;

namespace zepclient {

namespace {

template <class Element>
using Elements = xal::XalAccessorSubscriptionReadResourceCallbackParamType<Element>;
using Response = std::shared_ptr<const xal::SubscriptionResponse>;

/// The former target is let go after the new one is in its place.
template <class T>
void replace(std::shared_ptr<T>& pointer, std::shared_ptr<T> target) {
    std::atomic_exchange(&pointer, std::move(target));
}

void unsubscribe(const std::shared_ptr<xal::Subscription>& subscription) {
    if (const auto held = std::atomic_load(&subscription))
        held->unsubscribe();
}

template <class Descriptor>
Descriptor descriptorOf(const std::string& id) {
    Descriptor descriptor;
    descriptor.setId(id);
    return descriptor;
}

/// The access object whose disconnect is being told on this thread; null once that object is gone.
thread_local const CdxXalAccess* tellingDisconnect = nullptr;

} // namespace

CdxXalAccess::CdxXalAccess(const std::shared_ptr<xal::XalClientServices>& services) : xal::XalClient(services) {}

CdxXalAccess::~CdxXalAccess() {
    if (tellingDisconnect == this)
        tellingDisconnect = nullptr;
    // Handlers point to this object: their last one must have returned before any member goes.
    if (const auto& services = getClientServices(); services && services->getServiceRegistry())
        services->getServiceRegistry()->close();
}

void CdxXalAccess::start() {
    CDX_LOG(LogDebug);
    xal::ServiceListener<CardataexchangeService> listener;
    listener.connected = [this](std::shared_ptr<CardataexchangeService> service) {
        CDX_LOG_NO_LINE(LogNotice) << "OruLog: CardataExchange MORO service is available";
        CdxServiceConnected(std::move(service));
    };
    listener.disconnected = [this] { CdxServiceDisconnected(); };
    // By value: the line bears the text of the base class, whatever the error was.
    listener.error = [](std::exception error) {
        CDX_LOG(LogError) << "Failed to listen to CdxService: error is " << error.what();
    };
    getClientServices()->getServiceRegistry()->registerServiceListener(listener);
}

void CdxXalAccess::Start() {}

void CdxXalAccess::Stop() {}

void CdxXalAccess::AssignCallback(std::shared_ptr<CdxXalCallback> callback) {
    replace(m_callback, std::move(callback));
}

bool CdxXalAccess::isServiceConnected() const {
    return service() != nullptr;
}

std::shared_ptr<CdxXalCallback> CdxXalAccess::callback() const {
    return std::atomic_load(&m_callback);
}

std::shared_ptr<CardataexchangeService> CdxXalAccess::service() const {
    return std::atomic_load(&m_cdxXalService);
}

void CdxXalAccess::CdxServiceConnected(std::shared_ptr<CardataexchangeService> service) {
    CDX_LOG(LogDebug);
    replace(m_cdxXalService, std::move(service));
    if (const auto callback = this->callback()) {
        SubscribeClientStateObject();
        callback->CdxClientStateAvailablity(true);
    }
}

void CdxXalAccess::CdxServiceDisconnected() {
    CDX_LOG(LogDebug);
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Service is disconnected";
    if (m_lastCanonicalName.empty())
        return;
    // A name was recorded, so a callback was there when the service was connected.
    // The application may release the client from inside its handler, and this object with it.
    tellingDisconnect = this;
    try {
        callback()->CDXClientDisconnected(m_lastCanonicalName);
    } catch (...) {
        tellingDisconnect = nullptr;
        throw;
    }
    if (std::exchange(tellingDisconnect, nullptr) == this)
        ResetsSubscriptions();
}

void CdxXalAccess::ResetsSubscriptions() {
    CDX_LOG(LogDebug);
    unsubscribe(m_clientStateResourceSubscription);
    unsubscribe(m_cdxDataResourceSubscription);
    unsubscribe(m_cdxDataElementSubscription);
    replace<xal::Subscription>(m_clientStateResourceSubscription, nullptr);
    replace<xal::Subscription>(m_spareSubscription, nullptr);
    replace<xal::Subscription>(m_cdxDataResourceSubscription, nullptr);
    replace<xal::Subscription>(m_cdxDataElementSubscription, nullptr);
    // Nothing fills it. A look that finds it empty lets a stop meet a loss of the service without a data race.
    if (!m_clientStateSubscriptions.empty())
        m_clientStateSubscriptions.clear();
}

bool CdxXalAccess::SubscribeClientStateObject() {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service) {
        CDX_LOG(LogError) << "m_cdxXalService is NULL ptr so can not go ahead";
        return false;
    }
    CDX_LOG_NO_LINE(LogNotice) << "Subscribing for the CDX Client State Object";
    replace(m_clientStateResourceSubscription,
            service->subscribeResource<CdxClientState>(
                CdxClientStateDescriptor(), [this](Elements<CdxClientState> elements, Response) {
                    CDX_LOG(LogDebug) << "Got the callback for CDX CLIENT STATE OBJECT UPDATE";
                    CDX_LOG_NO_LINE(LogNotice) << "SIZE OF CDXCLIENT STATE OBJ = " << elements.size();
                    std::vector<CdxClientState> states;
                    states.reserve(elements.size());
                    for (const auto& element : elements) {
                        m_lastCanonicalName = textOrInvalid(element->getCanonicalName());
                        states.push_back(*element);
                    }
                    CDX_LOG_NO_LINE(LogNotice) << "Connected Service name = " << m_lastCanonicalName;
                    if (const auto callback = this->callback())
                        callback->CdxClientStateObjectNotification(std::move(states));
                }));
    return true;
}

bool CdxXalAccess::SubscribeClientStateObject(std::string id) {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return false;
    CDX_LOG_NO_LINE(LogNotice) << "SUUBSCRIBING FOR UUID = " << id;
    replace(m_clientStateElementSubscription,
            service->subscribeElement<CdxClientState>(
                descriptorOf<CdxClientStateDescriptor>(id), [this](std::shared_ptr<const CdxClientState> element) {
                    if (!element)
                        return;
                    CDX_LOG_NO_LINE(LogNotice)
                        << "Changed CDX ClientElement CANONICAL NAME = " << textOrInvalid(element->getCanonicalName());
                    if (const auto callback = this->callback())
                        callback->CdxClientStateUpdateNotification(*element);
                }));
    return true;
}

bool CdxXalAccess::SubscribeCdxDataObject() {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return false;
    CDX_LOG_NO_LINE(LogNotice) << "Subscribing for the CDX Data";
    replace(m_cdxDataResourceSubscription,
            service->subscribeResource<CdxData>(CdxDataDescriptor(), [this](Elements<CdxData> elements, Response) {
                CDX_LOG_NO_LINE(LogNotice)
                    << "Got the callback for CDX DATA resource And SIZE OF CDX DATA Element OBJ = " << elements.size();
                std::vector<CdxData> data;
                data.reserve(elements.size());
                for (const auto& element : elements)
                    data.push_back(*element);
                if (const auto callback = this->callback())
                    callback->CdxDataObjectNotification(std::move(data));
            }));
    return true;
}

bool CdxXalAccess::SubscribeCdxDataObject(std::string id) {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return false;
    CDX_LOG(LogDebug) << "SUUBSCRIBING FOR UUID = " << id;
    const auto descriptor = descriptorOf<CdxDataDescriptor>(id);
    CDX_LOG(LogDebug) << "JUST BEFORE UPDATE SUBS";
    replace(m_cdxDataElementSubscription,
            service->subscribeElement<CdxData>(descriptor, [this](std::shared_ptr<const CdxData> element) {
                if (!element)
                    return;
                CDX_LOG_NO_LINE(LogNotice) << "Changed CDX Data";
                if (const auto callback = this->callback())
                    callback->CdxDataUpdateNotification(std::move(element));
            }));
    return true;
}

void CdxXalAccess::updateCdxClientStateSubscription(std::map<std::string, std::string>& current) {
    CDX_LOG(LogDebug);
    std::vector<std::string> gone;
    for (const auto& [key, subscription] : m_clientStateSubscriptions) {
        if (current.count(key) == 0) {
            subscription->unsubscribe();
            gone.push_back(key);
        }
    }
    for (const std::string& key : gone)
        m_clientStateSubscriptions.erase(key);
    CDX_LOG_NO_LINE(LogNotice) << "Size of MAP = " << m_clientStateSubscriptions.size();
}

} // namespace zepclient
