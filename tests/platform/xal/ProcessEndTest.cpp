#include "ScriptedService.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using namespace xaltest;

/// Programs that return from main without having stopped: they end with their own status, in time.
class ProcessEnd : public testing::TestWithParam<std::string> {
protected:
    int run() {
        std::string program = XAL_EXIT_PROGRAM, uri = peer.uri(), how = GetParam();
        char* const arguments[] = {program.data(), uri.data(), how.data(), nullptr};
        int input[2];
        if (::pipe2(input, O_CLOEXEC) != 0)
            return -1;
        cdxtest::Descriptor childsEnd(input[0]), ownEnd(input[1]);
        posix_spawn_file_actions_t files;
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_adddup2(&files, childsEnd.get(), STDIN_FILENO);
        pid_t child = 0;
        const int failure = ::posix_spawn(&child, program.c_str(), &files, nullptr, arguments, environ);
        ::posix_spawn_file_actions_destroy(&files);
        if (failure != 0)
            return -1;
        auto tcp = peer.acceptTcp();
        if (how == "connecting") {
            tcp.takeUntil("\r\n\r\n");
            ownEnd.reset();
            return await(child);
        }
        const auto channel = cdxtest::WebSocketPeer::accept(std::move(tcp));
        return await(child);
    }

    static int await(pid_t child) {
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    ScriptedService peer;
};

TEST_P(ProcessEnd, KeepsTheProgramsOwnStatus) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

INSTANTIATE_TEST_SUITE_P(While, ProcessEnd, testing::Values("connected", "connecting", "busy", "closing", "destroyed"),
                         [](const auto& how) { return how.param; });

} // namespace
