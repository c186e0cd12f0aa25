// SPDX-License-Identifier: MIT
#include "ReceiveQueue.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "frames.h"
#include "no_memory.h"

namespace {

// Frames are told apart by their type; with 320 bytes of payload each has memory of its own.
ReceiveData numbered(int number) {
    return makeFrame(number);
}

void fill(ReceiveQueue& queue, int first, int last) {
    for (int number = first; number <= last; ++number)
        queue.push_back(numbered(number));
}

// Takes every frame out and writes down their order.
std::vector<ReceiveData> drained(ReceiveQueue& queue) {
    std::vector<ReceiveData> frames;
    for (; !queue.empty(); queue.pop_front())
        frames.push_back(queue.front());
    return frames;
}

std::vector<ReceiveData> numbers(int first, int last) {
    std::vector<ReceiveData> frames;
    for (int number = first; number <= last; ++number)
        frames.push_back(numbered(number));
    return frames;
}

TEST(ReceiveQueue, IsEmptyAtFirst) {
    const ReceiveQueue queue;
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.size(), 0u);
}

TEST(ReceiveQueue, GivesFramesBackInTheirOrder) {
    ReceiveQueue queue;
    fill(queue, 1, 100);
    EXPECT_EQ(queue.size(), 100u);
    EXPECT_EQ(drained(queue), numbers(1, 100));
}

TEST(ReceiveQueue, KeepsTheOrderWhenItGrowsInMidStream) {
    // Every distance of the oldest frame from the first slot, every length.
    for (int taken = 0; taken < 9; ++taken) {
        for (int length = 1; length < 20; ++length) {
            ReceiveQueue queue;
            fill(queue, 1, 9);
            for (int i = 0; i < taken; ++i)
                queue.pop_front();
            fill(queue, 10, 9 + length);
            ASSERT_EQ(drained(queue), numbers(taken + 1, 9 + length)) << taken << ' ' << length;
        }
    }
}

TEST(ReceiveQueue, CopiesAFrameThatIsNotMovedIn) {
    ReceiveQueue queue;
    ReceiveData frame = numbered(1);
    queue.push_back(frame);
    EXPECT_EQ(frame, numbered(1));
    frame[0] = 7;
    EXPECT_EQ(queue.front(), numbered(1));
}

TEST(ReceiveQueue, TakesBytesOfAnyLength) {
    ReceiveQueue queue;
    const std::string bytes = "abc";
    queue.emplace_back(bytes.data(), bytes.data() + 3);
    queue.emplace_back(bytes.data(), bytes.data());
    EXPECT_EQ(queue[0], bytesOf("abc"));
    EXPECT_EQ(queue[1], ReceiveData());
}

TEST(ReceiveQueue, AFrameNeverShowsBytesOfTheOneBefore) {
    ReceiveQueue queue;
    fill(queue, 1, 4);
    for (int i = 0; i < 4; ++i)
        queue.pop_front();
    queue.push_back(bytesOf("copied"));
    ReceiveData moved = bytesOf("moved");
    queue.push_back(std::move(moved));
    const std::string bytes = "made";
    queue.emplace_back(bytes.data(), bytes.data() + bytes.size());
    EXPECT_EQ(drained(queue),
              (std::vector<ReceiveData>{bytesOf("copied"), bytesOf("moved"), bytesOf("made")}));
}

TEST(ReceiveQueue, MovesAFrameInAndOutWithoutCopyingItsBytes) {
    ReceiveQueue queue;
    ReceiveData frame = numbered(1);
    const char* const memory = frame.data();
    queue.push_back(std::move(frame));
    ReceiveData taken;
    queue.trade(taken);
    EXPECT_EQ(taken, numbered(1));
    EXPECT_EQ(taken.data(), memory);
    EXPECT_TRUE(queue.empty());
}

// What a long stream rests on: once warm, a queue has memory for every frame that comes. A frame
// that is moved in tells what its slot held, by the memory that it is left with.
TEST(ReceiveQueue, ASteadyStreamFindsMemoryInEverySlot) {
    ReceiveQueue queue;
    ReceiveData put;
    ReceiveData taken;
    for (int i = 0; i < 1000; ++i) {
        put.assign(324, static_cast<char>(i));
        queue.push_back(std::move(put));
        ASSERT_TRUE(i < 100 || put.capacity() >= 324) << i;
        if (queue.size() == 10)
            queue.trade(taken);
    }
}

TEST(ReceiveQueue, CopiesLeaveTheirMemoryToo) {
    ReceiveQueue queue;
    const ReceiveData copied = numbered(1);
    for (int i = 0; i < 4; ++i) {
        queue.push_back(copied);
        queue.pop_front();
    }
    ReceiveData frame;
    queue.push_back(std::move(frame));
    EXPECT_GE(frame.capacity(), 324u);
}

// How many of the next frames find memory.
int slotsWithMemory(ReceiveQueue& queue, int frames) {
    int found = 0;
    for (int i = 0; i < frames; ++i) {
        ReceiveData frame;
        queue.push_back(std::move(frame));
        found += frame.capacity() >= 324 ? 1 : 0;
    }
    return found;
}

TEST(ReceiveQueue, KeepsTheMemoryOfAShortBacklog) {
    ReceiveQueue queue;
    fill(queue, 1, 128);
    drained(queue);
    EXPECT_EQ(slotsWithMemory(queue, 128), 128);
    queue.clear();
    fill(queue, 1, 128);
    queue.clear();
    EXPECT_EQ(slotsWithMemory(queue, 128), 128);
}

TEST(ReceiveQueue, GivesTheMemoryOfALongBacklogBackAsItGetsShorter) {
    for (const bool from_front : {true, false}) {
        ReceiveQueue queue;
        fill(queue, 1, 16384);  // as many as it then has slots
        while (queue.size() > 200)
            from_front ? queue.pop_front() : queue.pop_back();
        EXPECT_EQ(queue.front(), numbered(from_front ? 16185 : 1));
        EXPECT_LT(slotsWithMemory(queue, 1000), 350);
        queue.clear();
        EXPECT_LE(slotsWithMemory(queue, 1000), 128);
    }
}

// As in a flood, in which the engines have some hundred frames at any time.
TEST(ReceiveQueue, ASteadyBacklogFindsMemoryInEverySlotToo) {
    ReceiveQueue queue;
    fill(queue, 1, 300);
    ReceiveData put;
    ReceiveData taken;
    for (int i = 0; i < 5000; ++i) {
        put.assign(324, static_cast<char>(i));
        queue.push_back(std::move(put));
        ASSERT_TRUE(i < 300 || put.capacity() >= 324) << i;
        queue.trade(taken);
    }
}

TEST(ReceiveQueue, TakingAndEmptyingNeedNoMemory) {
    ReceiveQueue queue;
    fill(queue, 1, 1000);
    ReceiveQueue other;
    fill(other, 1, 1000);
    ReceiveData taken;
    const NoMemory none;
    while (queue.size() > 300)
        queue.pop_front();
    while (queue.size() > 200)
        queue.pop_back();
    while (queue.size() > 100)
        queue.trade(taken);
    queue.clear();
    other.swap(queue);
    ReceiveQueue moved = std::move(queue);
    moved.clear();
    EXPECT_EQ(none.asked(), 0);
}

TEST(ReceiveQueue, StaysAsItWasWhenAPushRunsOutOfMemory) {
    ReceiveQueue queue;
    fill(queue, 1, 4);  // as many as it has slots
    ReceiveData frame = numbered(5);
    {
        const NoMemory none;
        EXPECT_THROW(queue.push_back(frame), std::bad_alloc);
        EXPECT_THROW(queue.push_back(std::move(frame)), std::bad_alloc);
        EXPECT_THROW(queue.push_front(frame), std::bad_alloc);
        EXPECT_THROW(queue.push_front(std::move(frame)), std::bad_alloc);
        EXPECT_THROW(queue.emplace_back(frame.data(), frame.data() + 4), std::bad_alloc);
    }
    EXPECT_EQ(frame, numbered(5));
    EXPECT_EQ(drained(queue), numbers(1, 4));
}

TEST(ReceiveQueue, IsUsableAfterClear) {
    for (const int length : {0, 3, 1000}) {
        ReceiveQueue queue;
        fill(queue, 1, length);
        queue.clear();
        EXPECT_TRUE(queue.empty());
        fill(queue, 5, 7);
        EXPECT_EQ(drained(queue), numbers(5, 7)) << length;
    }
}

TEST(ReceiveQueue, CountsFromTheOldestFrame) {
    ReceiveQueue queue;
    fill(queue, 1, 4);
    queue.pop_front();
    fill(queue, 5, 5);  // wraps round
    const ReceiveQueue& read = queue;
    EXPECT_EQ(read.front(), numbered(2));
    EXPECT_EQ(read[0], numbered(2));
    EXPECT_EQ(read[3], numbered(5));
    EXPECT_EQ(read.at(3), numbered(5));
    EXPECT_THROW(read.at(4), std::out_of_range);
    queue[1] = numbered(30);
    EXPECT_EQ(read[1], numbered(30));
}

TEST(ReceiveQueue, IsWalkedFromTheOldestFrame) {
    ReceiveQueue queue;
    fill(queue, 1, 4);
    queue.pop_front();
    fill(queue, 5, 5);
    std::vector<ReceiveData> seen;
    for (const ReceiveData& frame : queue)
        seen.push_back(frame);
    EXPECT_EQ(seen, numbers(2, 5));
}

TEST(ReceiveQueue, IsMovedAsAWhole) {
    ReceiveQueue queue;
    fill(queue, 1, 6);
    queue.pop_front();
    ReceiveQueue moved = std::move(queue);
    EXPECT_TRUE(queue.empty());
    fill(queue, 7, 8);  // as usable as a new one
    EXPECT_EQ(moved.size(), 5u);
    moved = std::move(queue);
    EXPECT_EQ(drained(moved), numbers(7, 8));
    EXPECT_TRUE(queue.empty());
}

// Both queues go on where the other one was.
TEST(ReceiveQueue, IsSwapped) {
    ReceiveQueue one;
    ReceiveQueue other;
    fill(one, 1, 6);
    one.pop_front();
    fill(other, 20, 20);
    one.swap(other);
    fill(one, 21, 22);
    fill(other, 7, 7);
    EXPECT_EQ(drained(one), numbers(20, 22));
    EXPECT_EQ(drained(other), numbers(2, 7));
}

}  // namespace
