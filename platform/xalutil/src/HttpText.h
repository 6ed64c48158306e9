#ifndef XALUTIL_HTTPTEXT_H
#define XALUTIL_HTTPTEXT_H

#include <string>
#include <string_view>

/// The few pieces of HTTP's grammar that requests and answers share. No locale has a say in them.
namespace xalutil::httptext {

/// A non-empty run of the characters that names of methods and headers are made of.
bool isToken(std::string_view text) noexcept;
/// Blanks, tabs and whatever prints; no control characters.
bool isFieldText(std::string_view text) noexcept;
bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept;
std::string_view withoutBlanksAround(std::string_view text) noexcept;
/// Whether a header's comma-separated value lists `token`, in whatever case.
bool lists(std::string_view value, std::string_view token) noexcept;

} // namespace xalutil::httptext

#endif
