// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_SOUNDCLIENTPROCESSOR_H
#define TOLVANEV_SOUNDCLIENTPROCESSOR_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common.h"

// what() is "[SoundClientProcessorError] " and the message. Declared for the link above, which
// catches it; the parser throws none.
class SoundClientProcessorError : public std::runtime_error {
  public:
    explicit SoundClientProcessorError(const std::string& message)
        : std::runtime_error("[SoundClientProcessorError] " + message) {}
};

// The parser of the sound client's byte stream: finds command and DATA blocks by their keywords,
// turns them into frames and keeps the end-point detection (EPD) state. Owned by SoundClient, which
// adds what it received and calls process. Waits for nothing. Throws std::out_of_range when a DATA
// header is cut, inside its digits or less than two bytes behind them, and the digits so far give
// no more than the bytes received (see docs/behaviour.md).
//
// Nothing takes the frames while a link is up, so the queue is bounded: the oldest go first. Bytes
// are looked at once: process remembers how far it searched, and forgets what no later byte can
// turn into a block. The block format is a table in docs/protocols.md.
class SoundClientProcessor {
  public:
    SoundClientProcessor() = default;
    SoundClientProcessor(const SoundClientProcessor&) = delete;
    SoundClientProcessor& operator=(const SoundClientProcessor&) = delete;
    virtual ~SoundClientProcessor() = default;

    int initialize();  // EPD on, no bytes, no frames; 1
    void addReceiveData(const ReceiveData& data);
    // Handles every complete block received. When it throws, the received bytes stay as they were.
    void process();
    // Takes the oldest frame; false, data untouched, when there is none.
    bool getSendData(ReceiveData& data);
    bool getEpdState();

    // The steps of process on a text of the caller's: each removes what it consumed.
    // Handles the first block of src; false when there is none or it is not complete.
    bool processData(std::string& src);
    // The code of the earliest keyword and its offset in pos; -1, pos untouched, without one.
    int32_t getNextHeader(const std::string& src, size_t& pos);
    bool processDataBlock(std::string& src, const size_t& data_pos);
    // cmd: the reference text of the command, which tells how much is consumed. Always true.
    bool processCmdBlock(std::string& src, const size_t& data_pos, const std::string& cmd);
    bool processBeginBlock(std::string& src, const size_t& data_pos);
    bool processEndBlock(std::string& src, const size_t& data_pos);
    bool processCancelBlock(std::string& src, const size_t& data_pos);
    bool processEpdOnBlock(std::string& src, const size_t& data_pos);
    bool processEpdOffBlock(std::string& src, const size_t& data_pos);

    // Append one frame; addDataFrame one for each 320 bytes begun, the last padded with zeros.
    void addStartFrame();
    void addTOFFrame();
    void addEOFFrame();
    void addEndFrame();
    void addDataFrame(const std::string& data);

  private:
    // The header of a DATA block, read as far as it has arrived: keyword with whatever is glued to
    // it, white space, length in digits. Reading goes on where it stopped.
    struct DataHeader {
        enum Phase { WORD, GAP, DIGITS, COMPLETE, BROKEN };
        void read(std::string_view block);

        Phase phase = WORD;
        size_t offset = 0;    // of the next byte to look at; behind the digits when COMPLETE
        uint32_t length = 0;  // bytes of payload
    };

    // The bytes not yet consumed, with what is known about them from earlier calls.
    struct Unread {
        std::string_view bytes;
        size_t forgotten = 0;  // bytes that came ahead of these and were let go
        size_t searched = 0;   // no keyword starts before this offset
        DataHeader data_header;
    };

    bool takeBlock(Unread& unread);
    bool takeDataBlock(Unread& unread, size_t data_pos);
    void takeCommand(Unread& unread, size_t data_pos, int32_t header);
    static void skipCommand(Unread& unread, size_t data_pos, std::string_view reference);
    static void consume(Unread& unread, size_t count);
    bool processCommand(std::string& src, size_t data_pos, int32_t header);
    template <typename Step>
    static bool onText(std::string& src, Step step);
    void addDataFrames(std::string_view data);
    void addFrame(int32_t type, std::string_view payload);

    ReceiveData recv_data_;   // bytes received and not consumed
    ReceiveQueue send_que_;   // frames of 324 bytes, oldest first
    int32_t data_state_ = 1;  // last block: 0 DATA, 1 END, 2 CANCEL, 3 BEGIN; never read
    bool epd_state_ = true;
    size_t forgotten_ = 0;    // bytes that came ahead of recv_data_ and were let go
    DataHeader data_header_;  // of the DATA block at the front of recv_data_ that is awaited
    bool dropping_ = false;   // said once that the oldest frames are being dropped
};

#endif
