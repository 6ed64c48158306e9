#include "Resolver.h"

#include "Persist.h"

#include <new>
#include <stdexcept>
#include <thread>

namespace xal {
namespace {

/// Throws std::bad_alloc alone.
std::vector<Address> ask(const std::string& host, std::uint16_t port, std::string& whyNone) {
    try {
        return xalutil::findHostAddresses(host, port);
    } catch (const std::runtime_error& e) {
        whyNone = e.what();
        return {};
    }
}

} // namespace

void resolve(const std::shared_ptr<EventLoop>& loop, const std::string& host, std::uint16_t port,
             std::function<void(std::vector<Address>, const std::string& error)> done) {
    auto literal = xalutil::findLiteralAddress(host, port);
    if (!literal.empty())
        return loop->post([literal = std::move(literal), done = std::move(done)] { done(literal, {}); });
    std::thread([loop, host, port, done = std::move(done)]() mutable {
        // Nobody could be told of what this thread throws.
        persist([&] {
            std::string whyNone;
            auto addresses = ask(host, port, whyNone);
            loop->post([addresses = std::move(addresses), whyNone, done] { done(addresses, whyNone); });
        });
    }).detach();
}

} // namespace xal
