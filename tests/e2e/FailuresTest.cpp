#include "EndToEnd.h"
#include "LogLines.h"

#include <stdexcept>

namespace cdxtest {
namespace {

using oru::Json::Value;

/// What happens when an application's handler, or what it was told, is not as it should be.
class Failures : public EndToEnd {
protected:
    /// What the framework wrote to standard output until now; it is captured from the test's start.
    Failures() { ::testing::internal::CaptureStdout(); }
    ~Failures() override { chatter(); }

    std::string chatter() {
        m_application.stop();
        if (!m_captured) {
            m_captured = true;
            m_chatter = ::testing::internal::GetCapturedStdout();
        }
        return m_chatter;
    }

private:
    bool m_captured = false;
    std::string m_chatter;
};

TEST_F(Failures, AThrowingHandlerIsLoggedAndTheNextNotificationIsDelivered) {
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    bool thrown = false;
    client().setCdxDataStateSubsRecieveHandler(
        [this, &thrown](Value) {
            m_application.registerAll("navigation");
            thrown = true;
            throw std::runtime_error("the application's own mistake");
        },
        "navigation");
    vehicle().postData("navigation", "event-1");
    vehicle().postData("navigation", "event-2");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "event-2");
    EXPECT_TRUE(thrown);
    const std::string lines = chatter();
    const std::size_t line = lines.find("the application's own mistake");
    ASSERT_NE(line, std::string::npos) << lines;
    const std::size_t begin = lines.rfind('\n', line) + 1;
    const std::string told = lines.substr(begin, lines.find('\n', line) - begin);
    EXPECT_EQ(told.find("ERROR: "), 0U) << told;
    EXPECT_NE(told.find("CarDataExchange"), std::string::npos) << told;
    EXPECT_NE(told.find("cdxData"), std::string::npos) << told;
}

TEST_F(Failures, AnEmptyMessageProcessorHandlerIsLoggedAndTheNextClientStillComes) {
    m_application.hasMessageProcessor = false;
    vehicle().announce("navigation");
    vehicle().announce("charging");
    LogLines log(5);
    startApplication();
    log.waitForLine("Creating a new Service with service Name = navigation");
    log.waitForLine("Creating a new Service with service Name = charging");
    const std::string lines = chatter();
    const std::string error = "bad_function_call";
    const std::size_t first = lines.find(error);
    ASSERT_NE(first, std::string::npos) << lines;
    EXPECT_NE(lines.find(error, first + error.size()), std::string::npos) << lines;
}

TEST_F(Failures, AClientStateWithoutANameIsLoggedAndTheNextOneIsAnnounced) {
    vehicle().post("cdxClientStates", json(R"({"canonicalName":"nameless","isNewConfigRequested":false})"));
    startWith("navigation");
    EXPECT_NE(chatter().find("getValue called on uninitialized Optional"), std::string::npos);
}

} // namespace
} // namespace cdxtest
