// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_DATABUILDER_H
#define TOLVANEV_DATABUILDER_H

#include <string>
#include <vector>

#include "BinaryUtil.h"
#include "common.h"

// Turns a block of bytes into another one. Built anew by each build; waits for nothing.
class BuilderInterface {
  public:
    virtual ~BuilderInterface() = default;
    // from, to: binary::endian_ byte orders.
    virtual bool build(const char* data, unsigned int size, int from, int to) = 0;
    virtual const ByteArray& getBuildData() = 0;
};

// Takes one frame-sync frame apart and writes it again in another byte order: equal orders give
// the input back, different ones reverse the 4 header bytes and the bytes of every payload value.
// T is the payload's value type, short (audio) or float (voice activity).
//
// Throws std::bad_alloc for fewer than 4 bytes (nothing is read then), and std::invalid_argument
// as the packing functions do; the results of the last build then stay partly as they were.
template <typename T>
class FrameSyncBuilder : public BuilderInterface {
  public:
    FrameSyncBuilder() = default;

    // data may be bytes of the last build; size: of the whole frame, header included. Always true.
    bool build(const char* data, unsigned int size, int from, int to) override;
    int getHeader();
    // The payload's values. This reference and the next one show the last build, also a later one.
    // Values are only made from the first call on: most frames are never asked for theirs.
    const std::vector<T>& getData();
    // The frame as bytes, least significant byte first.
    const ByteArray& getBuildData() override;

    // The header that a little-endian build of the frame would yield, without building it. Throws
    // what that build would throw.
    static int headerOf(const char* data, unsigned int size);

  private:
    int from_ = binary::LITTLE;
    int to_ = binary::LITTLE;
    void unpackData();

    int header_ = 0;
    bool data_wanted_ = false;  // getData was called: data_ follows each build
    std::vector<T> data_;
    ByteArray build_array_;
};

// Makes the image of a RIFF/WAVE file (PCM, mono, 16000 Hz, 16 bit) from raw samples.
// A failed build throws std::invalid_argument and keeps the previous image.
class WAVFileBuilder : public BuilderInterface {
  public:
    WAVFileBuilder() = default;

    // data: size bytes of 16-bit samples, least significant byte first.
    // Kept: from and to are checked but change nothing: samples pass through unchanged.
    bool build(const char* data, unsigned int size, int from, int to) override;
    // The whole file: 44-byte header and samples; empty before the first build.
    const ByteArray& getBuildData() override;
    // Writes the image, replacing the file. Throws std::runtime_error when it cannot be opened;
    // errors while writing are not reported.
    void save(const std::string& file_name);

  private:
    ByteArray createHeader(const int& size);

    ByteArray build_array_;
};

#endif
