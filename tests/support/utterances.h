// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_UTTERANCES_H
#define TOLVANEV_TESTS_UTTERANCES_H

#include <memory>
#include <string>

#include "Listener.h"

// One that began so many seconds after 2025-03-04T14:03:27.045Z.
inline node::UtterancePtr utteranceOf(uint64_t number, size_t bytes = 3200, int seconds = 0) {
    auto utterance = std::make_shared<node::Utterance>();
    utterance->number = number;
    utterance->run = 1;
    utterance->start = node::SystemTime{node::milliseconds{1741097007045 + seconds * 1000}};
    utterance->end = utterance->start + std::chrono::seconds{1};
    utterance->audio = std::string(bytes, 'a');
    return utterance;
}

#endif
