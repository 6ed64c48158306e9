#ifndef XAL_RESOLVER_H
#define XAL_RESOLVER_H

#include "EventLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace xal {

/// An address as the system's calls take it.
struct Address {
    sockaddr_storage storage;
    socklen_t length;
};

/// Finds a host's addresses and gives them, or the reason why there are none, to `done` on the loop's thread. The
/// system's resolver can neither be cancelled nor given a time, so that unless the host is a literal it is asked on a
/// thread of its own, which nobody waits for. Throws std::system_error when the system gives no thread.
void resolve(const std::shared_ptr<EventLoop>& loop, const std::string& host, std::uint16_t port,
             std::function<void(std::vector<Address>, const std::string& error)> done);

} // namespace xal

#endif
