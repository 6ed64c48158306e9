#include "ListBody.h"

#include <algorithm>
#include <utility>

namespace cdxservice {

ListBody::ListBody(const ResourceSchema& schema, std::vector<ElementPtr> elements, std::vector<std::size_t> fields)
    : m_schema(&schema), m_elements(std::move(elements)), m_fields(std::move(fields)) {
    constexpr std::size_t brackets = 2;
    m_remaining = brackets + (m_elements.empty() ? 0 : m_elements.size() - 1);
    std::string scratch;
    for (const ElementPtr& element : m_elements) {
        if (m_fields.empty()) {
            m_remaining += element->json().size();
        } else {
            scratch.clear();
            writeElement(scratch, *m_schema, element->values(), m_fields);
            m_remaining += scratch.size();
        }
    }
}

std::size_t ListBody::held() const {
    std::size_t held = m_elements.capacity() * sizeof(ElementPtr);
    for (std::size_t i = m_next; i < m_elements.size(); ++i) {
        const ElementPtr& element = m_elements[i];
        if (element->isRetired()) {
            held += (sizeof(Element) + 2 * element->eventTail().size()) /
                    static_cast<std::size_t>(std::max(1L, element.use_count()));
        }
    }
    return held;
}

bool ListBody::write(OutBuffer& out, std::size_t bytes) {
    if (m_remaining == 0) {
        return false;
    }
    const std::size_t before = out.size();
    if (!m_begun) {
        out.append("[");
        m_begun = true;
    }
    while (m_next < m_elements.size() && out.size() < bytes) {
        if (m_next > 0) {
            out.append(",");
        }
        writeOne(out, m_elements[m_next]);
        m_elements[m_next++].reset();
    }
    if (m_next == m_elements.size()) {
        out.append("]");
    }
    m_remaining -= out.size() - before;
    return true;
}

void ListBody::writeOne(OutBuffer& out, const ElementPtr& element) const {
    if (m_fields.empty()) {
        out.append(element->json(), element);
    } else {
        writeElement(out.text(), *m_schema, element->values(), m_fields);
    }
}

} // namespace cdxservice
