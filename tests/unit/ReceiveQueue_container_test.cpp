// SPDX-License-Identifier: MIT
// The queue as a double-ended container of its frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "ReceiveQueue.h"
#include "common.h"

namespace {

static_assert(std::random_access_iterator<ReceiveQueue::iterator>);
static_assert(std::random_access_iterator<ReceiveQueue::const_iterator>);
static_assert(std::is_convertible_v<ReceiveQueue::iterator, ReceiveQueue::const_iterator>);
static_assert(!std::is_convertible_v<ReceiveQueue::const_iterator, ReceiveQueue::iterator>);
static_assert(std::is_nothrow_move_constructible_v<ReceiveQueue>);
static_assert(std::is_nothrow_move_assignable_v<ReceiveQueue>);

ReceiveData numbered(int number) {
    return ReceiveData(324, static_cast<char>(number));
}

std::vector<int> numbersIn(const ReceiveQueue& queue) {
    std::vector<int> numbers;
    for (const ReceiveData& frame : queue)
        numbers.push_back(frame.at(0));
    return numbers;
}

std::vector<int> range(int first, int last) {
    std::vector<int> numbers(static_cast<size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

// The frames from first to last; the oldest stands in the given one of its slots.
ReceiveQueue queueOf(int first, int last, int slot = 3) {
    ReceiveQueue queue;
    for (int i = 0; i < slot; ++i)
        queue.push_back(numbered(0));
    for (; !queue.empty(); queue.pop_front()) {
    }
    for (int number = first; number <= last; ++number)
        queue.push_back(numbered(number));
    return queue;
}

// Copies.

TEST(ReceiveQueueCopy, HoldsTheSameFramesInMemoryOfItsOwn) {
    for (const int length : {0, 1, 4, 5, 200}) {
        ReceiveQueue queue = queueOf(1, length);
        const ReceiveQueue copy = queue;
        EXPECT_TRUE(copy == queue) << length;
        queue.push_back(numbered(77));
        queue.front() = numbered(78);
        EXPECT_EQ(numbersIn(copy), numbersIn(queueOf(1, length))) << length;
    }
}

TEST(ReceiveQueueCopy, IsAsUsableAsTheOriginal) {
    ReceiveQueue copy = ReceiveQueue(queueOf(1, 5));
    copy.push_back(numbered(6));
    copy.push_front(numbered(0));
    copy.pop_back();
    EXPECT_EQ(numbersIn(copy), range(0, 5));
}

TEST(ReceiveQueueCopy, ReplacesWhatWasThere) {
    ReceiveQueue queue = queueOf(1, 9);
    const ReceiveQueue other = queueOf(20, 22);
    queue = other;
    EXPECT_EQ(numbersIn(queue), range(20, 22));
    EXPECT_EQ(numbersIn(other), range(20, 22));
    const ReceiveQueue& same = queue;
    queue = same;
    EXPECT_EQ(numbersIn(queue), range(20, 22));
    queue = ReceiveQueue();
    EXPECT_TRUE(queue.empty());
}

TEST(ReceiveQueueCopy, OfNoiseBlocksIsDeep) {
    NoiseQueue blocks = {queueOf(1, 10), queueOf(11, 20)};
    const NoiseQueue copy = blocks;
    blocks.front().clear();
    EXPECT_EQ(numbersIn(copy.front()), range(1, 10));
    EXPECT_EQ(numbersIn(copy.back()), range(11, 20));
}

TEST(ReceiveQueueCompare, TellsFramesOrderAndLength) {
    EXPECT_TRUE(queueOf(1, 3, 0) == queueOf(1, 3, 2));
    EXPECT_FALSE(queueOf(1, 3) == queueOf(1, 4));
    EXPECT_FALSE(queueOf(1, 3) == queueOf(2, 4));
    EXPECT_TRUE(ReceiveQueue() == ReceiveQueue());
}

// Both ends.

TEST(ReceiveQueueEnds, FramesArePutAheadOfTheOldest) {
    for (int slot = 0; slot < 4; ++slot) {
        for (int length = 0; length < 10; ++length) {
            ReceiveQueue queue = queueOf(51, 50 + length, slot);
            for (int number = 50; number > 40; --number)
                queue.push_front(numbered(number));
            ASSERT_EQ(numbersIn(queue), range(41, 50 + length)) << slot << ' ' << length;
        }
    }
}

TEST(ReceiveQueueEnds, AFrameIsMovedInInFrontWithoutCopyingItsBytes) {
    ReceiveQueue queue = queueOf(2, 3);
    ReceiveData frame = numbered(1);
    const char* const memory = frame.data();
    queue.push_front(std::move(frame));
    EXPECT_EQ(queue.front().data(), memory);
    EXPECT_EQ(numbersIn(queue), range(1, 3));
}

TEST(ReceiveQueueEnds, BackIsTheNewestFrame) {
    ReceiveQueue queue = queueOf(1, 6);
    const ReceiveQueue& read = queue;
    EXPECT_EQ(read.back(), numbered(6));
    queue.back() = numbered(7);
    EXPECT_EQ(read.at(5), numbered(7));
    queue.at(0) = numbered(8);
    EXPECT_EQ(read.front(), numbered(8));
    EXPECT_THROW(queue.at(6), std::out_of_range);
}

TEST(ReceiveQueueEnds, TheNewestFrameIsTaken) {
    ReceiveQueue queue = queueOf(1, 6);
    for (int newest = 5; newest >= 0; --newest) {
        queue.pop_back();
        EXPECT_EQ(numbersIn(queue), range(1, newest));
    }
    EXPECT_TRUE(queue.empty());
}

// A frame of the queue's own may be put in again, also when that makes it grow.
TEST(ReceiveQueueEnds, AFrameOfItsOwnIsPutIn) {
    for (int length = 1; length < 10; ++length) {
        ReceiveQueue queue = queueOf(1, length);
        queue.push_back(queue.front());
        EXPECT_EQ(queue.back(), numbered(1)) << length;
        queue.push_front(queue.at(queue.size() - 2));
        EXPECT_EQ(queue.front(), numbered(length)) << length;
        queue.push_back(std::move(queue.front()));
        EXPECT_EQ(queue.back(), numbered(length)) << length;
        EXPECT_EQ(queue[1], numbered(1)) << length;
    }
}

// Iterators.

TEST(ReceiveQueueIterator, WalksAConstQueue) {
    const ReceiveQueue queue = queueOf(1, 6);
    EXPECT_EQ(numbersIn(queue), range(1, 6));
    EXPECT_EQ(queue.cend() - queue.cbegin(), 6);
}

TEST(ReceiveQueueIterator, GoesAnywhere) {
    ReceiveQueue queue = queueOf(1, 6);
    auto place = queue.begin() + 2;
    EXPECT_EQ(*place, numbered(3));
    EXPECT_EQ(place->size(), 324u);
    EXPECT_EQ(place[-2], numbered(1));
    EXPECT_EQ(*place++, numbered(3));
    EXPECT_EQ(*place--, numbered(4));
    EXPECT_EQ(*++place, numbered(4));
    EXPECT_EQ(*--place, numbered(3));
    place += 3;
    EXPECT_EQ(*place, numbered(6));
    EXPECT_EQ(*(1 + (place - 3)), numbered(4));
    place -= 5;
    EXPECT_TRUE(place == queue.begin());
    EXPECT_TRUE(place == queue.cbegin());
    EXPECT_TRUE(queue.cbegin() == place);
    EXPECT_TRUE(place < queue.end() && queue.end() > place && place <= place);
}

TEST(ReceiveQueueIterator, ServesTheStandardAlgorithms) {
    ReceiveQueue queue = queueOf(1, 9);
    std::ranges::reverse(queue);
    EXPECT_EQ(queue.front(), numbered(9));
    std::sort(queue.begin(), queue.end());
    EXPECT_EQ(numbersIn(queue), range(1, 9));
    EXPECT_EQ(std::find(queue.cbegin(), queue.cend(), numbered(4)) - queue.cbegin(), 3);
    EXPECT_EQ(std::ranges::lower_bound(queue, numbered(7)) - queue.begin(), 6);
    std::rotate(queue.begin(), queue.begin() + 1, queue.end());
    EXPECT_EQ(queue.back(), numbered(1));
    const std::vector<ReceiveData> copy(queue.begin(), queue.end());
    EXPECT_EQ(copy.at(0), numbered(2));
    const std::vector<ReceiveData> backwards(std::reverse_iterator(queue.end()),
                                             std::reverse_iterator(queue.begin()));
    EXPECT_EQ(backwards.at(0), numbered(1));
}

}  // namespace
