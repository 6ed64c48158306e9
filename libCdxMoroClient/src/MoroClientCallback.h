#ifndef CDXMOROCLIENT_MOROCLIENTCALLBACK_H
#define CDXMOROCLIENT_MOROCLIENTCALLBACK_H

#include <CdxHandlers.h>
#include <oru/Json.h>

#include <string>

namespace zepclient {

/// The handlers that the application registered for one client name; each may be empty, and then drops its call.
///
/// A handler runs on the framework's task thread and is called through a copy, so that it may replace itself and clean
/// up its own entry while it runs. What it throws passes to the framework. Nothing here is locked: the application
/// serialises its setters with the calls, for example by registering only from inside its handlers.
///
/// The order of the members is part of the interface.
class MoroClientCallback {
public:
    MoroClientCallback();
    virtual ~MoroClientCallback();

    void executeCdxClientHandler(oru::Json::Value document);
    void executeCdxMasterControlCreateHandler(bool isCreated, std::string id);
    void executeCdxMasterControlUpdateHandler(bool isUpdated);
    void executeCdxDataSubHandler(oru::Json::Value document);
    void executeCdxDataUpdateHandler(oru::Json::Value document);
    void executeCdxConfigCreateHandler(bool isCreated, oru::Json::Value document);
    void executeCdxConfigUpdateHandler(bool isUpdated);
    void executeCdxTriggerCreateHandler(bool isCreated, oru::Json::Value document);
    void executeCdxTriggerUpdateHandler(bool isUpdated);

    cdxEventHandler m_cdxClientHandler;
    cdxMasterControlCreateRecieveHandler m_cdxMasterControlCreateHandler;
    cdxMasterControlUpdateHandler m_cdxMasterControlUpdateHandler;
    cdxEventHandler m_cdxDataSubHandler;
    cdxEventHandler m_cdxDataUpdateHandler;
    cdxConfigCreateHandler m_cdxConfigCreateHandler;
    cdxConfigUpdateHandler m_cdxConfigUpdateHandler;
    cdxTriggerCreateHandler m_cdxTriggerCreateHandler;
    cdxTriggerUpdateHandler m_cdxTriggerUpdateHandler;
};

} // namespace zepclient

#endif
