// The object model's one logger.
#include "ElementTables.h"
#include "WarningsRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using namespace cdxtest;
using testing::IsEmpty;

const char* const badText = R"({"elementId":"no number"})";

TEST(TheModelsLogger, BearsTheModelsNameAndIsMadeByTheDefaultFactoryOnce) {
    WarningsRecorder warnings;
    elementFrom<Service::CdxData>(badText);
    elementFrom<Service::CdxConfig>(badText);
    EXPECT_EQ(WarningsRecorder::createdLoggers(), 1);
    EXPECT_EQ(WarningsRecorder::facility(), "Cardataexchange");
    EXPECT_EQ(warnings.lines().size(), 2U);
}

TEST(TheModelsLogger, IsNotAskedForUntilThereIsSomethingToLog) {
    const auto count = WarningsRecorder::createdLoggers();
    elementFrom<Service::CdxData>(R"({"elementId":1})");
    EXPECT_EQ(WarningsRecorder::createdLoggers(), count);
}

TEST(TheModelsLogger, IsWrittenToByNothingButWarnings) {
    WarningsRecorder warnings;
    elementFrom<Service::CdxData>(R"({"deliveryMode":7,"elementId":"x"})");
    elementFrom<Service::CdxData>(R"({"deliveryMode":"x","elementId":"x"})");
    EXPECT_EQ(WarningsRecorder::otherCalls(), 0);
}

TEST(TheModelsLogger, IsLeftAloneWhileItTakesNoWarnings) {
    WarningsRecorder warnings;
    WarningsRecorder::setWarningEnabled(false);
    elementFrom<Service::CdxData>(badText);
    EXPECT_THAT(warnings.lines(), IsEmpty());
    WarningsRecorder::setWarningEnabled(true);
    elementFrom<Service::CdxData>(badText);
    EXPECT_EQ(warnings.lines().size(), 1U) << "it is asked before each line";
}

// In a process of its own, where nobody has logged before.
TEST(TheModelsLoggerDeathTest, IsMadeOnceWhenManyThreadsLogFirst) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            WarningsRecorder warnings;
            std::atomic<int> ready{0};
            std::vector<std::thread> threads;
            for (int thread = 0; thread < 8; ++thread) {
                threads.emplace_back([&ready] {
                    for (++ready; ready < 8;) {
                    }
                    elementFrom<Service::CdxTrigger>(badText);
                });
            }
            for (auto& thread : threads)
                thread.join();
            std::fprintf(stderr, "%d logger, %zu lines\n", WarningsRecorder::createdLoggers(), warnings.lines().size());
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^1 logger, 8 lines\n$");
}

TEST(TheModelsLoggerDeathTest, MayBeMissing) {
    class NoLoggers : public xalutil::LoggerFactory {
        std::unique_ptr<xalutil::ILogger> createLogger(const std::string&) override { return nullptr; }
    };
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            xalutil::LoggerFactory::setDefaultLoggerFactory(std::make_shared<NoLoggers>());
            const bool isAbsent = !elementFrom<Service::CdxTrigger>(badText).getElementId().isValid();
            std::exit(isAbsent ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
