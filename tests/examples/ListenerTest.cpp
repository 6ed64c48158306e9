#include "WithService.h"

#include <csignal>
#include <fstream>

namespace cdxtest {
namespace {

using Listener = WithService;

TEST_F(Listener, PrintsTheStateOfEveryClient) {
    m_vehicle->announce("navigation");
    const auto listener = run("cdx-listener");
    EXPECT_NE(listener->waitForLine("navigation: state").find(R"("offeredDataType":["telemetry"])"), std::string::npos);
    m_vehicle->announce("charging");
    listener->waitForLine("charging: state");
    m_vehicle->change("cdxClientStates", "charging", R"({"isShutdownRequested":true})");
    EXPECT_NE(listener->waitForLine("charging: state").find(R"("isShutdownRequested":true)"), std::string::npos);
    EXPECT_EQ(listener->terminate(), 0);
}

TEST_F(Listener, PrintsTheDataOfEveryClient) {
    m_vehicle->announce("navigation");
    m_vehicle->announce("charging");
    m_vehicle->postData("navigation", "event-1");
    const auto listener = run("cdx-listener");
    EXPECT_NE(listener->waitForLine("navigation: data").find(R"("eventId":"event-1")"), std::string::npos);
    m_vehicle->postData("charging", "event-2");
    EXPECT_NE(listener->waitForLine("charging: data").find(R"("eventId":"event-2")"), std::string::npos);
    EXPECT_EQ(listener->terminate(), 0);
}

TEST_F(Listener, SharesTheServiceWithASecondProcess) {
    m_vehicle->announce("navigation");
    const auto one = run("cdx-listener");
    const auto other = run("cdx-listener");
    for (const auto& listener : {one.get(), other.get()})
        listener->waitForLine("navigation: state");
    m_vehicle->postData("navigation", "event-1");
    for (const auto& listener : {one.get(), other.get()})
        EXPECT_NE(listener->waitForLine("navigation: data").find(R"("eventId":"event-1")"), std::string::npos);
    EXPECT_EQ(one->terminate(), 0);
    m_vehicle->postData("navigation", "event-2");
    EXPECT_NE(other->waitForLine("navigation: data").find(R"("eventId":"event-2")"), std::string::npos);
    EXPECT_EQ(other->terminate(), 0);
}

TEST_F(Listener, FollowsTheDataAgainWhenTheServiceIsBack) {
    m_vehicle->announce("navigation");
    const auto listener = run("cdx-listener");
    listener->waitForLine("navigation: state");
    m_service.stop();
    listener->waitForLine("the service is lost");
    m_service.start();
    listener->waitForLine("navigation: state");
    m_vehicle->postData("navigation", "event-1");
    listener->waitForLine("navigation: data");
    EXPECT_EQ(listener->terminate(), 0);
}

TEST_F(Listener, EndsOnAnInterrupt) {
    m_vehicle->announce("navigation");
    const auto listener = run("cdx-listener");
    listener->waitForLine("navigation: state");
    listener->signal(SIGINT);
    EXPECT_EQ(listener->waitForExit(), 0);
}

TEST_F(Listener, SaysHowItIsUsed) {
    const auto listener = run("cdx-listener", {{"registry.json"}, {}});
    listener->waitForLine("usage: ");
    EXPECT_EQ(listener->waitForExit(), 2);
}

TEST_F(Listener, SaysWhichDocumentItCannotRead) {
    const auto listener = run("cdx-listener", {{"registry.json", "nowhere.json"}, {}});
    listener->waitForLine("cannot read nowhere.json");
    EXPECT_EQ(listener->waitForExit(), 1);
}

TEST_F(Listener, FindsTheServiceThroughTheRegistry) {
    std::ofstream(folder() + "/service.json") << R"({"serverBasePathHTTP":"/","serverBasePathWS":"/"})";
    m_vehicle->announce("navigation");
    const auto listener = run("cdx-listener", {{"registry-mode.json", "service.json"}, {}});
    listener->waitForLine("navigation: state");
    EXPECT_EQ(listener->terminate(), 0);
}

const std::string token = "a token of the test";

cdxservice::ServerOptions optionsWithToken(const std::string& file) {
    std::ofstream(file) << token << '\n';
    cdxservice::ServerOptions options;
    options.tokenFile = file;
    return options;
}

class ListenerWithToken : public WithService {
protected:
    ListenerWithToken() : WithService(optionsWithToken(tokenFile())) { m_vehicle->setToken(token); }
    ~ListenerWithToken() override { ::remove(tokenFile().c_str()); }

    static std::string tokenFile() { return ::testing::TempDir() + "cdx-token-" + std::to_string(::getpid()); }
};

TEST_F(ListenerWithToken, PresentsTheTokenOfItsEnvironment) {
    m_vehicle->announce("navigation");
    const auto listener = run("cdx-listener", {{"registry.json", "service.json"}, {"XAL_TOKEN_FILE=" + tokenFile()}});
    listener->waitForLine("navigation: state");
    EXPECT_EQ(listener->terminate(), 0);
}

} // namespace
} // namespace cdxtest
