#include "JsonAccess.h"

#include <boost/json/serialize.hpp>

#include <cmath>
#include <limits>

namespace xalutil {

namespace json = boost::json;

namespace {

void makeFinite(json::value& value);

void makeFinite(json::array& array) {
    for (json::value& element : array)
        makeFinite(element);
}

void makeFinite(json::object& object) {
    for (auto& member : object)
        makeFinite(member.value());
}

void makeFinite(json::value& value) {
    if (double* number = value.if_double()) {
        if (std::isinf(*number))
            *number = std::copysign(std::numeric_limits<double>::max(), *number);
    } else if (json::array* array = value.if_array()) {
        makeFinite(*array);
    } else if (json::object* object = value.if_object()) {
        makeFinite(*object);
    }
}

/// JSON has no word for a number that is too large for a double, which is read as infinite.
template <class Value>
std::string textOf(const Value& value) {
    std::string text = json::serialize(value);
    if (text.find("Infinity") == std::string::npos)
        return text;
    Value finite(value, json::storage_ptr());
    makeFinite(finite);
    return json::serialize(finite);
}

} // namespace

std::string JsonObject::toString() const {
    return textOf(detail::JsonAccess::of(*this));
}

std::string JsonArray::toString() const {
    return textOf(detail::JsonAccess::of(*this));
}

} // namespace xalutil
