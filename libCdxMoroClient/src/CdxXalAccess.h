#ifndef CDXMOROCLIENT_CDXXALACCESS_H
#define CDXMOROCLIENT_CDXXALACCESS_H

#include "CdxXalInterface.h"

#include <Cardataexchange.h>
#include <oru/Json.h>
#include <xal/Client.h>
#include <xal/Service.h>

#include <map>
#include <memory>
#include <string>

namespace zepclient {

class CdxXalCallback;

/// The connection to the car data exchange service: follows its availability, holds its subscriptions, writes its
/// elements, and reports everything to the callback translator.
///
/// Handlers run on the framework's threads, operations on the application's or inside a handler. No lock is taken: the
/// pointers to callback, service and subscriptions are read and replaced atomically, so that a reset that meets a
/// connect or a notification is no data race; everything else belongs to the framework's task thread.
///
/// Handlers hold a plain pointer to this object. That is safe because the destructor begins by closing the services'
/// registry, after which none of them starts and none runs on another thread. Exceptions, the framework's and the JSON
/// library's, pass to the caller or to the framework's thread.
///
/// The order of bases, members and virtual operations is part of the interface.
class CdxXalAccess : public xal::XalClient, public CdxXalInterface {
public:
    explicit CdxXalAccess(const std::shared_ptr<xal::XalClientServices>& services);
    ~CdxXalAccess() override;

    /// Registers the service listener: the real start.
    void start() override;
    /// Does nothing: start() is the framework's hook.
    void Start() override;
    /// Does nothing: whoever stops calls ResetsSubscriptions().
    void Stop() override;
    void AssignCallback(std::shared_ptr<CdxXalCallback> callback) override;

    /// The subscribe operations hold one subscription of each kind: a new one takes the place of the former, which is
    /// released. A service that has gone still counts as one: what is subscribed then starts with its return.
    bool SubscribeClientStateObject(std::string id) override;
    bool SubscribeCdxDataObject(std::string id) override;
    bool SubscribeCdxDataObject() override;
    bool SubscribeClientStateObject();

    /// Creates and deletes use the service without a test: see isServiceConnected(). Updates without one do nothing.
    void CreateNewCdxMasterControlElement(oru::Json::Value document) override;
    void UpdateMasterControlElement(oru::Json::Value document) override;
    void CreateNewCdxConfigElement(oru::Json::Value document) override;
    void UpdateConfigElement(oru::Json::Value document) override;
    void CreateNewCdxTriggerElement(oru::Json::Value document) override;
    void UpdateTriggerElement(oru::Json::Value document) override;
    /// Deletes the configuration record with the document's "id". The outcome is logged, nobody is called.
    void DeleteConfig(oru::Json::Value document);

    /// Whether a service was ever connected; a lost one stays until the next takes its place.
    bool isServiceConnected() const;

    /// From the service listener, on the framework's task thread.
    void CdxServiceConnected(std::shared_ptr<xalobjects_GX2::CardataexchangeService> service);
    void CdxServiceDisconnected();

    /// Ends the resource subscriptions and the data element's. The client-state element's stays, deliberately, until
    /// the next one takes its place.
    void ResetsSubscriptions();
    /// Ends every per-element subscription whose key is not in `current`.
    void updateCdxClientStateSubscription(std::map<std::string, std::string>& current);

    /// Fill a descriptor with those keys that the document has; "name" goes behind `namePrefix` and ">>".
    void PopulateConfigDescFromJson(xalobjects_GX2::CardataexchangeService::CdxConfigDescriptor& descriptor,
                                    oru::Json::Value& document, std::string namePrefix);
    void PopulateTriggerDescFromJson(xalobjects_GX2::CardataexchangeService::CdxTriggerDescriptor& descriptor,
                                     oru::Json::Value& document, std::string namePrefix);
    void PopulateMasterCtlDescFromJson(xalobjects_GX2::CardataexchangeService::CdxMasterControlDescriptor& descriptor,
                                       oru::Json::Value& document, std::string namePrefix);

    using CreateStatus = void (CdxXalCallback::*)(bool, oru::Json::Value);
    using UpdateStatus = void (CdxXalCallback::*)(bool, std::string);

    /// Reports a create that was refused: a document with "name" only.
    void reportCreateFailed(CreateStatus status, const std::string& name);

private:
    template <class Element>
    void reportCreated(CreateStatus status, const std::string& name, const Element& element);
    void report(CreateStatus status, bool isCreated, oru::Json::Value document);
    void report(UpdateStatus status, bool isUpdated, std::string name);
    std::shared_ptr<CdxXalCallback> callback() const;
    std::shared_ptr<xalobjects_GX2::CardataexchangeService> service() const;

    std::string m_lastCanonicalName;
    std::shared_ptr<CdxXalCallback> m_callback;
    std::shared_ptr<xalobjects_GX2::CardataexchangeService> m_cdxXalService;
    std::shared_ptr<xal::Subscription> m_clientStateResourceSubscription;
    std::shared_ptr<xal::Subscription> m_clientStateElementSubscription;
    std::shared_ptr<xal::Subscription> m_spareSubscription; ///< never assigned
    std::shared_ptr<xal::Subscription> m_cdxDataResourceSubscription;
    std::shared_ptr<xal::Subscription> m_cdxDataElementSubscription;
    std::map<std::string, std::shared_ptr<xal::Subscription>> m_clientStateSubscriptions; ///< pruned, never filled
};

} // namespace zepclient

#endif
