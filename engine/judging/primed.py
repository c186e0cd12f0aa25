# SPDX-License-Identifier: MIT
"""The first second after a renewal of the noise model, primed as the bridge does it."""
from dataclasses import dataclass

import numpy as np

import pipes
from recordings import FRAME, Recording
from renewal import BLOCK, BLOCKS
from scenes import LEADS, above_lowest, make_noise
from suppression import LAG, decibel, power

STARTS = 20  # each with other noise
HEAD = BLOCKS * BLOCK * FRAME  # samples ahead of it
LIVE = 100  # frames of live noise
WORD = 60  # frames of live noise ahead of a word: no more than the shortest pause
FROM, TO = 10, 50  # frames in which the floor holds: 100 to 500 ms


@dataclass
class Primed:
    """Means over all starts; levels in dB."""

    attenuation: float  # 100 to 500 ms after a primed start
    cold: float  # the same without priming
    false_starts: int  # in LIVE frames of noise
    word_level: float  # the first word, by how much its level changes
    word_missed: int
    starts: int = STARTS


def priming(noise: np.ndarray) -> np.ndarray:
    """EOF, TOF and the noise frames, of the last blocks that were heard."""
    mean = noise[:HEAD].reshape(BLOCKS, -1).sum(axis=0, dtype=int) // BLOCKS
    return np.concatenate([pipes.mark(pipes.EOF), pipes.mark(pipes.TOF), pipes.data(mean)])


def attenuation(live: np.ndarray, heard: np.ndarray) -> float:
    before, after = above_lowest(live.astype(np.float64)), above_lowest(heard)
    part = slice(FROM * FRAME, TO * FRAME)
    later = slice(FROM * FRAME + LAG, TO * FRAME + LAG)
    return decibel(power(before[part]) / power(after[later]))


def measure(
    engine: pipes.Engine, kind: str, snr: float, talkers: list[Recording], word: Recording
) -> Primed:
    """Starts engines anew in noise that is `snr` dB below speech."""
    size = HEAD + LIVE * FRAME
    whole = make_noise(kind, talkers, STARTS * size, len(LEADS)) * 10 ** (-snr / 20)
    primed, cold, levels, false_starts, missed = [], [], [], 0, 0
    for number in range(STARTS):
        noise = np.round(whole[number * size :][:size]).astype("<i2")
        live = noise[HEAD:]
        start, tail = priming(noise), pipes.data(live)
        answer = engine.suppress(np.concatenate([start, tail])).frames
        primed.append(attenuation(live, pipes.samples_of(answer)[BLOCK * FRAME :]))
        false_starts += len(pipes.segments(engine.detect(answer).frames))
        bare = engine.suppress(np.concatenate([pipes.mark(pipes.TOF), tail])).frames
        cold.append(attenuation(live, pipes.samples_of(bare)))
        level, found = say(engine, start, live, word)
        levels.append(level)
        missed += not found
    mean = [float(np.mean(values)) for values in (primed, cold, levels)]
    return Primed(mean[0], mean[1], false_starts, mean[2], missed)


def say(
    engine: pipes.Engine, start: np.ndarray, live: np.ndarray, word: Recording
) -> tuple[float, bool]:
    """A word soon after the start: its level afterwards, and whether it was found."""
    first, last = word.utterances[0]
    clean = np.zeros(WORD * FRAME + len(word.samples))
    clean[WORD * FRAME :] = word.samples
    noisy = np.round(clean + np.resize(live, len(clean))).astype("<i2")
    answer = engine.suppress(np.concatenate([start, pipes.data(noisy)])).frames
    heard = pipes.samples_of(answer)[BLOCK * FRAME :]
    part = slice((WORD + first) * FRAME, (WORD + last) * FRAME - LAG)
    later = slice(part.start + LAG, part.stop + LAG)
    scale = np.dot(heard[later], clean[part]) / power(clean[part])
    begin, end = BLOCK + WORD + first, BLOCK + WORD + last
    found = any(a < end and b > begin for a, b in pipes.segments(engine.detect(answer).frames))
    return 2 * decibel(max(scale, 1e-3)), found
