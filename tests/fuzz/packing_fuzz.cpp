// SPDX-License-Identifier: MIT
// Bytes to values and back, with any byte orders: good arguments give the bytes back, bad ones
// throw std::invalid_argument. The first two bytes are the orders.
#include <cstring>
#include <stdexcept>
#include <vector>

#include "BinaryUtil.h"
#include "fuzz.h"

namespace {

template <typename T>
void check(const std::vector<char>& bytes, int from, int to) {
    const bool good_orders =
        binary::detail::_check_endian(from) && binary::detail::_check_endian(to);
    const bool good = good_orders && !bytes.empty() && bytes.size() % sizeof(T) == 0;
    try {
        const auto values =
            binary::unpack<T>(bytes.data(), static_cast<int>(bytes.size()), from, to);
        REQUIRE(good);
        REQUIRE(binary::pack<T>(values.data(), static_cast<int>(values.size()), from, to) == bytes);
        const ByteArray first = binary::pack<T>(values[0], from, to);
        REQUIRE(memcmp(first.data(), bytes.data(), sizeof(T)) == 0);
        const T again = binary::unpack<T>(bytes.data(), from, to);
        // The bits, which for a NaN are not equal as numbers.
        REQUIRE(binary::pack<T>(again) == binary::pack<T>(values[0]));
    } catch (const std::invalid_argument&) {
        REQUIRE(!good);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3)
        return 0;
    const std::vector<char> bytes(data + 2, data + size);
    check<unsigned char>(bytes, data[0], data[1]);
    check<short>(bytes, data[0], data[1]);
    check<int>(bytes, data[0], data[1]);
    check<float>(bytes, data[0], data[1]);
    check<double>(bytes, data[0], data[1]);
    return 0;
}
