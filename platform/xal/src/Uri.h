#ifndef XAL_URI_H
#define XAL_URI_H

#include <cstdint>
#include <string>

namespace xal {

/// Where a service listens: the parts of a base URI that matter to the framework. Only http, https, ws and wss are
/// known; ws means http here, and wss https, since a service is reached by both at one address.
struct Uri {
    bool isSecure = false;
    std::string host; ///< without the brackets of an IPv6 literal
    std::uint16_t port = 0;
    std::string path; ///< as written; may be empty

    /// Throws std::invalid_argument, naming the text, when it is no such URI.
    static Uri parse(const std::string& text);

    /// The host, in brackets where it is an IPv6 literal, with the port unless that is the scheme's own.
    std::string authority() const;
    /// "http://host" or "https://host", with the port where the scheme has another.
    std::string httpOrigin() const;
};

/// Both parts with exactly one slash between them; an empty part is passed over.
std::string joinPath(const std::string& left, const std::string& right);

/// Percent-encodes all but what no part of a URI gives a meaning to.
std::string percentEncode(const std::string& text);

/// Whether the text can be an element's id: nothing else is ever sent.
bool isElementId(const std::string& text);

} // namespace xal

#endif
