#include "HttpText.h"

#include <algorithm>

namespace cdxservice {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    const char letter = lower(c);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

std::string_view takeToken(std::string_view& text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isTokenCharacter);
    const std::string_view token = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(token.size());
    return token;
}

/// A token or a quoted string; nothing if the text begins with neither.
std::optional<std::string> takeValue(std::string_view& text) {
    if (text.empty() || text.front() != '"') {
        const std::string_view token = takeToken(text);
        return token.empty() ? std::nullopt : std::optional<std::string>(token);
    }
    std::string value;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            return value;
        }
        if (text[i] == '\\' && ++i == text.size()) {
            break;
        }
        value.push_back(text[i]);
    }
    return std::nullopt;
}

bool isHostCharacter(char c) {
    return isLetter(c) || isDigit(c) || std::string_view("-._~!$&'()*+,;=%").find(c) != std::string_view::npos;
}

bool isLiteralCharacter(char c) {
    return hexValue(c) >= 0 || c == ':' || c == '.';
}

} // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::vector<std::string_view> splitList(std::string_view list) {
    std::vector<std::string_view> members;
    for (;;) {
        const auto comma = list.find(',');
        members.push_back(trimmed(list.substr(0, comma)));
        if (comma == std::string_view::npos) {
            return members;
        }
        list.remove_prefix(comma + 1);
    }
}

bool listHas(std::string_view list, std::string_view member) {
    const auto members = splitList(list);
    return std::any_of(members.begin(), members.end(),
                       [&](std::string_view each) { return equalsIgnoringCase(each, member); });
}

bool isTokenCharacter(char c) {
    return isLetter(c) || isDigit(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

std::optional<std::vector<Parameter>> parseParameters(std::string_view text) {
    std::vector<Parameter> parameters;
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        if (text.front() != ';') {
            return std::nullopt;
        }
        text = trimmed(text.substr(1));
        Parameter& parameter = parameters.emplace_back();
        parameter.name = takeToken(text);
        const std::string_view behindName = trimmed(text);
        if (behindName.empty() || behindName.front() != '=') {
            continue;
        }
        text = trimmed(behindName.substr(1));
        parameter.value = takeValue(text);
        if (parameter.name.empty() || !parameter.value) {
            return std::nullopt;
        }
    }
    return parameters;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return out;
}

std::optional<Authority> parseAuthority(std::string_view text) {
    Authority authority;
    if (!text.empty() && text.front() == '[') {
        const auto end = text.find(']');
        if (end == std::string_view::npos || !std::all_of(text.begin() + 1, text.begin() + end, isLiteralCharacter)) {
            return std::nullopt;
        }
        authority.host = text.substr(0, end + 1);
    } else {
        authority.host = text.substr(0, text.find(':'));
        if (!std::all_of(authority.host.begin(), authority.host.end(), isHostCharacter)) {
            return std::nullopt;
        }
    }
    std::string_view rest = text.substr(authority.host.size());
    if (!rest.empty()) {
        if (rest.front() != ':') {
            return std::nullopt;
        }
        authority.port = rest.substr(1);
        if (authority.port.size() > 5 || !std::all_of(authority.port.begin(), authority.port.end(), isDigit)) {
            return std::nullopt;
        }
    }
    return authority;
}

} // namespace cdxservice
