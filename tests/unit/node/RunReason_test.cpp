// SPDX-License-Identifier: MIT
// The rows of README's table "When does it end", as the node meets them. Messages are the bridge's
// own, without time and level.
#include "RunReason.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

namespace {

using node::Ending;
using node::reasonOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char RESET[] = "[VoiceServerError] Data connector read failed.";
constexpr char TERMINATED[] = "Terminate application.";

Ending withStatus(int status) {
    return {100, status, 0};
}
Ending bySignal(int signal) {
    return {100, 0, signal};
}

std::string reasonFor(const std::deque<std::string>& messages) {
    return reasonOf({withStatus(0), {}, messages, true});
}
std::string reasonForPipe(const std::vector<Ending>& engines, bool had_frames = true) {
    return reasonOf({bySignal(SIGPIPE), engines, {"[Connected]"}, had_frames});
}

// What the bridge prints for a command line that it does not take.
std::deque<std::string> helpBehind(const std::vector<std::string>& errors) {
    std::deque<std::string> lines(errors.begin(), errors.end());
    for (const char* const line :
         {"usage: build/release/Tolvanev [options] ...",
          "options:", "  -h, --help           print help",
          "  -i, --ipaddr         voice server ip addr (string [=172.0.0.1])",
          "  -m, --mmse           mmse setting file (string [=./Tolvanev.mmse.ini])",
          "  -v, --vad            vad setting file (string [=./Tolvanev.vad.ini])",
          "  -b, --binary         Tolvane binary dir (string [=./Tolvanev])",
          "  -l, --log_level      loglevel (err, warn, info, debug) (string [=info])"})
        lines.emplace_back(line);
    return lines;
}

TEST(RunReason, VoiceServerResetTheConnection) {
    EXPECT_EQ(reasonFor({"[Connected]", RESET}), "voice server reset the connection");
    EXPECT_EQ(reasonFor({"[VoiceServerError] Data connector write failed."}),
              "voice server reset the connection");
}

TEST(RunReason, VoiceServerClosedTheConnection) {
    EXPECT_EQ(reasonForPipe({withStatus(0), withStatus(0)}), "voice server closed the connection");
}

TEST(RunReason, SoundClientResetTheConnection) {
    EXPECT_THAT(reasonFor({"[SoundClientError] Unknown Exception."}),
                AllOf(HasSubstr("sound client reset the connection"), HasSubstr("DATA header")));
}

TEST(RunReason, WrongOptionIsNamed) {
    for (const std::string error :
         {"undefined option: --bogus", "undefined short option: -z", "ambiguous short option: -x",
          "option needs value: --binary", "option value is invalid: --client_port=abc"})
        EXPECT_EQ(reasonFor(helpBehind({error})), "wrong option: " + error);
}

TEST(RunReason, OfSeveralWrongOptionsTheFirstIsNamed) {
    EXPECT_EQ(reasonFor(helpBehind({"option needs value: --binary",
                                    "undefined short option: -=", "undefined short option: -/"})),
              "wrong option: option needs value: --binary");
}

TEST(RunReason, HelpThatWasAskedForIsNoWrongOption) {
    EXPECT_EQ(reasonFor(helpBehind({})), "it printed its help text");
}

TEST(RunReason, HelpOfAnEngineIsNotTheBridges) {
    EXPECT_EQ(reasonFor({"[Connected]", "usage: engine FILE", RESET}),
              "voice server reset the connection");
}

TEST(RunReason, UnknownLogLevel) {
    EXPECT_THAT(reasonFor({"Invalid log level."}), HasSubstr("log_level"));
}

TEST(RunReason, EngineIsTheBridgeItself) {
    EXPECT_EQ(reasonFor({"The engine ./Tolvanev is this program itself. Name the engine with "
                         "--binary."}),
              "the engine is the bridge itself");
}

TEST(RunReason, NoProcessForAnEngine) {
    const std::string message =
        "[FATAL] [AppcontrollerError] VAD connector launch failed. [AppConnectorError] fork "
        "failed.";
    EXPECT_THAT(reasonFor({message, TERMINATED}),
                AllOf(HasSubstr("no process or pipe"), HasSubstr(message)));
}

TEST(RunReason, FrameOfUnknownTypeNamesTheType) {
    EXPECT_THAT(
        reasonFor({"[Connected]", "[AppcontrollerError] Invalid header type : 7", TERMINATED}),
        AllOf(HasSubstr("unknown type"), HasSubstr("Invalid header type : 7")));
}

TEST(RunReason, ExchangedSettingsFiles) {
    EXPECT_THAT(reasonFor({"[AppcontrollerError] Unknown Exception.", TERMINATED}),
                HasSubstr("are -m and -v exchanged?"));
}

TEST(RunReason, ClosedStandardInput) {
    EXPECT_THAT(reasonFor({"[ROSConnectorError] ROS connector read failed.", TERMINATED}),
                HasSubstr("standard input"));
}

TEST(RunReason, AnEngineThatDiedIsNamedByItsEnd) {
    EXPECT_EQ(reasonForPipe({bySignal(SIGKILL), withStatus(0)}), "an engine ended with SIGKILL");
    EXPECT_EQ(reasonForPipe({withStatus(0), bySignal(SIGSEGV)}), "an engine ended with SIGSEGV");
    EXPECT_EQ(reasonForPipe({withStatus(2), withStatus(0)}, false),
              "an engine ended with status 2");
}

TEST(RunReason, AnEngineMissingEndsWithoutAWord) {
    EXPECT_THAT(reasonForPipe({withStatus(0), withStatus(0)}, false),
                HasSubstr("or an engine ended at once"));
}

// Engines that outlive the bridge write to a pipe that nobody reads any more.
TEST(RunReason, AnEngineThatEndedWithItsBridgeIsNotTheCause) {
    EXPECT_EQ(reasonForPipe({bySignal(SIGPIPE), withStatus(0)}),
              "voice server closed the connection");
    EXPECT_EQ(reasonForPipe({bySignal(SIGTERM), bySignal(SIGTERM)}),
              "voice server closed the connection");
}

TEST(RunReason, AnEngineThatSaysThatItsPipeBrokeIsNotTheCause) {
    EXPECT_EQ(reasonOf({bySignal(SIGPIPE),
                        {withStatus(1), withStatus(0)},
                        {"[Connected]", "tolvanev-engine: mmse: standard output: Broken pipe"},
                        true}),
              "voice server closed the connection");
}

TEST(RunReason, AnEnginesFailedWriteMayBeTheCauseOrNot) {
    EXPECT_EQ(reasonForPipe({withStatus(1), withStatus(0)}),
              "voice server closed the connection, or an engine ended with status 1");
}

TEST(RunReason, OfTwoEnginesTheOneThatWasKilledIsTheCause) {
    EXPECT_EQ(reasonForPipe({withStatus(1), bySignal(SIGKILL)}), "an engine ended with SIGKILL");
    EXPECT_EQ(reasonForPipe({bySignal(SIGPIPE), bySignal(SIGABRT)}),
              "an engine ended with SIGABRT");
}

TEST(RunReason, ASignalIsNamed) {
    EXPECT_EQ(reasonOf({bySignal(SIGKILL), {}, {}, true}), "killed by SIGKILL");
    EXPECT_EQ(reasonOf({bySignal(SIGTERM), {}, {}, false}), "killed by SIGTERM");
    EXPECT_EQ(reasonOf({bySignal(SIGABRT), {}, {"[FATAL] Unknown Exception", TERMINATED}, true}),
              "killed by SIGABRT");
}

TEST(RunReason, AnInterruptLeavesNoMessage) {
    EXPECT_THAT(reasonFor({"[Connected]"}), HasSubstr("interrupted"));
    EXPECT_THAT(reasonFor({}), HasSubstr("interrupted"));
}

TEST(RunReason, AStatusThatTheBridgeDoesNotHaveIsNamed) {
    EXPECT_EQ(reasonOf({withStatus(127), {}, {}, false}), "ended with status 127");
}

TEST(RunReason, TheLastWordCounts) {
    EXPECT_EQ(reasonFor({"[SoundClientError] Unknown Exception.", RESET}),
              "voice server reset the connection");
}

TEST(RunReason, AttemptsToConnectAreNoReason) {
    EXPECT_EQ(reasonFor({"Connecting to Server ...", "Socket accept timeout occured.",
                         "Socket connect error. error : Connection refused",
                         "Socket bind failed. error : Address already in use", "[Connected]",
                         "renew noize model.", RESET, TERMINATED}),
              "voice server reset the connection");
}

TEST(RunReason, IsOneLine) {
    for (const auto& messages :
         {std::deque<std::string>{RESET}, helpBehind({"undefined option: --bogus"}), {}})
        EXPECT_THAT(reasonFor(messages), Not(HasSubstr("\n")));
}

}  // namespace
