#include "CdxLog.h"

#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

namespace zepclient {

/// Logs as the library's classes do; the signatures are what the lines begin with.
class CdxLogUser {
public:
    int withNumber(int value) const {
        CDX_LOG(LogError) << "value = " << value;
        return __LINE__ - 1;
    }
    void withoutNumber(int value) { CDX_LOG_NO_LINE(LogNotice) << "value = " << value; }
    void trace() { CDX_LOG(LogDebug); }
    void inLambda() {
        [] { CDX_LOG_NO_LINE(LogNotice) << "inside"; }();
    }
    void forAnother(const LogHead& head) { CDX_LOG_UNDER(head, LogAlert) << "borrowed"; }
};

} // namespace zepclient

namespace {

using testing::ElementsAre;
using zepclient::CdxLogUser;

TEST(CdxLogTest, ALineBeginsWithTheSignatureAndTheSourceLine) {
    const cdxtest::LogCapture log;

    const int number = CdxLogUser().withNumber(7);

    const cdxtest::LogLine line = log.lines().at(0);
    EXPECT_EQ(3, line.level);
    EXPECT_EQ("int zepclient::CdxLogUser::withNumber(int) const", line.signature);
    EXPECT_EQ(number, line.number);
    EXPECT_EQ("value = 7", line.message);
}

TEST(CdxLogTest, ALineWithoutANumberIsSignatureBlankMessage) {
    std::string written;
    oru::Log::setReportingLevel(7);
    oru::Log::setSink([&](int, const std::string& line) { written = line; });

    CdxLogUser().withoutNumber(7);

    oru::Log::setSink({});
    oru::Log::setReportingLevel(3);
    EXPECT_EQ("void zepclient::CdxLogUser::withoutNumber(int) value = 7", written);
}

TEST(CdxLogTest, AnEntryTraceHasNoMessage) {
    const cdxtest::LogCapture log;

    CdxLogUser().trace();

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxLogUser::trace: "));
}

TEST(CdxLogTest, InALambdaTheHeadIsTheLambdasOwn) {
    const cdxtest::LogCapture log;

    CdxLogUser().inLambda();

    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxLogUser::inLambda[] inside"));
}

TEST(CdxLogTest, AHelperLogsInTheNameOfItsCaller) {
    const cdxtest::LogCapture log;

    CdxLogUser().forAnother({"void zepclient::Caller::call()", 12});

    EXPECT_THAT(log.outlines(), ElementsAre("1 Caller::call: borrowed"));
    EXPECT_EQ(12, log.lines().at(0).number);
}

/// A line is built when either of the two levels admits it.
struct Levels {
    int reporting;
    int fileOutput;
    bool isBuilt;
};

class LogGuardTest : public testing::TestWithParam<Levels> {};

INSTANTIATE_TEST_SUITE_P(All, LogGuardTest,
                         testing::Values(Levels{4, 4, false}, Levels{5, -1, true}, Levels{-1, 5, true},
                                         Levels{7, 7, true}, Levels{-1, -1, false}));

TEST_P(LogGuardTest, ALineAndItsArgumentsAreEvaluatedOnlyIfALevelAdmitsThem) {
    const cdxtest::LogCapture log(GetParam().reporting, GetParam().fileOutput);
    int evaluations = 0;

    [&evaluations] { CDX_LOG(zepclient::LogNotice) << ++evaluations; }();

    EXPECT_EQ(GetParam().isBuilt ? 1 : 0, evaluations);
    EXPECT_EQ(GetParam().isBuilt, zepclient::isLogged(zepclient::LogNotice));
}

} // namespace
