#include "Name.h"

namespace cdxservice {

WrittenName readWrittenName(std::string_view text) {
    constexpr std::string_view newElement = "RefreshField^true>>";
    constexpr std::string_view refreshedElement = "RefreshField^false>>";
    if (text.substr(0, newElement.size()) == newElement) {
        return {true, text.substr(newElement.size())};
    }
    if (text.substr(0, refreshedElement.size()) == refreshedElement) {
        return {false, text.substr(refreshedElement.size())};
    }
    return {std::nullopt, text};
}

} // namespace cdxservice
