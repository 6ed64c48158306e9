#ifndef SERVICE_SRC_DOCUMENT_H
#define SERVICE_SRC_DOCUMENT_H

#include "Element.h"
#include "Problem.h"

#include <boost/json/object.hpp>

#include <optional>
#include <string_view>

namespace cdxservice {

/// What a POST or a PATCH brings for an element: a JSON object read against a resource's schema.
///
/// The object outlives the document.
class Document {
public:
    Document(const ResourceSchema& schema, const boost::json::object& object) : m_schema(schema), m_object(object) {}

    bool has(std::size_t field) const;
    /// The text of a field that is one, whatever else is wrong with the document.
    std::optional<std::string_view> text(std::size_t field) const;
    /// The name without what its writer put before it; the flag beside it.
    std::optional<std::string_view> name() const;
    std::optional<bool> isNew() const;

    /// Writes the document's fields over `values`: a null takes a field away if `merging`, and is wrong otherwise.
    /// Identity is left alone: the document's id and uri, where it has them, must be those in `values`. Tells the first
    /// problem in the order of the document; `values` are then of no use.
    std::optional<Problem> applyTo(Values& values, bool merging) const;

    /// About how many bytes `values` would have as JSON after this document, right or wrong, was written over them.
    std::size_t sizeOver(const Values& values) const;

private:
    const ResourceSchema& m_schema;
    const boost::json::object& m_object;
};

} // namespace cdxservice

#endif
