#include "FullListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>

namespace cdxtest {

FullListener::FullListener(const std::string& address, std::uint16_t port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    socklen_t size = sizeof place;
    auto* const generic = reinterpret_cast<sockaddr*>(&place);
    m_sockets.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int listening = m_sockets.front().get();
    if (::inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1 || ::bind(listening, generic, size) != 0 ||
        ::listen(listening, 0) != 0 || ::getsockname(listening, generic, &size) != 0)
        throw std::runtime_error("no listener on " + address);
    m_port = ntohs(place.sin_port);
    for (int i = 0; i < 4; ++i) {
        m_sockets.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        static_cast<void>(::connect(m_sockets.back().get(), generic, size));
    }
}

} // namespace cdxtest
