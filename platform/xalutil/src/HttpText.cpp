#include "HttpText.h"

#include <algorithm>

namespace xalutil::httptext {

namespace {

constexpr std::string_view tokenMarks = "!#$%&'*+-.^_`|~";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isTokenCharacter(char c) {
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') ||
           tokenMarks.find(c) != std::string_view::npos;
}

bool isFieldCharacter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == '\t' || (byte >= ' ' && byte != 0x7f);
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

} // namespace

bool isToken(std::string_view text) noexcept {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isFieldText(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), isFieldCharacter);
}

bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::string_view withoutBlanksAround(std::string_view text) noexcept {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool lists(std::string_view value, std::string_view token) noexcept {
    while (!value.empty()) {
        const std::size_t comma = std::min(value.find(','), value.size());
        if (equalIgnoringCase(withoutBlanksAround(value.substr(0, comma)), token))
            return true;
        value.remove_prefix(std::min(comma + 1, value.size()));
    }
    return false;
}

} // namespace xalutil::httptext
