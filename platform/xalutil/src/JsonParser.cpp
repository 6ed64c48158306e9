#include "JsonAccess.h"

#include <xalutil/Json.h>

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parser.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace xalutil {

namespace json = boost::json;
using detail::JsonAccess;

namespace {

constexpr std::size_t deepestNesting = 128;

/// A parsed text, in memory that is given back as a whole.
struct Document {
    json::monotonic_resource memory;
    json::value root;

    explicit Document(std::size_t room) : memory(room), root(&memory) {}
};

/// Enough for most messages in one piece: what is parsed takes its text's room, and 32 bytes more for each member.
std::size_t roomFor(const std::string& text) {
    constexpr std::size_t smallest = 256;
    return smallest + 2 * text.size();
}

[[noreturn]] void refuse(const std::string& text, std::size_t position, const json::error_code& error) {
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(position, text.size()));
    const auto line = 1 + std::count(text.begin(), end, '\n');
    const auto lineStart = text.rfind('\n', position == 0 ? std::string::npos : position - 1);
    const std::size_t column = position == 0 || lineStart == std::string::npos ? position + 1 : position - lineStart;
    throw std::runtime_error("malformed JSON at line " + std::to_string(line) + ", column " + std::to_string(column) +
                             ": " + error.message());
}

[[noreturn]] void refuse(const char* asked, const json::value& found) {
    throw std::runtime_error(std::string("asked for ") + asked + ", but the text is " + detail::typeName(&found));
}

} // namespace

JsonValue::JsonValue(std::shared_ptr<const void> value) : m_value(std::move(value)) {}
JsonValue::JsonValue(const JsonValue&) = default;
JsonValue::JsonValue(JsonValue&&) noexcept = default;
JsonValue& JsonValue::operator=(const JsonValue&) = default;
JsonValue& JsonValue::operator=(JsonValue&&) noexcept = default;
JsonValue::~JsonValue() = default;

std::shared_ptr<JsonObject> JsonValue::asObject() const {
    const json::value& value = JsonAccess::of(*this);
    if (!value.is_object())
        refuse("an object", value);
    return JsonAccess::inside(*this, *value.if_object());
}

std::shared_ptr<JsonArray> JsonValue::asArray() const {
    const json::value& value = JsonAccess::of(*this);
    if (!value.is_array())
        refuse("an array", value);
    return JsonAccess::inside(*this, *value.if_array());
}

JsonParser::~JsonParser() = default;

JsonValue JsonParser::parse(const std::string& text) const {
    json::parse_options options;
    options.max_depth = deepestNesting;
    unsigned char scratch[4096];
    json::parser parser(json::storage_ptr(), options, scratch);
    const auto document = std::make_shared<Document>(roomFor(text));
    parser.reset(&document->memory);

    json::error_code error;
    const std::size_t taken = parser.write(text.data(), text.size(), error);
    if (error)
        refuse(text, taken, error);
    document->root = parser.release();
    return JsonAccess::value(std::shared_ptr<const json::value>(document, &document->root));
}

std::shared_ptr<JsonObject> JsonFactory::createJsonObject() {
    return std::make_shared<JsonObject>();
}

std::shared_ptr<JsonArray> JsonFactory::createJsonArray() {
    return std::make_shared<JsonArray>();
}

std::shared_ptr<JsonParser> JsonFactory::createJsonParser() {
    return std::make_shared<JsonParser>();
}

} // namespace xalutil
