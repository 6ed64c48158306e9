#ifndef SERVICE_SRC_HTTPTEXT_H
#define SERVICE_SRC_HTTPTEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cdxservice {

/// The small grammars that HTTP's header fields and addresses are made of.

bool equalsIgnoringCase(std::string_view a, std::string_view b);

/// Without blanks and tabs at both ends.
std::string_view trimmed(std::string_view text);

/// The members of a comma-separated list, trimmed; empty ones are kept.
std::vector<std::string_view> splitList(std::string_view list);

/// Whether a comma-separated list has this member, letters compared without case.
bool listHas(std::string_view list, std::string_view member);

bool isTokenCharacter(char c);
bool isToken(std::string_view text);

/// What stands behind a media type or the size of a chunk: `;name=value` any number of times, with or without a value.
struct Parameter {
    std::string_view name; ///< Empty: a semicolon with nothing behind it.
    std::optional<std::string> value;
};
/// Blanks may stand around each part; a value's quotes are taken off. Nothing if the text is malformed.
std::optional<std::vector<Parameter>> parseParameters(std::string_view text);

/// Resolves %XX. Nothing if one is malformed.
std::optional<std::string> percentDecoded(std::string_view text);

/// Host and port as a "Host" field or an absolute address name them.
struct Authority {
    std::string_view host; ///< Brackets of an IPv6 literal included; may be empty.
    std::string_view port; ///< Digits; may be empty.
};
/// Nothing if the text is no authority, or one with user information.
std::optional<Authority> parseAuthority(std::string_view text);

} // namespace cdxservice

#endif
