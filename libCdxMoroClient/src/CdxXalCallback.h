#ifndef CDXMOROCLIENT_CDXXALCALLBACK_H
#define CDXMOROCLIENT_CDXXALCALLBACK_H

#include <CdxObjects.h>
#include <oru/Json.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zepclient {

/// Turns what the access object reports into calls of ten slots, which the client binds to its inbound handlers.
///
/// Of a list only the first element is passed on: the framework names the element that changed first. An empty slot
/// drops its notification.
///
/// Slots are filled once, before the object is handed to the facade. The operations run on the framework's threads and
/// take no lock. A slot is called through a copy, so that it may do anything, also release this object. What a slot
/// throws passes to the framework.
///
/// The order of the slots and of the virtual operations is part of the interface.
class CdxXalCallback {
public:
    CdxXalCallback();
    virtual ~CdxXalCallback();

    virtual void CdxClientStateAvailablity(bool isAvailable);
    virtual void CdxClientStateObjectNotification(std::vector<CdxClientStateObject> states);
    virtual void CdxClientStateUpdateNotification(CdxClientStateObject state);
    /// Outcome of a create: the document holds "name" and, after success, "id" and "uri".
    virtual void CdxMasterControlElementCreateStatus(bool isCreated, oru::Json::Value document);
    /// Outcome of an update of the element with this name.
    virtual void CdxMasterCtlUpdateStatus(bool isUpdated, std::string name);
    virtual void CdxDataObjectNotification(std::vector<CdxDataObject> data);
    /// `data` is not null.
    virtual void CdxDataUpdateNotification(std::shared_ptr<const CdxDataObject> data);
    virtual void CdxConfigCreateStatus(bool isCreated, oru::Json::Value document);
    virtual void CdxConfigUpdateStatus(bool isUpdated, std::string name);
    virtual void CdxTriggerCreateStatus(bool isCreated, oru::Json::Value document);
    virtual void CdxTriggerUpdateStatus(bool isUpdated, std::string name);
    virtual void CDXClientDisconnected(std::string name);

    std::function<void(CdxClientStateObject)> clientStateCallback;
    std::function<void(bool, oru::Json::Value)> masterCtlCreateCallback;
    std::function<void(bool, std::string)> masterCtlUpdateCallback;
    std::function<void(CdxDataObject)> dataSubscriptionCallback;
    std::function<void(std::shared_ptr<const CdxDataObject>)> dataUpdateCallback;
    std::function<void(bool, oru::Json::Value)> configCreateCallback;
    std::function<void(bool, std::string)> configUpdateCallback;
    std::function<void(bool, oru::Json::Value)> triggerCreateCallback;
    std::function<void(bool, std::string)> triggerUpdateCallback;
    std::function<void(std::string)> clientDisconnectCallback;
};

} // namespace zepclient

#endif
