#ifndef SERVICE_SRC_STRICTJSON_H
#define SERVICE_SRC_STRICTJSON_H

#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cdxservice {

/// Arrays and objects that may stand inside one another.
constexpr std::size_t maxJsonDepth = 32;

/// Reads one JSON text and nothing beside it: no invalid UTF-8, no lone surrogate, no key twice in an object, no more
/// than maxJsonDepth levels. The value lives in `storage`; without one, `problem` says what is wrong.
std::optional<boost::json::value> readStrictJson(std::string_view text, boost::json::storage_ptr storage,
                                                 std::string& problem);

/// Appends `text`, which is UTF-8, as a JSON string: escaped is what JSON demands, in the short form where there is
/// one.
void writeJsonString(std::string& out, std::string_view text);
void writeJsonInteger(std::string& out, std::int64_t number);
void writeJsonInteger(std::string& out, std::uint64_t number);

} // namespace cdxservice

#endif
