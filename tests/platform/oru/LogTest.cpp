#include <oru/Log.h>
#include <support/Event.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <locale>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using cdxtest::Event;
using oru::Log;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class LogTest : public testing::Test {
protected:
    LogTest() : m_file(testing::TempDir() + "oru-log-" + std::to_string(::getpid())) {}

    ~LogTest() override {
        Log::setSink({});
        Log::setOutputFile("");
        Log::setReportingLevel(3);
        Log::setFileOutputLevel(-1);
        std::filesystem::remove(m_file);
    }

    static void log(int level, const std::string& text) { Log().get(level) << text; }

    static std::string consoleOf(int level, const std::string& text) {
        testing::internal::CaptureStderr();
        log(level, text);
        return testing::internal::GetCapturedStderr();
    }

    std::string fileContent() const {
        std::ostringstream content;
        content << std::ifstream(m_file).rdbuf();
        return content.str();
    }

    const std::string m_file;
};

/// Keeps what a sink receives.
struct Lines {
    std::mutex mutex;
    std::vector<std::pair<int, std::string>> all;

    Log::Sink sink() {
        return [this](int level, const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex);
            all.emplace_back(level, line);
        };
    }
};

TEST_F(LogTest, ReportsErrorsToTheConsoleAndNothingToAFileUnlessToldOtherwise) {
    EXPECT_EQ(Log::getReportingLevel(), 3);
    EXPECT_EQ(Log::getFileOutputLevel(), -1);
}

TEST_F(LogTest, LineAtTheReportingLevelGoesToStandardErrorAsItIs) {
    EXPECT_EQ(consoleOf(3, "a line: %v {} 100%"), "a line: %v {} 100%\n");
}

TEST_F(LogTest, LineAboveTheReportingLevelDoesNotGoToTheConsole) {
    EXPECT_EQ(consoleOf(4, "hidden"), "");
}

TEST_F(LogTest, ChangedReportingLevelHoldsForTheNextLine) {
    Log::setReportingLevel(7);
    EXPECT_EQ(consoleOf(7, "seen"), "seen\n");
    Log::setReportingLevel(-1);
    EXPECT_EQ(consoleOf(0, "hidden"), "");
}

TEST_F(LogTest, LineAtTheFileLevelIsInTheFileOnceTheLogIsGone) {
    Log::setReportingLevel(-1);
    Log::setOutputFile(m_file);
    Log::setFileOutputLevel(5);
    log(5, "kept");
    log(6, "dropped");
    EXPECT_EQ(fileContent(), "kept\n");
}

TEST_F(LogTest, LineGoesToTheFileAlthoughTheConsoleDoesNotWantIt) {
    Log::setOutputFile(m_file);
    Log::setFileOutputLevel(7);
    EXPECT_EQ(consoleOf(7, "only there"), "");
    EXPECT_EQ(fileContent(), "only there\n");
}

TEST_F(LogTest, FileIsAppendedTo) {
    std::ofstream(m_file) << "before\n";
    Log::setReportingLevel(-1);
    Log::setFileOutputLevel(3);
    Log::setOutputFile(m_file);
    log(3, "after");
    EXPECT_EQ(fileContent(), "before\nafter\n");
}

TEST_F(LogTest, FileIsNotInheritedByPrograms) {
    Log::setOutputFile(m_file);
    int descriptorsOfTheFile = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != m_file)
            continue;
        ++descriptorsOfTheFile;
        EXPECT_NE(::fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(descriptorsOfTheFile, 1);
}

TEST_F(LogTest, FileThatCannotBeOpenedIsNamedAndTheFormerOneStays) {
    Log::setReportingLevel(-1);
    Log::setFileOutputLevel(3);
    Log::setOutputFile(m_file);
    try {
        Log::setOutputFile("/dev/null/none");
        FAIL() << "it was opened";
    } catch (const std::runtime_error& failure) {
        EXPECT_THAT(failure.what(), testing::HasSubstr("/dev/null/none"));
    }
    log(3, "still here");
    EXPECT_EQ(fileContent(), "still here\n");
}

TEST_F(LogTest, LogWhoseStreamWasNeverAskedForHandsNothingOver) {
    Lines lines;
    Log::setSink(lines.sink());
    { const Log unused; }
    EXPECT_THAT(lines.all, IsEmpty());
}

TEST_F(LogTest, LogWithoutTextHandsOverAnEmptyLine) {
    Lines lines;
    Log::setSink(lines.sink());
    Log().get(7);
    EXPECT_THAT(lines.all, ElementsAre(Pair(7, "")));
}

TEST_F(LogTest, SinkTakesEveryLineWhateverTheLevels) {
    Lines lines;
    Log::setReportingLevel(-1);
    Log::setSink(lines.sink());
    log(0, "worst");
    log(7, "least");
    EXPECT_THAT(lines.all, ElementsAre(Pair(0, "worst"), Pair(7, "least")));
}

TEST_F(LogTest, SinkTakesTheLinesInsteadOfConsoleAndFile) {
    Lines lines;
    Log::setOutputFile(m_file);
    Log::setFileOutputLevel(7);
    Log::setSink(lines.sink());
    EXPECT_EQ(consoleOf(0, "elsewhere"), "");
    EXPECT_EQ(fileContent(), "");
}

TEST_F(LogTest, EmptySinkRestoresTheConsole) {
    Lines lines;
    Log::setSink(lines.sink());
    Log::setSink({});
    EXPECT_EQ(consoleOf(3, "back"), "back\n");
    EXPECT_THAT(lines.all, IsEmpty());
}

TEST_F(LogTest, SinkMayReplaceItselfAndLog) {
    Lines lines;
    Log::setSink([&lines](int level, const std::string& line) {
        Log::setSink(lines.sink());
        log(level, "again: " + line);
    });
    log(2, "once");
    EXPECT_THAT(lines.all, ElementsAre(Pair(2, "again: once")));
}

TEST_F(LogTest, SinkIsCalledByTwoThreadsAtOnce) {
    std::atomic<int> inside{0};
    Event bothInside;
    Log::setSink([&](int, const std::string&) {
        if (++inside == 2)
            bothInside.set();
        EXPECT_TRUE(bothInside.await());
    });
    std::thread other([] { log(3, "one"); });
    log(3, "two");
    other.join();
}

TEST_F(LogTest, SinkLivesUntilItsCallHasReturned) {
    const auto held = std::make_shared<int>(1);
    std::weak_ptr<int> watched = held;
    Event entered;
    Event mayLeave;
    Log::setSink([&, kept = std::make_shared<std::shared_ptr<int>>(held)](int, const std::string&) {
        entered.set();
        EXPECT_TRUE(mayLeave.await());
        EXPECT_EQ(**kept, 1);
    });
    std::thread other([] { log(3, "slow"); });
    ASSERT_TRUE(entered.await());
    Log::setSink({});
    mayLeave.set();
    other.join();
    EXPECT_EQ(watched.use_count(), 1);
}

TEST_F(LogTest, SinkThatThrowsCostsOnlyItsLine) {
    Log::setSink([](int, const std::string&) { throw std::runtime_error("full"); });
    EXPECT_NO_THROW(log(3, "lost"));
}

TEST_F(LogTest, NumbersAreWrittenWithoutTheLocalesGrouping) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    Lines lines;
    Log::setSink(lines.sink());
    const std::locale former = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    Log().get(3) << 1234567;
    std::locale::global(former);
    EXPECT_THAT(lines.all, ElementsAre(Pair(3, "1234567")));
}

TEST_F(LogTest, LevelsChangeWhileOthersLog) {
    Log::setSink([](int, const std::string&) {});
    std::atomic<bool> isOver{false};
    std::thread changing([&] {
        for (int level = 0; !isOver; level = (level + 1) % 8) {
            Log::setReportingLevel(level);
            Log::setFileOutputLevel(level);
        }
    });
    for (int i = 0; i < 1000; ++i)
        if (Log::getReportingLevel() >= 3 || Log::getFileOutputLevel() >= 3)
            log(3, "text");
    isOver = true;
    changing.join();
    EXPECT_LE(Log::getReportingLevel(), 7);
}

TEST_F(LogTest, LinesOfSeveralThreadsStayWhole) {
    constexpr int threads = 4;
    constexpr int linesEach = 200;
    const std::string text(500, 'x');
    Log::setReportingLevel(-1);
    Log::setFileOutputLevel(3);
    Log::setOutputFile(m_file);
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
        all.emplace_back([&] {
            for (int line = 0; line < linesEach; ++line)
                log(3, text);
        });
    for (std::thread& thread : all)
        thread.join();
    std::ifstream file(m_file);
    int whole = 0;
    for (std::string line; std::getline(file, line); ++whole)
        ASSERT_EQ(line, text);
    EXPECT_EQ(whole, threads * linesEach);
}

struct LogsWhenDestroyed {
    ~LogsWhenDestroyed() { Log().get(0) << "logged at exit"; }
};

TEST_F(LogTest, StaticObjectThatIsOlderThanTheLogMayLogFromItsDestructor) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const LogsWhenDestroyed older;
            log(0, "first line");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "logged at exit");
}

} // namespace
