// SPDX-License-Identifier: MIT
#include "Sink.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "file_size_limit.h"
#include "node_loop.h"
#include "scoped_descriptor.h"
#include "temp_dir.h"

namespace node {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr size_t LIMIT = 65536;

// Everything that can be read by now.
std::string readAll(int fd) {
    std::string all;
    char block[4096];
    for (ssize_t count = 0; (count = read(fd, block, sizeof block)) > 0;)
        all.append(block, static_cast<size_t>(count));
    return all;
}

std::string record(int number) {
    return "<" + std::to_string(1000000 + number) + std::string(315, '.') + ">";
}

class SinkTest : public NodeTest {
  protected:
    void open(const std::string& path, size_t limit = LIMIT) {
        sink_ = Sink::open(loop_, path, limit);
    }
    void openDescriptor(int fd, size_t limit = LIMIT) {
        sink_ = Sink::onDescriptor(loop_, fd, limit);
    }
    std::string makeFifo() {
        std::string path = folder_.path("fifo");
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
    ScopedDescriptor reader(const std::string& fifo) {
        return ScopedDescriptor(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    }
    // Tries until the reader has been found.
    void writeWhenRead(const std::string& text) {
        waitFor([&] { return sink_->write(text); });
    }
    void waitUntilIdle() {
        waitFor([&] { return sink_->idle(); });
    }

    TempDir folder_;
    std::unique_ptr<Sink> sink_;
};

TEST_F(SinkTest, FileIsAppendedTo) {
    folder_.write("log", "old\n");
    open(folder_.path("log"));
    EXPECT_TRUE(sink_->write("one\n"));
    EXPECT_TRUE(sink_->write("two\n"));
    EXPECT_TRUE(sink_->write("three\n"));
    waitUntilIdle();
    EXPECT_EQ(folder_.read("log"), "old\none\ntwo\nthree\n");
}

TEST_F(SinkTest, FileThatCannotBeOpenedIsNamed) {
    try {
        open(folder_.path("no/log"));
        FAIL();
    } catch (const NodeError& error) {
        EXPECT_THAT(error.what(), HasSubstr("no/log: no such file or directory"));
    }
}

TEST_F(SinkTest, RecordThatDoesNotFitWholeIsTakenBack) {
    open(folder_.path("log"));
    {
        const FileSizeLimit full(1000);
        for (int i = 0; i < 4; ++i)
            sink_->write(std::string(300, static_cast<char>('a' + i)));
        waitUntilIdle();
        EXPECT_EQ(folder_.read("log").size(), 900u);
        EXPECT_EQ(sink_->error(), "file too large");
        EXPECT_EQ(sink_->dropped(), 1u);
    }
    EXPECT_TRUE(sink_->write("e"));
    waitUntilIdle();
    EXPECT_THAT(sink_->error(), IsEmpty());
    EXPECT_THAT(folder_.read("log"), testing::EndsWith("cce"));
}

TEST_F(SinkTest, FullDeviceCountsEachRecord) {
    open("/dev/full");
    int changes = 0;
    sink_->onChange([&changes] { ++changes; });
    sink_->write("one");
    sink_->write("two");
    waitUntilIdle();
    EXPECT_EQ(sink_->error(), "no space left on device");
    EXPECT_EQ(sink_->dropped(), 2u);
    EXPECT_GE(changes, 1);
}

TEST_F(SinkTest, RenamedFileIsMadeAnew) {
    open(folder_.path("log"));
    sink_->write("one");
    waitUntilIdle();
    std::filesystem::rename(folder_.path("log"), folder_.path("log.1"));
    sink_->write("two");
    waitUntilIdle();
    EXPECT_EQ(folder_.read("log.1"), "one");
    EXPECT_EQ(folder_.read("log"), "two");
}

TEST_F(SinkTest, FolderThatGoesAndComesBackIsSaid) {
    std::filesystem::create_directory(folder_.path("in"));
    open(folder_.path("in/log"));
    std::filesystem::remove_all(folder_.path("in"));
    sink_->write("lost");
    waitUntilIdle();
    EXPECT_EQ(sink_->error(), "no such file or directory");
    EXPECT_EQ(sink_->dropped(), 1u);
    std::filesystem::create_directory(folder_.path("in"));
    sink_->write("kept");
    waitUntilIdle();
    EXPECT_THAT(sink_->error(), IsEmpty());
    EXPECT_EQ(folder_.read("in/log"), "kept");
}

TEST_F(SinkTest, RecordWithoutRoomIsDropped) {
    open(folder_.path("log"), 10);
    EXPECT_TRUE(sink_->write("12345678"));
    EXPECT_FALSE(sink_->write("abc"));
    EXPECT_TRUE(sink_->write("90"));
    EXPECT_EQ(sink_->dropped(), 1u);
    waitUntilIdle();
    EXPECT_EQ(folder_.read("log"), "1234567890");
}

TEST_F(SinkTest, MayGoWhileItWrites) {
    open(folder_.path("log"));
    sink_->write(std::string(60000, 'x'));
    sink_->write("y");
    sink_.reset();
    waitFor([&] { return folder_.read("log").size() == 60000; });
}

TEST_F(SinkTest, FifoWithoutReaderDropsNothing) {
    open(makeFifo());
    EXPECT_FALSE(sink_->write("one"));
    EXPECT_EQ(sink_->dropped(), 0u);
    EXPECT_THAT(sink_->error(), IsEmpty());
    EXPECT_TRUE(sink_->idle());
}

TEST_F(SinkTest, ReaderOfFifoIsFound) {
    const std::string fifo = makeFifo();
    open(fifo);
    const ScopedDescriptor end = reader(fifo);
    writeWhenRead("one");
    EXPECT_TRUE(sink_->write("two"));
    EXPECT_EQ(readAll(end.get()), "onetwo");
}

TEST_F(SinkTest, NextReaderOfFifoBeginsWithAWholeRecord) {
    const std::string fifo = makeFifo();
    open(fifo);
    {
        const ScopedDescriptor end = reader(fifo);
        writeWhenRead(record(0));
        for (int i = 1; i < 400; ++i)
            sink_->write(record(i));
        EXPECT_FALSE(sink_->idle()) << "the pipe was to be full";
        char part[100];
        ASSERT_EQ(read(end.get(), part, sizeof part), 100);
    }
    waitFor([&] { return sink_->idle(); });
    const uint64_t dropped = sink_->dropped();
    EXPECT_FALSE(sink_->write("for nobody"));
    EXPECT_EQ(sink_->dropped(), dropped);
    const ScopedDescriptor end = reader(fifo);
    writeWhenRead(record(500));
    EXPECT_EQ(readAll(end.get()), record(500));
}

TEST_F(SinkTest, ReaderThatFallsBehindMissesWholeRecords) {
    const std::string fifo = makeFifo();
    open(fifo, 10 * record(0).size());
    const ScopedDescriptor end = reader(fifo);
    writeWhenRead(record(0));
    std::string taken = record(0);
    for (int i = 1; i < 400; ++i) {
        if (sink_->write(record(i)))
            taken += record(i);
    }
    EXPECT_EQ(taken.size() / record(0).size() + sink_->dropped(), 400u);
    EXPECT_GT(sink_->dropped(), 100u);
    std::string all;
    waitFor([&] {
        all += readAll(end.get());
        return sink_->idle();
    });
    all += readAll(end.get());
    EXPECT_TRUE(all == taken);
}

TEST_F(SinkTest, FifoThatIsRemovedIsSaidAndLookedForAgain) {
    const std::string fifo = makeFifo();
    open(fifo);
    std::filesystem::remove(fifo);
    waitFor([&] { return sink_->error() == "no such file or directory"; });
    EXPECT_FALSE(sink_->write("lost"));
    EXPECT_EQ(sink_->dropped(), 1u);
    makeFifo();
    const ScopedDescriptor end = reader(fifo);
    writeWhenRead("back");
    EXPECT_THAT(sink_->error(), IsEmpty());
}

TEST_F(SinkTest, PipeOfOthersGoesOnBlocking) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const ScopedDescriptor read_end(ends[0]);
    const ScopedDescriptor write_end(ends[1]);
    openDescriptor(write_end.get());
    sink_->write("one");
    EXPECT_EQ(fcntl(write_end.get(), F_GETFL) & O_NONBLOCK, 0);
    char text[3];
    ASSERT_EQ(read(read_end.get(), text, 3), 3);
    EXPECT_EQ(std::string(text, 3), "one");
}

TEST_F(SinkTest, PipeWhoseReaderHasGoneIsSaid) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        const ScopedDescriptor write_end(ends[1]);
        openDescriptor(write_end.get());
    }
    close(ends[0]);
    waitFor([&] { return sink_->error() == "broken pipe"; });
    EXPECT_FALSE(sink_->write("one"));
    EXPECT_EQ(sink_->dropped(), 1u);
    EXPECT_TRUE(sink_->idle());
}

TEST_F(SinkTest, RedirectedFileIsWrittenWhereOthersStand) {
    const ScopedDescriptor fd(::open(folder_.path("all").c_str(), O_WRONLY | O_CREAT, 0600));
    ASSERT_EQ(write(fd.get(), "a", 1), 1);
    openDescriptor(fd.get());
    sink_->write("b");
    waitUntilIdle();
    ASSERT_EQ(write(fd.get(), "c", 1), 1);
    EXPECT_EQ(folder_.read("all"), "abc");
}

TEST_F(SinkTest, SocketIsLeftAsItWas) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const ScopedDescriptor peer(ends[0]);
    const ScopedDescriptor fd(ends[1]);
    openDescriptor(fd.get());
    sink_->write("one");
    char text[3];
    ASSERT_EQ(read(peer.get(), text, 3), 3);
    sink_.reset();
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
}

// It tells so again and again, as long as it is looked at.
TEST_F(SinkTest, SocketWhosePeerSendsNoMoreCostsNothing) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const ScopedDescriptor peer(ends[0]);
    const ScopedDescriptor fd(ends[1]);
    openDescriptor(fd.get());
    sink_->write("one");
    shutdown(peer.get(), SHUT_WR);
    Timer end(loop_, [] {});
    end.once(milliseconds(200));
    int turns = 0;
    while (end.active() && turns < 1000) {
        loop_.runOnce(true);
        ++turns;
    }
    EXPECT_LT(turns, 100);
    EXPECT_THAT(sink_->error(), IsEmpty());
}

TEST_F(SinkTest, TerminalTakesLinesUntilItIsHungUp) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    {
        const ScopedDescriptor terminal(slave);
        openDescriptor(slave);
        EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0);
    }
    sink_->write("one\n");
    waitUntilIdle();
    char text[5];
    ASSERT_EQ(read(master, text, 5), 5);
    EXPECT_EQ(std::string(text, 5), "one\r\n");
    close(master);
    waitFor([&] { return !sink_->error().empty(); });
    EXPECT_FALSE(sink_->write("two\n"));
}

TEST_F(SinkTest, DescriptorThatIsClosedIsRefused) {
    EXPECT_THROW(openDescriptor(987), NodeError);
}

}  // namespace
}  // namespace node
