// SPDX-License-Identifier: MIT
#include "EventLog.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "FrameOutput.h"
#include "Status.h"
#include "node_loop.h"
#include "temp_dir.h"
#include "utterances.h"

namespace node {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::MatchesRegex;

class EventLogTest : public NodeTest {
  protected:
    EventLog& events() {
        if (!events_)
            events_ = std::make_unique<EventLog>(
                loop_, log_, EventLogOptions{folder_.path("events"), 1 << 20, milliseconds(10)},
                [this] { return dropped_; });
        return *events_;
    }
    std::vector<std::string> lines() {
        waitFor([this] { return events_->idle(); });
        std::istringstream file(folder_.read("events"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }
    // The last event, without its time, which is checked.
    json last() {
        json event = json::parse(lines().back());
        EXPECT_THAT(event.at("time").get<std::string>(),
                    MatchesRegex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}Z"));
        event.erase("time");
        return event;
    }

    TempDir folder_;
    std::map<std::string, uint64_t> dropped_;
    std::unique_ptr<EventLog> events_;
};

TEST_F(EventLogTest, TimeEventAndRunComeFirst) {
    events().onSpeech({true, 2, 77, utteranceOf(1)->start});
    EXPECT_THAT(lines(), ElementsAre("{\"time\":\"2025-03-04T14:03:27.045Z\",\"event\":"
                                     "\"speech_start\",\"run\":2,\"frame\":77}"));
}

TEST_F(EventLogTest, States) {
    events().onState({State::STREAMING, 1, ""});
    EXPECT_EQ(last(), json({{"event", "state"}, {"run", 1}, {"state", "streaming"}}));
    events().onState({State::RESTARTING, 1, "voice server gone"});
    EXPECT_EQ(last().at("reason"), "voice server gone");
}

TEST_F(EventLogTest, EndOfARun) {
    events().onRunEnd({2, false, "it was killed", "SIGKILL", milliseconds(1500), milliseconds(0)});
    EXPECT_EQ(last(), json({{"event", "run_end"},
                            {"run", 2},
                            {"asked", false},
                            {"reason", "it was killed"},
                            {"status", "SIGKILL"},
                            {"lasted", 1.5},
                            {"pause", 0.0}}));
}

TEST_F(EventLogTest, Utterances) {
    events().onUtterance(utteranceOf(4));
    EXPECT_EQ(last(), json({{"event", "utterance"},
                            {"run", 1},
                            {"utterance", 4},
                            {"start", "2025-03-04T14:03:27.045Z"},
                            {"end", "2025-03-04T14:03:28.045Z"},
                            {"first_frame", 0},
                            {"seconds", 0.1},
                            {"preroll", 0.0},
                            {"cut", "end"}}));
}

TEST_F(EventLogTest, SmallOnesKeepTheRun) {
    events().onState({State::STREAMING, 3, ""});
    events().onText({5, "go forward"});
    EXPECT_EQ(last(),
              json({{"event", "text"}, {"run", 3}, {"utterance", 5}, {"text", "go forward"}}));
    events().onResync({3, 17, "type 77"});
    EXPECT_EQ(last(),
              json({{"event", "resync"}, {"run", 3}, {"bytes", 17}, {"reason", "type 77"}}));
    events().onPlaySound(true);
    EXPECT_EQ(last(), json({{"event", "play_sound"}, {"run", 3}, {"on", true}}));
    events().onWav(5, "/wav/5.wav");
    EXPECT_EQ(last(),
              json({{"event", "wav"}, {"run", 3}, {"utterance", 5}, {"path", "/wav/5.wav"}}));
}

TEST_F(EventLogTest, OnlyWarningsAndErrorsOfMessages) {
    events().onMessage({Level::WARNING, true, "slow"});
    EXPECT_EQ(last(),
              json({{"event", "warning"}, {"run", 0}, {"from", "bridge"}, {"text", "slow"}}));
    events().onMessage({Level::ERROR, false, "bad"});
    EXPECT_EQ(last(), json({{"event", "error"}, {"run", 0}, {"from", "node"}, {"text", "bad"}}));
    events().onMessage({Level::INFO, false, "hello"});
    events().onMessage({Level::DEBUG, false, "hello"});
    EXPECT_EQ(lines().size(), 2u);
}

TEST_F(EventLogTest, TextThatIsNoUtf8IsReplaced) {
    events().onText({1, std::string("a\xff\xfe\0b\n\xc3", 7)});
    EXPECT_EQ(last().at("text"), std::string("a\uFFFD\uFFFD\0b\n\uFFFD", 13));
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(EventLogTest, DropsAreToldWhenTheyGrow) {
    events();
    dropped_["wav"] = 2;
    waitFor([this] { return lines().size() == 1; });
    EXPECT_EQ(
        last(),
        json({{"event", "dropped"}, {"run", 0}, {"output", "wav"}, {"count", 2}, {"total", 2}}));
    runFor(loop_, milliseconds(50));
    EXPECT_EQ(lines().size(), 1u);
    dropped_["wav"] = 5;
    events().finish();
    EXPECT_EQ(last().at("count"), 3);
}

// Its warnings come back to it as messages.
TEST_F(EventLogTest, WarningsOfItsOwnAreNoCircle) {
    EventLog* full = nullptr;
    int said = 0;
    const Log log([&](const Message& message) {
        ++said;
        if (full)
            full->onMessage(message);
    });
    EventLog own(loop_, log, {"/dev/full"}, nullptr);
    full = &own;
    for (int i = 0; i < 20; ++i)
        own.onPlaySound(true);
    waitFor([&] { return own.idle(); });
    runFor(loop_, milliseconds(50));
    EXPECT_GE(own.dropped(), 20u);
    EXPECT_EQ(said, 2);  // what is wrong, and that events were dropped
}

TEST_F(EventLogTest, StatusIsOneLine) {
    Status status;
    status.reason = "a\nb\xff";
    status.dropped["wav"] = 3;
    status.processes = {{.name = "bridge", .pid = 42}};
    const std::string text = jsonOf(status);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    const json parsed = json::parse(text);
    EXPECT_EQ(parsed.at("state"), "starting");
    EXPECT_TRUE(parsed.at("frame_age").is_null());
    EXPECT_EQ(parsed.at("dropped").at("wav"), 3);
    EXPECT_EQ(parsed.at("processes").at(0).at("pid"), 42);
}

TEST_F(EventLogTest, FramesAreWrittenAsTheyAre) {
    FrameOutput output(loop_, log_, {folder_.path("frames")});
    Frame frame;
    frame.bytes.fill('x');
    output.onFrame(frame);
    output.onFrame(frame);
    waitFor([&] { return output.idle(); });
    EXPECT_EQ(folder_.read("frames"), std::string(2 * FRAME_SIZE, 'x'));
}

}  // namespace
}  // namespace node
