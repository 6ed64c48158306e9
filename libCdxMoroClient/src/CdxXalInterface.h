#ifndef CDXMOROCLIENT_CDXXALINTERFACE_H
#define CDXMOROCLIENT_CDXXALINTERFACE_H

#include <oru/Json.h>

#include <memory>
#include <string>

namespace zepclient {

class CdxXalCallback;

/// What the client asks of the service, whoever carries it out: the facade (CdxXalInterfaceImpl) towards the client,
/// the access object (CdxXalAccess) behind it. The order of the virtual operations is part of the interface.
///
/// Called on the application's threads, or on a framework thread from inside a handler. Nothing here waits for the
/// service: notifications and the outcomes of writes arrive at the callback translator, on the framework's threads.
class CdxXalInterface {
public:
    virtual ~CdxXalInterface();

    /// Begins to follow the service's availability.
    virtual void Start() = 0;
    virtual void Stop() = 0;
    /// Where every notification and outcome goes from now on; null: nowhere. Comes before Start(), so that the first
    /// connection already finds it.
    virtual void AssignCallback(std::shared_ptr<CdxXalCallback> callback) = 0;

    /// Subscribe to one element, by its id, or to the whole data resource. False, and nothing done, while no service
    /// was ever connected. The framework's exceptions pass to the caller.
    virtual bool SubscribeClientStateObject(std::string clientName) = 0;
    virtual bool SubscribeCdxDataObject(std::string clientName) = 0;
    virtual bool SubscribeCdxDataObject() = 0;

    /// Create or update one element from the application's document. A value that cannot be converted to its field's
    /// type throws the JSON library's exception.
    virtual void CreateNewCdxMasterControlElement(oru::Json::Value document) = 0;
    virtual void UpdateMasterControlElement(oru::Json::Value document) = 0;
    virtual void CreateNewCdxConfigElement(oru::Json::Value document) = 0;
    virtual void UpdateConfigElement(oru::Json::Value document) = 0;
    virtual void CreateNewCdxTriggerElement(oru::Json::Value document) = 0;
    virtual void UpdateTriggerElement(oru::Json::Value document) = 0;
};

} // namespace zepclient

#endif
