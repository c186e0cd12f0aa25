// SPDX-License-Identifier: MIT
// --wav: each utterance as a file of its own, "20250304T140327.045Z-000001.wav" by the time of its
// START and its number, there whole or not at all. The folder is kept small: the oldest by name go
// first, those that this node has written in their order behind all others. No file is touched
// whose name is not exactly of that form, nor any folder in there.
//
// Files are written in the background, one after the other; what still waits when the disk hangs
// is bounded.
#ifndef TOLVANEV_NODE_WAV_FILES_H
#define TOLVANEV_NODE_WAV_FILES_H

#include <deque>

#include "OutputWarnings.h"

namespace node {

struct WavFilesOptions {
    std::string folder;       // of this node alone; made when its parent is there
    size_t max_files = 1000;  // 0 = any number
    uint64_t max_bytes = 0;   // 0 = any; the newest file is kept whatever its size
    size_t max_waiting = 8;   // utterances, without the one being written
};

class WavFiles : public Listener {
  public:
    using OnWritten = std::function<void(uint64_t utterance, const std::string& path)>;
    // Removes what a killed run left half written. Throws a NodeError when the folder is none that
    // files can be written to. on_written: empty = nobody asks.
    WavFiles(Loop& loop, const Log& log, const WavFilesOptions& options, OnWritten on_written);

    void onUtterance(const UtterancePtr& utterance) override;
    void finish() override { warnings_.finish(); }
    bool idle() const override { return waiting_.empty() && !background_.busy(); }
    uint64_t dropped() const override { return warnings_.totalDropped(); }
    std::string name() const override { return warnings_.name(); }

  private:
    void start();

    const WavFilesOptions options_;
    const OnWritten on_written_;
    OutputWarnings warnings_;
    std::deque<UtterancePtr> waiting_;
    std::deque<std::string> own_;  // names of what was written, oldest first
    Background background_;
};

std::string wavName(const Utterance& utterance);
bool isWavName(std::string_view name);

}  // namespace node

#endif
