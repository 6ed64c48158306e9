#ifndef CDXMOROCLIENT_ELEMENTTEXT_H
#define CDXMOROCLIENT_ELEMENTTEXT_H

#include <xalutil/Optional.h>

#include <string>
#include <vector>

/// How elements' fields are put into words.
namespace zepclient {

/// The text, or "invalid" where there is none.
inline std::string textOrInvalid(const xalutil::Optional<std::string>& text) {
    return text.isValid() ? text.getValue() : "invalid";
}

/// All entries in their order, with nothing between them.
inline std::string joined(const std::vector<std::string>& entries) {
    std::string text;
    for (const std::string& entry : entries)
        text += entry;
    return text;
}

} // namespace zepclient

#endif
