// SPDX-License-Identifier: MIT
#include "ExecCommand.h"

#include <signal.h>

#include "Wav.h"
#include "node_loop.h"
#include "temp_dir.h"
#include "utterances.h"

namespace node {
namespace {

using namespace std::string_literals;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class ExecCommandTest : public NodeTest {
  protected:
    void make(const std::string& command) {
        options_.command = command;
        exec_ = std::make_unique<ExecCommand>(loop_, reaper_, log_, options_,
                                              [this](const RecognisedText& text) {
                                                  texts_.push_back(text.text);
                                                  utterances_.push_back(text.utterance);
                                              });
    }
    void waitUntilIdle() {
        waitFor([this] { return exec_->idle(); });
    }
    void hear(int times = 1) {
        for (int i = 0; i < times; ++i)
            exec_->onUtterance(utteranceOf(++heard_));
        waitUntilIdle();
    }
    // Utterances that are waited for one by one.
    void hearEach(int times) {
        for (int i = 0; i < times; ++i)
            hear();
    }
    // A process of which the command has told the number; true when it is no more.
    static bool isGone(const std::string& pid) { return kill(std::stoi(pid), 0) != 0; }

    ExecCommandOptions options_;
    std::vector<std::string> texts_;
    std::vector<uint64_t> utterances_;
    uint64_t heard_ = 0;
    std::unique_ptr<ExecCommand> exec_;
};

TEST_F(ExecCommandTest, CommandGetsTheUtteranceAsAFile) {
    const TempDir folder;
    make("cat > " + folder.path("heard"));
    hear();
    EXPECT_TRUE(folder.read("heard") == wavImage(*utteranceOf(1)));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(ExecCommandTest, LinesAreTexts) {
    make("echo go forward; echo; printf 'ten\\r\\nmeters'");
    hear();
    EXPECT_THAT(texts_, ElementsAre("go forward", "ten", "meters"));
    EXPECT_THAT(utterances_, Each(1));
}

TEST_F(ExecCommandTest, CommandIsToldWhatItHears) {
    make("echo $TOLVANEV_UTTERANCE $TOLVANEV_START $TOLVANEV_SECONDS");
    hear();
    EXPECT_THAT(texts_, ElementsAre("1 2025-03-04T14:03:27.045Z 0.100"));
}

TEST_F(ExecCommandTest, ZeroBytesAreKept) {
    make("printf 'a\\000b\\n'");
    hear();
    EXPECT_THAT(texts_, ElementsAre("a\0b"s));
}

TEST_F(ExecCommandTest, CommandThatReadsNothingIsFine) {
    make("echo deaf");
    exec_->onUtterance(utteranceOf(1, 1000000));
    waitUntilIdle();
    EXPECT_THAT(texts_, ElementsAre("deaf"));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(ExecCommandTest, MissingCommandIsSaidOnce) {
    make("no-such-recogniser --listen");
    hearEach(3);
    ASSERT_THAT(said(), SizeIs(1));
    EXPECT_THAT(said().front(), StartsWith("exec: the command was not found: \""));
    EXPECT_THAT(said().front(), HasSubstr("no-such-recogniser"));
}

TEST_F(ExecCommandTest, FailureQuotesTheLastLineOfErrors) {
    make("echo first >&2; printf 'no model' >&2; exit 2");
    hear();
    EXPECT_THAT(said(), ElementsAre("exec: the command ended with status 2: \"no model\""));
}

TEST_F(ExecCommandTest, SignalIsSaid) {
    make("kill -SEGV $$");
    hear();
    EXPECT_THAT(said(), ElementsAre("exec: the command ended with SIGSEGV"));
}

TEST_F(ExecCommandTest, FailureIsSaidAgainAfterOneThatWorked) {
    make("test $TOLVANEV_UTTERANCE = 2");
    hearEach(3);
    EXPECT_THAT(said(), SizeIs(2));
    EXPECT_THAT(said(Level::INFO), ElementsAre("exec: works again"));
}

TEST_F(ExecCommandTest, CommandThatHangsIsKilledWithAllItStarted) {
    options_.time_out = milliseconds(300);
    make("sleep 600 & echo $!; trap '' TERM; wait");
    hear();
    ASSERT_THAT(texts_, SizeIs(1));
    EXPECT_TRUE(isGone(texts_[0]));
    EXPECT_THAT(said(),
                ElementsAre("exec: the command was killed, since it took longer than 0.300 s"));
}

TEST_F(ExecCommandTest, CommandThatHangsDoesNotStopTheNext) {
    options_.time_out = milliseconds(300);
    make("test $TOLVANEV_UTTERANCE = 2 || sleep 600; echo $TOLVANEV_UTTERANCE");
    hear(2);
    EXPECT_THAT(texts_, ElementsAre("2"));
}

TEST_F(ExecCommandTest, WhatACommandLeavesRunningGoesWithIt) {
    make("sleep 600 & echo $!");
    hear();
    ASSERT_THAT(texts_, SizeIs(1));
    EXPECT_TRUE(isGone(texts_[0]));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(ExecCommandTest, FloodOfLinesIsCutAndSaidOnce) {
    make("seq 100000");
    hearEach(2);
    EXPECT_THAT(texts_, SizeIs(200));
    EXPECT_EQ(texts_[99], "100");
    EXPECT_THAT(said(), ElementsAre("exec: the command's output was longer than 100 lines or "
                                    "1 MiB, the rest was dropped"));
}

TEST_F(ExecCommandTest, FloodWithoutEndIsKilled) {
    options_.time_out = milliseconds(500);
    make("yes & yes >&2");
    hear();
    EXPECT_THAT(texts_, SizeIs(100));
    EXPECT_THAT(said(), ElementsAre(HasSubstr("took longer")));
}

TEST_F(ExecCommandTest, FloodOfErrorsIsQuotedByItsLastLine) {
    make("seq 100000 >&2; exit 3");
    hear();
    EXPECT_THAT(said(), ElementsAre("exec: the command ended with status 3: \"100000\""));
}

TEST_F(ExecCommandTest, FloodWithoutALineFeedIsOneShortText) {
    make("head -c 5000000 /dev/zero | tr '\\0' x");
    hear();
    ASSERT_THAT(texts_, SizeIs(1));
    EXPECT_EQ(texts_[0], std::string(4096, 'x'));
}

TEST_F(ExecCommandTest, SlowCommandLosesTheOldest) {
    make("echo $TOLVANEV_UTTERANCE");
    hear(7);
    EXPECT_THAT(texts_, ElementsAre("1", "4", "5", "6", "7"));
    EXPECT_EQ(exec_->dropped(), 2u);
    EXPECT_THAT(said(), ElementsAre("exec: 1 utterance dropped"));
    exec_->finish();
    EXPECT_THAT(said().back(), "exec: 1 utterance dropped");
    EXPECT_THAT(said(), SizeIs(2));
}

TEST_F(ExecCommandTest, SeveralRunAtOnce) {
    const TempDir folder;
    options_.max_running = 2;
    // Each waits for the other.
    make("cd " + folder.path() +
         "; touch $TOLVANEV_UTTERANCE; until test -e 1 -a -e 2; do sleep 0.01; done; echo met");
    hear(2);
    EXPECT_THAT(texts_, ElementsAre("met", "met"));
}

TEST_F(ExecCommandTest, AtTheEndOfTheNodeCommandsGetTheirGrace) {
    options_.grace = milliseconds(200);
    make("echo $$; sleep 600");
    exec_->onUtterance(utteranceOf(1));
    exec_->onUtterance(utteranceOf(2));
    waitFor([this] { return !texts_.empty(); });
    exec_->finish();
    EXPECT_FALSE(exec_->idle());
    waitUntilIdle();
    EXPECT_TRUE(isGone(texts_[0]));
    EXPECT_THAT(said(), ElementsAre("exec: 1 utterance dropped",
                                    "exec: the command was killed, since the node ends"));
}

TEST_F(ExecCommandTest, AtTheEndOfTheNodeAQuickCommandIsHeard) {
    make("sleep 0.05; echo heard");
    exec_->onUtterance(utteranceOf(1));
    exec_->finish();
    waitUntilIdle();
    EXPECT_THAT(texts_, ElementsAre("heard"));
}

TEST_F(ExecCommandTest, MayGoWhileCommandsRun) {
    make("sleep 600 & echo $!; wait");
    exec_->onUtterance(utteranceOf(1, 1000000));
    waitFor([this] { return !texts_.empty(); });
    exec_.reset();
    waitFor([this] { return isGone(texts_[0]); });
}

}  // namespace
}  // namespace node
