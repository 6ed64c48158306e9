#include "Element.h"

#include "StrictJson.h"

#include <limits>
#include <utility>

namespace cdxservice {

namespace {

struct ValueWriter {
    std::string& out;

    void operator()(std::monostate) const {}
    void operator()(const std::string& text) const { writeJsonString(out, text); }
    void operator()(std::int64_t number) const { writeJsonInteger(out, number); }
    void operator()(bool flag) const { out.append(flag ? "true" : "false"); }
    void operator()(const std::vector<std::string>& list) const {
        char separator = '[';
        for (const std::string& text : list) {
            out.push_back(separator);
            writeJsonString(out, text);
            separator = ',';
        }
        if (list.empty()) {
            out.push_back('[');
        }
        out.push_back(']');
    }
};

void writeMember(std::string& out, const Field& field, const Value& value, char& separator) {
    if (std::holds_alternative<std::monostate>(value)) {
        return;
    }
    out.push_back(separator);
    separator = ',';
    // A key of the schema needs no escapes.
    out.push_back('"');
    out.append(field.key);
    out.append("\":");
    writeValue(out, value);
}

} // namespace

Element::Element(const ResourceSchema& schema, Values values, std::optional<bool> isNew, Revision revision)
    : m_values(std::move(values)), m_isNew(isNew), m_revision(revision) {
    m_event.append(",\"rev\":");
    writeJsonInteger(m_event, m_revision);
    m_event.append(",\"element\":");
    m_jsonBegin = m_event.size();
    writeElement(m_event, schema, m_values);
    m_jsonSize = m_event.size() - m_jsonBegin;
    if (m_isNew) {
        m_event.append(*m_isNew ? ",\"new\":true" : ",\"new\":false");
    }
    m_event.push_back('}');
    m_event.shrink_to_fit();
}

Values copyOf(const Values& values) {
    Values copy(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        std::visit(
            [&copy, i](const auto& value) {
                auto own = value;
                copy[i] = std::move(own);
            },
            values[i]);
    }
    return copy;
}

std::optional<std::int64_t> endOfTime(const Element& dataElement) {
    const std::int64_t* timestamp = dataElement.integer(wellKnown().dataTimestamp);
    const std::int64_t* seconds = dataElement.integer(wellKnown().dataTimeToLive);
    if (!timestamp || !seconds) {
        return std::nullopt;
    }
    // In whole seconds and the milliseconds beside them, which are never negative: only the end itself may be too far.
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    const std::int64_t beside = (*timestamp % 1000 + 1000) % 1000;
    const std::int64_t whole = *timestamp / 1000 - (*timestamp % 1000 < 0 ? 1 : 0);
    if (whole > 0 ? *seconds > highest - whole : *seconds < lowest - whole) {
        return whole > 0 ? highest : lowest;
    }
    const std::int64_t end = whole + *seconds;
    if (end >= 0) {
        return end > (highest - beside) / 1000 ? highest : end * 1000 + beside;
    }
    return end + 1 < (lowest + 1000 - beside) / 1000 ? lowest : (end + 1) * 1000 + (beside - 1000);
}

bool hasEnded(const Element& dataElement, std::int64_t nowMs) {
    const auto end = endOfTime(dataElement);
    return end && *end <= nowMs;
}

void writeValue(std::string& out, const Value& value) {
    std::visit(ValueWriter{out}, value);
}

void writeElement(std::string& out, const ResourceSchema& schema, const Values& values) {
    char separator = '{';
    for (std::size_t i = 0; i < values.size(); ++i) {
        writeMember(out, schema.fields[i], values[i], separator);
    }
    out.push_back('}');
}

void writeElement(std::string& out, const ResourceSchema& schema, const Values& values,
                  const std::vector<std::size_t>& chosen) {
    char separator = '{';
    for (const std::size_t field : chosen) {
        writeMember(out, schema.fields[field], values[field], separator);
    }
    out.push_back('}');
}

std::string elementUri(const ResourceSchema& schema, std::string_view id) {
    std::string uri = "/";
    uri.append(serviceName).append("/").append(schema.name).append("/").append(id);
    return uri;
}

bool isElementId(std::string_view text) {
    if (text.empty() || text.size() > 128) {
        return false;
    }
    for (const char c : text) {
        const bool good =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
        if (!good) {
            return false;
        }
    }
    return true;
}

} // namespace cdxservice
