#include "CurrentElements.h"

#include <xal/Service.h>

#include <stdexcept>

// What a subscription's holder is told, and when. The connection says what happened; here it becomes notifications.
// All of it runs on the thread on which the connection tells its events, one at a time.

namespace xal::detail {
namespace {

/// What the two kinds of subscription share: the list, and the way of an event into it.
class Watcher {
public:
    Watcher(const Connection& connection, const SubscribeRequest& request, MakeElement make)
        : m_connection(connection), m_name(request.serviceName + "/" + request.resourceName), m_elements(make) {
        if (request.kind == SubscribeRequest::ELEMENT) {
            m_id = request.id;
            m_name += "/" + m_id;
        }
    }
    virtual ~Watcher() = default;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void take(const Event& event) {
        if (m_over)
            return;
        switch (event.kind) {
        case Event::CHANGED:
            if (change(event))
                tellChange(m_elements.get());
            break;
        case Event::REMOVED:
            if (m_elements.remove(event.id) && isEmpty())
                tellEmpty();
            break;
        case Event::RESTARTED:
            m_elements.restart();
            break;
        case Event::CURRENT:
            tellCurrent(m_elements.finish());
            break;
        case Event::REFUSED:
            tellRefusal(event.status);
            m_over = true;
            break;
        }
    }

protected:
    void log(const std::string& text) const {
        if (const auto alive = m_connection.lock())
            alive->getLogger().warning(text);
    }
    const std::string& name() const { return m_name; }
    bool isEmpty() const { return m_elements.get().empty(); }
    virtual void tellChange(const ElementList& elements) = 0;
    virtual void tellEmpty() = 0;
    /// `removed`: elements went because they were not sent again.
    virtual void tellCurrent(bool removed) = 0;
    virtual void tellRefusal(int status) = 0;

private:
    bool change(const Event& event) {
        try {
            if (!m_id.empty() && event.element && event.element->getString("id") != m_id)
                throw std::runtime_error("it is another one");
            return m_elements.change(event.element);
        } catch (const std::bad_alloc&) {
            throw; // says nothing about the element
        } catch (const std::exception& e) {
            log("element of " + m_name + " dropped: " + e.what());
        } catch (...) {
            log("element of " + m_name + " dropped: its construction threw");
        }
        return false;
    }

    std::weak_ptr<IServiceConnection> m_connection;
    std::string m_name;
    std::string m_id; ///< of the one element that is watched; empty: all are
    CurrentElements m_elements;
    bool m_over = false;
};

class ResourceWatcher : public Watcher {
public:
    ResourceWatcher(const Connection& connection, const SubscribeRequest& request, MakeElement make,
                    ResourceHandler changed)
        : Watcher(connection, request, make), m_changed(std::move(changed)),
          m_ok(std::make_shared<const SubscriptionResponse>(200)) {}

private:
    void tellChange(const ElementList& elements) override {
        m_toldEmpty = false;
        tell(elements, m_ok);
    }
    void tellEmpty() override {
        m_toldEmpty = true;
        tell({}, m_ok);
    }
    void tellCurrent(bool) override {
        if (isEmpty() && !m_toldEmpty)
            tellEmpty();
    }
    void tellRefusal(int status) override { tell({}, std::make_shared<const SubscriptionResponse>(status)); }

    void tell(const ElementList& elements, std::shared_ptr<const SubscriptionResponse> response) const {
        if (m_changed)
            m_changed(elements, std::move(response));
    }

    ResourceHandler m_changed;
    std::shared_ptr<const SubscriptionResponse> m_ok;
    bool m_toldEmpty = false; ///< whether the last notification said that there is nothing
};

class ElementWatcher : public Watcher {
public:
    ElementWatcher(const Connection& connection, const SubscribeRequest& request, MakeElement make,
                   WatchHandler changed)
        : Watcher(connection, request, make), m_changed(std::move(changed)) {}

private:
    void tellChange(const ElementList& elements) override { tell(elements.front().element); }
    void tellEmpty() override { tell(nullptr); }
    void tellCurrent(bool removed) override {
        if (removed && isEmpty())
            tell(nullptr);
    }
    void tellRefusal(int status) override {
        log("subscription of " + name() + " refused with status " + std::to_string(status));
        tell(nullptr);
    }

    void tell(AnyElement element) const {
        if (m_changed)
            m_changed(std::move(element));
    }

    WatchHandler m_changed;
};

std::shared_ptr<Subscription> subscribe(const Connection& connection, SubscribeRequest request,
                                        std::shared_ptr<Watcher> watcher) {
    if (!connection)
        return nullptr;
    return connection->subscribe(std::move(request), [watcher = std::move(watcher)](const Event& event) {
        // A handler may give up its subscription, and with it this function, while it runs.
        const auto keep = watcher;
        keep->take(event);
    });
}

} // namespace

bool narrows(const XalFilter& filter, const QueryOptions& options) {
    return !filter.getPairs().empty() || !options.getFields().empty() ||
           options.getExpandLevel() != QueryOptions::EXPAND_NONE || !options.getExpandFields().empty() ||
           !options.getSortBy().empty() || options.getLimit().isValid() || options.getOffset().isValid();
}

std::shared_ptr<Subscription> subscribeResource(const Connection& connection, SubscribeRequest request,
                                                MakeElement make, ResourceHandler changed) {
    auto watcher = std::make_shared<ResourceWatcher>(connection, request, make, std::move(changed));
    return subscribe(connection, std::move(request), std::move(watcher));
}

std::shared_ptr<Subscription> subscribeElement(const Connection& connection, SubscribeRequest request, MakeElement make,
                                               WatchHandler changed) {
    auto watcher = std::make_shared<ElementWatcher>(connection, request, make, std::move(changed));
    return subscribe(connection, std::move(request), std::move(watcher));
}

} // namespace xal::detail
