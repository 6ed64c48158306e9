// The calendar is set while an exchange is under way: this program's own clock_gettime stands before the system's.
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<long> calendarOffset{0}; // seconds

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const long result = ::syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME)
        time->tv_sec += calendarOffset;
    return static_cast<int>(result);
}

namespace cdxtest {
namespace {

class Calendar : public ::testing::TestWithParam<long> {
protected:
    ~Calendar() override { calendarOffset = 0; }
};

TEST_P(Calendar, BeingSetEndsNoConnectionAndNoRequest) {
    cdxservice::Server service;
    service.start();
    HttpTestClient other(service.port());
    ASSERT_EQ(other.get("/health").status, 200);
    FrameworkUser user(service.port(), 100, 500);
    ASSERT_TRUE(user.start());
    const auto before = std::chrono::system_clock::now();
    calendarOffset = GetParam();
    const auto moved = std::chrono::system_clock::now() - before;
    ASSERT_GE(moved > moved.zero() ? moved : -moved, std::chrono::minutes(59)) << "the calendar was set";
    for (int i = 0; i < 10; ++i) {
        const std::string name = std::to_string(i);
        user.create(name);
        EXPECT_EQ(user.statusOf(name), 201);
        EXPECT_TRUE(user.sees(name));
    }
    EXPECT_EQ(other.get("/health").status, 200) << "on the connection that it had";
    // Twice the watchdog's limits: the time is what is tested.
    EXPECT_EQ(user.client.told.await("disconnected", std::chrono::milliseconds(1200)), "");
}

INSTANTIATE_TEST_SUITE_P(ByAnHour, Calendar, ::testing::Values(3600, -3600));

} // namespace
} // namespace cdxtest
