// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_RECEIVEQUEUE_H
#define TOLVANEV_RECEIVEQUEUE_H

#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

using ReceiveData = std::vector<char>;  // one frame, or bytes as they came from a peer

// The queue in which frames wait between two stages: push at the back, take from the front.
//
// A ring of slots that keep their memory, so that a steady stream takes none from the heap: a frame
// that is moved in changes places with what its slot held, and one that is taken by trade() leaves
// the caller's memory in its slot. A backlog's slots are given back as it gets shorter. When a push
// runs out of memory, the queue stays as it was.
class ReceiveQueue {
  public:
    ReceiveQueue() = default;
    ReceiveQueue(const ReceiveQueue&) = delete;
    ReceiveQueue& operator=(const ReceiveQueue&) = delete;
    // Leave the other queue empty.
    ReceiveQueue(ReceiveQueue&& other) noexcept { swap(other); }
    ReceiveQueue& operator=(ReceiveQueue&& other) noexcept {
        ReceiveQueue moved(std::move(other));
        swap(moved);
        return *this;
    }
    ~ReceiveQueue() = default;

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

    // The oldest frame. The queue must not be empty.
    ReceiveData& front() { return slots_[first_]; }
    const ReceiveData& front() const { return slots_[first_]; }
    // Counted from the oldest, 0 to size() - 1.
    ReceiveData& operator[](size_t index) { return slots_[slotOf(index)]; }
    const ReceiveData& operator[](size_t index) const { return slots_[slotOf(index)]; }
    // The same; throws std::out_of_range for any other index.
    const ReceiveData& at(size_t index) const {
        if (index >= size_)
            throw std::out_of_range("ReceiveQueue::at");
        return (*this)[index];
    }

    // frame: not one of this queue. One that is moved in holds bytes of no meaning afterwards.
    void push_back(const ReceiveData& frame) {
        freeSlot() = frame;
        ++size_;
    }
    void push_back(ReceiveData&& frame) {
        freeSlot().swap(frame);
        ++size_;
    }
    // The bytes from begin up to end.
    void emplace_back(const char* begin, const char* end) {
        freeSlot().assign(begin, end);
        ++size_;
    }
    // Drops the oldest frame. The queue must not be empty.
    void pop_front() {
        first_ = slotOf(1);
        --size_;
        if (capacity_ > KEPT_SLOTS && size_ < capacity_ / 4)
            moveTo(capacity_ / 2);
    }
    // Swaps the oldest frame with frame and drops it. The queue must not be empty.
    void trade(ReceiveData& frame) {
        front().swap(frame);
        pop_front();
    }
    void clear() {
        size_ = 0;
        if (capacity_ > KEPT_SLOTS)
            moveTo(KEPT_SLOTS);
    }
    void swap(ReceiveQueue& other) noexcept {
        slots_.swap(other.slots_);
        std::swap(capacity_, other.capacity_);
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
    }

    class Iterator {
      public:
        Iterator(ReceiveQueue& queue, size_t index) : queue_(queue), index_(index) {}
        ReceiveData& operator*() const { return queue_[index_]; }
        Iterator& operator++() {
            ++index_;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return index_ != other.index_; }

      private:
        ReceiveQueue& queue_;
        size_t index_;
    };
    Iterator begin() { return {*this, 0}; }
    Iterator end() { return {*this, size_}; }

  private:
    static constexpr size_t FIRST_SLOTS = 4;
    static constexpr size_t KEPT_SLOTS = 128;  // never given back

    size_t slotOf(size_t index) const { return (first_ + index) & (capacity_ - 1); }

    // The one behind the newest frame.
    ReceiveData& freeSlot() {
        if (size_ == capacity_)
            moveTo(capacity_ == 0 ? FIRST_SLOTS : 2 * capacity_);
        return slots_[slotOf(size_)];
    }

    // Takes so many slots, at least as many as there are frames, in place of those that there are.
    void moveTo(size_t slots);

    std::vector<ReceiveData> slots_;
    size_t capacity_ = 0;  // of slots_, which would count them by a division: 0 or a power of two
    size_t first_ = 0;     // the slot of the oldest frame
    size_t size_ = 0;      // frames
};

#endif
