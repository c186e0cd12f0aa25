// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_STREAM_MAKER_H
#define TOLVANEV_TESTS_STREAM_MAKER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

// One pseudo-random byte stream of a sound client and the cuts in which it arrives: keywords,
// near-keywords, DATA blocks, digits, blanks, any bytes. The same seed gives the same stream on
// every machine.
class StreamMaker {
  public:
    explicit StreamMaker(uint32_t seed) : random_(seed) {
        for (size_t pieces = 1 + below(20); pieces > 0; --pieces)
            stream_ += piece();
        const size_t scales[] = {3, 12, 40, 200, 1024};
        longest_cut_ = scales[below(std::size(scales))];
    }

    const std::string& stream() const { return stream_; }

    // Where the read ends that begins at offset: often right behind the digits of a DATA header.
    size_t cutBehind(size_t offset) {
        const auto mark = std::upper_bound(marks_.begin(), marks_.end(), offset);
        const size_t random_cut = std::min(stream_.size(), offset + 1 + below(longest_cut_));
        return mark != marks_.end() && below(3) == 0 ? std::min(stream_.size(), *mark) : random_cut;
    }

  private:
    size_t below(size_t limit) { return random_() % limit; }

    template <typename T, size_t Size>
    T oneOf(const T (&all)[Size]) {
        return all[below(Size)];
    }

    std::string piece() {
        switch (below(10)) {
            case 0:
            case 1:
            case 2:
                return keyword() + terminator();
            case 3:
            case 4:
            case 5:
                return data();
            case 6:
                return nearKeyword();
            case 7:
                return noise(below(30));
            case 8:
                return std::to_string(below(400));
            default:
                return blanks(below(4));
        }
    }

    std::string keyword() {
        const char* const all[] = {"DATA", "END", "CANCEL", "BEGIN", "EPD_ON", "EPD_OFF"};
        return oneOf(all);
    }

    std::string nearKeyword() {
        std::string word = keyword();
        if (below(4) == 0)
            word[below(word.size())] = 'E';
        return word.substr(0, below(word.size()) + 1);
    }

    std::string terminator() {
        const char* const all[] = {"\r\n\r\n", "\r\n\r\n", "\n\n", "\r\n", "", "\n\n\n\n\n"};
        return oneOf(all);
    }

    // A DATA block; now and then its payload is a byte or two shorter or longer than it says.
    std::string data() {
        const size_t lengths[] = {below(10), below(10), below(10), below(40), below(40), below(400),
                                  0,         1,         319,       320,       321,       640};
        const size_t length = oneOf(lengths);
        const size_t given = below(6) ? length : length + below(4) - std::min<size_t>(length, 2);
        const std::string header = "DATA" + glued() + blanks(1 + below(2)) + digits(length);
        marks_.push_back(stream_.size() + header.size() + below(2));
        return header + noise(2) + noise(given);
    }

    std::string glued() { return below(12) ? "" : noise(1 + below(5)); }

    std::string digits(size_t length) {
        switch (below(40)) {
            case 0:
                return "x" + std::to_string(length);
            case 1:
                return std::to_string(4294967290 + below(12));
            case 2:
            case 3:
                return "00" + std::to_string(length);
            default:
                return std::to_string(length);
        }
    }

    std::string blanks(size_t count) {
        std::string bytes;
        for (; count > 0; --count)
            bytes += oneOf({' ', '\t', '\r', '\n'});
        return bytes;
    }

    // Any bytes, with a liking for those that keywords and headers are made of.
    std::string noise(size_t count) {
        static const char favourites[] = "\0\0\r\n \v\fENDBGICALTPF_O0123456789-";
        std::string bytes;
        while (bytes.size() < count) {
            if (below(20) == 0)
                bytes += keyword();
            else
                bytes += below(3) ? static_cast<char>(below(256)) : oneOf(favourites);
        }
        return bytes.substr(0, count);
    }

    std::mt19937 random_;
    std::string stream_;
    std::vector<size_t> marks_;  // offsets at which a DATA header is cut, ascending
    size_t longest_cut_ = 1;
};

#endif
