#ifndef SERVICE_INCLUDE_CDXSERVICE_STORE_H
#define SERVICE_INCLUDE_CDXSERVICE_STORE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cdxservice {

class Exchange;

/// One element's new state, or its removal, in the order of its resource.
struct StoredChange {
    std::string resource;
    std::uint64_t revision = 0;
    std::string id;
    std::optional<std::string> json; ///< The whole element; absent: the element was removed.
    std::optional<bool> isNew;       ///< The flag that the writer's name carried.
    std::uint64_t nextElementId = 1; ///< The resource's running number after this change.
};

/// Everything a service knew when it stopped.
struct StoredState {
    std::string epoch; ///< Empty: nothing was ever stored.
    /// Each element once, and the latest removals, in rising revision. Of each resource's removals at least one more
    /// than the store remembers, if there were so many: it shows which ones are forgotten.
    std::vector<StoredChange> changes;
};

/// Where changes are kept beyond the process. Without one a store lives as long as its object.
///
/// All operations run on the thread of the server that uses the store and may block it; none may throw.
class StoreBackend {
public:
    enum class Outcome { Stored, Away, Full };

    virtual ~StoreBackend() = default;

    /// Called once, before the first commit.
    virtual StoredState load() = 0;

    /// Keeps all of the changes or none. `epoch` is the one that the revisions belong to.
    virtual Outcome commit(const std::string& epoch, const std::vector<StoredChange>& changes) = 0;

    /// Whether a commit has a chance now.
    virtual bool answers() = 0;
};

/// What the service holds: elements, revisions and the epoch they belong to.
///
/// A store outlives servers: a server that is stopped and one that is started later with the same store are, to their
/// clients, one service that was away. At most one running server uses a store.
class Store {
public:
    struct Options {
        /// Removals remembered in each resource, for subscribers that come back.
        std::size_t keptRemovals = 100'000;
    };

    /// An empty store with a new epoch, or what the backend holds.
    explicit Store(std::unique_ptr<StoreBackend> backend = nullptr);
    Store(std::unique_ptr<StoreBackend> backend, const Options& options);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// 16 to 32 hexadecimal digits, for as long as the revisions go on.
    const std::string& epoch() const;

private:
    friend class ServerCore;
    std::unique_ptr<Exchange> m_exchange;
};

} // namespace cdxservice

#endif
