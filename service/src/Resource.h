#ifndef SERVICE_SRC_RESOURCE_H
#define SERVICE_SRC_RESOURCE_H

#include "Element.h"
#include "RevisionLog.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace cdxservice {

/// One resource's elements with the ways to find them: by id, by name where names are unique, by what settles them, by
/// the end of their time.
class Resource {
public:
    Resource(const ResourceSchema& schema, std::size_t keptRemovals);

    const ResourceSchema& schema() const { return *m_schema; }
    const RevisionLog& log() const { return m_log; }
    /// How many elements count; the others are not found either, but by expired().
    std::size_t size() const;

    /// Null if there is none.
    ElementPtr find(const std::string& id) const;
    /// Where names are unique: the one with this name, which is not empty. Null if there is none.
    ElementPtr findName(std::string_view name) const;
    /// Data elements with this name and event id, in the order of their last change.
    std::vector<ElementPtr> findEvent(std::string_view name, std::string_view eventId) const;
    /// The elements whose time is over at `nowMs`, the one first whose time ended first.
    std::vector<ElementPtr> expired(std::int64_t nowMs) const;

    /// An element's new state, or its removal, is made ready, which leaves nothing behind when it throws, and then goes
    /// in or is taken back, which cannot fail: so many changes go in together or none. In between the resource is not
    /// asked. A change's revision is above all earlier ones.
    void prepare(const ElementPtr& element);
    void commit(const ElementPtr& element) noexcept;
    void revert(const ElementPtr& element) noexcept;
    /// `id` need not exist: then only the removal is remembered.
    void prepareRemoval(const std::string& id, Revision revision);
    void commitRemoval(const std::string& id, Revision revision) noexcept;
    void revertRemoval(Revision revision) noexcept;

    /// See RevisionLog.
    void passOver(std::optional<std::int64_t> endedByMs) { m_log.passOver(endedByMs); }

    /// The running number for the next element without one of its own.
    std::uint64_t nextElementId = 1;

private:
    /// The elements themselves are the keys: an index costs a node for each, and taking one out cannot fail. Two states
    /// of one element may stand side by side while the new one takes the old one's place.
    struct ByName {
        using is_transparent = void;
        bool operator()(const Element* a, const Element* b) const;
        bool operator()(const Element* a, std::string_view name) const { return a->name() < name; }
        bool operator()(std::string_view name, const Element* a) const { return name < a->name(); }
    };
    struct ByEvent {
        using Key = std::pair<std::string_view, std::string_view>; ///< Name and event id.
        using is_transparent = void;
        bool operator()(const Element* a, const Element* b) const;
        bool operator()(const Element* a, const Key& key) const { return keyOf(*a) < key; }
        bool operator()(const Key& key, const Element* a) const { return key < keyOf(*a); }
        static Key keyOf(const Element& element);
    };
    struct ByEnd {
        bool operator()(const Element* a, const Element* b) const;
    };

    void index(const Element& element);
    void unindex(const Element& element) noexcept;

    const ResourceSchema* m_schema;
    RevisionLog m_log;
    std::unordered_map<std::string, ElementPtr> m_byId;
    std::set<const Element*, ByName> m_byName;   ///< Where names are unique: those with a name.
    std::set<const Element*, ByEvent> m_byEvent; ///< Of data: those with a name and an event id.
    std::set<const Element*, ByEnd> m_byEnd;     ///< Of data: those whose time ends.
};

} // namespace cdxservice

#endif
