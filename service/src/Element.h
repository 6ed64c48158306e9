#ifndef SERVICE_SRC_ELEMENT_H
#define SERVICE_SRC_ELEMENT_H

#include "Schema.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cdxservice {

using Revision = std::uint64_t;

/// A field's value; the first alternative: the element has none.
using Value = std::variant<std::monostate, std::string, std::int64_t, bool, std::vector<std::string>>;

/// One value for each field of the resource, in the schema's order.
using Values = std::vector<Value>;

/// A copy that may fail: where the memory for a text is short, the variant's own copying makes the standard library
/// (GCC 12) destroy a value that was never made.
Values copyOf(const Values& values);

/// One state of an element. A change makes a new one; whoever still sends or reads the old one shares it.
class Element {
public:
    /// `values` hold at least id and uri.
    Element(const ResourceSchema& schema, Values values, std::optional<bool> isNew, Revision revision);

    const std::string& id() const { return *text(idField); }
    const std::string& uri() const { return *text(uriField); }
    /// The name, or an empty text where there is none.
    std::string_view name() const { return text(nameField) ? std::string_view(*text(nameField)) : std::string_view(); }
    const std::string* text(std::size_t field) const { return std::get_if<std::string>(&m_values[field]); }
    const std::int64_t* integer(std::size_t field) const { return std::get_if<std::int64_t>(&m_values[field]); }
    const Values& values() const { return m_values; }
    std::optional<bool> isNew() const { return m_isNew; }
    Revision revision() const { return m_revision; }

    /// The element as JSON, made once.
    std::string_view json() const { return std::string_view(m_event).substr(m_jsonBegin, m_jsonSize); }

    /// The rest of an event that tells of this state, from `,"rev":` to the closing brace: the same for every
    /// subscriber.
    std::string_view eventTail() const { return m_event; }

    /// Another state has taken its place, or none: the store holds it no longer.
    void retire() const noexcept { m_isRetired = true; }
    bool isRetired() const { return m_isRetired; }

private:
    Values m_values;
    std::optional<bool> m_isNew;
    Revision m_revision;
    std::string m_event;
    std::size_t m_jsonBegin = 0;
    std::size_t m_jsonSize = 0;
    mutable bool m_isRetired = false;
};

using ElementPtr = std::shared_ptr<const Element>;

/// The end of a data element's time in milliseconds since 1970, saturated; none for one that lacks "timestamp" or
/// "timeToLive".
std::optional<std::int64_t> endOfTime(const Element& dataElement);

bool hasEnded(const Element& dataElement, std::int64_t nowMs);

/// Appends one value as JSON; it is not absent.
void writeValue(std::string& out, const Value& value);

/// Appends an object of the fields that have a value, of all of them or of those chosen (by their positions,
/// ascending).
void writeElement(std::string& out, const ResourceSchema& schema, const Values& values);
void writeElement(std::string& out, const ResourceSchema& schema, const Values& values,
                  const std::vector<std::size_t>& chosen);

/// The path of an element's address.
std::string elementUri(const ResourceSchema& schema, std::string_view id);

/// `[A-Za-z0-9_-]{1,128}`
bool isElementId(std::string_view text);

} // namespace cdxservice

#endif
