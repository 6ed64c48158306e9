#include "EndToEnd.h"

#include <algorithm>
#include <dirent.h>
#include <string>
#include <vector>

namespace cdxtest {
namespace {

std::vector<std::string> entriesOf(const char* folder) {
    std::vector<std::string> names;
    if (DIR* directory = ::opendir(folder)) {
        while (const dirent* entry = ::readdir(directory))
            names.emplace_back(entry->d_name);
        ::closedir(directory);
    }
    std::sort(names.begin(), names.end());
    return names;
}

using Lifecycle = EndToEnd;

TEST_F(Lifecycle, AStoppedClientIsToldNothingMore) {
    startWith("navigation");
    m_application.stop();
    const std::size_t before = m_application.recorder().all().size();
    vehicle().announce("charging");
    EXPECT_EQ(m_application.recorder().all().size(), before);
}

TEST_F(Lifecycle, AStoppedClientKeepsItsClientsAndStartsAgain) {
    startWith("navigation");
    m_application.stop();
    startApplication();
    told("state", "navigation");
    EXPECT_EQ(timesTold("announced", "navigation"), 1U);
}

TEST_F(Lifecycle, AReleasedClientLeavesRoomForAFreshOneThatKnowsNobody) {
    startWith("navigation");
    m_application.stop();
    m_application.abandon();
    Application fresh;
    fresh.start(m_service.port());
    fresh.recorder().waitFor("announced", "navigation");
}

TEST_F(Lifecycle, TheWorkerThreadEndsWhenItIsWoken) {
    startWith("navigation");
    client().start();
    m_application.stop();
    client().stopMoroClient();
    client().SendWakeupSignal();
    client().exit();
}

TEST_F(Lifecycle, AStartedClientThatIsOnlyReleasedIsToldNothingMore) {
    startWith("navigation");
    m_application.abandon();
    vehicle().announce("charging");
    Application fresh;
    fresh.start(m_service.port());
    fresh.recorder().waitFor("announced", "charging");
    EXPECT_EQ(timesTold("announced", "charging"), 0U);
}

TEST_F(Lifecycle, StartsAndStopsLeaveNoThreadAndNoDescriptorBehind) {
    startWith("navigation");
    m_application.stop();
    const std::size_t threads = entriesOf("/proc/self/task").size();
    const std::size_t descriptors = entriesOf("/proc/self/fd").size();
    for (std::size_t i = 1; i <= 10; ++i) {
        startApplication();
        told("state", "navigation", i);
        m_application.stop();
    }
    EXPECT_LE(entriesOf("/proc/self/task").size(), threads);
    EXPECT_LE(entriesOf("/proc/self/fd").size(), descriptors + 2); // the service's side of a connection may linger
}

} // namespace
} // namespace cdxtest
