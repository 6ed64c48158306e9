#pragma once

#include <xal/QueryOptions.h>
#include <xalutil/Json.h>
#include <xalutil/Logger.h>

#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace xal {

template <class T>
using XalAccessorCallbackParamType = std::shared_ptr<const T>;
template <class T>
using XalAccessorSubscriptionCallbackParamType = std::shared_ptr<const T>;
template <class T>
using XalAccessorSubscriptionReadResourceCallbackParamType = std::vector<std::shared_ptr<const T>>;

/// How a request ended: the HTTP status of its answer, 0 when no answer was had.
class XalResponse {
public:
    explicit XalResponse(int status = 0);
    virtual ~XalResponse();
    int getStatusCode() const;

private:
    int m_status;
};

class SubscriptionResponse : public XalResponse {
public:
    using XalResponse::XalResponse;
};

/// A request whose sending threw: what() names the operation. It is handed over as an object that is also a
/// std::nested_exception of the cause.
class XalException : public XalResponse, public std::runtime_error {
public:
    XalException(int status, const std::string& what);
};

/// Held by whoever wants the notifications. After unsubscribe(), or after the last reference was dropped, the callback
/// does not start again. unsubscribe() also waits for a callback that is running on another thread; dropping does not.
class Subscription {
public:
    virtual ~Subscription();
    virtual void unsubscribe() = 0;
};

struct Request {
    enum Kind { CREATE, UPDATE, REMOVE, READ } kind = READ;
    std::string serviceName = {}, resourceName = {}, id = {};
    std::shared_ptr<xalutil::JsonObject> body = {};
    XalFilter filter = {};
    QueryOptions options = {};
    std::exception_ptr failure = {}; ///< what making the body threw: nothing is sent, the answer is an XalException
};

struct SubscribeRequest {
    enum Kind { RESOURCE, ELEMENT } kind = RESOURCE;
    std::string serviceName = {}, resourceName = {}, id = {};
    bool narrowed = false; ///< a filter or query options were set
};

struct Event {
    enum Kind { CHANGED, REMOVED, CURRENT, RESTARTED, REFUSED } kind = CHANGED;
    std::string id = {};
    std::shared_ptr<xalutil::JsonObject> element = {};
    int status = 0;
};

/// What a service object speaks through. Abstract, so that a test can stand in for the framework.
class IServiceConnection {
public:
    /// The value is empty where the answer has none.
    using Answer = std::function<void(std::shared_ptr<const XalResponse>, std::shared_ptr<xalutil::JsonValue>)>;

    virtual ~IServiceConnection();
    /// Never throws; answers once, on the task executor; a sending that throws answers with an XalException.
    virtual void send(Request request, Answer answer) = 0;
    virtual std::shared_ptr<Subscription> subscribe(SubscribeRequest request, std::function<void(Event)> event) = 0;
    /// For the texts of a request without an error handler; callbacks hold the connection weakly.
    virtual xalutil::ILogger& getLogger() = 0;
};

/// One service as a program sees it: requests and subscriptions for its element types. `T` is an element class with the
/// member type Desctype.
///
/// A service object may outlive the registry that made it: its requests then fail with status 0.
/// Each request calls exactly one of its two handlers, once, on the task executor's thread; an empty handler is
/// allowed.
class Service {
public:
    using Done = std::function<void(std::shared_ptr<const XalResponse>)>;
    template <class T>
    using Created = std::function<void(XalAccessorCallbackParamType<T>, std::shared_ptr<const XalResponse>)>;
    template <class T>
    using Read = std::function<void(XalAccessorSubscriptionReadResourceCallbackParamType<T>,
                                    std::shared_ptr<const XalResponse>)>;
    template <class T>
    using ResourceChanged = std::function<void(XalAccessorSubscriptionReadResourceCallbackParamType<T>,
                                               std::shared_ptr<const SubscriptionResponse>)>;
    template <class T>
    using ElementChanged = std::function<void(XalAccessorSubscriptionCallbackParamType<T>)>;

    explicit Service(std::shared_ptr<IServiceConnection> connection);

    template <class T>
    void createElement(const typename T::Desctype& descriptor, Created<T> created, Done failed);
    template <class T>
    void updateElement(const typename T::Desctype& descriptor, Done done, Done failed);
    template <class T>
    void deleteElement(const typename T::Desctype& descriptor, Done done, Done failed);
    /// Reads the resource's list with the descriptor's filter and query options.
    template <class T>
    void readElements(const typename T::Desctype& descriptor, Read<T> read, Done failed);

    template <class T>
    std::shared_ptr<Subscription> subscribeResource(const typename T::Desctype& descriptor, ResourceChanged<T> changed);
    template <class T>
    std::shared_ptr<Subscription> subscribeElement(const typename T::Desctype& descriptor, ElementChanged<T> changed);

private:
    std::shared_ptr<IServiceConnection> m_connection;
};

} // namespace xal
