// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_BENCH_REFERENCEBUILDER_H
#define TOLVANEV_BENCH_REFERENCEBUILDER_H

#include <algorithm>
#include <cstring>
#include <vector>

#include "DataBuilder.h"

// The frame builder read literally, one value at a time: every value is unpacked from a small array
// of its own, and packed into another one that is appended. Kept as the measure of the real one.
template <typename T>
class ReferenceBuilder {
  public:
    void build(const char* data, unsigned int size, int from, int to) {
        header_ = unpackOne<int>(data, from, to);
        data_.clear();
        for (unsigned int at = framesync::HEADER_SIZE; at < size; at += sizeof(T))
            data_.push_back(unpackOne<T>(data + at, from, to));
        bytes_.clear();
        append(packOne(header_));
        for (const T& value : data_)
            append(packOne(value));
    }
    const ByteArray& getBuildData() const { return bytes_; }

  private:
    template <typename V>
    static V unpackOne(const char* data, int from, int to) {
        ByteArray piece(data, data + sizeof(V));
        if (from != to)
            std::reverse(piece.begin(), piece.end());
        V value;
        std::memcpy(&value, piece.data(), sizeof(value));
        return value;
    }

    template <typename V>
    static ByteArray packOne(const V& value) {
        ByteArray piece;
        for (size_t i = 0; i < sizeof(V); ++i)
            piece.push_back(reinterpret_cast<const char*>(&value)[i]);
        return piece;
    }

    void append(const ByteArray& piece) { bytes_.insert(bytes_.end(), piece.begin(), piece.end()); }

    int header_ = 0;
    std::vector<T> data_;
    ByteArray bytes_;
};

#endif
