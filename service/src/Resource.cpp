#include "Resource.h"

#include <limits>
#include <tuple>

namespace cdxservice {

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

bool Resource::ByName::operator()(const Element* a, const Element* b) const {
    return std::make_tuple(a->name(), a->revision()) < std::make_tuple(b->name(), b->revision());
}

Resource::ByEvent::Key Resource::ByEvent::keyOf(const Element& element) {
    return {element.name(), *element.text(wellKnown().dataEventId)};
}

bool Resource::ByEvent::operator()(const Element* a, const Element* b) const {
    return std::make_tuple(keyOf(*a), a->revision()) < std::make_tuple(keyOf(*b), b->revision());
}

bool Resource::ByEnd::operator()(const Element* a, const Element* b) const {
    return std::make_tuple(endOfTime(*a), a->revision()) < std::make_tuple(endOfTime(*b), b->revision());
}

ElementPtr Resource::findName(std::string_view name) const {
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : find((*found)->id());
}

std::vector<ElementPtr> Resource::findEvent(std::string_view name, std::string_view eventId) const {
    std::vector<ElementPtr> found;
    const auto range = m_byEvent.equal_range(ByEvent::Key(name, eventId));
    for (auto at = range.first; at != range.second; ++at) {
        found.push_back(find((*at)->id()));
    }
    return found;
}

std::vector<ElementPtr> Resource::expired(std::int64_t nowMs) const {
    std::vector<ElementPtr> found;
    for (const Element* element : m_byEnd) {
        if (*endOfTime(*element) > nowMs) {
            break;
        }
        found.push_back(find(element->id()));
    }
    return found;
}

void Resource::put(const ElementPtr& element) {
    const auto [place, inserted] = m_byId.try_emplace(element->id());
    try {
        index(*element);
        m_log.put(element, inserted ? 0 : place->second->revision());
    } catch (...) {
        unindex(*element);
        if (inserted) {
            m_byId.erase(place);
        }
        throw;
    }
    if (!inserted) {
        unindex(*place->second);
    }
    place->second = element;
}

void Resource::remove(const std::string& id, Revision revision) {
    const auto found = m_byId.find(id);
    m_log.remove(id, found == m_byId.end() ? 0 : found->second->revision(), revision);
    if (found != m_byId.end()) {
        // The caller's id may be the element's own.
        const ElementPtr kept = std::move(found->second);
        unindex(*kept);
        m_byId.erase(found);
    }
}

void Resource::index(const Element& element) {
    if (m_schema->oneOfEachName && !element.name().empty()) {
        m_byName.insert(&element);
    }
    if (m_schema->expires && endOfTime(element)) {
        m_byEnd.insert(&element);
    }
    if (m_schema->expires && !element.name().empty() && element.text(wellKnown().dataEventId)) {
        m_byEvent.insert(&element);
    }
}

void Resource::unindex(const Element& element) noexcept {
    if (m_schema->oneOfEachName && !element.name().empty()) {
        m_byName.erase(&element);
    }
    if (m_schema->expires && endOfTime(element)) {
        m_byEnd.erase(&element);
    }
    if (m_schema->expires && !element.name().empty() && element.text(wellKnown().dataEventId)) {
        m_byEvent.erase(&element);
    }
}

} // namespace cdxservice
