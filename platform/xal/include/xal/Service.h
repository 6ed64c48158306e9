#ifndef XAL_SERVICE_H
#define XAL_SERVICE_H

#include <xal/QueryOptions.h>
#include <xalutil/Json.h>
#include <xalutil/Logger.h>

#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
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
    /// Answers once, on the task executor; a sending that throws answers with an XalException. Throws only where memory
    /// does not suffice to keep the answer, and then nothing is sent and nothing is answered.
    virtual void send(Request request, Answer answer) = 0;
    virtual std::shared_ptr<Subscription> subscribe(SubscribeRequest request, std::function<void(Event)> event) = 0;
    /// For the texts of a request without an error handler; callbacks hold the connection weakly.
    virtual xalutil::ILogger& getLogger() = 0;
};

namespace detail {

// What the library works with behind the templates of Service, so that those stay thin: elements whose class only the
// template knows. All else, the judging of answers and the order of lists, is written once, in the library.

using AnyElement = std::shared_ptr<const void>;
/// Builds an element; throws what its constructor throws.
using MakeElement = AnyElement (*)(std::shared_ptr<xalutil::JsonObject>);

struct ListedElement {
    std::string id;
    std::shared_ptr<xalutil::JsonObject> json; ///< what it was built from
    AnyElement element;
    bool confirmed = true; ///< false while a service that began anew has not sent it again
};
using ElementList = std::list<ListedElement>;

using AnswerHandler = std::function<void(std::shared_ptr<const XalResponse>)>;
using ElementHandler = std::function<void(AnyElement, std::shared_ptr<const XalResponse>)>;
using ListHandler = std::function<void(const ElementList&, std::shared_ptr<const XalResponse>)>;
/// Called for each change with all elements, the latest change first.
using ResourceHandler = std::function<void(const ElementList&, std::shared_ptr<const SubscriptionResponse>)>;
using WatchHandler = std::function<void(AnyElement)>;
using Connection = std::shared_ptr<IServiceConnection>;

/// Said on the handler's thread before a handler of an application is called: what fails before may be tried again.
void handlerBegins() noexcept;

void create(const Connection& connection, Request request, MakeElement make, ElementHandler created,
            AnswerHandler failed);
void updateOrRemove(const Connection& connection, Request request, AnswerHandler done, AnswerHandler failed);
void read(const Connection& connection, Request request, MakeElement make, ListHandler read, AnswerHandler failed);
std::shared_ptr<Subscription> subscribeResource(const Connection& connection, SubscribeRequest request,
                                                MakeElement make, ResourceHandler changed);
std::shared_ptr<Subscription> subscribeElement(const Connection& connection, SubscribeRequest request, MakeElement make,
                                               WatchHandler changed);
bool narrows(const XalFilter& filter, const QueryOptions& options);

template <class T>
AnyElement makeElement(std::shared_ptr<xalutil::JsonObject> json) {
    return std::make_shared<const T>(std::move(json));
}

template <class T>
std::vector<std::shared_ptr<const T>> typed(const ElementList& elements) {
    std::vector<std::shared_ptr<const T>> result;
    result.reserve(elements.size());
    for (const auto& listed : elements)
        result.push_back(std::static_pointer_cast<const T>(listed.element));
    return result;
}

// Both ask the descriptor by its own class, not by its base: a descriptor class may hide getFilter() to put its
// filter together only when it is asked for it.

/// Runs on the caller's thread; what the descriptor throws travels in the request.
template <class D>
Request makeRequest(Request::Kind kind, const D& descriptor) {
    Request request;
    request.kind = kind;
    try {
        request.serviceName = descriptor.getServiceName();
        request.resourceName = descriptor.getResourceName();
        if (const auto id = descriptor.getId(); id.isValid())
            request.id = id.getValue();
        if (kind == Request::CREATE || kind == Request::UPDATE)
            request.body = descriptor.getAsXALBody();
        if (kind == Request::READ) {
            request.filter = descriptor.getFilter();
            request.options = descriptor.getQueryOptions();
        }
    } catch (...) {
        request.failure = std::current_exception();
    }
    return request;
}

template <class D>
SubscribeRequest makeSubscribeRequest(SubscribeRequest::Kind kind, const D& descriptor) {
    SubscribeRequest request;
    request.kind = kind;
    request.serviceName = descriptor.getServiceName();
    request.resourceName = descriptor.getResourceName();
    if (const auto id = descriptor.getId(); id.isValid() && kind == SubscribeRequest::ELEMENT)
        request.id = id.getValue();
    request.narrowed = narrows(descriptor.getFilter(), descriptor.getQueryOptions());
    return request;
}

} // namespace detail

/// One service as a program sees it: requests and subscriptions for its element types. `T` is an element class with
/// the member type Desctype and a constructor from std::shared_ptr<xalutil::JsonObject>.
///
/// A service object may outlive the registry that made it: its requests then fail with status 0. It may be used
/// from any thread.
///
/// Requests. Each calls exactly one of its two handlers, once, on the task executor's thread; an empty handler is
/// allowed. Where there is no handler for a failure, the service's logger is told. Created and updated elements,
/// and what a list answers, are judged by the answer's status; one whose body cannot be used has failed with that
/// status. The handlers' arguments are the receiver's to keep.
///
/// Subscriptions. Handlers run on the task executor's thread, one at a time, and may call anything here, also
/// unsubscribe(). Elements are constant, built once, and shared by all notifications that name them. The returned
/// object ends the subscription when its last reference goes.
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

    /// Without a connection requests fail at once, on the caller's thread, and there are no subscriptions.
    explicit Service(std::shared_ptr<IServiceConnection> connection);

    template <class T>
    void createElement(const typename T::Desctype& descriptor, Created<T> created, Done failed) {
        detail::ElementHandler handler;
        if (created)
            handler = [created = std::move(created)](detail::AnyElement element,
                                                     std::shared_ptr<const XalResponse> response) {
                detail::handlerBegins();
                created(std::static_pointer_cast<const T>(element), std::move(response));
            };
        detail::create(m_connection, detail::makeRequest(Request::CREATE, descriptor), &detail::makeElement<T>,
                       std::move(handler), std::move(failed));
    }

    template <class T>
    void updateElement(const typename T::Desctype& descriptor, Done done, Done failed) {
        detail::updateOrRemove(m_connection, detail::makeRequest(Request::UPDATE, descriptor), std::move(done),
                               std::move(failed));
    }

    template <class T>
    void deleteElement(const typename T::Desctype& descriptor, Done done, Done failed) {
        detail::updateOrRemove(m_connection, detail::makeRequest(Request::REMOVE, descriptor), std::move(done),
                               std::move(failed));
    }

    /// Reads the resource's list with the descriptor's filter and query options. An entry that cannot be used is
    /// logged and left out.
    template <class T>
    void readElements(const typename T::Desctype& descriptor, Read<T> read, Done failed) {
        detail::ListHandler handler;
        if (read)
            handler = [read = std::move(read)](const detail::ElementList& elements,
                                               std::shared_ptr<const XalResponse> response) {
                auto list = detail::typed<T>(elements);
                detail::handlerBegins();
                read(std::move(list), std::move(response));
            };
        detail::read(m_connection, detail::makeRequest(Request::READ, descriptor), &detail::makeElement<T>,
                     std::move(handler), std::move(failed));
    }

    /// Names all current elements, the one that changed first, then the rest from the most to the least recently
    /// changed. What exists when it begins arrives as successive changes, oldest first, the n-th naming the n
    /// oldest. No element at all: the resource is empty, or the subscription was refused, which the response's
    /// status tells. A removal shows in the next list, and is told by itself only when it leaves nothing. A
    /// descriptor with a filter or query options is refused (400).
    template <class T>
    std::shared_ptr<Subscription> subscribeResource(const typename T::Desctype& descriptor,
                                                    ResourceChanged<T> changed) {
        detail::ResourceHandler handler;
        if (changed)
            handler = [changed = std::move(changed)](const detail::ElementList& elements,
                                                     std::shared_ptr<const SubscriptionResponse> response) {
                auto current = detail::typed<T>(elements);
                detail::handlerBegins();
                changed(std::move(current), std::move(response));
            };
        return detail::subscribeResource(m_connection,
                                         detail::makeSubscribeRequest(SubscribeRequest::RESOURCE, descriptor),
                                         &detail::makeElement<T>, std::move(handler));
    }

    /// Tells of the element with the descriptor's id: its state now, each change, and its removal with an empty
    /// pointer. It is not called before the element exists. Refused: one empty pointer, the status is logged.
    template <class T>
    std::shared_ptr<Subscription> subscribeElement(const typename T::Desctype& descriptor, ElementChanged<T> changed) {
        detail::WatchHandler handler;
        if (changed)
            handler = [changed = std::move(changed)](const detail::AnyElement& element) {
                detail::handlerBegins();
                changed(std::static_pointer_cast<const T>(element));
            };
        return detail::subscribeElement(m_connection,
                                        detail::makeSubscribeRequest(SubscribeRequest::ELEMENT, descriptor),
                                        &detail::makeElement<T>, std::move(handler));
    }

private:
    std::shared_ptr<IServiceConnection> m_connection;
};

} // namespace xal

#endif
