#ifndef CDXTESTS_SUPPORT_FULLLISTENER_H
#define CDXTESTS_SUPPORT_FULLLISTENER_H

#include <support/Tcp.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cdxtest {

/// Listens on an address of loopback, but has no room for another connection: whoever connects waits.
class FullListener {
public:
    /// Port 0: one of the system's choice.
    explicit FullListener(const std::string& address = "127.0.0.1", std::uint16_t port = 0);

    std::uint16_t port() const { return m_port; }

private:
    std::vector<Descriptor> m_sockets;
    std::uint16_t m_port = 0;
};

} // namespace cdxtest

#endif
