#include "ServiceProcess.h"

#include <support/Tcp.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace cdxtest {

ServiceProcess::ServiceProcess() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const Descriptor out(ends[0]);
    Descriptor in(ends[1]);
    std::string arguments[] = {CDX_SERVICE_PROGRAM, "--port", "0"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in.get(), STDOUT_FILENO);
    const int failure = ::posix_spawn(&m_pid, argv[0], &actions, nullptr, argv, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    in.reset();
    if (failure != 0)
        throw std::runtime_error("cdx-service does not start");
    std::string line;
    char c = 0;
    while (::read(out.get(), &c, 1) == 1 && c != '\n')
        line += c;
    const std::size_t colon = line.rfind(':');
    if (line.find("listening on") == std::string::npos || colon == std::string::npos)
        throw std::runtime_error("cdx-service says: " + line);
    m_port = static_cast<std::uint16_t>(std::stoul(line.substr(colon + 1)));
}

ServiceProcess::~ServiceProcess() {
    kill();
}

void ServiceProcess::kill() {
    if (m_pid == 0)
        return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = 0;
}

void ServiceProcess::suspend() {
    ::kill(m_pid, SIGSTOP);
    // The signal is on its way until the process is seen to have stopped.
    ::waitpid(m_pid, nullptr, WUNTRACED);
}

void ServiceProcess::resume() {
    ::kill(m_pid, SIGCONT);
}

} // namespace cdxtest
