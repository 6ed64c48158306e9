#ifndef SERVICE_SRC_RANDOM_H
#define SERVICE_SRC_RANDOM_H

#include <cstddef>
#include <string>

namespace cdxservice {

/// Hexadecimal digits from the system's source of randomness, fit for secrets.
std::string randomHex(std::size_t digits);

/// A random UUID (version 4).
std::string randomUuid();

} // namespace cdxservice

#endif
