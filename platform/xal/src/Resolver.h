#ifndef XAL_RESOLVER_H
#define XAL_RESOLVER_H

#include "EventLoop.h"

#include <xalutil/HostAddresses.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace xal {

using Address = xalutil::HostAddress;

/// Finds a host's addresses and gives them, or the reason why there are none, to `done` on the loop's thread. Unless
/// the host is a literal the system's resolver is asked, on a thread of its own, which nobody waits for. Throws
/// std::system_error when the system gives no thread.
void resolve(const std::shared_ptr<EventLoop>& loop, const std::string& host, std::uint16_t port,
             std::function<void(std::vector<Address>, const std::string& error)> done);

} // namespace xal

#endif
