// SPDX-License-Identifier: MIT
#include "FrameCounter.h"

#include <sstream>

#include "BinaryUtil.h"

int FrameCounter::count(const std::vector<char>& frame) {
    if (frame.size() < framesync::HEADER_SIZE)
        binary::refuseSize(static_cast<long>(frame.size()), sizeof(int));
    const int header = binary::unpack<int>(frame.data());
    switch (header) {
        case FRAME_DATA:
            ++data;
            break;
        case FRAME_START:
            ++start;
            break;
        case FRAME_END:
            ++end;
            break;
        case FRAME_TOF:
            ++tof;
            break;
        case FRAME_EOF:
            ++eof;
            break;
        default:
            ++unknown;
    }
    return header;
}

void FrameCounter::reset() {
    data = eof = tof = start = end = 0;
}

std::string FrameCounter::str() {
    std::ostringstream text;
    text << "data:" << data << " start:" << start << " end:" << end << " tof:" << tof
         << " eof:" << eof << " unknown:" << unknown;
    return text.str();
}
