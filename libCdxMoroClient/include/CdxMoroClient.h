#ifndef CDXMOROCLIENT_H
#define CDXMOROCLIENT_H

#include <CdxHandlers.h>
#include <CdxObjects.h>
#include <oru/Json.h>
#include <oru/Mutex.h>
#include <oru/Thread.h>
#include <oru/ThreadCondition.h>

#include <map>
#include <memory>
#include <string>

/// The library's own classes.
namespace zepclient {

class CdxXalCallback;
class CdxXalInterface;
class MoroClientCallback;

/// The one object through which an application exchanges data with the car data exchange service.
///
/// The service has clients, each with a name. The library tells the application of every client that the service
/// reports, delivers that client's state and data as JSON documents, and writes configuration records, trigger messages
/// and master control elements for it. Everything comes to handlers that the application registers under the client's
/// name.
///
/// **Order of use.** getInstance(); setMsgProcessorCallback() and setMsgProcessorDeleteCallback();
/// StartCdxMoroClient(); start(), if a thread is wanted that lives until stopMoroClient(); in the message-processor
/// handler, for each new client, the setters with its name; subscriptions and writes. At the end StopCdxMoroClient(),
/// stopMoroClient(), join(), ReleaseCdxMoroClientThread().
///
/// **Threads.** All handlers run on one framework thread, one at a time (CdxHandlers.h); only the failure of a create
/// or delete before the service was ever reported is told on the caller's thread. The operations may be called from the
/// application's threads and from inside handlers. Neither the handlers' registry nor the library-wide handlers are
/// locked: setters and cleanUpService() must not run while a notification is delivered on another thread. The safe
/// pattern is to call them from inside handlers only, and the library-wide setters before the start.
/// StopCdxMoroClient() waits for the handler that runs on another thread: whoever stops holds no mutex that a handler
/// takes.
///
/// **Errors.** Nothing is returned: a failed write comes as a false flag to the handler, a failed look-up as one line
/// of the platform's log. A document's value that cannot be converted to its field's type throws the JSON library's
/// exception (Json::Exception), reading an absent field of an element a std::runtime_error "getValue called on
/// uninitialized Optional".
///
/// **Start-up documents.** The registry document: "mode" ("static": the service is where the service document says;
/// "registry": the registry is asked), "httpUri" (the registry's address) and "serviceSettings", an array of objects
/// with "service", "useSeparator" (flag) and "timeOut" (milliseconds). The service document: "serverBaseUri",
/// "serverBasePathHTTP", "serverBasePathWS", "separator", "separatorAfterResource" (texts) and "timeOut".
class CDX_EXPORT CdxMoroClient : public oru::Thread {
public:
    /// The process's client, made by the first call, and again by the first after a release. Not locked: getInstance()
    /// and ReleaseCdxMoroClientThread() are called from one thread, or serialised.
    static std::shared_ptr<CdxMoroClient> getInstance();

    /// Drops the process's hold on the client, which goes with its last copy.
    static void ReleaseCdxMoroClientThread();

    /// Ends the connection if StopCdxMoroClient() was not called. A worker thread must have been ended and joined
    /// before.
    ~CdxMoroClient() override;

    /// Builds the connection to the service out of the two start-up documents and begins to follow the service's
    /// availability; does not wait for it. A connection that was started before is ended. Keys that a document lacks
    /// are added to it as null members. Throws, and starts nothing, when a document has a value of the wrong type. Must
    /// not be called from inside a handler.
    void StartCdxMoroClient(oru::Json::Value& registryConfig, oru::Json::Value& serviceConfig);

    /// Ends all subscriptions and the connection, and empties the two library-wide handlers. Handlers registered by
    /// client name stay. When it returns, no handler runs on another thread and none will start. Only after
    /// StartCdxMoroClient().
    void StopCdxMoroClient();

    /// The worker thread's body: waits for one wake-up and returns. No work of the library is done there.
    void run() override;

    /// Wakes the worker thread so that it ends; does not join it. A worker that is not waiting yet misses it.
    void stopMoroClient();

    /// Wakes the worker thread if it is waiting.
    void SendWakeupSignal();

    /// @name Library-wide handlers
    /// Set before the start; each replaces the one set before.
    /// @{

    /// Told of every new client, with its client-state document: "canonicalName", "id" ("invalid" where there is none),
    /// "name", "elementId", "isNewConfigRequested", "isShutdownRequested", "uri", and "offeredDataType", an array, or
    /// null when nothing is offered. Its "name" is the name under which the client's handlers are registered. It must
    /// be set: a new client that meets an empty one raises std::bad_function_call on the framework's thread.
    void setMsgProcessorCallback(cdxEventHandler handler);
    /// Told that the service was lost, with the canonical name of the client reported last, if a client of that name is
    /// known. The client's handlers stay registered until cleanUpService().
    void setMsgProcessorDeleteCallback(cdxEventDeleteHandler handler);
    /// @}

    /// @name A client's handlers
    /// Each takes effect for a client that has been announced to the message-processor handler and not been cleaned up
    /// since; for any other name the handler is dropped, with an error in the log. An empty handler drops its calls.
    /// @{

    /// Every further state of the client, with the document of setMsgProcessorCallback().
    void setCdxClientStateRecieveHandler(cdxEventHandler handler, std::string clientName);
    /// How every create of a master control element under the client's name ended.
    void setCdxMasterControlCreateRecieveHandler(cdxMasterControlCreateRecieveHandler handler, std::string clientName);
    /// How every update of a master control element under the client's name ended.
    void setCdxMasterControlUpdateHandler(cdxMasterControlUpdateHandler handler, std::string clientName);
    /// Data messages of the whole data resource (SubscribeToCdxDataObject() without an id).
    void setCdxDataStateSubsRecieveHandler(cdxEventHandler handler, std::string clientName);
    /// Changes of the one data element subscribed to by its id.
    void setCdxDataStateUpdateRecieveHandler(cdxEventHandler handler, std::string clientName);
    /// How every create of a configuration record under the client's name ended.
    void setCdxConfigCreateRecieveHandler(cdxConfigCreateHandler handler, std::string clientName);
    /// How every update of a configuration record under the client's name ended.
    void setCdxConfigUpdateRecieveHandler(cdxConfigUpdateHandler handler, std::string clientName);
    /// How every create of a trigger message under the client's name ended.
    void setCdxTriggerCreateRecieveHandler(cdxTriggerCreateHandler handler, std::string clientName);
    /// How every update of a trigger message under the client's name ended.
    void setCdxTriggerUpdateRecieveHandler(cdxTriggerUpdateHandler handler, std::string clientName);

    /// Forgets the client and its handlers, one that is running excepted until it returns. The next state of that name
    /// announces it anew. An unknown name is none to forget.
    void cleanUpService(std::string clientName);
    /// @}

    /// @name Subscriptions
    /// Only after StartCdxMoroClient(), and without effect before the service was reported for the first time. The
    /// states of all clients are subscribed to by the library itself.
    /// @{

    /// Follows one client-state element, by its id; takes the place of the one followed before.
    void SubscribeToCdxClientObject(std::string id);
    /// Follows all data messages.
    void SubscribeToCdxDataObject();
    /// Follows one data element, by its id; takes the place of the one followed before.
    void SubscribeToCdxDataObject(std::string id);
    /// @}

    /// @name Writes
    /// Only after StartCdxMoroClient(). The outcome comes to the handler of the client that the document's "name"
    /// names. A create while the service was never reported fails at once, on the caller's thread; an update is then
    /// dropped. Every key is optional but where it is said, and the service says which element is meant by "id".
    /// @{

    /// Keys: "name", "id", "uri", "eventTicket", "elementId", "dataDeliveryResult" and "backendChannelControl" (numbers
    /// of the enums of CardataexchangeService) and "permittedDataType" (array of texts).
    void CreateCdxMasterControlElement(oru::Json::Value& document);
    /// The same keys; with the platform's log at level 7 "eventTicket", "dataDeliveryResult", "backendChannelControl"
    /// and "name" must be there, or std::runtime_error is thrown.
    void UpdateCdxMasterControlElement(oru::Json::Value& document);
    /// Keys: "name", "id", "uri", "elementId", "expiryTime", "receiveTime", "recordBody", "recordId", "spApplication".
    void CreateCdxConfigElement(oru::Json::Value document);
    /// The same keys.
    void UpdateCdxConfigElement(oru::Json::Value document);
    /// Deletes the configuration record with the document's "id". No handler is told; the log says how it ended. While
    /// the service was never reported, it is reported like a failed create of the document's "name".
    void DeleteCdxConfigElement(oru::Json::Value document);
    /// Keys: "name", "id", "uri", "elementId", "expirationTime", "receiveTime", "messageContent", "messageSignature",
    /// "messageType", "messageId", "correlationTag", "isTechnicalReceiptRequested".
    void CreateCdxTriggerElement(oru::Json::Value document);
    /// The same keys; with the platform's log at level 5 or more "id" must be there, or std::runtime_error is thrown.
    void UpdateCdxTriggerElement(oru::Json::Value document);
    /// @}

    /// @name Documents
    /// Write an element's fields into a document, over members of the same keys. Times are in milliseconds since 1970.
    /// @{

    /// Those fields that the element has: "version", "uri", "id", "messageId", "name", "authenticode",
    /// "correlationTag", "deliveryMode" (number), "eventId", "isCallbackAbilityRequested", "isMixinOfUserIdRequested",
    /// "isMixinOfVinRequested", "timeToLive" (seconds), "timestamp" and "timezone"; "cdxClientDataReport", the report's
    /// entries as one text with nothing between them; and "elementId", which is always 1.
    void PopulateCdxDataInJson(CdxDataObject data, oru::Json::Value& document);
    /// The same; `data` must not be null.
    void PopulateCdxDataInJson(std::shared_ptr<const CdxDataObject> data, oru::Json::Value& document);
    /// Every field must be there: the first absent one throws std::runtime_error and leaves the document half filled.
    void PopulateCdxConfigInJson(CdxConfigObject config, oru::Json::Value& document);
    /// Every field must be there: the first absent one throws std::runtime_error and leaves the document half filled.
    void PopulateCdxTriggerInJson(CdxTriggerObject trigger, oru::Json::Value& document);
    /// @}

    /// @name Inbound
    /// What the service reports comes in here, on the framework's thread, and goes on to the handlers. Not for
    /// applications.
    /// @{

    /// Announces a client whose name is new; tells its own handler otherwise.
    void xalHandleCdxClientState(CdxClientStateObject state);
    /// Tells the delete handler, if the name is known.
    void xalHandleCdxClientDisconnectState(std::string name);
    /// A data message of the whole data resource, for the client that it names.
    void xalHandleCdxDataSubscription(CdxDataObject data);
    /// A change of the one data element subscribed to by its id; `data` is not null.
    void xalHandleCdxDataUpdate(std::shared_ptr<const CdxDataObject> data);
    /// The outcome of a create, for the client that the document's "name" names.
    void xalHandleCdxMasterCtlCreateElement(bool isCreated, oru::Json::Value document);
    /// The outcome of an update, for the client with this name.
    void xalHandleCdxMasterCtlUpdateElement(bool isUpdated, std::string name);
    /// The outcome of a create, for the client that the document's "name" names.
    void xalHandleConfigCreateElement(bool isCreated, oru::Json::Value document);
    /// The outcome of an update, for the client with this name.
    void xalHandleConfigUpdateElement(bool isUpdated, std::string name);
    /// The outcome of a create, for the client that the document's "name" names.
    void xalHandleTriggerCreateElement(bool isCreated, oru::Json::Value document);
    /// The outcome of an update, for the client with this name.
    void xalHandleTriggerUpdateElement(bool isUpdated, std::string name);
    /// @}

private:
    CdxMoroClient();

    static std::shared_ptr<CdxMoroClient> m_inst;

    std::shared_ptr<CdxXalInterface> m_xalInterface;
    std::shared_ptr<CdxXalCallback> m_xalCallback;
    bool m_isRunning = false;
    std::map<std::string, std::shared_ptr<MoroClientCallback>> m_clientCallbacks;
    cdxEventHandler m_msgProcessorCallback;
    cdxEventDeleteHandler m_msgProcessorDeleteCallback;
    oru::Json::Value m_reservedJson1;
    oru::Json::Value m_reservedJson2;
    oru::Mutex m_mutex;
    oru::ThreadCondition m_condition;
};

} // namespace zepclient

#endif
