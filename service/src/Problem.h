#ifndef SERVICE_SRC_PROBLEM_H
#define SERVICE_SRC_PROBLEM_H

#include <string>
#include <string_view>

namespace cdxservice {

/// Why a request was not done, as its sender is told (RFC 9457).
struct Problem {
    int status = 500;
    std::string detail;
    std::string pointer = {}; ///< JSON Pointer to the bad field; empty: it is about no field.
};

/// The phrase that belongs to an HTTP status.
std::string_view reasonPhrase(int status);

/// The problem as `application/problem+json`.
std::string writeProblem(const Problem& problem);

/// "/key", or "/key/3" for an entry of an array.
std::string pointerTo(std::string_view key);
std::string pointerTo(std::string_view key, std::size_t index);

} // namespace cdxservice

#endif
