#include "MemorySweep.h"

#include <support/Tcp.h>
#include <support/scarce/ScarceMemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));
extern "C" const char* __lsan_default_suppressions();
/// Poco's look-up of a name loses the system's list of addresses when it cannot copy it.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:Poco::Net::DNS::hostByName\n";
}
// NOLINTEND(bugprone-reserved-identifier)

namespace cdxtest {
namespace {

constexpr unsigned longestExchange = 60; // seconds

enum Outcome { Held = 0, Failed = 1, FailedWithoutShortage = 2, NothingRefused = 77 };

/// In the child. Nothing that was made before the fork is destroyed.
[[noreturn]] void runExchange(const Shortage& shortage, const std::function<void(const Shortage&)>& exchange,
                              int report) {
    ::alarm(longestExchange); // a hang ends the child
    std::string wrong;
    {
        const scarce::Spared spared;
        try {
            exchange(shortage);
        } catch (const std::exception& e) {
            wrong = e.what();
        }
        if (wrong.empty() && __lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check() != 0)
            wrong = "memory is leaked";
        if (::write(report, wrong.data(), wrong.size()) < 0)
            wrong = "no pipe";
    }
    if (!scarce::wasRefused())
        ::_exit(wrong.empty() ? NothingRefused : FailedWithoutShortage);
    ::_exit(wrong.empty() ? Held : Failed);
}

} // namespace

void Shortage::phase(const std::string& name, const std::function<void()>& run) const {
    if (name != m_phase)
        return run();
    scarce::refuse(m_first, m_count);
    run();
    scarce::end();
}

bool throws(const std::function<void()>& call) {
    const scarce::Spared exposed(false);
    try {
        call();
        return false;
    } catch (const std::exception&) {
        return true;
    }
}

void insist(const std::function<void()>& call) {
    constexpr int attempts = 1000;
    for (int i = 0; i < attempts; ++i)
        if (!throws(call))
            return;
    throw std::runtime_error("a call goes on throwing after the shortage");
}

void demand(bool holds, const std::string& what) {
    if (!holds)
        throw std::runtime_error(what);
}

void sweep(const std::string& phase, std::size_t step, std::size_t count,
           const std::function<void(const Shortage&)>& exchange) {
    if (const char* chosen = std::getenv("CDX_MEMORY_STEP"))
        step = std::max<std::size_t>(1, std::strtoul(chosen, nullptr, 10));
    std::size_t held = 0;
    for (std::size_t first = 1;; first += step) {
        SCOPED_TRACE(phase + ": " + std::to_string(count) + " refused from piece " + std::to_string(first));
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        const Descriptor out(ends[0]);
        Descriptor in(ends[1]);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0)
            runExchange(Shortage(phase, first, count), exchange, in.get());
        in.reset();
        std::string wrong;
        char buffer[256];
        for (ssize_t got = 0; (got = ::read(out.get(), buffer, sizeof buffer)) > 0;)
            wrong.append(buffer, static_cast<std::size_t>(got));
        int status = 0;
        ::waitpid(child, &status, 0);
        if (WIFSIGNALED(status)) {
            ADD_FAILURE() << (WTERMSIG(status) == SIGALRM ? "it hangs" : "it is ended by signal ") << WTERMSIG(status);
        } else if (WEXITSTATUS(status) == NothingRefused) {
            break;
        } else {
            EXPECT_EQ(WEXITSTATUS(status), Held) << wrong;
            if (WEXITSTATUS(status) == FailedWithoutShortage)
                break;
        }
        ++held;
    }
    EXPECT_GT(held, 0U) << "the phase asks for no memory";
    ::testing::Test::RecordProperty("shortages", static_cast<int>(held));
    std::cout << phase << ": " << held << " shortages of " << count << "\n";
}

} // namespace cdxtest
