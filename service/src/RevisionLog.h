#ifndef SERVICE_SRC_REVISIONLOG_H
#define SERVICE_SRC_REVISIONLOG_H

#include "Element.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace cdxservice {

/// The order of a resource's changes, as far as it still matters: each element once, at its latest change, and the most
/// recent removals.
///
/// A subscription is a revision in this order and asks for what comes after it; the log knows no subscriber.
class RevisionLog {
public:
    struct Entry {
        Revision revision = 0;               ///< 0: nothing comes after.
        const ElementPtr* element = nullptr; ///< Null: a removal.
        const std::string* removedId = nullptr;
    };

    explicit RevisionLog(std::size_t keptRemovals) : m_keptRemovals(keptRemovals) {}

    /// A change, or a removal, is made ready, which may fail, and then takes its place or is taken back, which cannot.
    /// In between the log is not asked.
    void prepare(const ElementPtr& element);
    void prepareRemoval(const std::string& id, Revision revision);
    /// `previous` is the element's revision so far, 0 where there is none.
    void commit(Revision revision, Revision previous) noexcept;
    void revert(Revision revision) noexcept;

    /// Data elements whose time ended by then count nowhere, although they are not removed yet. Nothing: all count.
    void passOver(std::optional<std::int64_t> endedByMs) { m_endedByMs = endedByMs; }
    std::optional<std::int64_t> passedOver() const { return m_endedByMs; }
    bool counts(const Element& element) const { return !m_endedByMs || !hasEnded(element, *m_endedByMs); }

    /// The revision of the latest change of any kind.
    Revision latest() const { return m_latest; }
    /// The revision of the latest removal that is no longer known, 0 if all are.
    Revision forgotten() const { return m_forgotten; }

    /// What comes next after `position`, of removals only such as come after `removalsAfter` too. Valid until the log
    /// changes.
    Entry after(Revision position, Revision removalsAfter) const;

    /// All elements, also such as do not count, latest change last.
    const std::map<Revision, ElementPtr>& elements() const { return m_elements; }

private:
    std::size_t m_keptRemovals;
    Revision m_latest = 0;
    Revision m_forgotten = 0;
    std::optional<std::int64_t> m_endedByMs;
    std::map<Revision, ElementPtr> m_elements;
    std::map<Revision, std::string> m_removals;
};

} // namespace cdxservice

#endif
