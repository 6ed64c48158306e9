#include "Resolver.h"

#include "Persist.h"

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
    addrinfo* answer = nullptr;
    const int failure = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &answer);
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> found(failure == 0 ? answer : nullptr, &::freeaddrinfo);
    std::vector<Address> addresses;
    if (failure != 0) {
        error = "cannot resolve " + host + ": " + ::gai_strerror(failure);
        return addresses;
    }
    for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
        Address address{};
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        addresses.push_back(address);
    }
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
        // Nobody could be told of what this thread throws.
        persist([&] {
            std::string reason;
            auto addresses = ask(host, port, 0, reason);
            loop->post([addresses = std::move(addresses), reason, done] { done(addresses, reason); });
        });
    }).detach();
}

} // namespace xal
