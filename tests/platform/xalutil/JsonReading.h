#ifndef XALUTILTESTS_JSONREADING_H
#define XALUTILTESTS_JSONREADING_H

#include <xalutil/Json.h>

#include <exception>
#include <memory>
#include <string>

namespace xalutiltest {

inline xalutil::JsonValue parse(const std::string& text) {
    return xalutil::JsonFactory::createJsonParser()->parse(text);
}

inline std::shared_ptr<xalutil::JsonObject> parseObject(const std::string& text) {
    return parse(text).asObject();
}

inline std::shared_ptr<xalutil::JsonArray> parseArray(const std::string& text) {
    return parse(text).asArray();
}

/// What an action's exception says.
template <class Action>
std::string failureOf(Action action) {
    try {
        action();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no failure";
}

} // namespace xalutiltest

#endif
