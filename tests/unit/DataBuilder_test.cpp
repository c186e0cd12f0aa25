// SPDX-License-Identifier: MIT
#include "DataBuilder.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "frames.h"
#include "temp_dir.h"

namespace {

using binary::BIG;
using binary::LITTLE;

static_assert(std::is_abstract_v<BuilderInterface>);
static_assert(std::has_virtual_destructor_v<BuilderInterface>);
static_assert(std::is_base_of_v<BuilderInterface, FrameSyncBuilder<short>>);
static_assert(std::is_base_of_v<BuilderInterface, FrameSyncBuilder<float>>);
static_assert(std::is_base_of_v<BuilderInterface, WAVFileBuilder>);

constexpr int ORDERS[] = {BIG, LITTLE};

// Builds from an array of bytes; a builder's operations as its owners see them.
bool build(BuilderInterface& builder, const ByteArray& bytes, int from = LITTLE, int to = LITTLE) {
    return builder.build(bytes.data(), static_cast<unsigned int>(bytes.size()), from, to);
}

// The text of the std::invalid_argument that building throws; empty if it throws none.
std::string refusal(BuilderInterface& builder, const char* data, unsigned int size, int from,
                    int to) {
    try {
        builder.build(data, size, from, to);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return {};
}

std::string refusal(BuilderInterface& builder, const ByteArray& bytes, int from = LITTLE,
                    int to = LITTLE) {
    return refusal(builder, bytes.data(), static_cast<unsigned int>(bytes.size()), from, to);
}

class FrameSyncBuilderTest : public testing::Test {
  protected:
    FrameSyncBuilder<short> audio_;
    FrameSyncBuilder<float> vad_;
};

TEST_F(FrameSyncBuilderTest, HoldsNothingBeforeTheFirstBuild) {
    EXPECT_EQ(audio_.getHeader(), 0);
    EXPECT_TRUE(audio_.getData().empty());
    EXPECT_TRUE(audio_.getBuildData().empty());
    EXPECT_EQ(vad_.getHeader(), 0);
    EXPECT_TRUE(vad_.getBuildData().empty());
}

TEST_F(FrameSyncBuilderTest, BuildsAnEofFrame) {
    ByteArray frame = bytesOf({0x0A, 0x00, 0x00, 0x00});
    frame.resize(324);
    EXPECT_TRUE(build(audio_, frame));
    EXPECT_EQ(audio_.getHeader(), 10);
    EXPECT_EQ(audio_.getData(), std::vector<short>(160));
    EXPECT_EQ(audio_.getBuildData(), frame);
}

TEST_F(FrameSyncBuilderTest, ReadsSamplesLeastSignificantByteFirst) {
    build(audio_, bytesOf({0, 0, 0, 0, 0x02, 0x01, 0xFF, 0xFF, 0x00, 0x80}));
    EXPECT_EQ(audio_.getData(), (std::vector<short>{0x0102, -1, -32768}));
}

TEST_F(FrameSyncBuilderTest, TakesAnyHeader) {
    build(audio_, bytesOf({0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(audio_.getHeader(), -1);
    build(audio_, makeFrame(7));
    EXPECT_EQ(audio_.getHeader(), 7);
}

TEST_F(FrameSyncBuilderTest, BuildsAVadFrameAsFloats) {
    const ByteArray frame = frameWith(0, std::string(96, '\0') + std::string("\0\0\x80\x3F", 4));
    build(vad_, frame);
    std::vector<float> expected(25);
    expected.back() = 1.0F;
    EXPECT_EQ(vad_.getData(), expected);
    EXPECT_EQ(vad_.getBuildData(), frame);
}

TEST_F(FrameSyncBuilderTest, BuildsAVadFrameAsShortsToo) {
    const ByteArray frame = makeFrame(1, 100, 'x');
    build(audio_, frame);
    EXPECT_EQ(audio_.getHeader(), 1);
    EXPECT_EQ(audio_.getData(), std::vector<short>(50, 0x7878));
    EXPECT_EQ(audio_.getBuildData(), frame);
}

TEST_F(FrameSyncBuilderTest, BuildsAFrameWithoutPayload) {
    const ByteArray frame = bytesOf({9, 0, 0, 0});
    EXPECT_TRUE(build(audio_, frame));
    EXPECT_EQ(audio_.getHeader(), 9);
    EXPECT_TRUE(audio_.getData().empty());
    EXPECT_EQ(audio_.getBuildData(), frame);
}

TEST_F(FrameSyncBuilderTest, BuildsAFrameWithoutPayloadInTheOtherOrder) {
    EXPECT_TRUE(build(vad_, bytesOf({9, 0, 0, 0}), LITTLE, BIG));
    EXPECT_TRUE(vad_.getData().empty());
    EXPECT_EQ(vad_.getBuildData(), bytesOf({0, 0, 0, 9}));
}

TEST_F(FrameSyncBuilderTest, EqualOrdersGiveTheFrameBack) {
    const ByteArray frame = frameWith(2, "abcdefgh");
    for (const int order : ORDERS) {
        build(audio_, frame, order, order);
        EXPECT_EQ(audio_.getHeader(), 2);
        EXPECT_EQ(audio_.getBuildData(), frame);
    }
}

// This is how a suppressed frame goes back to the voice server.
TEST_F(FrameSyncBuilderTest, DifferentOrdersReverseTheHeaderAndEverySample) {
    for (const int from : ORDERS) {
        build(audio_, frameWith(1, "abcd"), from, 1 - from);
        EXPECT_EQ(audio_.getHeader(), 0x01000000);
        EXPECT_EQ(audio_.getData(), (std::vector<short>{0x6162, 0x6364}));
        EXPECT_EQ(audio_.getBuildData(), bytesOf(std::string("\0\0\0\1badc", 8)));
    }
}

TEST_F(FrameSyncBuilderTest, DifferentOrdersReverseEveryFloat) {
    build(vad_, frameWith(10, "abcdefgh"), LITTLE, BIG);
    EXPECT_EQ(vad_.getBuildData(), bytesOf(std::string("\0\0\0\x0A"
                                                       "dcbahgfe",
                                                       12)));
}

TEST_F(FrameSyncBuilderTest, ALaterBuildReplacesTheEarlierOne) {
    build(audio_, makeFrame(1));
    build(audio_, frameWith(2, "ab"));
    EXPECT_EQ(audio_.getHeader(), 2);
    EXPECT_EQ(audio_.getData(), std::vector<short>{0x6261});
    EXPECT_EQ(audio_.getBuildData(), frameWith(2, "ab"));
}

// Whoever keeps a reference sees each later build through it.
TEST_F(FrameSyncBuilderTest, ReferencesShowTheLastBuild) {
    const std::vector<short>& data = audio_.getData();
    const ByteArray& bytes = audio_.getBuildData();
    EXPECT_TRUE(data.empty());
    build(audio_, frameWith(1, "abcd"));
    EXPECT_EQ(data, (std::vector<short>{0x6261, 0x6463}));
    EXPECT_EQ(bytes, frameWith(1, "abcd"));
    build(audio_, frameWith(2, "ef"), LITTLE, BIG);
    EXPECT_EQ(data, std::vector<short>{0x6566});
    build(audio_, frameWith(2, ""));
    EXPECT_TRUE(data.empty());
    EXPECT_EQ(bytes, frameWith(2, ""));
}

TEST_F(FrameSyncBuilderTest, AFailedBuildLeavesTheData) {
    build(audio_, frameWith(1, "abcd"));
    const std::vector<short>& data = audio_.getData();
    const ByteArray odd = frameWith(1, "abc");
    EXPECT_THROW(audio_.build(odd.data(), static_cast<unsigned>(odd.size()), LITTLE, LITTLE),
                 std::invalid_argument);
    EXPECT_EQ(data, (std::vector<short>{0x6261, 0x6463}));
}

TEST_F(FrameSyncBuilderTest, BuildsFromItsOwnBytes) {
    build(audio_, frameWith(1, "abcdefgh"));
    const ByteArray& own = audio_.getBuildData();
    audio_.build(own.data(), static_cast<unsigned>(own.size()), LITTLE, BIG);
    EXPECT_EQ(own, bytesOf(std::string("\0\0\0\1badcfehg", 12)));
    audio_.build(own.data() + 4, 8, LITTLE, LITTLE);  // a part: the first payload is the header
    EXPECT_EQ(audio_.getHeader(), 0x63646162);
    EXPECT_EQ(own, bytesOf("badcfehg"));
    audio_.build(own.data() + 2, 6, LITTLE, BIG);
    EXPECT_EQ(own, bytesOf("efcdgh"));
    EXPECT_EQ(audio_.getData(), std::vector<short>{0x6867});
}

TEST_F(FrameSyncBuilderTest, BuildsFromItsOwnData) {
    build(audio_, frameWith(1, "abcdefgh"));
    const std::vector<short>& data = audio_.getData();
    audio_.build(reinterpret_cast<const char*>(data.data()), 8, LITTLE, LITTLE);
    EXPECT_EQ(audio_.getBuildData(), bytesOf("abcdefgh"));
    EXPECT_EQ(data, (std::vector<short>{0x6665, 0x6867}));
}

TEST_F(FrameSyncBuilderTest, FailsToAllocateForLessThanAHeader) {
    const ByteArray frame = makeFrame(1);
    for (unsigned int size = 0; size < 4; ++size)
        EXPECT_THROW(audio_.build(frame.data(), size, LITTLE, LITTLE), std::bad_alloc) << size;
    EXPECT_THROW(vad_.build(frame.data(), 3, LITTLE, LITTLE), std::bad_alloc);
}

TEST_F(FrameSyncBuilderTest, TouchesNoMemoryForLessThanAHeader) {
    EXPECT_THROW(audio_.build(nullptr, 3, LITTLE, LITTLE), std::bad_alloc);
    EXPECT_THROW(audio_.build(nullptr, 0, LITTLE, LITTLE), std::bad_alloc);
}

TEST_F(FrameSyncBuilderTest, RefusesAPayloadThatIsNoWholeSamples) {
    EXPECT_EQ(refusal(audio_, makeFrame(0, 99)),
              "Invalid data size.\n DataType : 2\n ArraySize: 99\n");
    EXPECT_EQ(refusal(vad_, makeFrame(0, 98)),
              "Invalid data size.\n DataType : 4\n ArraySize: 98\n");
}

// The header is read before the payload turns out to be bad.
TEST_F(FrameSyncBuilderTest, ARefusedPayloadLeavesTheNewHeaderBesideTheOldFrame) {
    build(audio_, frameWith(1, "abcd"));
    EXPECT_NE(refusal(audio_, makeFrame(2, 3)), "");
    EXPECT_EQ(audio_.getHeader(), 2);
    EXPECT_EQ(audio_.getData(), (std::vector<short>{0x6261, 0x6463}));
    EXPECT_EQ(audio_.getBuildData(), frameWith(1, "abcd"));
}

TEST_F(FrameSyncBuilderTest, RefusesAnUnknownByteOrderAndKeepsTheOldFrame) {
    build(audio_, frameWith(1, "abcd"));
    EXPECT_EQ(refusal(audio_, makeFrame(2), 2, 1), "Invalid endian. from :2 to :1");
    EXPECT_EQ(refusal(audio_, makeFrame(2), 0, 5), "Invalid endian. from :0 to :5");
    EXPECT_EQ(audio_.getHeader(), 1);
    EXPECT_EQ(audio_.getBuildData(), frameWith(1, "abcd"));
}

TEST_F(FrameSyncBuilderTest, RefusesNull) {
    EXPECT_EQ(refusal(audio_, nullptr, 324, LITTLE, LITTLE), "Invalid argument arg is NULL.");
}

TEST_F(FrameSyncBuilderTest, HeaderAloneIsTheOneThatABuildYields) {
    for (const int type : {0, 1, 2, 9, 10, 7, -1})
        EXPECT_EQ(FrameSyncBuilder<short>::headerOf(makeFrame(type).data(), 324), type);
}

TEST_F(FrameSyncBuilderTest, HeaderAloneFailsAsABuildDoes) {
    using Builder = FrameSyncBuilder<short>;
    EXPECT_THROW(Builder::headerOf(makeFrame(0).data(), 3), std::bad_alloc);
    EXPECT_THROW(Builder::headerOf(makeFrame(0).data(), 103), std::invalid_argument);
    EXPECT_THROW(Builder::headerOf(nullptr, 324), std::invalid_argument);
}

class WAVFileBuilderTest : public testing::Test {
  protected:
    // The whole file for samples given as bytes.
    const ByteArray& image(const ByteArray& samples, int from = LITTLE, int to = LITTLE) {
        EXPECT_TRUE(build(wav_, samples, from, to));
        return wav_.getBuildData();
    }
    std::string imageText() { return {wav_.getBuildData().begin(), wav_.getBuildData().end()}; }

    WAVFileBuilder wav_;
    TempDir folder_;
};

const ByteArray FOUR_BYTES_IMAGE =
    bytesOf({0x52, 0x49, 0x46, 0x46, 0x28, 0x00, 0x00, 0x00, 0x57, 0x41, 0x56, 0x45,
             0x66, 0x6D, 0x74, 0x20, 0x10, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00,
             0x80, 0x3E, 0x00, 0x00, 0x00, 0x7D, 0x00, 0x00, 0x02, 0x00, 0x10, 0x00,
             0x64, 0x61, 0x74, 0x61, 0x04, 0x00, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04});

TEST_F(WAVFileBuilderTest, HoldsNothingBeforeTheFirstBuild) {
    EXPECT_TRUE(wav_.getBuildData().empty());
}

TEST_F(WAVFileBuilderTest, PutsAHeaderInFrontOfTheSamples) {
    EXPECT_EQ(image(bytesOf({1, 2, 3, 4})), FOUR_BYTES_IMAGE);
}

// The orders are checked, not applied: twice reversed is not reversed.
TEST_F(WAVFileBuilderTest, EveryPairOfOrdersGivesTheSameImage) {
    for (const int from : ORDERS)
        for (const int to : ORDERS)
            EXPECT_EQ(image(bytesOf({1, 2, 3, 4}), from, to), FOUR_BYTES_IMAGE);
}

TEST_F(WAVFileBuilderTest, BuildsAFileWithoutSamples) {
    ByteArray expected(FOUR_BYTES_IMAGE.begin(), FOUR_BYTES_IMAGE.begin() + 44);
    expected[4] = 36;
    expected[40] = 0;
    EXPECT_EQ(image(ByteArray()), expected);
    EXPECT_TRUE(wav_.build(nullptr, 0, LITTLE, BIG));
    EXPECT_EQ(wav_.getBuildData(), expected);
}

TEST_F(WAVFileBuilderTest, WritesLongSizesLeastSignificantByteFirst) {
    const ByteArray& file = image(ByteArray(0x12344, 'x'));
    EXPECT_EQ(ByteArray(file.begin() + 4, file.begin() + 8), bytesOf({0x68, 0x23, 0x01, 0x00}));
    EXPECT_EQ(ByteArray(file.begin() + 40, file.begin() + 44), bytesOf({0x44, 0x23, 0x01, 0x00}));
    EXPECT_EQ(file.size(), 44U + 0x12344U);
}

TEST_F(WAVFileBuilderTest, ALaterBuildReplacesTheEarlierOne) {
    image(ByteArray(320, 'x'));
    EXPECT_EQ(image(bytesOf({1, 2, 3, 4})), FOUR_BYTES_IMAGE);
}

TEST_F(WAVFileBuilderTest, RefusesHalfASampleAndKeepsTheOldImage) {
    image(bytesOf({1, 2, 3, 4}));
    EXPECT_EQ(refusal(wav_, ByteArray(5)), "Invalid data size.\n DataType : 2\n ArraySize: 5\n");
    EXPECT_EQ(wav_.getBuildData(), FOUR_BYTES_IMAGE);
}

TEST_F(WAVFileBuilderTest, RefusesAnUnknownByteOrderAndKeepsTheOldImage) {
    image(bytesOf({1, 2, 3, 4}));
    EXPECT_EQ(refusal(wav_, ByteArray(4), 2, 1), "Invalid endian. from :2 to :1");
    EXPECT_EQ(refusal(wav_, ByteArray(0), 1, 3), "Invalid endian. from :1 to :3");
    EXPECT_EQ(wav_.getBuildData(), FOUR_BYTES_IMAGE);
}

TEST_F(WAVFileBuilderTest, RefusesNull) {
    EXPECT_EQ(refusal(wav_, nullptr, 2, LITTLE, LITTLE), "Invalid argument arg is NULL.");
}

TEST_F(WAVFileBuilderTest, SaveWritesTheImage) {
    image(bytesOf({0x0A, 0x0D, 0x00, 0x1A}));
    wav_.save(folder_.path("out.wav"));
    EXPECT_EQ(folder_.read("out.wav"), imageText());
}

TEST_F(WAVFileBuilderTest, SaveReplacesAnExistingFile) {
    folder_.write("out.wav", std::string(1000, 'x'));
    image(bytesOf({1, 2}));
    wav_.save(folder_.path("out.wav"));
    EXPECT_EQ(folder_.read("out.wav"), imageText());
}

TEST_F(WAVFileBuilderTest, SaveBeforeAnyBuildLeavesAnEmptyFile) {
    folder_.write("old.wav", "old");
    wav_.save(folder_.path("old.wav"));
    wav_.save(folder_.path("new.wav"));
    EXPECT_TRUE(folder_.has("new.wav"));
    EXPECT_EQ(folder_.read("old.wav") + folder_.read("new.wav"), "");
}

TEST_F(WAVFileBuilderTest, SaveThrowsWhenTheFileCannotBeOpened) {
    image(bytesOf({1, 2}));
    try {
        wav_.save(folder_.path("missing/out.wav"));
        ADD_FAILURE() << "saved into a folder that does not exist";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "File Open Error.");
    }
    EXPECT_FALSE(folder_.has("missing"));
}

TEST_F(WAVFileBuilderTest, SaveDoesNotReportAFullDisk) {
    image(ByteArray(100000));
    EXPECT_NO_THROW(wav_.save("/dev/full"));
}

}  // namespace
