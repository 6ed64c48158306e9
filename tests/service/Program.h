#ifndef CDXTESTS_SERVICE_PROGRAM_H
#define CDXTESTS_SERVICE_PROGRAM_H

#include <support/ProcessState.h>
#include <support/Tcp.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace cdxservice {

/// The program cdx-service as a user runs it.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), CDX_SERVICE_PROGRAM);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        int out[2];
        int err[2];
        if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        ::posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        ::posix_spawn(&m_pid, CDX_SERVICE_PROGRAM, &actions, nullptr, argv.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        ::close(err[1]);
        m_out = cdxtest::Descriptor(out[0]);
        m_err = cdxtest::Descriptor(err[0]);
    }
    ~Program() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            wait();
        }
    }

    /// The next line of standard output, without its end.
    std::string line() const { return readTo(m_out.get(), '\n'); }
    std::string restOfOutput() const { return readTo(m_out.get(), -1); }
    std::string errors() const { return readTo(m_err.get(), -1); }
    /// Where it listens, as its first line says.
    std::uint16_t port() const {
        const std::string first = line();
        return static_cast<std::uint16_t>(std::atoi(first.c_str() + first.rfind(':') + 1));
    }
    std::size_t descriptors() const { return cdxtest::openDescriptors(std::to_string(m_pid)).size(); }
    long residentKib() const { return cdxtest::residentKib(std::to_string(m_pid)); }
    std::chrono::nanoseconds processorTime() const {
        clockid_t clock = {};
        timespec time = {};
        if (::clock_getcpuclockid(m_pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
            throw std::runtime_error("no processor time is told of the program");
        }
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }
    void signal(int number) const { ::kill(m_pid, number); }
    /// The exit status; negative: the signal that ended it.
    int wait() {
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    static std::string readTo(int descriptor, int end) {
        std::string text;
        char c = 0;
        while (::read(descriptor, &c, 1) == 1 && c != end) {
            text.push_back(c);
        }
        return text;
    }

    pid_t m_pid = 0;
    cdxtest::Descriptor m_out;
    cdxtest::Descriptor m_err;
};

} // namespace cdxservice

#endif
