#include "WithService.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <vector>

namespace cdxtest {
namespace {

/// The guide's code, run as the guide says.
class Guide : public WithService {
protected:
    void playTheVehicle() const {
        place("vehicle.sh");
        Program shell("/bin/bash", folder(), {{"-euo", "pipefail", "vehicle.sh"}, {}});
        ASSERT_EQ(shell.waitForExit(), 0) << contentOf(folder() + "/stdout.txt");
    }
};

TEST_F(Guide, TheFirstApplicationIsToldWhatItsShellCommandsPost) {
    const auto program = run("document-first", {});
    playTheVehicle();
    program->waitForLine("state of navigation: ");
    program->waitForLine("data of navigation: ");
    program->waitForLine(R"("cdxClientDataReport" : "speed=87")");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
}

TEST_F(Guide, TheShellCommandsLeaveWhatTheySay) {
    playTheVehicle();
    EXPECT_NE(m_vehicle->list("cdxClientStates").find(R"("isNewConfigRequested":true)"), std::string::npos);
    EXPECT_NE(m_vehicle->list("cdxData").find("event-1"), std::string::npos);
    EXPECT_EQ(m_vehicle->list("cdxData").find("event-2"), std::string::npos);
}

TEST_F(Guide, TheFirstApplicationFollowsTheDataAgainWhenTheServiceIsBack) {
    m_vehicle->announce("navigation");
    const auto program = run("document-first", {});
    program->waitForLine("state of navigation: ");
    m_service.stop();
    m_service.start();
    program->waitForLine("state of navigation: ");
    m_vehicle->postData("navigation", "event-1");
    program->waitForLine(R"("eventId" : "event-1")");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
}

TEST_F(Guide, ItsOperationsWriteSettleFollowAndDelete) {
    m_vehicle->announce("navigation");
    const auto program = run("document-operations", {});
    program->waitForLine("record updated");
    program->waitForLine("trigger /CarDataExchange/cdxTrigger/");
    m_vehicle->postData("navigation", "event-1");
    program->waitForLine("following event-1");
    program->waitForLine("event-1 settled");
    EXPECT_EQ(m_vehicle->list("cdxData"), "[]");
    // Requests are made in order: what came after the delete was answered, so it was too.
    EXPECT_EQ(m_vehicle->list("cdxConfig"), "[]");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
}

TEST_F(Guide, ItsOperationsMakeADocumentOfARecord) {
    const auto program = run("document-operations", {});
    program->writeLine(R"({"id":"r","name":"navigation","uri":"/r","elementId":7,"expiryTime":2,"receiveTime":1,)"
                       R"("recordBody":"period=200","recordId":"sampling","spApplication":"telemetry"})");
    program->waitForLine(R"("elementId" : 7)");
    program->waitForLine(R"("recordBody" : "period=200")");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
}

TEST_F(Guide, ItsLogFileHasEveryOperation) {
    m_vehicle->announce("navigation");
    const auto program = run("document-operations", {{"log.txt"}, {}});
    program->waitForLine("Subscribing for the CDX Client State Object"); // level 5 is on the console
    program->waitForLine("record updated");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
    EXPECT_NE(contentOf(folder() + "/log.txt").find("CdxMoroClient::StopCdxMoroClient()"), std::string::npos);
}

TEST_F(Guide, ItsSinkTakesTheLines) {
    const auto program = run("document-sink", {});
    EXPECT_EQ(program->waitForExit(), 0);
    const std::string output = contentOf(folder() + "/stdout.txt");
    EXPECT_EQ(output.compare(0, 3, "<3>"), 0) << output;
    EXPECT_NE(output.find("The service nobody  does not exists in map,."), std::string::npos) << output;
}

/// The texts of all statements in the library's sources that log at one of the two levels.
std::vector<std::string> errorTexts() {
    const std::regex statement("CDX_LOG[A-Z_]*\\([^;]*Log(Error|Alert)\\)[^;]*;");
    const std::regex literal("\"((?:[^\"\\\\]|\\\\.)*)\"");
    std::vector<std::string> texts;
    for (const auto& file : std::filesystem::directory_iterator(CDX_SOURCES "/libCdxMoroClient/src")) {
        const std::string source = contentOf(file.path().string());
        for (std::sregex_iterator found(source.begin(), source.end(), statement), end; found != end; ++found) {
            const std::string text = found->str();
            for (std::sregex_iterator part(text.begin(), text.end(), literal); part != end; ++part)
                texts.push_back((*part)[1].str());
        }
    }
    return texts;
}

TEST(GuideText, HasEveryLineOfTheTwoLevelsThatReportErrors) {
    const std::string guide = contentOf(CDX_SOURCES "/docs/guide.md");
    const std::vector<std::string> texts = errorTexts();
    EXPECT_GE(texts.size(), 15U);
    for (const std::string& text : texts)
        EXPECT_NE(guide.find(text), std::string::npos) << text;
}

} // namespace
} // namespace cdxtest
