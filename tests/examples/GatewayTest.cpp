#include "WithService.h"

namespace cdxtest {
namespace {

class Gateway : public WithService {
protected:
    /// The gateway, with a client that is there before it.
    std::unique_ptr<Program> runWithClient(bool isNewConfigRequested = false) const {
        m_vehicle->announce("navigation", isNewConfigRequested);
        return run("cdx-gateway");
    }

    bool has(const std::string& resource, const std::string& text) const {
        return m_vehicle->list(resource).find(text) != std::string::npos;
    }
};

TEST_F(Gateway, ForwardsAMessageAndConfirmsIt) {
    const auto gateway = runWithClient();
    m_vehicle->postData("navigation", "event-1");
    EXPECT_NE(gateway->waitForLine("navigation: data").find(R"("eventId":"event-1")"), std::string::npos);
    gateway->waitForLine("navigation/control: updated");
    EXPECT_FALSE(has("cdxData", "event-1"));
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, ConfirmsWhatWasPostedBeforeItStarted) {
    m_vehicle->postData("navigation", "event-1");
    m_vehicle->postData("navigation", "event-2");
    const auto gateway = runWithClient();
    gateway->waitForLine("navigation/control: updated");
    gateway->waitForLine("navigation/control: updated");
    EXPECT_EQ(m_vehicle->list("cdxData"), "[]");
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, GivesAClientThatAsksItsRecordAndRefreshesIt) {
    const auto gateway = runWithClient(true);
    gateway->waitForLine("navigation/record: created");
    EXPECT_TRUE(has("cdxConfig", R"("recordBody":"samplingPeriod=1000")"));
    m_vehicle->change("cdxConfig", "navigation", R"({"recordBody":"spoilt"})");
    m_vehicle->change("cdxClientStates", "navigation", R"({"offeredDataType":["telemetry","diagnosis"]})");
    gateway->waitForLine("navigation/record: updated");
    EXPECT_TRUE(has("cdxConfig", R"("recordBody":"samplingPeriod=1000")"));
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, GivesNoRecordToAClientThatDoesNotAsk) {
    const auto gateway = runWithClient();
    m_vehicle->postData("navigation", "event-1");
    gateway->waitForLine("navigation/control: updated");
    EXPECT_EQ(m_vehicle->list("cdxConfig"), "[]");
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, SendsATriggerToAClientThatCanBeCalledBack) {
    const auto gateway = runWithClient();
    m_vehicle->postData("navigation", "event-1", true);
    gateway->waitForLine("navigation/trigger: created");
    EXPECT_TRUE(has("cdxTrigger", R"("messageType":"upload")"));
    m_vehicle->postData("navigation", "event-2", true);
    gateway->waitForLine("navigation/trigger: updated");
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, GoesOnWhenTheServiceIsBack) {
    const auto gateway = runWithClient();
    m_vehicle->postData("navigation", "event-1");
    gateway->waitForLine("navigation/control: updated");
    m_service.stop();
    m_service.start();
    m_vehicle->postData("navigation", "event-2");
    gateway->waitForLine(R"("eventId":"event-2")");
    gateway->waitForLine("navigation/control: updated");
    EXPECT_EQ(gateway->terminate(), 0);
}

TEST_F(Gateway, EndsWhileTheServiceIsAway) {
    const auto gateway = runWithClient();
    m_vehicle->postData("navigation", "event-1");
    gateway->waitForLine("navigation/control: updated");
    m_service.stop();
    EXPECT_EQ(gateway->terminate(), 0);
}

} // namespace
} // namespace cdxtest
