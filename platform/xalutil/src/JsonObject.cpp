#include "JsonAccess.h"

#include <xalutil/Json.h>

#include <stdexcept>
#include <utility>

namespace xalutil {

namespace json = boost::json;
using detail::JsonAccess;

namespace {

[[noreturn]] void refuse(const std::string& key, const char* asked, const json::value* found) {
    throw std::runtime_error("key \"" + key + "\": asked for " + asked + ", but there is " + detail::typeName(found));
}

} // namespace

const char* detail::typeName(const json::value* value) {
    if (value == nullptr)
        return "nothing";
    switch (value->kind()) {
    case json::kind::null:
        return "null";
    case json::kind::bool_:
        return "a bool";
    case json::kind::int64:
        return "an int64";
    case json::kind::uint64:
    case json::kind::double_:
        return "a number that is no int64";
    case json::kind::string:
        return "a string";
    case json::kind::array:
        return "an array";
    case json::kind::object:
        break;
    }
    return "an object";
}

const json::object& JsonAccess::of(const JsonObject& object) {
    static const json::object& empty = *new json::object;
    return object.m_object ? *static_cast<const json::object*>(object.m_object.get()) : empty;
}

const json::value* JsonAccess::find(const JsonObject& object, const std::string& key) {
    const json::object& members = of(object);
    const json::string_view wanted(key.data(), key.size());
    // The same key again, or the next one: what a reader asks for who takes a known object apart.
    const std::size_t last = object.m_lastFound.load(std::memory_order_relaxed);
    for (std::size_t i = last; i < last + 2 && i < members.size(); ++i) {
        const json::key_value_pair& member = members.begin()[i];
        if (member.key() == wanted) {
            if (i != last)
                object.m_lastFound.store(static_cast<std::uint32_t>(i), std::memory_order_relaxed);
            return &member.value();
        }
    }
    const auto found = members.find(wanted);
    if (found == members.end())
        return nullptr;
    object.m_lastFound.store(static_cast<std::uint32_t>(found - members.begin()), std::memory_order_relaxed);
    return &found->value();
}

JsonObject::JsonObject() = default;
JsonObject::~JsonObject() = default;

bool JsonObject::has(const std::string& key) const {
    return JsonAccess::find(*this, key) != nullptr;
}

std::string JsonObject::getString(const std::string& key) const {
    const json::value* found = JsonAccess::find(*this, key);
    if (found == nullptr || !found->is_string())
        refuse(key, "a string", found);
    const json::string& text = *found->if_string();
    return std::string(text.data(), text.size());
}

std::int64_t JsonObject::getInt64(const std::string& key) const {
    const json::value* found = JsonAccess::find(*this, key);
    if (found == nullptr || !found->is_int64())
        refuse(key, "an int64", found);
    return *found->if_int64();
}

bool JsonObject::getBool(const std::string& key) const {
    const json::value* found = JsonAccess::find(*this, key);
    if (found == nullptr || !found->is_bool())
        refuse(key, "a bool", found);
    return *found->if_bool();
}

std::shared_ptr<JsonArray> JsonObject::getArray(const std::string& key) const {
    const json::value* found = JsonAccess::find(*this, key);
    if (found == nullptr || !found->is_array())
        refuse(key, "an array", found);
    return JsonAccess::inside(*this, *found->if_array());
}

std::shared_ptr<JsonObject> JsonObject::getObject(const std::string& key) const {
    const json::value* found = JsonAccess::find(*this, key);
    if (found == nullptr || !found->is_object())
        refuse(key, "an object", found);
    return JsonAccess::inside(*this, *found->if_object());
}

void JsonObject::set(const std::string& key, const std::string& value) {
    JsonAccess::own(*this)[key] = json::string_view(value.data(), value.size());
}

void JsonObject::set(const std::string& key, const char* value) {
    JsonAccess::own(*this)[key] = json::string_view(value);
}

void JsonObject::set(const std::string& key, int value) {
    JsonAccess::own(*this)[key] = static_cast<std::int64_t>(value);
}

void JsonObject::set(const std::string& key, long value) {
    JsonAccess::own(*this)[key] = static_cast<std::int64_t>(value);
}

void JsonObject::set(const std::string& key, long long value) {
    JsonAccess::own(*this)[key] = static_cast<std::int64_t>(value);
}

void JsonObject::set(const std::string& key, bool value) {
    JsonAccess::own(*this)[key] = value;
}

void JsonObject::set(const std::string& key, std::shared_ptr<const JsonArray> value) {
    json::array copy = value ? json::array(JsonAccess::of(*value), json::storage_ptr()) : json::array();
    JsonAccess::own(*this)[key] = std::move(copy);
}

bool operator==(const JsonObject& left, const JsonObject& right) {
    return JsonAccess::of(left) == JsonAccess::of(right);
}

} // namespace xalutil
