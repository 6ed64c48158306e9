#include "JsonAccess.h"

#include <xalutil/Json.h>

#include <stdexcept>

namespace xalutil {

namespace json = boost::json;
using detail::JsonAccess;

namespace {

const json::value* at(const json::array& values, std::size_t index) {
    return index < values.size() ? &values[index] : nullptr;
}

[[noreturn]] void refuse(std::size_t index, const char* asked, const json::value* found) {
    throw std::runtime_error("index " + std::to_string(index) + ": asked for " + asked + ", but there is " +
                             detail::typeName(found));
}

} // namespace

const json::array& JsonAccess::of(const JsonArray& array) {
    static const json::array& empty = *new json::array;
    return array.m_array ? *static_cast<const json::array*>(array.m_array.get()) : empty;
}

JsonArray::JsonArray() = default;
JsonArray::~JsonArray() = default;

std::size_t JsonArray::size() const {
    return JsonAccess::of(*this).size();
}

std::string JsonArray::getString(std::size_t index) const {
    const json::value* found = at(JsonAccess::of(*this), index);
    if (found == nullptr || !found->is_string())
        refuse(index, "a string", found);
    const json::string& text = *found->if_string();
    return std::string(text.data(), text.size());
}

std::shared_ptr<JsonObject> JsonArray::getObject(std::size_t index) const {
    const json::value* found = at(JsonAccess::of(*this), index);
    if (found == nullptr || !found->is_object())
        refuse(index, "an object", found);
    return JsonAccess::inside(*this, *found->if_object());
}

void JsonArray::add(const std::string& value) {
    JsonAccess::own(*this).emplace_back(json::string_view(value.data(), value.size()));
}

void JsonArray::add(std::shared_ptr<const JsonObject> value) {
    json::object copy = value ? json::object(JsonAccess::of(*value), json::storage_ptr()) : json::object();
    JsonAccess::own(*this).emplace_back(std::move(copy));
}

} // namespace xalutil
