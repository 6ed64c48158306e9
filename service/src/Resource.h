#pragma once

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
    std::size_t size() const { return m_byId.size(); }

    /// Null if there is none.
    ElementPtr find(const std::string& id) const;
    /// Where names are unique: the one with this name, which is not empty. Null if there is none.
    ElementPtr findName(std::string_view name) const;
    /// Data elements with this name and event id, in the order of their last change.
    std::vector<ElementPtr> findEvent(std::string_view name, std::string_view eventId) const;
    /// The elements whose time is over at `nowMs`, the one first whose time ended first.
    std::vector<ElementPtr> expired(std::int64_t nowMs) const;

    /// Takes the element's new state; its revision is above all earlier ones.
    void put(const ElementPtr& element);
    /// `id` need not exist: then only the removal is remembered.
    void remove(const std::string& id, Revision revision);

    /// The running number for the next element without one of its own.
    std::uint64_t nextElementId = 1;

private:
    void index(const Element& element);
    void unindex(const Element& element);

    const ResourceSchema* m_schema;
    RevisionLog m_log;
    std::unordered_map<std::string, ElementPtr> m_byId;
    std::unordered_map<std::string, std::string> m_idByName;
    std::unordered_map<std::string, std::set<std::string>> m_idsByEvent;
    std::set<std::pair<std::int64_t, std::string>> m_idsByEnd;
};

/// The end of a data element's time in milliseconds since 1970, saturated; none for one that lacks "timestamp" or
/// "timeToLive".
std::optional<std::int64_t> endOfTime(const Element& dataElement);

} // namespace cdxservice
