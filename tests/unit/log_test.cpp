// SPDX-License-Identifier: MIT
#include "log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "fake_clock.h"
#include "log_capture.h"
#include "temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr time_t AFTERNOON = 14 * 3600 + 3 * 60 + 27;  // 14:03:27 in Greenwich

// An output policy that keeps every text it is handed.
struct Recorder {
    static std::vector<std::string>& texts() {
        static std::vector<std::string> all;
        return all;
    }
    static void Output(const std::string& text) { texts().push_back(text); }
};

// An operand that tells whether it was asked for.
struct Operand {
    int asked = 0;
    int operator()() { return ++asked; }
};

static_assert(logERROR == 0 && logWARNING == 1 && logINFO == 2 && logDEBUG == 3);
static_assert(logDEBUG1 == 4 && logDEBUG2 == 5 && logDEBUG3 == 6 && logDEBUG4 == 7);
static_assert(!std::is_copy_constructible_v<FILELog> && !std::is_copy_assignable_v<FILELog>);
static_assert(std::is_base_of_v<Log<Output2FILE>, FILELog>);
static_assert(std::has_virtual_destructor_v<FILELog>);
static_assert(sizeof(FILELog) == sizeof(Log<Output2FILE>));

TEST(LogStatement, PrintsOneLineWithStampAndLevel) {
    const FakeClock clock(AFTERNOON, 45000);
    const LogCapture log(logINFO);
    LOG_AT(logINFO) << "play sound state from ros node is on.";
    EXPECT_EQ(log.text(), "- 14:03:27.045 INFO: play sound state from ros node is on.\n");
}

TEST(LogStatement, StreamsEveryOperandIntoTheSameLine) {
    const LogCapture log(logINFO);
    LOG_AT(logWARNING) << "port " << 5002 << ' ' << 1.5 << std::string(" done");
    EXPECT_THAT(log.lines(), ElementsAre("WARNING: port 5002 1.5 done"));
}

TEST(LogStatement, AboveTheLevelPrintsNothing) {
    const LogCapture log(logINFO);
    LOG_AT(logDEBUG) << "filtered";
    EXPECT_EQ(log.text(), "");
}

TEST(LogStatement, AboveTheLevelDoesNotEvaluateItsOperands) {
    const LogCapture log(logINFO);
    Operand operand;
    LOG_AT(logDEBUG) << operand();
    EXPECT_EQ(operand.asked, 0);
    LOG_AT(logINFO) << operand();
    EXPECT_EQ(operand.asked, 1);
}

TEST(LogStatement, WithoutStreamDoesNotEvaluateItsOperands) {
    const LogCapture log(logDEBUG);
    FILE* const stream = Output2FILE::Stream();
    Operand operand;
    Output2FILE::Stream() = nullptr;
    LOG_AT(logERROR) << operand();
    Output2FILE::Stream() = stream;
    EXPECT_EQ(operand.asked, 0);
    EXPECT_EQ(log.text(), "");
}

TEST(LogStatement, LooksAtTheLevelEachTime) {
    const LogCapture log(logERROR);
    for (const TLogLevel level : {logERROR, logDEBUG, logERROR}) {
        FILELog::ReportingLevel() = level;
        LOG_AT(logINFO) << "at " << level;
    }
    EXPECT_THAT(log.lines(), ElementsAre("INFO: at 3"));
}

TEST(LogStatement, LeavesAnElseToTheIfAroundIt) {
    const LogCapture log(logDEBUG);
    for (const bool connected : {true, false})
        if (connected)
            LOG_AT(logINFO) << "yes";
        else
            LOG_AT(logINFO) << "no";
    EXPECT_THAT(log.lines(), ElementsAre("INFO: yes", "INFO: no"));
}

TEST(LogStatement, IndentsByOneTabForEachLevelAboveDebug) {
    const LogCapture log(logDEBUG4);
    for (int level = logERROR; level <= logDEBUG4; ++level)
        LOG_AT(static_cast<TLogLevel>(level)) << "text";
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: text", "WARNING: text", "INFO: text",
                                         "DEBUG: text", "DEBUG1: \ttext", "DEBUG2: \t\ttext",
                                         "DEBUG3: \t\t\ttext", "DEBUG4: \t\t\t\ttext"));
}

TEST(LogStatement, PrintsPercentSignsAsTheyAre) {
    const LogCapture log;
    LOG_AT(logINFO) << "100%s %d%n";
    EXPECT_THAT(log.lines(), ElementsAre("INFO: 100%s %d%n"));
}

// A word of the ROS node that is padded with NUL bytes has this effect.
TEST(LogStatement, CutsAtANulAndLosesTheLineFeed) {
    const FakeClock clock(AFTERNOON, 45000);
    const LogCapture log;
    LOG_AT(logDEBUG) << std::string("play\0sound", 10);
    LOG_AT(logINFO) << "next";
    EXPECT_EQ(log.text(), "- 14:03:27.045 DEBUG: play- 14:03:27.045 INFO: next\n");
}

TEST(LogStatement, IsFlushedWhenItEnds) {
    const TempDir folder;
    const LogCapture restored;
    FILE* const file = fopen(folder.path("log").c_str(), "w");
    ASSERT_NE(file, nullptr);
    Output2FILE::Stream() = file;
    LOG_AT(logINFO) << "flushed";
    EXPECT_THAT(folder.read("log"), testing::EndsWith("INFO: flushed\n"));
    fclose(file);
}

TEST(LogStatement, IgnoresAWriteError) {
    const LogCapture restored;
    FILE* const full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    Output2FILE::Stream() = full;
    EXPECT_NO_THROW(LOG_AT(logERROR) << "lost");
    EXPECT_TRUE(ferror(full));
    fclose(full);
}

TEST(Log, ReportsEverythingUntilALevelIsSet) {
    EXPECT_EQ(Log<Recorder>::ReportingLevel(), logDEBUG4);
}

TEST(Log, HandsOutTheSameLevelEachTime) {
    EXPECT_EQ(&FILELog::ReportingLevel(), &FILELog::ReportingLevel());
    EXPECT_EQ(&FILELog::ReportingLevel(), &Log<Output2FILE>::ReportingLevel());
}

TEST(Log, NamesEveryLevel) {
    const char* const tags[] = {"ERROR",  "WARNING", "INFO",   "DEBUG",
                                "DEBUG1", "DEBUG2",  "DEBUG3", "DEBUG4"};
    for (int level = logERROR; level <= logDEBUG4; ++level)
        EXPECT_EQ(FILELog::ToString(static_cast<TLogLevel>(level)), tags[level]);
}

TEST(Log, HandsOneWholeLineToItsOutputWhenDestroyed) {
    const FakeClock clock(AFTERNOON);
    Recorder::texts().clear();
    {
        Log<Recorder> line;
        line.Get(logDEBUG1) << "one"
                            << "two";
        EXPECT_THAT(Recorder::texts(), ElementsAre());
    }
    EXPECT_THAT(Recorder::texts(), ElementsAre("- 14:03:27.000 DEBUG1: \tonetwo\n"));
}

TEST(Output2FILE, WritesToStandardErrorAtFirst) {
    EXPECT_EQ(Output2FILE::Stream(), stderr);
}

TEST(Output2FILE, WritesATextAsItIs) {
    const LogCapture log;
    Output2FILE::Output("no stamp");
    EXPECT_EQ(log.text(), "no stamp");
}

TEST(Output2FILE, DoesNothingWithoutAStream) {
    const LogCapture log;
    FILE* const stream = Output2FILE::Stream();
    Output2FILE::Stream() = nullptr;
    Output2FILE::Output("lost");
    Output2FILE::Stream() = stream;
    EXPECT_EQ(log.text(), "");
}

TEST(NowTime, PadsMillisecondsWithZeros) {
    EXPECT_EQ((FakeClock(AFTERNOON, 0), NowTime()), "14:03:27.000");
    EXPECT_EQ((FakeClock(AFTERNOON, 5000), NowTime()), "14:03:27.005");
    EXPECT_EQ((FakeClock(AFTERNOON, 45000), NowTime()), "14:03:27.045");
}

TEST(NowTime, CutsMicrosecondsOff) {
    EXPECT_EQ((FakeClock(AFTERNOON, 999999), NowTime()), "14:03:27.999");
    EXPECT_EQ((FakeClock(AFTERNOON, 999), NowTime()), "14:03:27.000");
}

TEST(NowTime, PadsHoursMinutesAndSecondsWithZeros) {
    EXPECT_EQ((FakeClock(0), NowTime()), "00:00:00.000");
    EXPECT_EQ((FakeClock(86399), NowTime()), "23:59:59.000");
}

TEST(NowTime, IsLocalTime) {
    EXPECT_EQ((FakeClock(AFTERNOON, 0, "EAST-9"), NowTime()), "23:03:27.000");
}

// The second turns between the two readings: the stamp is a second early.
TEST(NowTime, TakesSecondsAndMillisecondsFromTwoReadings) {
    FakeClock clock(AFTERNOON);
    clock.setPrecise(AFTERNOON + 1, 2000);
    EXPECT_EQ(NowTime(), "14:03:27.002");
}

TEST(NowTime, FollowsTheClockOfTheMachine) {
    const time_t before = time(nullptr);
    const std::string stamp = NowTime();
    tm local{};
    char text[16];
    bool seen = false;
    for (time_t second = before; second <= time(nullptr); ++second) {
        strftime(text, sizeof(text), "%H:%M:%S", localtime_r(&second, &local));
        seen = seen || stamp.starts_with(text);
    }
    EXPECT_THAT(stamp, MatchesRegex("[0-9]+:[0-9]+:[0-9]+\\.[0-9][0-9][0-9]"));
    EXPECT_TRUE(seen) << stamp;
}

}  // namespace
