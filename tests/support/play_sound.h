// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_PLAY_SOUND_H
#define TOLVANEV_TESTS_PLAY_SOUND_H

#include "SoundClient.h"

// The play-sound state that was sent last belongs to the whole process, so to every test before and
// after. This makes it "off".
inline void forgetPlaySound() {
    try {
        SoundClient().setPlaySoundState(false);
    } catch (const SoundClientError&) {
        // It was "on": a link that is not connected cannot send, but the state moves all the same.
    }
}

#endif
