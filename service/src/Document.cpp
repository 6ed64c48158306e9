#include "Document.h"

#include "Name.h"

#include <boost/json/serialize.hpp>

#include <algorithm>
#include <utility>

namespace cdxservice {

namespace json = boost::json;

namespace {

std::string_view view(json::string_view text) {
    return {text.data(), text.size()};
}

Problem wrong(const Field& field, std::string_view what) {
    return {422, "\"" + std::string(field.key) + "\" " + std::string(what), pointerTo(field.key)};
}

std::optional<Problem> readList(const Field& field, const json::value& json, Value& out) {
    const json::array* array = json.if_array();
    if (!array) {
        return wrong(field, "is an array of strings");
    }
    std::vector<std::string> list;
    list.reserve(array->size());
    for (const json::value& entry : *array) {
        const json::string* text = entry.if_string();
        if (!text) {
            Problem problem = wrong(field, "holds strings only");
            problem.pointer = pointerTo(field.key, list.size());
            return problem;
        }
        list.emplace_back(text->data(), text->size());
    }
    out = std::move(list);
    return std::nullopt;
}

std::optional<Problem> readValue(const Field& field, const json::value& json, Value& out) {
    switch (field.kind) {
    case Kind::Text:
        if (const json::string* text = json.if_string()) {
            out = std::string(text->data(), text->size());
            return std::nullopt;
        }
        return wrong(field, "is a string");
    case Kind::Integer:
        if (const std::int64_t* number = json.if_int64()) {
            out = *number;
            return std::nullopt;
        }
        return wrong(field, "is a whole number of 64 bits, without fraction or exponent");
    case Kind::Flag:
        if (const bool* flag = json.if_bool()) {
            out = *flag;
            return std::nullopt;
        }
        return wrong(field, "is true or false");
    case Kind::Literal:
        if (const json::string* text = json.if_string()) {
            const auto& literals = field.literals;
            if (std::find(literals.begin(), literals.end(), view(*text)) != literals.end()) {
                out = std::string(text->data(), text->size());
                return std::nullopt;
            }
            return wrong(field, "is none of its literals");
        }
        return wrong(field, "is a string, one of its literals");
    case Kind::TextList:
        return readList(field, json, out);
    }
    return std::nullopt;
}

} // namespace

bool Document::has(std::size_t field) const {
    return m_object.contains(m_schema.fields[field].key);
}

std::optional<std::string_view> Document::text(std::size_t field) const {
    const json::value* value = m_object.if_contains(m_schema.fields[field].key);
    if (!value || !value->is_string()) {
        return std::nullopt;
    }
    return view(value->get_string());
}

std::optional<std::string_view> Document::name() const {
    const auto written = text(nameField);
    return written ? std::optional<std::string_view>(readWrittenName(*written).name) : std::nullopt;
}

std::optional<bool> Document::isNew() const {
    const auto written = text(nameField);
    return written ? readWrittenName(*written).isNew : std::nullopt;
}

std::optional<Problem> Document::applyTo(Values& values, bool merging) const {
    for (const auto& member : m_object) {
        const std::string_view key = view(member.key());
        const json::value& json = member.value();
        const auto position = m_schema.find(key);
        if (!position) {
            return Problem{422, "the resource has no such field", pointerTo(key)};
        }
        const Field& field = m_schema.fields[*position];
        Value& value = values[*position];
        if (*position == idField || *position == uriField) {
            const json::string* text = json.if_string();
            if (!text || view(*text) != std::get<std::string>(value)) {
                return wrong(field, merging ? "does not change" : "is not the element's own");
            }
        } else if (json.is_null()) {
            if (!merging) {
                return wrong(field, "is null");
            }
            value = std::monostate();
        } else if (*position == nameField && json.is_string()) {
            value = std::string(*name());
        } else if (auto problem = readValue(field, json, value)) {
            return problem;
        }
    }
    return std::nullopt;
}

std::size_t Document::sizeOver(const Values& values) const {
    std::string kept;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!std::holds_alternative<std::monostate>(values[i]) && !has(i)) {
            kept.append(m_schema.fields[i].key).append("\"\":,");
            writeValue(kept, values[i]);
        }
    }
    return kept.size() + json::serialize(m_object).size();
}

} // namespace cdxservice
