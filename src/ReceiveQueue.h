// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_RECEIVEQUEUE_H
#define TOLVANEV_RECEIVEQUEUE_H

#include <algorithm>
#include <compare>
#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

using ReceiveData = std::vector<char>;  // one frame, or bytes as they came from a peer

// The queue in which frames wait between two stages, oldest in front: a double-ended queue like the
// standard one, used first in, first out.
//
// A ring of slots that keep their memory, so that a steady stream takes none from the heap: a frame
// that is moved in changes places with what its slot held, and one that is taken by trade() leaves
// the caller's memory in its slot. A backlog of more than 128 frames gives its memory back as it
// gets shorter, all but the 24 bytes of each slot.
//
// Taking and emptying never throw and need no memory. When putting a frame in runs out of memory,
// the queue stays as it was. Iterators and references last until the next frame is put in or taken.
class ReceiveQueue {
    template <typename Frame>
    class FrameIterator;

  public:
    using value_type = ReceiveData;
    using reference = ReceiveData&;
    using const_reference = const ReceiveData&;
    using size_type = size_t;
    using difference_type = ptrdiff_t;
    using iterator = FrameIterator<ReceiveData>;
    using const_iterator = FrameIterator<const ReceiveData>;

    ReceiveQueue() = default;
    ReceiveQueue(const ReceiveQueue& other);
    ReceiveQueue& operator=(const ReceiveQueue& other);
    // Leave the other queue empty.
    ReceiveQueue(ReceiveQueue&& other) noexcept { swap(other); }
    ReceiveQueue& operator=(ReceiveQueue&& other) noexcept {
        ReceiveQueue moved(std::move(other));
        swap(moved);
        return *this;
    }
    ~ReceiveQueue() = default;

    bool empty() const noexcept { return size_ == 0; }
    size_t size() const noexcept { return size_; }

    // The oldest and the newest frame. The queue must not be empty.
    ReceiveData& front() { return slots_[first_]; }
    const ReceiveData& front() const { return slots_[first_]; }
    ReceiveData& back() { return slots_[slotOf(size_ - 1)]; }
    const ReceiveData& back() const { return slots_[slotOf(size_ - 1)]; }
    // Counted from the oldest, 0 to size() - 1.
    ReceiveData& operator[](size_t index) { return slots_[slotOf(index)]; }
    const ReceiveData& operator[](size_t index) const { return slots_[slotOf(index)]; }
    // The same; throw std::out_of_range for any other index.
    ReceiveData& at(size_t index) { return slots_[slotOf(checked(index))]; }
    const ReceiveData& at(size_t index) const { return slots_[slotOf(checked(index))]; }

    iterator begin() { return {this, 0}; }
    iterator end() { return {this, size_}; }
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, size_}; }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }

    // Put a frame in behind the newest or ahead of the oldest. One that is moved in holds bytes of
    // no meaning afterwards.
    void push_back(const ReceiveData& frame) {
        if (isFull())
            return push_back(ReceiveData(frame));
        slots_[slotOf(size_)] = frame;
        ++size_;
    }
    void push_back(ReceiveData&& frame) {
        if (isFull()) [[unlikely]]
            return growBack(frame);
        slots_[slotOf(size_++)].swap(frame);
    }
    void push_front(const ReceiveData& frame) { push_front(ReceiveData(frame)); }
    void push_front(ReceiveData&& frame) {
        if (isFull())
            return growFront(frame);
        first_ = slotOf(capacity_ - 1);
        ++size_;
        front().swap(frame);
    }
    // The bytes from begin up to end.
    void emplace_back(const char* begin, const char* end) {
        if (isFull())
            return push_back(ReceiveData(begin, end));
        slots_[slotOf(size_)].assign(begin, end);
        ++size_;
    }

    // Drop the oldest or the newest frame. The queue must not be empty.
    void pop_front() noexcept {
        first_ = slotOf(1);
        shorten();
    }
    void pop_back() noexcept { shorten(); }
    // Swaps the oldest frame with frame and drops it. The queue must not be empty.
    void trade(ReceiveData& frame) noexcept {
        front().swap(frame);
        pop_front();
    }
    void clear() noexcept {
        size_ = 0;
        if (capacity_ > KEPT_SLOTS)
            keepSlots(KEPT_SLOTS);
    }
    void swap(ReceiveQueue& other) noexcept {
        slots_.swap(other.slots_);
        std::swap(capacity_, other.capacity_);
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
    }

    // Whether both hold the same frames in the same order.
    bool operator==(const ReceiveQueue& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }

  private:
    // Frame: ReceiveData, or const ReceiveData. A place in the queue, counted from the oldest
    // frame.
    template <typename Frame>
    class FrameIterator {
        using Queue = std::conditional_t<std::is_const_v<Frame>, const ReceiveQueue, ReceiveQueue>;

      public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = ReceiveData;
        using difference_type = ptrdiff_t;
        using pointer = Frame*;
        using reference = Frame&;

        FrameIterator() = default;
        FrameIterator(Queue* queue, size_t index)
            : queue_(queue), index_(static_cast<ptrdiff_t>(index)) {}
        template <typename Other>
        requires(std::is_const_v<Frame> && !std::is_const_v<Other>)
            FrameIterator(const FrameIterator<Other>& other)
            : queue_(other.queue_), index_(other.index_) {}

        Frame& operator*() const { return (*queue_)[static_cast<size_t>(index_)]; }
        Frame* operator->() const { return &**this; }
        Frame& operator[](ptrdiff_t distance) const { return *(*this + distance); }

        FrameIterator& operator++() { return *this += 1; }
        FrameIterator& operator--() { return *this -= 1; }
        FrameIterator operator++(int) { return std::exchange(*this, *this + 1); }
        FrameIterator operator--(int) { return std::exchange(*this, *this - 1); }
        FrameIterator& operator+=(ptrdiff_t distance) {
            index_ += distance;
            return *this;
        }
        FrameIterator& operator-=(ptrdiff_t distance) { return *this += -distance; }
        friend FrameIterator operator+(FrameIterator place, ptrdiff_t distance) {
            return place += distance;
        }
        friend FrameIterator operator+(ptrdiff_t distance, FrameIterator place) {
            return place += distance;
        }
        friend FrameIterator operator-(FrameIterator place, ptrdiff_t distance) {
            return place -= distance;
        }
        friend ptrdiff_t operator-(const FrameIterator& to, const FrameIterator& from) {
            return to.index_ - from.index_;
        }

        // Of two places in one queue.
        bool operator==(const FrameIterator& other) const { return index_ == other.index_; }
        auto operator<=>(const FrameIterator& other) const { return index_ <=> other.index_; }

      private:
        template <typename>
        friend class FrameIterator;

        Queue* queue_ = nullptr;
        ptrdiff_t index_ = 0;
    };

    static constexpr size_t FIRST_SLOTS = 4;
    static constexpr size_t KEPT_SLOTS = 128;  // with their memory, for the frames to come

    size_t slotOf(size_t index) const { return (first_ + index) & (capacity_ - 1); }
    size_t checked(size_t index) const {
        if (index >= size_)
            throw std::out_of_range("ReceiveQueue::at");
        return index;
    }

    bool isFull() const { return size_ == capacity_; }
    // Swap the frame in with twice as many slots. It may be one of this queue, so it has its place
    // before the others move.
    void growBack(ReceiveData& frame);
    void growFront(ReceiveData& frame);
    size_t largerCapacity() const { return capacity_ == 0 ? FIRST_SLOTS : 2 * capacity_; }
    void moveInto(std::vector<ReceiveData>& slots) noexcept;  // the frames, from its first slot on

    // Keeps so many slots, at least as many as there are frames, and gives back what the others
    // hold.
    void keepSlots(size_t slots) noexcept;
    void shorten() noexcept {
        --size_;
        if (capacity_ > KEPT_SLOTS && size_ < capacity_ / 4)
            keepSlots(capacity_ / 2);
    }

    std::vector<ReceiveData> slots_;
    size_t capacity_ = 0;  // of slots_, which would count them by a division: 0 or a power of two
    size_t first_ = 0;     // the slot of the oldest frame
    size_t size_ = 0;      // frames
};

#endif
