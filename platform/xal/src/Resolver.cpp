#include "Resolver.h"

#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <thread>

namespace xal {
namespace {

std::vector<Address> ask(const std::string& host, std::uint16_t port, int flags, std::string& error) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int failure = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    std::vector<Address> addresses;
    if (failure != 0) {
        error = "cannot resolve " + host + ": " + ::gai_strerror(failure);
        return addresses;
    }
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        Address address{};
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        addresses.push_back(address);
    }
    ::freeaddrinfo(found);
    return addresses;
}

} // namespace

void resolve(const std::shared_ptr<EventLoop>& loop, const std::string& host, std::uint16_t port,
             std::function<void(std::vector<Address>, const std::string& error)> done) {
    std::string error;
    auto literal = ask(host, port, AI_NUMERICHOST, error);
    if (!literal.empty())
        return loop->post([literal = std::move(literal), done = std::move(done)] { done(literal, {}); });
    std::thread([loop, host, port, done = std::move(done)]() mutable {
        std::string reason;
        auto addresses = ask(host, port, 0, reason);
        loop->post([addresses = std::move(addresses), reason, done = std::move(done)] { done(addresses, reason); });
    }).detach();
}

} // namespace xal
