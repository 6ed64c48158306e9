#ifndef SERVICE_SRC_LISTBODY_H
#define SERVICE_SRC_LISTBODY_H

#include "Element.h"
#include "OutBuffer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cdxservice {

/// The JSON array of a list's elements, as they are now, written out part by part while its reader takes it: a reader
/// that takes nothing costs a pointer for each element and the part at hand, not the whole text.
class ListBody {
public:
    /// `fields`: those to write, ascending; empty: all.
    ListBody(const ResourceSchema& schema, std::vector<ElementPtr> elements, std::vector<std::size_t> fields);

    /// Bytes still to be written; at first, of all.
    std::uint64_t remaining() const { return m_remaining; }
    /// Appends to `out` until it holds `bytes` or, with one element, more. False when nothing is left to write.
    bool write(OutBuffer& out, std::size_t bytes);
    /// About the memory that it holds: its own, and its part of the elements that only such lists still hold.
    std::size_t held() const;

private:
    void writeOne(OutBuffer& out, const ElementPtr& element) const;

    const ResourceSchema* m_schema;
    std::vector<ElementPtr> m_elements;
    std::vector<std::size_t> m_fields;
    std::size_t m_next = 0;
    bool m_begun = false;
    std::uint64_t m_remaining = 0;
};

} // namespace cdxservice

#endif
