#include "RevisionLog.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace cdxservice {

namespace {

/// upper_bound with a short way for subscribers who are up to date or one change behind, which is nearly all of them.
template <class Map>
typename Map::const_iterator firstAfter(const Map& map, Revision position) {
    if (map.empty() || map.rbegin()->first <= position) {
        return map.end();
    }
    const auto last = std::prev(map.end());
    if (last == map.begin() || std::prev(last)->first <= position) {
        return last;
    }
    return map.upper_bound(position);
}

} // namespace

void RevisionLog::prepare(const ElementPtr& element) {
    m_elements.emplace_hint(m_elements.end(), element->revision(), element);
}

void RevisionLog::prepareRemoval(const std::string& id, Revision revision) {
    m_removals.emplace_hint(m_removals.end(), revision, id);
}

void RevisionLog::commit(Revision revision, Revision previous) noexcept {
    m_elements.erase(previous);
    m_latest = std::max(m_latest, revision);
    if (m_removals.size() > m_keptRemovals) {
        m_forgotten = m_removals.begin()->first;
        m_removals.erase(m_removals.begin());
    }
}

void RevisionLog::revert(Revision revision) noexcept {
    m_elements.erase(revision);
    m_removals.erase(revision);
}

RevisionLog::Entry RevisionLog::after(Revision position, Revision removalsAfter) const {
    auto element = firstAfter(m_elements, position);
    while (element != m_elements.end() && !counts(*element->second)) {
        ++element;
    }
    const auto removal = firstAfter(m_removals, std::max(position, removalsAfter));
    const bool noRemoval = removal == m_removals.end();
    if (element != m_elements.end() && (noRemoval || element->first < removal->first)) {
        return {element->first, &element->second, nullptr};
    }
    if (noRemoval) {
        return {};
    }
    return {removal->first, nullptr, &removal->second};
}

} // namespace cdxservice
