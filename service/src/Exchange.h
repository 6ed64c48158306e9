#ifndef SERVICE_SRC_EXCHANGE_H
#define SERVICE_SRC_EXCHANGE_H

#include "Document.h"
#include "Problem.h"
#include "Resource.h"

#include <cdxservice/Server.h>
#include <cdxservice/Store.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace cdxservice {

/// The rules of the exchange over the five resources: what a write does, what settles, what runs out. Used on one
/// thread at a time.
///
/// Every change is in the backend before it shows here, and here before anybody is told.
class Exchange {
public:
    /// What a server wants to know while it uses the exchange. All may be empty; none may throw.
    struct Observer {
        std::function<void(std::size_t resource)> changed;
        std::function<void(const Settlement&)> settled;
    };
    struct Written {
        ElementPtr element;
        bool created = false;
    };
    using Result = std::variant<Written, Problem>;

    Exchange(std::unique_ptr<StoreBackend> backend, std::size_t keptRemovals);

    const std::string& epoch() const { return m_epoch; }
    const Resource& resource(std::size_t index) const { return m_resources[index]; }
    bool answers();

    /// A server that begins to use the exchange; throws std::runtime_error if another one does.
    void attach(Observer observer, std::shared_ptr<Clock> clock, std::size_t maxElementBytes);
    void detach();

    /// Removes what has had its time. Nothing that is over counts afterwards, though a store that is away holds it.
    void expire();

    /// Makes an element, or replaces the one that has the name where names are unique.
    Result post(std::size_t resource, const boost::json::object& body, std::size_t bodyBytes);
    /// Merges into an element, which exists.
    Result patch(std::size_t resource, const ElementPtr& element, const boost::json::object& body,
                 std::size_t bodyBytes);
    /// Removes an element, which exists.
    std::optional<Problem> remove(std::size_t resource, const ElementPtr& element);

private:
    struct Change {
        std::size_t resource;
        Revision revision;
        ElementPtr element; ///< The new state, or the last one of what is removed.
        bool removed;
    };

    Problem wrong(const Problem& invalid, const Document& document, const Values& values, std::size_t bodyBytes) const;
    /// Does all of the changes or, when it throws or tells a problem, none.
    std::optional<Problem> commit(const std::vector<Change>& changes, std::size_t numbered);
    std::optional<Problem> store(const std::vector<Change>& changes, std::size_t numbered);
    void apply(const std::vector<Change>& changes, std::size_t numbered) noexcept;
    std::vector<Change> removals(std::size_t resource, const std::vector<ElementPtr>& elements) const;
    void expireAfterWrite() noexcept;
    void load();

    std::unique_ptr<StoreBackend> m_backend;
    std::string m_epoch;
    std::vector<Resource> m_resources;
    Observer m_observer;
    std::shared_ptr<Clock> m_clock;
    std::size_t m_maxElementBytes = 0;
    std::atomic<bool> m_attached = false;
};

} // namespace cdxservice

#endif
