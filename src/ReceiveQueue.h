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
// that is moved in trades places with what its slot held, and a frame that is taken by trade()
// leaves the caller's memory behind. Only a queue that was long gives its slots back once empty.
class ReceiveQueue {
  public:
    ReceiveQueue() = default;
    ReceiveQueue(const ReceiveQueue&) = default;
    ReceiveQueue& operator=(const ReceiveQueue&) = default;
    ReceiveQueue(ReceiveQueue&& other) noexcept { swap(other); }
    ReceiveQueue& operator=(ReceiveQueue&& other) noexcept {
        ReceiveQueue(std::move(other)).swap(*this);
        return *this;
    }
    ~ReceiveQueue() = default;

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

    // The oldest frame. The queue must not be empty.
    ReceiveData& front() { return slots_[first_]; }
    const ReceiveData& front() const { return slots_[first_]; }
    // Counted from the oldest. Throws std::out_of_range.
    const ReceiveData& at(size_t index) const {
        if (index >= size_)
            throw std::out_of_range("ReceiveQueue::at");
        return (*this)[index];
    }
    const ReceiveData& operator[](size_t index) const { return slots_[slotOf(index)]; }
    ReceiveData& operator[](size_t index) { return slots_[slotOf(index)]; }

    // frame: not one of this queue. Moved in, it holds memory of an earlier frame afterwards.
    void push_back(const ReceiveData& frame) { addSlot() = frame; }
    void push_back(ReceiveData&& frame) { addSlot().swap(frame); }
    // The bytes from begin up to end.
    void emplace_back(const char* begin, const char* end) { addSlot().assign(begin, end); }
    // Drops the oldest frame. The queue must not be empty.
    void pop_front() {
        first_ = slotOf(1);
        if (--size_ == 0)
            shrink();
    }
    // Takes the oldest frame for frame, whose memory stays here. The queue must not be empty.
    void trade(ReceiveData& frame) {
        front().swap(frame);
        pop_front();
    }
    void clear() {
        size_ = 0;
        shrink();
    }
    void swap(ReceiveQueue& other) noexcept {
        slots_.swap(other.slots_);
        std::swap(capacity_, other.capacity_);
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
    }

    template <typename Queue>
    class Iterator {
      public:
        Iterator(Queue& queue, size_t index) : queue_(queue), index_(index) {}
        auto& operator*() const { return queue_[index_]; }
        Iterator& operator++() { return ++index_, *this; }
        bool operator!=(const Iterator& other) const { return index_ != other.index_; }

      private:
        Queue& queue_;
        size_t index_;
    };
    auto begin() { return Iterator<ReceiveQueue>(*this, 0); }
    auto end() { return Iterator<ReceiveQueue>(*this, size_); }
    auto begin() const { return Iterator<const ReceiveQueue>(*this, 0); }
    auto end() const { return Iterator<const ReceiveQueue>(*this, size_); }

  private:
    static constexpr size_t KEPT_SLOTS = 128;  // that an empty queue keeps at most

    size_t slotOf(size_t index) const { return (first_ + index) & (capacity_ - 1); }

    ReceiveData& addSlot() {
        if (size_ == capacity_)
            grow();
        return slots_[slotOf(size_++)];
    }

    void shrink() {
        if (capacity_ > KEPT_SLOTS)
            giveBack();
    }

    void grow();
    void giveBack();

    std::vector<ReceiveData> slots_;
    size_t capacity_ = 0;  // slots: none, or a power of two
    size_t first_ = 0;     // the slot of the oldest frame
    size_t size_ = 0;      // frames
};

#endif
