// SPDX-License-Identifier: MIT
#include "SoundClientProcessor.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "log.h"

namespace {

// Codes of getNextHeader. 4 is not assigned.
enum Header : int32_t {
    NONE = -1,
    DATA = 0,
    END = 1,
    CANCEL = 2,
    BEGIN = 3,
    EPD_ON = 5,
    EPD_OFF = 6
};

struct Keyword {
    std::string_view text;
    Header header;
};

// No keyword contains another, so at most one stands at any offset.
constexpr Keyword KEYWORDS[] = {{"DATA", DATA},   {"END", END},       {"CANCEL", CANCEL},
                                {"BEGIN", BEGIN}, {"EPD_ON", EPD_ON}, {"EPD_OFF", EPD_OFF}};
constexpr char FIRST_LETTERS[] = "DECB";
constexpr size_t LONGEST_KEYWORD = 7;  // "EPD_OFF"
constexpr size_t DATA_KEYWORD = 4;

// A command is skipped by the length of its reference text and this many bytes more.
// Kept: that fits two CR LF behind the keyword; a client that sends two LF loses the first two
// bytes of what follows.
constexpr size_t COMMAND_EXTRA = 2;

// Bytes between the digits of a DATA header and its payload; never looked at.
constexpr size_t DATA_TERMINATOR = 2;

// The buffer is made for a whole DATA block at once, and for the read that may come with its last
// byte, so that it need not be moved while it fills. Beyond 16 MB it grows with what comes: to
// announce 4 GB costs a client nothing.
constexpr size_t RESERVE_LIMIT = 16 << 20;
constexpr size_t LAST_READ = 1024;

// Frames kept at most: ten minutes of audio. Nothing takes them while the link is up.
constexpr size_t SEND_QUE_LIMIT = 60000;

bool isBlank(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

// The earliest keyword at or behind from, its offset in pos; null, pos untouched, without one.
// Kept: inside words too, as the END of "SEND".
const Keyword* findKeyword(std::string_view bytes, size_t from, size_t& pos) {
    for (size_t i = bytes.find_first_of(FIRST_LETTERS, from); i != std::string_view::npos;
         i = bytes.find_first_of(FIRST_LETTERS, i + 1)) {
        for (const Keyword& keyword : KEYWORDS) {
            if (bytes.substr(i, keyword.text.size()) == keyword.text) {
                pos = i;
                return &keyword;
            }
        }
    }
    return nullptr;
}

}  // namespace

// Kept: what is glued to the keyword is part of the keyword, as in "DATAx 640".
// A length that is no number, or more than any count of 32 bits can exceed, never becomes a block:
// BROKEN waits for ever.
void SoundClientProcessor::DataHeader::read(std::string_view block) {
    for (; phase < COMPLETE && offset < block.size(); ++offset) {
        const char byte = block[offset];
        if (phase == WORD && isBlank(byte))
            phase = GAP;
        if (phase == WORD || (phase == GAP && isBlank(byte)))
            continue;
        if (isDigit(byte)) {
            phase = DIGITS;
            const uint64_t value = uint64_t{length} * 10 + static_cast<uint64_t>(byte - '0');
            length = static_cast<uint32_t>(value);
            if (value > UINT32_MAX)
                phase = BROKEN;
            continue;
        }
        phase = phase == DIGITS && length < UINT32_MAX ? COMPLETE : BROKEN;
        break;
    }
}

// What the bytes are known to be changes only when this succeeds as a whole.
void SoundClientProcessor::process() {
    if (recv_data_.empty())
        return;
    Unread unread{{recv_data_.data(), recv_data_.size()}, forgotten_, 0, data_header_};
    while (takeBlock(unread)) {
    }
    const auto consumed = recv_data_.size() - unread.bytes.size();
    recv_data_.erase(
        recv_data_.begin(),
        std::next(recv_data_.begin(), static_cast<ptrdiff_t>(consumed + unread.searched)));
    forgotten_ = unread.forgotten + unread.searched;
    data_header_ = unread.data_header;
    if (data_header_.phase == DataHeader::BROKEN)
        recv_data_.resize(DATA_KEYWORD);
    if (data_header_.phase == DataHeader::COMPLETE)
        recv_data_.reserve(
            std::min(data_header_.offset + DATA_TERMINATOR + data_header_.length + LAST_READ,
                     RESERVE_LIMIT));
}

bool SoundClientProcessor::takeBlock(Unread& unread) {
    size_t pos = 0;
    const Keyword* const keyword = findKeyword(unread.bytes, unread.searched, pos);
    if (!keyword) {
        // Only the last bytes can still become a keyword.
        unread.searched = unread.bytes.size() - std::min(unread.bytes.size(), LONGEST_KEYWORD - 1);
        return false;
    }
    // Kept: bytes ahead of a keyword are dropped with its block.
    unread.searched = pos;
    if (keyword->header == DATA) {
        // Kept: said at every attempt, also while the block is not complete.
        LOG_AT(logDEBUG) << "receive sound client packet : data.";
        return takeDataBlock(unread, pos);
    }
    takeCommand(unread, pos, keyword->header);
    return true;
}

bool SoundClientProcessor::takeDataBlock(Unread& unread, size_t data_pos) {
    const std::string_view block = unread.bytes.substr(data_pos);
    DataHeader& header = unread.data_header;
    header.read(block);
    if (header.phase != DataHeader::DIGITS && header.phase != DataHeader::COMPLETE)
        return false;

    // Kept: the payload is measured against everything received, the bytes ahead of the keyword
    // included. A block at the very front is therefore taken only with one byte more than its
    // payload, a block behind other bytes as soon as it is complete.
    const auto received = static_cast<uint32_t>(unread.forgotten + unread.bytes.size());
    const size_t start = header.offset + DATA_TERMINATOR;
    if (header.phase == DataHeader::DIGITS || start > block.size()) {
        // Kept: where the payload begins is not known yet and counts as -1; if the digits so far
        // give no more than what was received, the parser gives up instead of waiting.
        if (header.length >= received + 1)
            return false;
        throw std::out_of_range("sound client data header is cut");
    }
    if (header.length >= received - static_cast<uint32_t>(start) ||
        header.length > block.size() - start)
        return false;
    const std::string_view payload = block.substr(start, header.length);
    consume(unread, data_pos + start + payload.size());
    addDataFrames(payload);
    data_state_ = 0;
    return true;
}

// Kept: a command is acted on as soon as its keyword is there. If the bytes behind it have not
// arrived, everything received is dropped with it.
// Kept: BEGIN gives TOF ahead of START, END and CANCEL give END ahead of EOF.
void SoundClientProcessor::takeCommand(Unread& unread, size_t data_pos, int32_t header) {
    switch (header) {
        case END:
            LOG_AT(logDEBUG) << "receive sound client packet : end.";
            skipCommand(unread, data_pos, "END\n\n");
            addEndFrame();
            addEOFFrame();
            data_state_ = 1;
            break;
        case CANCEL:
            LOG_AT(logDEBUG) << "receive sound client packet : cancel.";
            skipCommand(unread, data_pos, "CANCEL\n\n");
            addEndFrame();
            addEOFFrame();
            data_state_ = 2;
            break;
        case BEGIN:
            LOG_AT(logDEBUG) << "receive sound client packet : begin.";
            skipCommand(unread, data_pos, "BEGIN\n\n");
            addTOFFrame();
            addStartFrame();
            data_state_ = 3;
            break;
        case EPD_ON:
            LOG_AT(logINFO) << "receive sound client packet : epd_on.";
            skipCommand(unread, data_pos, "EPD_ON\n\n");
            epd_state_ = true;
            break;
        case EPD_OFF:
            LOG_AT(logINFO) << "receive sound client packet : epd_off.";
            skipCommand(unread, data_pos, "EPD_OFF\n\n");
            epd_state_ = false;
            break;
    }
}

void SoundClientProcessor::skipCommand(Unread& unread, size_t data_pos,
                                       std::string_view reference) {
    // Kept: any bytes behind the keyword are skipped; they are not looked at.
    const size_t block_size = unread.bytes.substr(data_pos).size();
    consume(unread, data_pos + std::min(reference.size() + COMMAND_EXTRA, block_size));
}

void SoundClientProcessor::consume(Unread& unread, size_t count) {
    unread = Unread{unread.bytes.substr(count), 0, 0, {}};
}

// Runs one step on a text of the caller's, and removes from it what the step consumed.
template <typename Step>
bool SoundClientProcessor::onText(std::string& src, Step step) {
    Unread unread{src, 0, 0, {}};
    const bool done = step(unread);
    src.erase(0, src.size() - unread.bytes.size());
    return done;
}

bool SoundClientProcessor::processData(std::string& src) {
    return onText(src, [this](Unread& unread) { return takeBlock(unread); });
}

bool SoundClientProcessor::processDataBlock(std::string& src, const size_t& data_pos) {
    return onText(src, [&](Unread& unread) { return takeDataBlock(unread, data_pos); });
}

bool SoundClientProcessor::processCmdBlock(std::string& src, const size_t& data_pos,
                                           const std::string& cmd) {
    return onText(src, [&](Unread& unread) { return skipCommand(unread, data_pos, cmd), true; });
}

bool SoundClientProcessor::processCommand(std::string& src, size_t data_pos, int32_t header) {
    return onText(src, [&](Unread& unread) { return takeCommand(unread, data_pos, header), true; });
}

bool SoundClientProcessor::processBeginBlock(std::string& src, const size_t& data_pos) {
    return processCommand(src, data_pos, BEGIN);
}

bool SoundClientProcessor::processEndBlock(std::string& src, const size_t& data_pos) {
    return processCommand(src, data_pos, END);
}

bool SoundClientProcessor::processCancelBlock(std::string& src, const size_t& data_pos) {
    return processCommand(src, data_pos, CANCEL);
}

bool SoundClientProcessor::processEpdOnBlock(std::string& src, const size_t& data_pos) {
    return processCommand(src, data_pos, EPD_ON);
}

bool SoundClientProcessor::processEpdOffBlock(std::string& src, const size_t& data_pos) {
    return processCommand(src, data_pos, EPD_OFF);
}

int32_t SoundClientProcessor::getNextHeader(const std::string& src, size_t& pos) {
    const Keyword* const keyword = findKeyword(src, 0, pos);
    return keyword ? keyword->header : NONE;
}

int SoundClientProcessor::initialize() {
    recv_data_.clear();
    send_que_.clear();
    data_state_ = 1;
    epd_state_ = true;
    forgotten_ = 0;
    data_header_ = {};
    dropping_ = false;
    return 1;
}

void SoundClientProcessor::addReceiveData(const ReceiveData& data) {
    recv_data_.insert(recv_data_.end(), data.begin(), data.end());
}

bool SoundClientProcessor::getSendData(ReceiveData& data) {
    if (send_que_.empty())
        return false;
    data = std::move(send_que_.front());
    send_que_.pop_front();
    return true;
}

bool SoundClientProcessor::getEpdState() {
    return epd_state_;
}

void SoundClientProcessor::addStartFrame() {
    addFrame(FRAME_START, {});
}

void SoundClientProcessor::addTOFFrame() {
    addFrame(FRAME_TOF, {});
}

void SoundClientProcessor::addEOFFrame() {
    addFrame(FRAME_EOF, {});
}

void SoundClientProcessor::addEndFrame() {
    addFrame(FRAME_END, {});
}

void SoundClientProcessor::addDataFrame(const std::string& data) {
    addDataFrames(data);
}

void SoundClientProcessor::addDataFrames(std::string_view data) {
    for (; !data.empty();
         data.remove_prefix(std::min<size_t>(data.size(), framesync::MMSE_DATA_SIZE)))
        addFrame(FRAME_DATA, data.substr(0, framesync::MMSE_DATA_SIZE));
}

// payload: at most 320 bytes.
void SoundClientProcessor::addFrame(int32_t type, std::string_view payload) {
    ReceiveData frame(framesync::MMSE_FRAME_SIZE);
    std::memcpy(frame.data(), &type, framesync::HEADER_SIZE);
    std::copy(payload.begin(), payload.end(), frame.begin() + framesync::HEADER_SIZE);
    send_que_.push_back(std::move(frame));
    if (send_que_.size() <= SEND_QUE_LIMIT)
        return;
    send_que_.pop_front();
    if (!dropping_)
        LOG_AT(logWARNING) << "sound client frame queue is full. oldest frames are dropped.";
    dropping_ = true;
}
