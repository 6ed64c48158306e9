#include <CdxMoroClient.h>
#include <support/PrivateMember.h>
#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <thread>

using Client = zepclient::CdxMoroClient;
CDX_REVEAL(WorkersClientIsRunning, Client, m_isRunning, bool);

namespace {

using testing::ElementsAre;

/// The worker says that it waits while it holds the mutex that a wake-up takes: one that is sent after its line was
/// seen cannot be lost.
class CdxMoroClientWorkerTest : public testing::Test {
protected:
    CdxMoroClientWorkerTest() { log.clear(); }
    ~CdxMoroClientWorkerTest() override {
        client.reset();
        Client::ReleaseCdxMoroClientThread();
    }

    cdxtest::LogCapture log;
    std::shared_ptr<Client> client = Client::getInstance();
    const std::string waiting = "7 CdxMoroClient::run: Conditional wait";
    const std::string ended = "5 CdxMoroClient::run Exiting from CdxMoroClient";
};

TEST_F(CdxMoroClientWorkerTest, WaitsForOneWakeUpAndEnds) {
    client->start();
    ASSERT_TRUE(log.waitFor(waiting));

    client->stopMoroClient();
    client->join();

    EXPECT_FALSE((*client).*reveal(cdxtest::WorkersClientIsRunning()));
    EXPECT_THAT(log.outlinesOf("CdxMoroClient::run"),
                ElementsAre("5 CdxMoroClient::run CDX MORO Client has started", waiting,
                            "7 CdxMoroClient::run: Awaken CdxMoroClient thread to exit. ", ended));
}

TEST_F(CdxMoroClientWorkerTest, AWakeUpEndsItWhateverIsRunningHolds) {
    client->start();
    ASSERT_TRUE(log.waitFor(waiting));

    client->SendWakeupSignal();
    client->join();

    EXPECT_TRUE((*client).*reveal(cdxtest::WorkersClientIsRunning()));
}

TEST_F(CdxMoroClientWorkerTest, OneWakeUpEndsEveryThreadThatWaits) {
    client->start();
    ASSERT_TRUE(log.waitFor(waiting));
    log.clear();
    std::thread another([this] { client->run(); });
    ASSERT_TRUE(log.waitFor(waiting));

    client->SendWakeupSignal();
    client->join();
    another.join();
}

TEST_F(CdxMoroClientWorkerTest, StoppingTracesAndWakes) {
    client->stopMoroClient();

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::stopMoroClient: ",
                                            "7 CdxMoroClient::SendWakeupSignal: Waking up CdxMoroClient Thread"));
}

TEST_F(CdxMoroClientWorkerTest, AWakeUpBeforeItWaitsIsLost) {
    client->stopMoroClient();

    client->start();
    ASSERT_TRUE(log.waitFor(waiting));
    EXPECT_THAT(log.outlines(), testing::Not(testing::Contains(ended)));

    client->SendWakeupSignal();
    client->join();
    EXPECT_THAT(log.outlines(), testing::Contains(ended));
}

} // namespace
