// SPDX-License-Identifier: MIT
#include "AppConnector.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "app_connector_fixture.h"
#include "descriptor_flood.h"
#include "error_text.h"
#include "faults.h"
#include "frames.h"
#include "wait_until.h"

namespace {

using faults::Call;

TEST_F(AppConnectorTest, InitializeReturnsTrueAndStartsNothing) {
    EXPECT_TRUE(connector_.initialize());
    EXPECT_FALSE(connector_.isOpen());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppConnectorTest, FinalizeOfANeverLaunchedConnectorDoesNothing) {
    EXPECT_TRUE(connector_.finalize());
    EXPECT_FALSE(connector_.isOpen());
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
    EXPECT_EQ(faults::callsOf(Call::KILL), 0);
}

TEST_F(AppConnectorTest, ANeverLaunchedConnectorCanNeitherReadNorWrite) {
    EXPECT_EQ(errorOf<AppConnectorError>([this] { read(4, 0); }),
              withSystemText("[AppConnectorError] Pipe select failed. error : ", EBADF));
    EXPECT_EQ(errorOf<AppConnectorError>([this] { write(makeFrame(0)); }),
              withSystemText("[AppConnectorError] Pipe write failed. error : ", EBADF));
}

TEST_F(AppConnectorTest, TheInterfaceDeclaresNoVirtualDestructor) {
    EXPECT_FALSE(std::has_virtual_destructor_v<AppConnectorInterface>);
    EXPECT_TRUE(std::has_virtual_destructor_v<AppConnector>);
    EXPECT_TRUE((std::is_base_of_v<AppConnectorInterface, AppConnector>));
}

TEST_F(AppConnectorTest, ErrorTextCarriesTheTag) {
    EXPECT_STREQ(AppConnectorError("text").what(), "[AppConnectorError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, AppConnectorError>));
}

TEST_F(AppConnectorTest, LaunchOpensAndKeepsOneEndOfEachPipe) {
    const auto before = openDescriptors();
    launch();
    EXPECT_TRUE(connector_.isOpen());
    EXPECT_EQ(openDescriptors().size(), before.size() + 2);
}

TEST_F(AppConnectorTest, BlocksGoToTheChildAndItsAnswersComeBack) {
    launch();
    write(makeFrame(9));
    const ReadResult answer = read(FRAME, 10000);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(bytesOf(answer.block), makeFrame(9));
}

TEST_F(AppConnectorTest, AShortReadIsASuccessAndLeavesTheRestOfTheBlock) {
    launch("emit 0\nsilent\n");
    const ReadResult result = read(FRAME + 3, 10000);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.block.substr(FRAME), "---");
    EXPECT_EQ(result.block.substr(0, 4), std::string(4, '\0'));
}

TEST_F(AppConnectorTest, AShortWriteIsASuccessAndNotRetried) {
    launch("silent\n");
    faults::shortenNext(Call::WRITE, 10);
    write(makeFrame(0));
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
}

TEST_F(AppConnectorTest, ReadReturnsOneOnTimeoutAndLeavesTheBlock) {
    launch("silent\n");
    const ReadResult result = read(4, 20);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.block, "----");
}

TEST_F(AppConnectorTest, ReadWaitsSecondsAndMicrosecondsOfItsTimeout) {
    launch("silent\n");
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(read(4, 1500).status, 1);
    EXPECT_EQ(faults::microsecondsAsked(), 1'500'000);
}

TEST_F(AppConnectorTest, ReadWithTimeoutZeroPolls) {
    launch("silent\n");
    EXPECT_EQ(read(4, 0).status, 1);
    EXPECT_EQ(faults::microsecondsAsked(), 0);
}

TEST_F(AppConnectorTest, ADeadChildReadsAsSuccessEveryTime) {
    launch("exit_after 0\n");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(read(4, 10000).status, 0);
}

TEST_F(AppConnectorTest, AWriteToADeadChildEndsTheProcessByTheBrokenPipeSignal) {
    const auto writeOn = [this] {
        launch("exit_after 0\n");
        waitUntil([this] {
            write(makeFrame(0));
            return false;
        });
    };
    EXPECT_EXIT(writeOn(), testing::KilledBySignal(SIGPIPE), "");
}

TEST_F(AppConnectorTest, AFailingWaitForOutputThrows) {
    launch();
    EXPECT_EQ(errorWhen(Call::SELECT, EINTR, [this] { read(4, 0); }),
              withSystemText("[AppConnectorError] Pipe select failed. error : ", EINTR));
}

TEST_F(AppConnectorTest, AFailingReadThrows) {
    launch("emit 0\n");
    EXPECT_EQ(errorWhen(Call::READ, EIO, [this] { read(4, 10000); }),
              withSystemText("[AppConnectorError] Pipe read failed. error : ", EIO));
}

TEST_F(AppConnectorTest, AFailingWriteThrows) {
    launch();
    EXPECT_EQ(errorWhen(Call::WRITE, ENOSPC, [this] { write(makeFrame(0)); }),
              withSystemText("[AppConnectorError] Pipe write failed. error : ", ENOSPC));
}

TEST_F(AppConnectorTest, ADescriptorBeyondTheReachOfSelectIsAFailedWait) {
    const DescriptorFlood flood;
    if (!flood.possible())
        GTEST_SKIP() << "this machine allows too few descriptors";
    launch("silent\n");
    EXPECT_EQ(errorOf<AppConnectorError>([this] { read(4, 10000); }),
              withSystemText("[AppConnectorError] Pipe select failed. error : ", EINVAL));
}

}  // namespace
