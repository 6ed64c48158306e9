#include "CdxBaseXalClient.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using zepclient::CdxMoRoLoggerFactory;

/// What a child process that runs `body` writes to its standard output, byte for byte.
std::string outputOf(const std::function<void()>& body) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    std::fflush(stdout); // or the child writes once more what the runner has buffered
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        body();
        _exit(0); // nothing that was not flushed comes out
    }
    close(ends[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t size = read(ends[0], buffer, sizeof buffer); size > 0; size = read(ends[0], buffer, sizeof buffer))
        output.append(buffer, static_cast<std::size_t>(size));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    return output;
}

std::unique_ptr<xalutil::ILogger> loggerOf(const std::string& facility) {
    return CdxMoRoLoggerFactory().createLogger(facility);
}

TEST(CdxMoRoLoggerTest, EverySeverityIsOneLineWithItsPrefixAndTheFacility) {
    EXPECT_EQ("TRACE: Facility: a\n"
              "DEBUG: Facility: b\n"
              "INFO: Facility: c\n"
              "WARN: Facility: d\n"
              "ERROR: Facility: e\n"
              "VERBOSE: Facility: f\n",
              outputOf([] {
                  const auto logger = loggerOf("Facility");
                  logger->trace("a");
                  logger->debug("b");
                  logger->info("c");
                  logger->warning("d");
                  logger->error("e");
                  logger->system("f");
              }));
}

TEST(CdxMoRoLoggerTest, AnEmptyFacilityLeavesItsColonAndBlank) {
    EXPECT_EQ("INFO: : text\n", outputOf([] { loggerOf("")->info("text"); }));
}

TEST(CdxMoRoLoggerTest, ASubFacilityBearsItsOwnNameOnly) {
    EXPECT_EQ("INFO: Part: text\n", outputOf([] { loggerOf("Whole")->getSubFacilityLogger("Part")->info("text"); }));
}

TEST(CdxMoRoLoggerTest, ASubFacilityOutlivesItsParent) {
    std::unique_ptr<xalutil::ILogger> parent = loggerOf("Whole");
    const auto part = parent->getSubFacilityLogger("Part");
    parent.reset();

    EXPECT_EQ("ERROR: Part: text\n", outputOf([&] { part->error("text"); }));
}

TEST(CdxMoRoLoggerTest, AMessageWithALineEndIsWrittenAsItIs) {
    EXPECT_EQ("INFO: Facility: one\ntwo\n\n", outputOf([] { loggerOf("Facility")->info("one\ntwo\n"); }));
}

TEST(CdxMoRoLoggerTest, AnEmptyMessageIsALineOfPrefixAndFacility) {
    EXPECT_EQ("WARN: Facility: \n", outputOf([] { loggerOf("Facility")->warning(""); }));
}

TEST(CdxMoRoLoggerTest, EverySeverityIsWanted) {
    const auto logger = loggerOf("Facility");

    EXPECT_TRUE(logger->isTrace());
    EXPECT_TRUE(logger->isDebug());
    EXPECT_TRUE(logger->isInfo());
    EXPECT_TRUE(logger->isWarning());
    EXPECT_TRUE(logger->isError());
    EXPECT_TRUE(logger->isSystem());
}

TEST(CdxMoRoLoggerTest, AClosedStandardOutputIsNoError) {
    EXPECT_EQ("", outputOf([] {
                  close(STDOUT_FILENO);
                  loggerOf("Facility")->error("lost");
                  loggerOf("Facility")->error("lost too");
              }));
}

} // namespace
