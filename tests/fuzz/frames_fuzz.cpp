// SPDX-License-Identifier: MIT
// Frames of any size and content: both ways of reading the header agree, equal byte orders give the
// input back, different ones applied twice do too, and a frame is refused by all or by none.
#include <new>
#include <stdexcept>
#include <vector>

#include "DataBuilder.h"
#include "FrameCounter.h"
#include "fuzz.h"

namespace {

// False when the frame is refused.
template <typename T>
bool builds(FrameSyncBuilder<T>& builder, const std::vector<char>& frame, int to) {
    try {
        return builder.build(frame.data(), static_cast<unsigned>(frame.size()), binary::LITTLE, to);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

template <typename T>
void check(const std::vector<char>& frame) {
    FrameSyncBuilder<T> builder;
    const bool good = frame.size() >= 4 && (frame.size() - 4) % sizeof(T) == 0;
    REQUIRE(builds(builder, frame, binary::LITTLE) == good);
    if (!good)
        return;
    REQUIRE(builder.getBuildData() == frame);
    const auto size = static_cast<unsigned>(frame.size());
    REQUIRE(FrameSyncBuilder<T>::headerOf(frame.data(), size) == builder.getHeader());
    FrameCounter counter;
    REQUIRE(counter.count(frame) == builder.getHeader());
    REQUIRE(builds(builder, frame, binary::BIG));
    const ByteArray swapped = builder.getBuildData();
    REQUIRE(builds(builder, swapped, binary::BIG));
    REQUIRE(builder.getBuildData() == frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<char> frame(data, data + size);
    check<short>(frame);
    check<float>(frame);
    return 0;
}
