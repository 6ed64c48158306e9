#include "EndToEnd.h"

#include <support/ComesTrue.h>
#include <support/ProcessState.h>
#include <support/Tcp.h>

#include <future>
#include <malloc.h>
#include <string>

namespace cdxtest {
namespace {

using oru::Json::Value;
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

/// Bytes that the program holds on its heap; under a sanitizer, whose own allocator watches for leaks, nothing.
std::size_t heapInUse() {
#ifdef CDX_SANITIZED
    return 0;
#else
    return ::mallinfo2().uordblks;
#endif
}

/// From a start to the first client state, and to a stop.
void runOnce(zepclient::CdxMoroClient& client, std::uint16_t port) {
    std::promise<void> told;
    const auto tell = [&told](const Value&) { told.set_value(); };
    client.cleanUpService("navigation");
    client.setMsgProcessorCallback(tell);
    Value registry = registryDocument();
    Value service = serviceDocument(port);
    client.StartCdxMoroClient(registry, service);
    ASSERT_EQ(told.get_future().wait_for(patience), std::future_status::ready);
    client.StopCdxMoroClient();
}

TEST_F(Lifecycle, AThousandStartsAndStopsLeaveNoMemoryNoThreadAndNoDescriptorBehind) {
    vehicle().announce("navigation");
    ::testing::internal::CaptureStdout(); // the framework's diagnostics of a thousand connections
    constexpr int warmUp = 20;
    for (int i = 0; i < warmUp; ++i)
        runOnce(client(), m_service.port());
    const std::size_t memory = heapInUse();
    const std::size_t before = threads().size();
    const std::size_t descriptors = openDescriptors().size();
    for (int i = 0; i < 1000; ++i)
        runOnce(client(), m_service.port());
    ::testing::internal::GetCapturedStdout();
    constexpr std::size_t little = 128 * 1024; // less than a tenth of what one lost connection a cycle would come to
    EXPECT_TRUE(comesTrue([&] { return heapInUse() <= memory + little; }));
    EXPECT_TRUE(comesTrue([&] { return threads().size() <= before; }));
    EXPECT_TRUE(comesTrue([&] { return openDescriptors().size() <= descriptors; })) << "the service's sides too";
}

} // namespace
} // namespace cdxtest
