#include <support/VtableLayout.h>
#include <xalutil/Logger.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

namespace {

using xalutil::ILogger;
using xalutil::LoggerFactory;

class LoggerTest : public testing::Test {
protected:
    ~LoggerTest() override { LoggerFactory::setDefaultLoggerFactory(nullptr); }

    static std::unique_ptr<ILogger> makeLogger(const std::string& facility) {
        return LoggerFactory::getDefaultLoggerFactory()->createLogger(facility);
    }

    template <class Action>
    static std::string standardErrorOf(Action action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }
};

class OtherFactory : public LoggerFactory {
public:
    std::unique_ptr<ILogger> createLogger(const std::string&) override { return nullptr; }
};

TEST_F(LoggerTest, BuiltInLoggerWritesWarningsAndWorseToStandardError) {
    const auto logger = makeLogger("Facility");
    EXPECT_EQ(standardErrorOf([&] { logger->warning("careful"); }), "WARN: Facility: careful\n");
    EXPECT_EQ(standardErrorOf([&] { logger->error("broken"); }), "ERROR: Facility: broken\n");
    EXPECT_EQ(standardErrorOf([&] { logger->system("down"); }), "SYSTEM: Facility: down\n");
}

TEST_F(LoggerTest, BuiltInLoggerKeepsAMessageOnItsLine) {
    const auto logger = makeLogger("Facility");
    EXPECT_EQ(standardErrorOf([&] { logger->warning("a\nERROR: b\r\x1b[31mc\td\x7f\xc3\xa4"); }),
              "WARN: Facility: a\\x0aERROR: b\\x0d\\x1b[31mc\td\\x7f\xc3\xa4\n");
}

TEST_F(LoggerTest, BuiltInLoggerWritesNothingMilder) {
    const auto logger = makeLogger("Facility");
    EXPECT_EQ(standardErrorOf([&] {
                  logger->trace("a");
                  logger->debug("b");
                  logger->info("c");
              }),
              "");
}

TEST_F(LoggerTest, BuiltInLoggerTellsWhatItWrites) {
    const auto logger = makeLogger("Facility");
    EXPECT_FALSE(logger->isTrace());
    EXPECT_FALSE(logger->isDebug());
    EXPECT_FALSE(logger->isInfo());
    EXPECT_TRUE(logger->isWarning());
    EXPECT_TRUE(logger->isError());
    EXPECT_TRUE(logger->isSystem());
}

TEST_F(LoggerTest, SubFacilityHasALoggerOfItsOwn) {
    const auto part = makeLogger("Whole")->getSubFacilityLogger("Part");
    EXPECT_EQ(standardErrorOf([&] { part->error("broken"); }), "ERROR: Whole.Part: broken\n");
}

TEST_F(LoggerTest, FactoryThatWasSetIsTheDefault) {
    const auto other = std::make_shared<OtherFactory>();
    LoggerFactory::setDefaultLoggerFactory(other);
    EXPECT_EQ(LoggerFactory::getDefaultLoggerFactory(), other);
}

TEST_F(LoggerTest, EmptyFactoryRestoresTheBuiltInOne) {
    const auto builtIn = LoggerFactory::getDefaultLoggerFactory();
    LoggerFactory::setDefaultLoggerFactory(std::make_shared<OtherFactory>());
    LoggerFactory::setDefaultLoggerFactory(nullptr);
    EXPECT_EQ(LoggerFactory::getDefaultLoggerFactory(), builtIn);
}

TEST_F(LoggerTest, ReplacedFactoryIsLetGo) {
    auto other = std::make_shared<OtherFactory>();
    const std::weak_ptr<OtherFactory> watched = other;
    LoggerFactory::setDefaultLoggerFactory(std::move(other));
    LoggerFactory::setDefaultLoggerFactory(nullptr);
    EXPECT_TRUE(watched.expired());
}

TEST_F(LoggerTest, FactoryIsReplacedWhileOthersAskForIt) {
    std::atomic<bool> isOver{false};
    std::thread asking([&] {
        while (!isOver)
            EXPECT_NE(LoggerFactory::getDefaultLoggerFactory(), nullptr);
    });
    for (int i = 0; i < 500; ++i)
        LoggerFactory::setDefaultLoggerFactory(i % 2 == 0 ? std::make_shared<OtherFactory>() : nullptr);
    isOver = true;
    asking.join();
}

struct WarnsWhenDestroyed {
    ~WarnsWhenDestroyed() { LoggerFactory::getDefaultLoggerFactory()->createLogger("Old")->warning("logged at exit"); }
};

TEST_F(LoggerTest, StaticObjectThatIsOlderThanTheFactoryMayLogFromItsDestructor) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const WarnsWhenDestroyed older;
            LoggerFactory::setDefaultLoggerFactory(nullptr);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "WARN: Old: logged at exit");
}

TEST_F(LoggerTest, VirtualOperationsAreInTheOrderThatImplementersRelyOn) {
    const std::string logger = "xalutil::(anonymous namespace)::StandardErrorLogger";
    const std::string text = "(std::string const&)";
    EXPECT_EQ(cdxtest::differenceFrom(
                  {logger + "::~StandardErrorLogger()", logger + "::~StandardErrorLogger() [deleting]",
                   logger + "::trace" + text, logger + "::debug" + text, logger + "::info" + text,
                   logger + "::warning" + text, logger + "::error" + text, logger + "::system" + text,
                   logger + "::isTrace() const", logger + "::isDebug() const", logger + "::isInfo() const",
                   logger + "::isWarning() const", logger + "::isError() const", logger + "::isSystem() const",
                   logger + "::getSubFacilityLogger" + text + " const"},
                  cdxtest::vtableOf(logger)),
              "");
}

} // namespace
