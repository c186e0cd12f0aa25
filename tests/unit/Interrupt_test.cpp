// SPDX-License-Identifier: MIT
// Where an interrupt acts: in every call that can wait for a peer, while a message is written, and
// before an engine is started.
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <functional>
#include <iostream>
#include <new>
#include <streambuf>
#include <string>
#include <vector>

#include "Interrupt.h"
#include "TCPClient.h"
#include "TCPServer.h"
#include "app_connector_fixture.h"
#include "application_fixture.h"
#include "faults.h"
#include "interrupt_watch.h"
#include "loopback_peer.h"
#include "ros_connector_fixture.h"

namespace {

using faults::Call;

class InterruptTest : public testing::Test {
  protected:
    InterruptWatch watch_;
};

TEST_F(InterruptTest, ActsInAWait) {
    interruptible([] { return raise(SIGINT); });
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptTest, IsLeftToTheNextWaitWhenItComesBetweenTwo) {
    raise(SIGINT);
    EXPECT_EQ(watch_.came(), 1);
    EXPECT_EQ(watch_.acted(), 0);
    interruptible([] { return 0; });
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptTest, ActsOnceHoweverOftenItCame) {
    raise(SIGINT);
    raise(SIGINT);
    for (int i = 0; i < 3; ++i)
        interruptible([] { return 0; });
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptTest, DoesNotActWhenTheWaitIsOver) {
    interruptible([] { return 0; });
    raise(SIGINT);
    EXPECT_EQ(watch_.acted(), 0);
}

TEST_F(InterruptTest, ActsWhenHeeded) {
    raise(SIGINT);
    heedInterrupt();
    EXPECT_EQ(watch_.acted(), 1);
    raise(SIGINT);
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptTest, AWaitHandsOnResultAndErrorOfItsCall) {
    EXPECT_EQ(interruptible([] { return errno = EPIPE, -7; }), -7);
    EXPECT_EQ(errno, EPIPE);
}

// Reads. A descriptor that select has called readable may be empty by the time it is read, if
// another process shares it: the read then waits.

class InterruptedRead : public testing::Test {
  protected:
    // The next read finds nothing and waits; an interrupt comes meanwhile.
    static void interruptNextRead(int fd = faults::ANY_FD) {
        faults::answerNext(Call::SELECT, 1);
        faults::answerNext(Call::READ, 0, {.fd = fd}, [] { raise(SIGINT); });
    }

    InterruptWatch watch_;
    char buffer_[4] = {};
};

TEST_F(InterruptedRead, OfTheVoiceServer) {
    TCPServer server;
    const uint16_t port = freePort();
    LoopbackPeer peer;
    faults::afterNext(Call::LISTEN, [&] { peer = LoopbackPeer::dial(port); });
    ASSERT_EQ(server.connect(port), 0);
    interruptNextRead();
    EXPECT_EQ(server.receive(buffer_, sizeof(buffer_), 0), 0);
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptedRead, OfTheSoundClient) {
    LoopbackListener listener;
    TCPClient client;
    ASSERT_EQ(client.connect("127.0.0.1", listener.port()), 0);
    interruptNextRead();
    EXPECT_EQ(client.receive(buffer_, sizeof(buffer_), 0), 0);
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptedRead, OfAnEngine) {
    ScriptedEngine engine("mmse");
    engine.follow("silent\n");
    AppConnector connector;
    connector.launch(SCRIPTED_ENGINE, engine.settings());
    interruptNextRead();
    EXPECT_EQ(connector.read(buffer_, sizeof(buffer_), 0), 0);
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptedRead, OfTheROSNode) {
    StdioPipes node;
    OpenROSConnector connector;
    interruptNextRead();
    EXPECT_EQ(connector.read(buffer_, sizeof(buffer_), 0), 0);
    EXPECT_EQ(watch_.acted(), 1);
}

// Engines.

class InterruptedLaunch : public AppConnectorTest {
  protected:
    int forks_ = -1;  // engines started when the interrupt acted
    InterruptWatch watch_{[this] { forks_ = faults::callsOf(Call::FORK); }};
};

// As in a renewal, which ends the old engine and starts a new one.
TEST_F(InterruptedLaunch, AnInterruptWhileAnEngineEndsActsBeforeTheNextOneStarts) {
    launch();
    faults::afterNext(Call::WAITPID, [] { raise(SIGINT); });
    launch();
    EXPECT_EQ(watch_.acted(), 1);
    EXPECT_EQ(forks_, 1);
}

TEST_F(InterruptedLaunch, AnInterruptWhileAnEngineEndsActsWhenItIsCollected) {
    launch();
    faults::afterNext(Call::WAITPID, [this] {
        raise(SIGINT);
        EXPECT_EQ(watch_.acted(), 0);
    });
    connector_.finalize();
    EXPECT_EQ(watch_.acted(), 1);
}

TEST_F(InterruptedLaunch, AnInterruptAmidOurOwnCodeActsBeforeAnEngineStarts) {
    raise(SIGINT);
    launch();
    EXPECT_EQ(watch_.acted(), 1);
    EXPECT_EQ(forks_, 0);
}

// The operators' messages.

// A standard error whose reader is in no hurry: an interrupt comes while each message waits.
class SlowErrors : public std::streambuf {
  public:
    SlowErrors() : old_(std::cerr.rdbuf(this)) {}
    ~SlowErrors() override { std::cerr.rdbuf(old_); }

    const std::vector<std::string>& said() const { return said_; }

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        raise(SIGINT);
        said_.emplace_back(text, static_cast<size_t>(size));
        return size;
    }

    std::vector<std::string> said_;
    std::streambuf* old_;
};

class InterruptedMessage : public ApplicationTest {
  protected:
    // Runs to its end; an interrupt acts in each of these messages.
    void expectActsIn(const std::vector<std::string>& messages) {
        SlowErrors errors;
        InterruptWatch watch;
        try {
            app_->run();
        } catch (const std::exception&) {
            // The run has said why.
        }
        EXPECT_EQ(errors.said(), messages);
        EXPECT_EQ(watch.acted(), static_cast<int>(messages.size()));
    }

    // How a run ends that has got as far as its first pass.
    void expectActsInEnd(const std::string& message) {
        expectActsIn({"Connecting to Server ... ", "[Connected]\n", message});
    }
};

TEST_F(InterruptedMessage, OfAFailedLaunch) {
    initialize();
    faults::failNext(Call::PIPE, EMFILE);
    expectActsIn({withSystemText("[FATAL] [AppcontrollerError] VAD connector launch failed. "
                                 "[AppConnectorError] Parent to child pipe create failed. error : ",
                                 EMFILE) +
                  "\n"});
}

TEST_F(InterruptedMessage, OfALostVoiceServer) {
    initialize();
    whenConnected([this] { voice_.reset(); });
    expectActsInEnd("[VoiceServerError] Data connector read failed.\n");
}

TEST_F(InterruptedMessage, OfALostSoundClient) {
    initialize();
    whenConnected([this] { sound_.reset(); });
    expectActsInEnd("[SoundClientError] Unknown Exception.\n");
}

TEST_F(InterruptedMessage, OfAnEngineThatTalksNonsense) {
    engines_.vad.follow("emit 5\nsilent\n");
    engines_.mmse.follow("emit 0\nsilent\n");
    initialize();
    whenConnected([] {});
    inEachPass([this] { voice_.send(textOf(audioFrame(FRAME_DATA, 1))); });
    expectActsInEnd("[AppcontrollerError] Unknown Exception.\n");
}

TEST_F(InterruptedMessage, OfANodeThatHasGone) {
    initialize();
    whenConnected([this] { node_.hangUp(); });
    expectActsInEnd("[ROSConnectorError] ROS connector read failed.\n");
}

TEST_F(InterruptedMessage, OfAnyOtherError) {
    initialize();
    whenConnected([] {});
    faults::afterNext(Call::SELECT, [] { throw std::bad_alloc(); }, {.skip = 1});
    expectActsInEnd("[FATAL] Unknown Exception\n");
}

}  // namespace
