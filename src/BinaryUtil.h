// SPDX-License-Identifier: MIT
// Numbers to bytes and back. Byte-order rule: `from` equal to `to` copies a value in the host's own
// order, which on our target is least significant byte first; `from` different from `to` reverses
// its bytes.
// Kept: which of the two is BIG makes no difference, and the host's order is never asked for.
//
// Elements have 1, 2, 4 or 8 bytes; a float travels as its IEEE 754 bit pattern. Every failure is
// a std::invalid_argument, checked in this order: null pointer, byte orders, size.
// Equal orders are one memcpy, different ones a loop. g++ vectorises it for elements of 16 bits,
// which is what audio has; larger ones are reversed one by one.
#ifndef TOLVANEV_BINARYUTIL_H
#define TOLVANEV_BINARYUTIL_H

#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "common.h"

namespace binary {

enum endian_ { BIG = 0, LITTLE = 1 };

// A byte count that does not hold elements of `element` bytes.
[[noreturn]] inline void refuseSize(const long size, const size_t element) {
    std::ostringstream text;
    text << "Invalid data size.\n DataType : " << element << "\n ArraySize: " << size << "\n";
    throw std::invalid_argument(text.str());
}

inline void requireWholeElements(const int size, const size_t element) {
    if (size % static_cast<int>(element) != 0)
        refuseSize(size, element);
}

// The unsigned integer of a given size, through which the bits of every value travel.
template <size_t Size>
struct UnsignedOf;
template <>
struct UnsignedOf<1> {
    using type = uint8_t;
};
template <>
struct UnsignedOf<2> {
    using type = uint16_t;
};
template <>
struct UnsignedOf<4> {
    using type = uint32_t;
};
template <>
struct UnsignedOf<8> {
    using type = uint64_t;
};
template <typename T>
using Bits = typename UnsignedOf<sizeof(T)>::type;

template <typename U>
constexpr U reversed(U value) {
    U result = 0;
    for (size_t i = 0; i < sizeof(U); ++i)
        result = static_cast<U>(result | static_cast<U>(value >> 8 * i & 0xFF)
                                             << 8 * (sizeof(U) - 1 - i));
    return result;
}

// Copies count elements of type U from source to target (which may not overlap), reversing each
// one's bytes when the orders differ. Both may be unaligned.
template <typename U>
void copyElements(char* target, const char* source, size_t count, const int from, const int to) {
    if (count == 0)
        return;  // an empty vector's data() may be null, which memcpy must not be given
    if (from == to) {
        std::memcpy(target, source, count * sizeof(U));
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        U value;
        std::memcpy(&value, source + i * sizeof(U), sizeof(U));
        value = reversed(value);
        std::memcpy(target + i * sizeof(U), &value, sizeof(U));
    }
}

namespace detail {

inline bool _check_endian(const int endian) {
    return endian == BIG || endian == LITTLE;
}

inline void requireData(const void* data) {
    if (!data)
        throw std::invalid_argument("Invalid argument arg is NULL.");
}

[[noreturn]] inline void refuseEndian(const int from, const int to) {
    std::ostringstream text;
    text << "Invalid endian. from :" << from << " to :" << to;
    throw std::invalid_argument(text.str());
}

inline void requireEndian(const int from, const int to) {
    if (!_check_endian(from) || !_check_endian(to))
        refuseEndian(from, to);
}

template <typename U>
ByteArray _pack(const U& data, const int from, const int to) {
    ByteArray bytes(sizeof(U));
    copyElements<U>(bytes.data(), reinterpret_cast<const char*>(&data), 1, from, to);
    return bytes;
}

template <typename U>
U _unpack(const char* data, const int from, const int to) {
    U value;
    copyElements<U>(reinterpret_cast<char*>(&value), data, 1, from, to);
    return value;
}

}  // namespace detail

// One value to sizeof(T) bytes.
template <typename T>
ByteArray pack(const T& data, const int from, const int to) {
    static_assert(std::is_trivially_copyable_v<T>);
    detail::requireEndian(from, to);
    Bits<T> bits;
    std::memcpy(&bits, &data, sizeof(T));
    return detail::_pack(bits, from, to);
}

template <typename T>
ByteArray pack(const T& data) {
    return pack<T>(data, LITTLE, LITTLE);
}

// An array to bytes. size counts elements; 0 or less yields an empty array.
template <typename T>
ByteArray pack(const T* data, int size, const int from, const int to) {
    detail::requireData(data);
    detail::requireEndian(from, to);
    const size_t count = size > 0 ? static_cast<size_t>(size) : 0;
    ByteArray bytes(count * sizeof(T));
    copyElements<Bits<T>>(bytes.data(), reinterpret_cast<const char*>(data), count, from, to);
    return bytes;
}

template <typename T>
ByteArray pack(const T* data, int size) {
    return pack<T>(data, size, LITTLE, LITTLE);
}

// One value from the first sizeof(T) bytes of data.
template <typename T>
T unpack(const char* data, const int from, const int to) {
    static_assert(std::is_trivially_copyable_v<T>);
    detail::requireData(data);
    detail::requireEndian(from, to);
    const auto bits = detail::_unpack<Bits<T>>(data, from, to);
    T value;
    std::memcpy(&value, &bits, sizeof(T));
    return value;
}

template <typename T>
T unpack(const char* data) {
    return unpack<T>(data, LITTLE, LITTLE);
}

// An array from bytes.
// Kept: size counts bytes here, while the size of array packing counts elements.
template <typename T>
std::vector<T> unpack(const char* data, const int size, const int from, const int to) {
    detail::requireData(data);
    detail::requireEndian(from, to);
    requireWholeElements(size, sizeof(T));
    const size_t count = size > 0 ? static_cast<size_t>(size) / sizeof(T) : 0;
    std::vector<T> values(count);
    copyElements<Bits<T>>(reinterpret_cast<char*>(values.data()), data, count, from, to);
    return values;
}

}  // namespace binary

#endif
