#ifndef XALUTIL_JSONACCESS_H
#define XALUTIL_JSONACCESS_H

#include <xalutil/Json.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <memory>
#include <string>
#include <utility>

namespace xalutil::detail {

/// What the public JSON types stand for. Their pointers share the owner of what they point to: a parsed text, or a
/// value of the holder's own. Null: an empty object (array).
struct JsonAccess {
    static const boost::json::object& of(const JsonObject& object);
    static const boost::json::array& of(const JsonArray& array);
    static const boost::json::value& of(const JsonValue& value) {
        return *static_cast<const boost::json::value*>(value.m_value.get());
    }

    /// To be changed: what others see too is copied first.
    static boost::json::object& own(JsonObject& object) { return own(object.m_object, object.m_own, of(object)); }
    static boost::json::array& own(JsonArray& array) { return own(array.m_array, array.m_own, of(array)); }

    /// The member's value; null where there is none.
    static const boost::json::value* find(const JsonObject& object, const std::string& key);

    /// A view of what lies inside a holder's parsed text. What a holder owns changes with it, and is copied.
    template <class Holder>
    static std::shared_ptr<JsonObject> inside(const Holder& holder, const boost::json::object& inner) {
        auto result = std::make_shared<JsonObject>();
        result->m_object = inside(holder, &inner);
        return result;
    }
    template <class Holder>
    static std::shared_ptr<JsonArray> inside(const Holder& holder, const boost::json::array& inner) {
        auto result = std::make_shared<JsonArray>();
        result->m_array = inside(holder, &inner);
        return result;
    }

    static JsonValue value(std::shared_ptr<const boost::json::value> root) { return JsonValue(std::move(root)); }

private:
    template <class Value>
    static Value& own(std::shared_ptr<const void>& pointer, void*& owned, const Value& current) {
        if (owned == nullptr) {
            const auto copy = std::make_shared<Value>(current, boost::json::storage_ptr());
            owned = copy.get();
            pointer = copy;
        }
        return *static_cast<Value*>(owned);
    }

    template <class Holder, class Value>
    static std::shared_ptr<const void> inside(const Holder& holder, const Value* inner) {
        if (isOwn(holder))
            return std::make_shared<const Value>(*inner, boost::json::storage_ptr());
        return std::shared_ptr<const void>(owner(holder), inner);
    }

    static bool isOwn(const JsonObject& object) { return object.m_own != nullptr; }
    static bool isOwn(const JsonArray& array) { return array.m_own != nullptr; }
    static bool isOwn(const JsonValue&) { return false; }
    static const std::shared_ptr<const void>& owner(const JsonObject& object) { return object.m_object; }
    static const std::shared_ptr<const void>& owner(const JsonArray& array) { return array.m_array; }
    static const std::shared_ptr<const void>& owner(const JsonValue& value) { return value.m_value; }
};

/// What is there, in the words of the error texts; null: nothing.
const char* typeName(const boost::json::value* value);

} // namespace xalutil::detail

#endif
