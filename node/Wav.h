// SPDX-License-Identifier: MIT
// An utterance as a WAV file: a header of 44 bytes, then its samples; PCM, mono, 16 kHz, 16 bit.
#ifndef TOLVANEV_NODE_WAV_H
#define TOLVANEV_NODE_WAV_H

#include <string>

#include "Listener.h"

namespace node {

constexpr size_t WAV_HEADER_SIZE = 44;  // bytes

std::string wavImage(const Utterance& utterance);  // the whole file

}  // namespace node

#endif
