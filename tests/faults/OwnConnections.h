#ifndef CDXTESTS_FAULTS_OWNCONNECTIONS_H
#define CDXTESTS_FAULTS_OWNCONNECTIONS_H

#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace cdxtest {

/// Cuts every connection of this process to that port of this host.
inline void cutOwnConnections(std::uint16_t port) {
    DIR* const folder = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(folder)) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        const int descriptor = std::atoi(entry->d_name);
        if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length) == 0 && peer.sin_family == AF_INET &&
            ntohs(peer.sin_port) == port)
            ::shutdown(descriptor, SHUT_RDWR);
    }
    ::closedir(folder);
}

} // namespace cdxtest

#endif
