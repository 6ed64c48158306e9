#include "Resource.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace cdxservice {

Resource::Resource(const ResourceSchema& schema, std::size_t keptRemovals) : m_schema(&schema), m_log(keptRemovals) {}

std::size_t Resource::size() const {
    const auto passedOver =
        std::find_if(m_byEnd.begin(), m_byEnd.end(), [this](const Element* element) { return m_log.counts(*element); });
    return m_byId.size() - static_cast<std::size_t>(std::distance(m_byEnd.begin(), passedOver));
}

ElementPtr Resource::find(const std::string& id) const {
    const auto found = m_byId.find(id);
    return found == m_byId.end() || !m_log.counts(*found->second) ? nullptr : found->second;
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
        if (auto element = find((*at)->id())) {
            found.push_back(std::move(element));
        }
    }
    return found;
}

std::vector<ElementPtr> Resource::expired(std::int64_t nowMs) const {
    std::vector<ElementPtr> found;
    for (const Element* element : m_byEnd) {
        if (!hasEnded(*element, nowMs)) {
            break;
        }
        found.push_back(m_byId.at(element->id()));
    }
    return found;
}

void Resource::prepare(const ElementPtr& element) {
    const auto place = m_byId.try_emplace(element->id());
    try {
        index(*element);
        m_log.prepare(element);
    } catch (...) {
        unindex(*element);
        if (place.second) {
            m_byId.erase(place.first);
        }
        throw;
    }
}

void Resource::prepareRemoval(const std::string& id, Revision revision) {
    m_log.prepareRemoval(id, revision);
}

void Resource::commit(const ElementPtr& element) noexcept {
    ElementPtr& place = m_byId.find(element->id())->second;
    m_log.commit(element->revision(), place ? place->revision() : 0);
    if (place) {
        unindex(*place);
        place->retire();
    }
    place = element;
}

void Resource::commitRemoval(const std::string& id, Revision revision) noexcept {
    const auto found = m_byId.find(id);
    m_log.commit(revision, found == m_byId.end() ? 0 : found->second->revision());
    if (found != m_byId.end()) {
        // The caller's id may be the element's own.
        const ElementPtr kept = std::move(found->second);
        unindex(*kept);
        kept->retire();
        m_byId.erase(found);
    }
}

void Resource::revert(const ElementPtr& element) noexcept {
    unindex(*element);
    m_log.revert(element->revision());
    const auto place = m_byId.find(element->id());
    if (!place->second) {
        m_byId.erase(place);
    }
}

void Resource::revertRemoval(Revision revision) noexcept {
    m_log.revert(revision);
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
