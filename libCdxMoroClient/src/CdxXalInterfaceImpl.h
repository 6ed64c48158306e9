#ifndef CDXMOROCLIENT_CDXXALINTERFACEIMPL_H
#define CDXMOROCLIENT_CDXXALINTERFACEIMPL_H

#include "CdxXalAccess.h"
#include "CdxXalInterface.h"

#include <memory>
#include <string>

namespace zepclient {

class CdxBaseXalClient;
struct LogHead;

/// The facade: bootstraps the framework from the two start-up documents, owns the base client and the access object,
/// and forwards every request to the access object on the caller's thread.
///
/// Without an access object (its creation failed) starting, stopping and assigning a callback do nothing, subscriptions
/// return false, and a write does nothing but log one error. A create or delete while no service was ever connected
/// logs one error and is reported like one that the service refused.
class CdxXalInterfaceImpl : public CdxXalInterface {
public:
    /// What the framework's constructors and the documents' reading throw passes to the caller. A std::exception while
    /// the access object is created is logged, and leaves the facade without one.
    CdxXalInterfaceImpl(oru::Json::Value& registryConfig, oru::Json::Value& serviceConfig);
    /// Releases the access object, which ends its connection, before the base client.
    ~CdxXalInterfaceImpl() override;

    void Start() override;
    /// Ends subscriptions, executors and connections. Releases nothing of its own.
    void Stop() override;
    void AssignCallback(std::shared_ptr<CdxXalCallback> callback) override;

    bool SubscribeClientStateObject(std::string clientName) override;
    bool SubscribeCdxDataObject(std::string clientName) override;
    bool SubscribeCdxDataObject() override;

    void CreateNewCdxMasterControlElement(oru::Json::Value document) override;
    void UpdateMasterControlElement(oru::Json::Value document) override;
    void CreateNewCdxConfigElement(oru::Json::Value document) override;
    void UpdateConfigElement(oru::Json::Value document) override;
    void CreateNewCdxTriggerElement(oru::Json::Value document) override;
    void UpdateTriggerElement(oru::Json::Value document) override;
    /// Deletes the configuration record with the document's "id".
    void DeleteConfig(oru::Json::Value document);

private:
    bool hasAccess(const LogHead& head) const;
    bool hasService(const LogHead& head, CdxXalAccess::CreateStatus status, const oru::Json::Value& document) const;

    std::shared_ptr<CdxBaseXalClient> m_baseXalClient;
    std::shared_ptr<CdxXalAccess> m_cdxXalAccess;
};

} // namespace zepclient

#endif
