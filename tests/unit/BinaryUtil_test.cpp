// SPDX-License-Identifier: MIT
#include "BinaryUtil.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "frames.h"

namespace {

using binary::BIG;
using binary::LITTLE;

static_assert(BIG == 0 && LITTLE == 1);

// The text of the std::invalid_argument that an operation throws; empty if it throws none.
template <typename Operation>
std::string refusal(Operation operation) {
    try {
        operation();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return {};
}

const std::string NULL_TEXT = "Invalid argument arg is NULL.";
constexpr int ORDERS[] = {BIG, LITTLE};

TEST(Pack, ShortFormWritesLeastSignificantByteFirst) {
    EXPECT_EQ(binary::pack<int>(16909060), bytesOf({0x04, 0x03, 0x02, 0x01}));
}

TEST(Pack, DifferentOrdersReverseTheBytes) {
    const int value = 16909060;
    EXPECT_EQ(binary::pack<int>(value, BIG, LITTLE), bytesOf({0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(binary::pack<int>(value, LITTLE, BIG), bytesOf({0x01, 0x02, 0x03, 0x04}));
}

// The host is never asked for its order: BIG to BIG copies, too.
TEST(Pack, EqualOrdersCopyTheBytes) {
    const int value = 16909060;
    EXPECT_EQ(binary::pack<int>(value, BIG, BIG), bytesOf({0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(binary::pack<int>(value, LITTLE, LITTLE), bytesOf({0x04, 0x03, 0x02, 0x01}));
}

TEST(Pack, WritesEveryElementSize) {
    EXPECT_EQ(binary::pack<uint8_t>(0xFE), bytesOf({0xFE}));
    EXPECT_EQ(binary::pack<short>(-2), bytesOf({0xFE, 0xFF}));
    EXPECT_EQ(binary::pack<unsigned short>(0x8001), bytesOf({0x01, 0x80}));
    EXPECT_EQ(binary::pack<uint64_t>(0x0102030405060708, BIG, LITTLE),
              bytesOf({1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Pack, WritesAFloatAsItsBits) {
    EXPECT_EQ(binary::pack<float>(1.0F), bytesOf({0x00, 0x00, 0x80, 0x3F}));
    EXPECT_EQ(binary::pack<float>(-2.5F, LITTLE, BIG), bytesOf({0xC0, 0x20, 0x00, 0x00}));
    EXPECT_EQ(binary::pack<double>(1.0), bytesOf({0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(Pack, RefusesAnUnknownByteOrder) {
    const int value = 1;
    EXPECT_EQ(refusal([&] { binary::pack<int>(value, 2, 1); }), "Invalid endian. from :2 to :1");
    EXPECT_EQ(refusal([&] { binary::pack<int>(value, 0, -7); }), "Invalid endian. from :0 to :-7");
}

TEST(PackArray, SizeCountsElements) {
    const std::vector<short> values = {0x0102, 0x0304, 0x0506};
    EXPECT_EQ(binary::pack<short>(values.data(), 2), bytesOf({2, 1, 4, 3}));
    EXPECT_EQ(binary::pack<short>(values.data(), 3, LITTLE, LITTLE), bytesOf({2, 1, 4, 3, 6, 5}));
}

TEST(PackArray, DifferentOrdersReverseEachElement) {
    const std::vector<short> values = {0x0102, 0x0304};
    EXPECT_EQ(binary::pack<short>(values.data(), 2, LITTLE, BIG), bytesOf({1, 2, 3, 4}));
    EXPECT_EQ(binary::pack<short>(values.data(), 2, BIG, LITTLE), bytesOf({1, 2, 3, 4}));
    EXPECT_EQ(binary::pack<short>(values.data(), 2, BIG, BIG), bytesOf({2, 1, 4, 3}));
}

TEST(PackArray, WritesFloats) {
    const std::vector<float> values = {1.0F, -2.5F};
    EXPECT_EQ(binary::pack<float>(values.data(), 2),
              bytesOf({0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0}));
}

TEST(PackArray, SizeOfZeroOrLessGivesNoBytes) {
    const short value = 1;
    EXPECT_TRUE(binary::pack<short>(&value, 0).empty());
    EXPECT_TRUE(binary::pack<short>(&value, -1).empty());
    EXPECT_TRUE(binary::pack<short>(&value, -3, LITTLE, BIG).empty());
}

TEST(PackArray, RefusesNull) {
    const short* const none = nullptr;
    EXPECT_EQ(refusal([&] { binary::pack<short>(none, 4); }), NULL_TEXT);
    EXPECT_EQ(refusal([&] { binary::pack<short>(none, 0); }), NULL_TEXT);
    EXPECT_EQ(refusal([&] { binary::pack<short>(none, 4, LITTLE, BIG); }), NULL_TEXT);
}

TEST(PackArray, ChecksThePointerBeforeTheByteOrder) {
    const short value = 1;
    const short* const none = nullptr;
    EXPECT_EQ(refusal([&] { binary::pack<short>(none, 1, 2, 2); }), NULL_TEXT);
    EXPECT_EQ(refusal([&] { binary::pack<short>(&value, 1, 2, 3); }),
              "Invalid endian. from :2 to :3");
    EXPECT_EQ(refusal([&] { binary::pack<short>(&value, 0, 1, 2); }),
              "Invalid endian. from :1 to :2");
}

TEST(Unpack, ReadsLeastSignificantByteFirst) {
    EXPECT_EQ(binary::unpack<int>(bytesOf({0x04, 0x03, 0x02, 0x01}).data()), 16909060);
    EXPECT_EQ(binary::unpack<short>(bytesOf({0xFF, 0x7F}).data()), 32767);
    EXPECT_EQ(binary::unpack<short>(bytesOf({0x00, 0x80}).data()), -32768);
}

TEST(Unpack, DifferentOrdersReverseTheBytes) {
    EXPECT_EQ(binary::unpack<short>(bytesOf({0x7F, 0xFF}).data(), 0, 1), 32767);
    EXPECT_EQ(binary::unpack<short>(bytesOf({0x7F, 0xFF}).data(), 1, 0), 32767);
    EXPECT_EQ(binary::unpack<int>(bytesOf({1, 2, 3, 4}).data(), BIG, LITTLE), 16909060);
}

TEST(Unpack, EqualOrdersCopyTheBytes) {
    EXPECT_EQ(binary::unpack<short>(bytesOf({0xFF, 0x7F}).data(), BIG, BIG), 32767);
    EXPECT_EQ(binary::unpack<short>(bytesOf({0xFF, 0x7F}).data(), LITTLE, LITTLE), 32767);
}

// A char is negative from 0x80 on; its sign must not reach the bytes above it.
TEST(Unpack, DoesNotSpreadTheSignOfAByte) {
    EXPECT_EQ(binary::unpack<int>(bytesOf({0x80, 0x00, 0x00, 0x00}).data()), 128);
    EXPECT_EQ(binary::unpack<unsigned short>(bytesOf({0xFF, 0x00}).data()), 255);
    EXPECT_EQ(binary::unpack<int>(bytesOf({0xFF, 0xFF, 0xFF, 0xFF}).data()), -1);
}

TEST(Unpack, ReadsAFloatFromItsBits) {
    EXPECT_EQ(binary::unpack<float>(bytesOf({0x00, 0x00, 0x80, 0x3F}).data()), 1.0F);
    EXPECT_EQ(binary::unpack<float>(bytesOf({0x3F, 0x80, 0x00, 0x00}).data(), BIG, LITTLE), 1.0F);
}

TEST(Unpack, ReadsEveryElementSize) {
    const auto bytes = bytesOf({8, 7, 6, 5, 4, 3, 2, 1});
    EXPECT_EQ(binary::unpack<uint8_t>(bytes.data()), 8);
    EXPECT_EQ(binary::unpack<unsigned short>(bytes.data()), 0x0708);
    EXPECT_EQ(binary::unpack<uint64_t>(bytes.data()), 0x0102030405060708U);
}

TEST(Unpack, ReadsFromAnyAddress) {
    const auto bytes = bytesOf({0x99, 0x04, 0x03, 0x02, 0x01});
    EXPECT_EQ(binary::unpack<int>(bytes.data() + 1), 16909060);
}

TEST(Unpack, RefusesNullBeforeAnUnknownByteOrder) {
    const char* const none = nullptr;
    EXPECT_EQ(refusal([&] { binary::unpack<int>(none); }), NULL_TEXT);
    EXPECT_EQ(refusal([&] { binary::unpack<int>(none, LITTLE, 9); }), NULL_TEXT);
}

TEST(Unpack, RefusesAnUnknownByteOrder) {
    const auto bytes = bytesOf({1, 2, 3, 4});
    EXPECT_EQ(refusal([&] { binary::unpack<int>(bytes.data(), 2, 1); }),
              "Invalid endian. from :2 to :1");
    EXPECT_EQ(refusal([&] { binary::unpack<int>(bytes.data(), 1, -1); }),
              "Invalid endian. from :1 to :-1");
}

TEST(UnpackArray, SizeCountsBytes) {
    const auto bytes = bytesOf({1, 0, 2, 0, 0xFF, 0xFF});
    EXPECT_EQ(binary::unpack<short>(bytes.data(), 4, LITTLE, LITTLE), (std::vector<short>{1, 2}));
    EXPECT_EQ(binary::unpack<short>(bytes.data(), 6, BIG, BIG), (std::vector<short>{1, 2, -1}));
}

TEST(UnpackArray, DifferentOrdersReverseEachElement) {
    const auto bytes = bytesOf({0, 1, 0, 2});
    EXPECT_EQ(binary::unpack<short>(bytes.data(), 4, BIG, LITTLE), (std::vector<short>{1, 2}));
    EXPECT_EQ(binary::unpack<int>(bytes.data(), 4, LITTLE, BIG), std::vector<int>{65538});
}

TEST(UnpackArray, ReadsFloats) {
    const auto bytes = bytesOf({0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0});
    EXPECT_EQ(binary::unpack<float>(bytes.data(), 8, LITTLE, LITTLE),
              (std::vector<float>{1.0F, -2.5F}));
}

TEST(UnpackArray, SizeOfZeroGivesNoElements) {
    const char byte = 1;
    EXPECT_TRUE(binary::unpack<short>(&byte, 0, LITTLE, LITTLE).empty());
    EXPECT_TRUE(binary::unpack<short>(&byte, 0, LITTLE, BIG).empty());
}

TEST(UnpackArray, RefusesBytesThatAreNoWholeElements) {
    const auto bytes = bytesOf({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(refusal([&] { binary::unpack<short>(bytes.data(), 5, LITTLE, LITTLE); }),
              "Invalid data size.\n DataType : 2\n ArraySize: 5\n");
    EXPECT_EQ(refusal([&] { binary::unpack<float>(bytes.data(), 6, LITTLE, LITTLE); }),
              "Invalid data size.\n DataType : 4\n ArraySize: 6\n");
    EXPECT_EQ(refusal([&] { binary::unpack<short>(bytes.data(), -1, LITTLE, LITTLE); }),
              "Invalid data size.\n DataType : 2\n ArraySize: -1\n");
}

TEST(UnpackArray, ChecksPointerThenByteOrderThenSize) {
    const auto bytes = bytesOf({1, 2, 3, 4, 5});
    EXPECT_EQ(refusal([] { binary::unpack<short>(nullptr, 5, 2, 2); }), NULL_TEXT);
    EXPECT_EQ(refusal([] { binary::unpack<short>(nullptr, 0, 1, 1); }), NULL_TEXT);
    EXPECT_EQ(refusal([&] { binary::unpack<short>(bytes.data(), 5, 2, 1); }),
              "Invalid endian. from :2 to :1");
}

TEST(PackAndUnpack, GiveEveryShortBackInEveryOrder) {
    std::vector<short> values;
    for (int value = -32768; value <= 32767; ++value)
        values.push_back(static_cast<short>(value));
    for (const int from : ORDERS) {
        for (const int to : ORDERS) {
            const auto bytes =
                binary::pack<short>(values.data(), static_cast<int>(values.size()), from, to);
            EXPECT_EQ(binary::unpack<short>(bytes.data(), 2 * 65536, from, to), values);
        }
    }
}

// Frames of the VAD engine may carry any bits; a signalling NaN is the easiest to lose.
TEST(PackAndUnpack, GiveTheBitsOfAFloatBack) {
    const auto bytes = bytesOf({0x01, 0x00, 0x80, 0x7F});
    const auto values = binary::unpack<float>(bytes.data(), 4, LITTLE, LITTLE);
    EXPECT_EQ(std::bit_cast<uint32_t>(values.at(0)), 0x7F800001U);
    EXPECT_EQ(binary::pack<float>(values.data(), 1), bytes);
}

TEST(Detail, KnowsTwoByteOrders) {
    EXPECT_TRUE(binary::detail::_check_endian(0));
    EXPECT_TRUE(binary::detail::_check_endian(1));
    for (const int other : {-1, 2, 256, std::numeric_limits<int>::min()})
        EXPECT_FALSE(binary::detail::_check_endian(other)) << other;
}

TEST(Detail, PacksAndUnpacksUnsignedNumbers) {
    EXPECT_EQ(binary::detail::_pack<uint16_t>(0x0102, LITTLE, LITTLE), bytesOf({2, 1}));
    EXPECT_EQ(binary::detail::_pack<uint32_t>(0x01020304, LITTLE, BIG), bytesOf({1, 2, 3, 4}));
    EXPECT_EQ(binary::detail::_unpack<uint8_t>(bytesOf({0x80}).data(), BIG, LITTLE), 0x80);
    EXPECT_EQ(
        binary::detail::_unpack<uint64_t>(bytesOf({1, 2, 3, 4, 5, 6, 7, 8}).data(), BIG, LITTLE),
        0x0102030405060708U);
}

}  // namespace
