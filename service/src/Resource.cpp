#include "Resource.h"

#include <algorithm>
#include <limits>

namespace cdxservice {

namespace {

/// Names and event ids may hold any character: the length keeps the two apart.
std::string eventKey(std::string_view name, std::string_view eventId) {
    std::string key = std::to_string(name.size());
    key.append(":").append(name).append(eventId);
    return key;
}

std::string eventKey(const Element& data) {
    const std::string* eventId = data.text(wellKnown().dataEventId);
    return eventId && !data.name().empty() ? eventKey(data.name(), *eventId) : std::string();
}

} // namespace

std::optional<std::int64_t> endOfTime(const Element& dataElement) {
    const std::int64_t* timestamp = dataElement.integer(wellKnown().dataTimestamp);
    const std::int64_t* seconds = dataElement.integer(wellKnown().dataTimeToLive);
    if (!timestamp || !seconds) {
        return std::nullopt;
    }
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    const std::int64_t lasting = *seconds > highest / 1000  ? highest
                                 : *seconds < lowest / 1000 ? lowest
                                                            : *seconds * 1000;
    if (lasting > 0 && *timestamp > highest - lasting) {
        return highest;
    }
    if (lasting < 0 && *timestamp < lowest - lasting) {
        return lowest;
    }
    return *timestamp + lasting;
}

Resource::Resource(const ResourceSchema& schema, std::size_t keptRemovals) : m_schema(&schema), m_log(keptRemovals) {}

ElementPtr Resource::find(const std::string& id) const {
    const auto found = m_byId.find(id);
    return found == m_byId.end() ? nullptr : found->second;
}

ElementPtr Resource::findName(std::string_view name) const {
    const auto found = m_idByName.find(std::string(name));
    return found == m_idByName.end() ? nullptr : find(found->second);
}

std::vector<ElementPtr> Resource::findEvent(std::string_view name, std::string_view eventId) const {
    std::vector<ElementPtr> found;
    const auto ids = m_idsByEvent.find(eventKey(name, eventId));
    if (ids != m_idsByEvent.end()) {
        for (const std::string& id : ids->second) {
            found.push_back(find(id));
        }
        std::sort(found.begin(), found.end(),
                  [](const ElementPtr& a, const ElementPtr& b) { return a->revision() < b->revision(); });
    }
    return found;
}

std::vector<ElementPtr> Resource::expired(std::int64_t nowMs) const {
    std::vector<ElementPtr> found;
    for (const auto& [end, id] : m_idsByEnd) {
        if (end > nowMs) {
            break;
        }
        found.push_back(find(id));
    }
    return found;
}

void Resource::put(const ElementPtr& element) {
    ElementPtr& place = m_byId[element->id()];
    Revision previous = 0;
    if (place) {
        previous = place->revision();
        unindex(*place);
    }
    place = element;
    index(*element);
    m_log.put(element, previous);
}

void Resource::remove(const std::string& id, Revision revision) {
    Revision previous = 0;
    const auto found = m_byId.find(id);
    if (found != m_byId.end()) {
        previous = found->second->revision();
        unindex(*found->second);
        // The caller's id may be the element's own.
        const ElementPtr kept = std::move(found->second);
        m_byId.erase(found);
        m_log.remove(kept->id(), previous, revision);
        return;
    }
    m_log.remove(id, previous, revision);
}

void Resource::index(const Element& element) {
    if (m_schema->oneOfEachName && !element.name().empty()) {
        m_idByName[std::string(element.name())] = element.id();
    }
    if (m_schema->expires) {
        if (const auto end = endOfTime(element)) {
            m_idsByEnd.emplace(*end, element.id());
        }
        if (const std::string key = eventKey(element); !key.empty()) {
            m_idsByEvent[key].insert(element.id());
        }
    }
}

void Resource::unindex(const Element& element) {
    if (m_schema->oneOfEachName && !element.name().empty()) {
        m_idByName.erase(std::string(element.name()));
    }
    if (m_schema->expires) {
        if (const auto end = endOfTime(element)) {
            m_idsByEnd.erase({*end, element.id()});
        }
        const auto ids = m_idsByEvent.find(eventKey(element));
        if (ids != m_idsByEvent.end()) {
            ids->second.erase(element.id());
            if (ids->second.empty()) {
                m_idsByEvent.erase(ids);
            }
        }
    }
}

} // namespace cdxservice
