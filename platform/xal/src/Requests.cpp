#include "Telling.h"

#include <xal/Service.h>

#include <new>

// Judging answers: which of a request's two handlers is called, and with what. The connection answers exactly once, so
// exactly one handler is called here.

namespace xal::detail {
namespace {

using Response = std::shared_ptr<const XalResponse>;
using Value = std::shared_ptr<xalutil::JsonValue>;
using WeakConnection = std::weak_ptr<IServiceConnection>;

void fail(const char* operation, const WeakConnection& connection, const AnswerHandler& failed,
          const Response& response) {
    if (failed) {
        handlerBegins();
        return failed(response);
    }
    const auto alive = connection.lock();
    if (!alive)
        return;
    const bool threw = dynamic_cast<const XalException*>(response.get()) != nullptr;
    alive->getLogger().error(std::string(operation) + (threw ? ": exception error" : ": error") +
                             " occurred but no error callback given");
}

void logUnusable(const WeakConnection& connection, const std::string& what, const std::string& reason) {
    if (const auto alive = connection.lock())
        alive->getLogger().warning(what + " dropped: " + reason);
}

/// Only a plain answer can be a success, whatever status an exception carries.
bool answered(const Response& response) {
    return response && !dynamic_cast<const XalException*>(response.get());
}

void send(const Connection& connection, Request request, IServiceConnection::Answer answer) {
    if (connection)
        return connection->send(std::move(request), std::move(answer));
    answer(std::make_shared<const XalResponse>(0), nullptr);
}

std::string nameOf(const Request& request) {
    return request.serviceName + "/" + request.resourceName;
}

AnyElement makeCreated(const Response& response, const Value& value, MakeElement make, const WeakConnection& connection,
                       const std::string& name) {
    if (!answered(response) || (response->getStatusCode() != 200 && response->getStatusCode() != 201))
        return nullptr;
    try {
        if (value)
            return buildOrRefuse([&, json = value->asObject()] { return make(json); });
        logUnusable(connection, name + ": answer", "it holds no element");
    } catch (const std::bad_alloc&) {
        throw; // says nothing about the answer
    } catch (const std::exception& e) {
        logUnusable(connection, name + ": created element", e.what());
    } catch (...) {
        logUnusable(connection, name + ": created element", "its construction threw");
    }
    return nullptr;
}

/// Entries that cannot be used are left out; false when there is no list at all.
bool makeList(const Response& response, const Value& value, MakeElement make, const WeakConnection& connection,
              const std::string& name, ElementList& elements) {
    if (!answered(response) || response->getStatusCode() != 200)
        return false;
    std::shared_ptr<xalutil::JsonArray> entries;
    try {
        if (value)
            entries = value->asArray();
        else
            logUnusable(connection, name + ": answer", "it holds no list");
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        logUnusable(connection, name + ": answer", e.what());
    }
    if (!entries)
        return false;
    for (std::size_t i = 0; i < entries->size(); ++i) {
        try {
            auto entry = entries->getObject(i);
            auto element = buildOrRefuse([&] { return make(entry); });
            elements.push_back(ListedElement{entry->getString("id"), entry, std::move(element), true});
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& e) {
            logUnusable(connection, name + ": element", e.what());
        } catch (...) {
            logUnusable(connection, name + ": element", "its construction threw");
        }
    }
    return true;
}

} // namespace

void create(const Connection& connection, Request request, MakeElement make, ElementHandler created,
            AnswerHandler failed) {
    const std::string name = nameOf(request);
    send(connection, std::move(request),
         [weak = WeakConnection(connection), make, name, created = std::move(created),
          failed = std::move(failed)](Response response, Value value) {
             auto element = makeCreated(response, value, make, weak, name);
             if (!element)
                 fail("createElement", weak, failed, response);
             else if (created)
                 created(std::move(element), std::move(response));
         });
}

void updateOrRemove(const Connection& connection, Request request, AnswerHandler done, AnswerHandler failed) {
    const char* operation = request.kind == Request::UPDATE ? "updateElement" : "deleteElement";
    send(connection, std::move(request),
         [weak = WeakConnection(connection), operation, done = std::move(done),
          failed = std::move(failed)](Response response, const Value&) {
             if (!answered(response) || response->getStatusCode() / 100 != 2)
                 fail(operation, weak, failed, response);
             else if (done) {
                 handlerBegins();
                 done(std::move(response));
             }
         });
}

void read(const Connection& connection, Request request, MakeElement make, ListHandler read, AnswerHandler failed) {
    const std::string name = nameOf(request);
    send(connection, std::move(request),
         [weak = WeakConnection(connection), make, name, read = std::move(read),
          failed = std::move(failed)](Response response, const Value& value) {
             ElementList elements;
             if (!makeList(response, value, make, weak, name, elements))
                 fail("readElements", weak, failed, response);
             else if (read)
                 read(elements, std::move(response));
         });
}

} // namespace xal::detail
