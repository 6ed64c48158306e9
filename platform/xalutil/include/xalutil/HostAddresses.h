#ifndef XALUTIL_HOSTADDRESSES_H
#define XALUTIL_HOSTADDRESSES_H

#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace xalutil {

/// An address as the system's calls take it.
struct HostAddress {
    sockaddr_storage storage;
    socklen_t length;
};

/// The address that `host` is the text of; nothing where it is a name.
std::vector<HostAddress> findLiteralAddress(const std::string& host, std::uint16_t port);

/// Asks the system's resolver for a name's addresses, in the order in which they are to be tried. It can neither be
/// cancelled nor given a time: whoever cannot wait asks on a thread of its own. Throws std::runtime_error with the
/// resolver's reason.
std::vector<HostAddress> findHostAddresses(const std::string& host, std::uint16_t port);

} // namespace xalutil

#endif
