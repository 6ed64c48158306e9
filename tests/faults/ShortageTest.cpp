#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>
#include <support/HttpTestClient.h>
#include <support/ProcessState.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <e2e/Vehicle.h>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

namespace cdxtest {
namespace {

/// While it lives, this process gets `more` descriptors beyond those that it has.
class NoDescriptors {
public:
    explicit NoDescriptors(unsigned more = 0) {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const std::vector<int> open = openDescriptors();
        rlimit scarce = m_before;
        scarce.rlim_cur = static_cast<rlim_t>(*std::max_element(open.begin(), open.end())) + 1;
        ::setrlimit(RLIMIT_NOFILE, &scarce);
        fill();
        scarce.rlim_cur += more;
        ::setrlimit(RLIMIT_NOFILE, &scarce);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

    /// Takes what was given back meanwhile.
    void fill() {
        for (int filler = ::dup(0); filler >= 0; filler = ::dup(0))
            m_fillers.emplace_back(filler);
    }

private:
    rlimit m_before{};
    std::vector<Descriptor> m_fillers;
};

class Shortage : public ::testing::Test {
protected:
    Shortage() { m_service.start(); }

    cdxservice::Server m_service;
};

TEST_F(Shortage, OfDescriptorsFailsTheRequestAndEndsWithTheShortage) {
    FrameworkUser user(m_service.port());
    ASSERT_TRUE(user.start());
    {
        const NoDescriptors shortage;
        user.create("during");
        EXPECT_EQ(user.statusOf("during"), 0);
    }
    user.create("after");
    EXPECT_EQ(user.statusOf("after"), 201);
    EXPECT_TRUE(user.sees("after"));
    EXPECT_EQ(user.client.told.count("disconnected"), 0U);
}

TEST_F(Shortage, OfDescriptorsWhileReconnectingIsRetried) {
    FaultProxy proxy(m_service.port());
    FrameworkUser user(proxy.port());
    ASSERT_TRUE(user.start());
    proxy.refuse(true);
    proxy.endAll(FaultProxy::End::Reset);
    ASSERT_TRUE(user.client.awaitDisconnected(1));
    {
        NoDescriptors shortage;
        // The lost connection may still give its descriptors back.
        const auto deadline = std::chrono::steady_clock::now() + patience;
        do
            shortage.fill();
        while (user.client.log->await("no socket", std::chrono::milliseconds(100)).empty() &&
               std::chrono::steady_clock::now() < deadline);
        ASSERT_GT(user.client.log->count("no socket"), 0U) << "the log says what is short";
    }
    proxy.refuse(false);
    ASSERT_TRUE(user.client.connection(2));
}

TEST_F(Shortage, OfDescriptorsLeavesTheServicesClientsServed) {
    HttpTestClient known(m_service.port());
    ASSERT_EQ(known.get("/health").status, 200);
    TcpPeer waiting;
    {
        // Room for the client's side of one connection, not for the service's.
        const NoDescriptors shortage(1);
        waiting = TcpPeer::connect(m_service.port());
        waiting.send("GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n");
        for (int i = 0; i < 50; ++i)
            EXPECT_EQ(known.get("/health").status, 200);
    }
    EXPECT_TRUE(waiting.takeUntil("HTTP/1.1 200")) << "who waited is served when the shortage is over";
}

TEST_F(Shortage, NoDescriptorIsInheritedByAChild) {
    const std::vector<int> before = openDescriptors();
    FrameworkUser user(m_service.port());
    ASSERT_TRUE(user.start());
    user.create("a");
    ASSERT_EQ(user.statusOf("a"), 201);
    for (const int descriptor : openDescriptors()) {
        if (std::find(before.begin(), before.end(), descriptor) == before.end()) {
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << "descriptor " << descriptor;
        }
    }
}

/// How many sockets a program finds open that is started here and now.
int socketsOfAChild() {
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen("ls -l /proc/self/fd | grep -c socket:", "re"),
                                                       &::pclose);
    int sockets = -1;
    EXPECT_EQ(std::fscanf(output.get(), "%d", &sockets), 1);
    return sockets;
}

TEST_F(Shortage, NoChildOfAnExchangingProgramInheritsASocketOrHarmsIt) {
    const int before = socketsOfAChild();
    FaultProxy proxy(m_service.port());
    FrameworkUser user(proxy.port());
    ASSERT_TRUE(user.start());
    constexpr int children = 30;
    for (int i = 0; i < children; ++i) {
        if (i % 10 == 5)
            proxy.endAll(FaultProxy::End::Reset); // connections are made anew meanwhile
        user.create(std::to_string(i));
        EXPECT_EQ(socketsOfAChild(), before);
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(0);
        EXPECT_EQ(::waitpid(child, nullptr, 0), child);
    }
    for (int i = 0; i < children; ++i)
        EXPECT_NE(user.statusOf(std::to_string(i)), -1);
    for (const auto& [name, results] : user.results())
        EXPECT_EQ(results, 1) << name;
    user.create("last");
    EXPECT_EQ(user.statusOf("last"), 201);
    EXPECT_TRUE(user.sees("last"));
}

} // namespace
} // namespace cdxtest
