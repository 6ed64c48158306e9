#include "EndToEnd.h"
#include "LogLines.h"

#include <sstream>
#include <stdexcept>
#include <string>

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

    /// Expects lines that end in `what`, each an error that names `where`; gives their number.
    int expectErrorLine(const std::string& what, const std::string& where) {
        std::istringstream lines(chatter());
        int found = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(what) == std::string::npos)
                continue;
            ++found;
            EXPECT_EQ(line.find("ERROR: "), 0U) << line;
            EXPECT_NE(line.find(where), std::string::npos) << line;
        }
        EXPECT_GT(found, 0) << "nothing was logged of: " << what;
        return found;
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
    expectErrorLine("the application's own mistake", "CarDataExchange/cdxData");
}

TEST_F(Failures, AnEmptyMessageProcessorHandlerIsLoggedAndTheNextClientStillComes) {
    m_application.hasMessageProcessor = false;
    vehicle().announce("navigation");
    vehicle().announce("charging");
    LogLines log(5);
    startApplication();
    log.waitForLine("Creating a new Service with service Name = navigation");
    log.waitForLine("Creating a new Service with service Name = charging");
    EXPECT_EQ(expectErrorLine("bad_function_call", "CarDataExchange/cdxClientStates"), 2);
}

TEST_F(Failures, AClientStateWithoutANameIsLoggedAndTheNextOneIsAnnounced) {
    vehicle().post("cdxClientStates", json(R"({"canonicalName":"nameless","isNewConfigRequested":false})"));
    startWith("navigation");
    expectErrorLine("getValue called on uninitialized Optional", "CarDataExchange/cdxClientStates");
}

} // namespace
} // namespace cdxtest
