#include "ServiceFixture.h"

#include <mutex>
#include <vector>

namespace cdxservice {
namespace {

class Settling : public ServiceFixture {
protected:
    Settling() {
        options.onSettled = [this](const Settlement& settlement) {
            const std::lock_guard lock(m_mutex);
            m_settled.push_back(settlement);
        };
        options.log = [this](const std::string& line) {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(line);
        };
    }
    ~Settling() override { server.reset(); }

    std::vector<Settlement> settled() {
        const std::lock_guard lock(m_mutex);
        return m_settled;
    }
    std::vector<std::string> lines() {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::vector<Settlement> m_settled;
    std::vector<std::string> m_lines;
};

TEST_F(Settling, RemovesTheMessageThatTheTicketNames) {
    const std::string control = make(controlPath, R"({"name":"gateway"})");
    make(dataPath, R"({"id":"message","name":"gateway","eventId":"E1"})");
    cdxtest::WebSocketPeer peer = channel();
    peer.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
    for (int i = 0; i < 3; ++i) {
        message(peer);
    }
    const auto answer = client->patch(std::string(controlPath) + "/" + control,
                                      R"({"eventTicket":"E1","dataDeliveryResult":"okDelivered"})");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(client->get(std::string(dataPath) + "/message").status, 404);
    EXPECT_EQ(text(message(peer).at("removed")), "message");
}

TEST_F(Settling, TellsTheOutcomeAndLogsIt) {
    const std::string control = make(controlPath, R"({"name":"gate\nway"})");
    make(dataPath, R"({"id":"message","name":"gate\nway","eventId":"E1"})");
    client->patch(std::string(controlPath) + "/" + control,
                  R"({"eventTicket":"E1","dataDeliveryResult":"failOffline"})");
    const auto told = settled();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].clientName, "gate\nway");
    EXPECT_EQ(told[0].eventId, "E1");
    EXPECT_EQ(told[0].dataDeliveryResult, "failOffline");
    EXPECT_EQ(told[0].dataId, "message");
    ASSERT_EQ(lines().size(), 1u);
    EXPECT_EQ(lines()[0], R"(settled cdxData/message client="gate\nway" eventId="E1" dataDeliveryResult=failOffline)");
}

} // namespace
} // namespace cdxservice
