#include <cdxservice/Server.h>
#include <support/ConformanceReport.h>

#include <gtest/gtest.h>

namespace cdxtest {
namespace {

/// To the service every message asks for a resource that does not exist: each is answered by one refusal that bears its
/// number.
class ServiceDialect : public Dialect {
public:
    std::string carrying(std::size_t index, std::string_view bytes) const override {
        return R"({"op":"subscribe","sub":)" + std::to_string(index) + R"(,"resource":"no )" + std::string(bytes) +
               R"("})";
    }
    unsigned codeForUnreadable() const override { return 1008; }
    std::size_t limit() const override { return 64 * 1024; }
    unsigned codeForBinary(std::size_t) const override { return 1003; }
    bool isServer() const override { return true; }
};

class ServiceConformance : public ::testing::TestWithParam<ConformanceSection> {
protected:
    ServiceConformance() { m_service.start(); }

    ConformanceResult playCase(const ConformanceCase& played) const {
        WebSocketPeer peer = WebSocketPeer::connect(m_service.port());
        std::size_t answered = 0;
        return play(played, peer, [&](const std::string& message) {
            const std::string expected = R"({"op":"error","sub":)" + std::to_string(answered) + R"(,"status":404,)";
            const bool isNext = message.rfind(expected, 0) == 0;
            answered += isNext ? 1 : 0;
            return isNext;
        });
    }

    cdxservice::Server m_service;
};

TEST_P(ServiceConformance, EveryCaseEndsAsItMust) {
    playSection("service", GetParam(), ServiceDialect(),
                [this](const ConformanceCase& played) { return playCase(played); });
}

INSTANTIATE_TEST_SUITE_P(Section, ServiceConformance, ::testing::ValuesIn(conformanceSections()),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
} // namespace cdxtest
