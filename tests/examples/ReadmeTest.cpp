#include "WithService.h"

namespace cdxtest {
namespace {

using Readme = WithService;

TEST_F(Readme, ItsProgramIsToldOfAClientAndItsData) {
    m_vehicle->announce("navigation");
    m_vehicle->postData("navigation", "event-1");
    const auto program = run("document-readme", {});
    program->waitForLine("new client navigation");
    program->waitForLine(R"("eventId" : "event-1")");
    program->endInput();
    EXPECT_EQ(program->waitForExit(), 0);
}

} // namespace
} // namespace cdxtest
