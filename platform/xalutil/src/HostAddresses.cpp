#include <xalutil/HostAddresses.h>

#include <cstring>
#include <memory>
#include <netdb.h>
#include <stdexcept>

namespace xalutil {

namespace {

/// What getaddrinfo() returns.
int ask(const std::string& host, std::uint16_t port, int flags, std::vector<HostAddress>& addresses) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* answer = nullptr;
    const int failure = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &answer);
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> found(failure == 0 ? answer : nullptr, &::freeaddrinfo);
    for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
        HostAddress address{};
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        addresses.push_back(address);
    }
    return failure;
}

} // namespace

std::vector<HostAddress> findLiteralAddress(const std::string& host, std::uint16_t port) {
    std::vector<HostAddress> addresses;
    ask(host, port, AI_NUMERICHOST, addresses);
    return addresses;
}

std::vector<HostAddress> findHostAddresses(const std::string& host, std::uint16_t port) {
    std::vector<HostAddress> addresses;
    if (const int failure = ask(host, port, 0, addresses))
        throw std::runtime_error("cannot resolve " + host + ": " + ::gai_strerror(failure));
    return addresses;
}

} // namespace xalutil
