// SPDX-License-Identifier: MIT
#include "DataBuilder.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <new>
#include <stdexcept>

namespace {

// A payload of "size minus 4" bytes does not exist for less than a header.
void requireHeader(unsigned int size) {
    if (size < framesync::HEADER_SIZE)
        throw std::bad_alloc();
}

bool holds(const ByteArray& bytes, const char* place) {
    return std::less_equal<>()(bytes.data(), place) &&
           std::less<>()(place, bytes.data() + bytes.size());
}

// The 44 bytes in front of the samples. The target stores numbers least significant byte first,
// as the format asks for, so the record is copied as it stands.
struct WAVHeader {
    char riff[4] = {'R', 'I', 'F', 'F'};
    uint32_t riff_size = 0;  // bytes behind this field
    char wave[4] = {'W', 'A', 'V', 'E'};
    char fmt[4] = {'f', 'm', 't', ' '};
    uint32_t fmt_size = 16;     // bytes up to the data chunk
    uint16_t audio_format = 1;  // PCM
    uint16_t channels = 1;
    uint32_t sample_rate = 16000;  // Hz
    uint32_t byte_rate = 32000;    // bytes a second
    uint16_t block_align = 2;      // bytes a sample
    uint16_t bits_per_sample = 16;
    char data[4] = {'d', 'a', 't', 'a'};
    uint32_t data_size = 0;  // bytes of samples
};
static_assert(sizeof(WAVHeader) == 44);

}  // namespace

template <typename T>
bool FrameSyncBuilder<T>::build(const char* data, unsigned int size, int from, int to) {
    from_ = from;
    to_ = to;
    requireHeader(size);
    header_ = binary::unpack<int>(data, from, to);
    const unsigned int payload = size - framesync::HEADER_SIZE;
    binary::requireWholeElements(static_cast<int>(payload), sizeof(T));

    ByteArray own;  // the input, if it is ours and would change under the copy
    if (holds(build_array_, data)) {
        own.assign(data, data + size);
        data = own.data();
    }
    build_array_.resize(size);
    std::memcpy(build_array_.data(), &header_, framesync::HEADER_SIZE);
    binary::copyElements<binary::Bits<T>>(build_array_.data() + framesync::HEADER_SIZE,
                                          data + framesync::HEADER_SIZE, payload / sizeof(T), from,
                                          to);
    if (data_wanted_)
        unpackData();
    return true;
}

template <typename T>
int FrameSyncBuilder<T>::headerOf(const char* data, unsigned int size) {
    requireHeader(size);
    const int header = binary::unpack<int>(data);
    binary::requireWholeElements(static_cast<int>(size - framesync::HEADER_SIZE), sizeof(T));
    return header;
}

template <typename T>
int FrameSyncBuilder<T>::getHeader() {
    return header_;
}

template <typename T>
const std::vector<T>& FrameSyncBuilder<T>::getData() {
    if (!data_wanted_) {
        data_wanted_ = true;
        unpackData();
    }
    return data_;
}

template <typename T>
void FrameSyncBuilder<T>::unpackData() {
    const size_t payload = build_array_.empty() ? 0 : build_array_.size() - framesync::HEADER_SIZE;
    data_.resize(payload / sizeof(T));
    if (payload > 0)
        std::memcpy(data_.data(), build_array_.data() + framesync::HEADER_SIZE, payload);
}

template <typename T>
const ByteArray& FrameSyncBuilder<T>::getBuildData() {
    return build_array_;
}

template class FrameSyncBuilder<short>;
template class FrameSyncBuilder<float>;

bool WAVFileBuilder::build(const char* data, unsigned int size, int from, int to) {
    // An empty vector's data() may be null; a file without samples is none the worse for it.
    const char* const source = size == 0 ? "" : data;
    // Kept: the same pair of orders both ways gives the input back; the round trip only refuses
    // odd sizes and unknown byte orders.
    std::vector<unsigned short> samples =
        binary::unpack<unsigned short>(source, static_cast<int>(size), from, to);
    ByteArray packed;
    if (!samples.empty())
        packed = binary::pack<unsigned short>(samples.data(), static_cast<int>(samples.size()),
                                              from, to);
    ByteArray image = createHeader(static_cast<int>(packed.size()));
    image.insert(image.end(), packed.begin(), packed.end());
    build_array_ = std::move(image);
    return true;
}

const ByteArray& WAVFileBuilder::getBuildData() {
    return build_array_;
}

void WAVFileBuilder::save(const std::string& file_name) {
    std::ofstream file(file_name, std::ios::binary | std::ios::trunc);
    if (!file)
        throw std::runtime_error("File Open Error.");
    file.write(build_array_.data(), static_cast<std::streamsize>(build_array_.size()));
    file.close();
}

ByteArray WAVFileBuilder::createHeader(const int& size) {
    WAVHeader header;
    header.riff_size = static_cast<uint32_t>(size + 36);
    header.data_size = static_cast<uint32_t>(size);
    const char* const bytes = reinterpret_cast<const char*>(&header);
    return ByteArray(bytes, bytes + sizeof(header));
}
