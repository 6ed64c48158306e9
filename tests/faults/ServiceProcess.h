#ifndef CDXTESTS_FAULTS_SERVICEPROCESS_H
#define CDXTESTS_FAULTS_SERVICEPROCESS_H

#include <cstdint>
#include <sys/types.h>

namespace cdxtest {

/// The program cdx-service on a free port, to be stopped and killed as a process is. Throws std::runtime_error when it
/// does not say where it listens.
class ServiceProcess {
public:
    ServiceProcess();
    /// Kills.
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    std::uint16_t port() const { return m_port; }
    /// Ends it without a chance to say anything, and returns once it is gone.
    void kill();
    /// Lets it stand still, its sockets open, until resume().
    void suspend();
    void resume();

private:
    pid_t m_pid = 0;
    std::uint16_t m_port = 0;
};

} // namespace cdxtest

#endif
