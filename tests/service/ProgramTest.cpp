#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

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

TEST(Program, SaysInOneLineWhereItListens) {
    Program program({"--port", "0"});
    const std::string line = program.line();
    const std::string begin = "cdx-service: listening on http://127.0.0.1:";
    ASSERT_EQ(line.substr(0, begin.size()), begin);
    const int port = std::atoi(line.c_str() + begin.size());
    EXPECT_EQ(cdxtest::HttpTestClient(static_cast<std::uint16_t>(port)).get("/health").status, 200);
    program.signal(SIGTERM);
    EXPECT_EQ(program.restOfOutput(), "");
    EXPECT_EQ(program.wait(), 0);
}

TEST(Program, EndsWellOnInterrupt) {
    Program program({"--port", "0"});
    program.line();
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 0);
}

TEST(Program, RefusesToStartBeyondLoopbackWithoutAToken) {
    Program program({"--port", "0", "--bind", "0.0.0.0"});
    EXPECT_EQ(program.restOfOutput(), "");
    EXPECT_NE(program.errors().find("token"), std::string::npos);
    EXPECT_GT(program.wait(), 0);
}

TEST(Program, SaysWhatIsWrongWithItsOptions) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--port", "x"},
                                               {"--port", "65536"},
                                               {"--nonsense"},
                                               {"--tls-cert", "/nonexistent"},
                                               {"--token-file", "/nonexistent"},
                                               {"--max-connections", "0"},
                                               {"--bind", "nowhere"}}) {
        Program program(arguments);
        EXPECT_EQ(program.restOfOutput(), "") << arguments[0];
        EXPECT_NE(program.errors(), "") << arguments[0];
        EXPECT_GT(program.wait(), 0) << arguments[0];
    }
}

TEST(Program, TakesSeveralHostNames) {
    Program program({"--port", "0", "--host", "one.example", "--host", "two.example"});
    const std::string line = program.line();
    const auto port = static_cast<std::uint16_t>(std::atoi(line.c_str() + line.rfind(':') + 1));
    for (const char* name : {"one.example", "two.example"}) {
        EXPECT_EQ(
            cdxtest::HttpTestClient(port).request("GET", "/health", {}, std::string("Host: ") + name + "\r\n").status,
            200);
    }
}

} // namespace
