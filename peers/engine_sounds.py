# SPDX-License-Identifier: MIT
"""Sound made up for trying engines, and the stream of it that an engine is checked with."""
import array
import math
import random
from typing import Iterable, NamedTuple

import frames
from frames import DATA, END, EOF, RATE, SAMPLES, START, TOF

NOISE = 300  # RMS of background noise, -41 dBFS
LOUDEST = 32767
LOWEST = -32768

# What a frame of the stream is, where that is a promise of its own.
MARKERS = "frames of type 1 and 2"
EXTREMES = ("silence", "clipping", "full-scale noise")


class Step(NamedTuple):
    """A frame for an engine and what it is part of."""

    kind: int
    payload: bytes
    place: str


def payload(samples: Iterable[float]) -> bytes:
    return array.array("h", map(int, samples)).tobytes()


def noise(count: int, level: int = NOISE, seed: int = 1) -> list[bytes]:
    chance = random.Random(seed)
    return [payload(chance.gauss(0, level) for _ in range(SAMPLES)) for _ in range(count)]


def voice(count: int, level: int = 6000) -> list[bytes]:
    """A buzz at 120 Hz with formants and a syllable rhythm: enough of a voice for a detector."""
    period = 3 * RATE // 120  # samples after which the buzz repeats itself
    buzz = [
        sum(
            math.sin(2 * math.pi * 120 * h * n / RATE) / (1 + abs(h - 5) * abs(h - 12) / 8)
            for h in range(1, 25)
        )
        for n in range(period)
    ]
    return [
        payload(
            level * (0.6 + 0.4 * math.sin(2 * math.pi * 4 * n / RATE)) * buzz[n % period] / 4
            for n in range(index * SAMPLES, (index + 1) * SAMPLES)
        )
        for index in range(count)
    ]


def clipped(payloads: list[bytes]) -> list[bytes]:
    """The same, far too loud."""
    return [
        payload(LOUDEST if sample >= 0 else LOWEST for sample in array.array("h", each))
        for each in payloads
    ]


def full_scale(count: int) -> list[bytes]:
    chance = random.Random(2)
    return [payload(chance.randint(LOWEST, LOUDEST) for _ in range(SAMPLES)) for _ in range(count)]


def sound(payloads: list[bytes], place: str) -> list[Step]:
    return [Step(DATA, each, place) for each in payloads]


def marker(kind: int, place: str = "") -> Step:
    return Step(kind, frames.SILENCE, place or frames.NAMES[kind].upper())


def opening(speech: list[bytes]) -> list[Step]:
    """The beginning of a stream: somebody speaks after a while."""
    return [marker(TOF), *sound(noise(60), "noise"), *sound(speech, "speech")]


class Stream(NamedTuple):
    """Frames in the order in which they are given. The stream begins once more in its middle, with
    speech that has not ended."""

    steps: list[Step]
    again: int  # index of that second beginning
    length: int  # frames that both beginnings have in common


def stream(speech: list[bytes]) -> Stream:
    begin = opening(speech)
    head = [
        *begin,
        *sound(noise(100, seed=3), "noise"),
        marker(START, MARKERS),
        marker(END, MARKERS),
        *sound([frames.SILENCE] * 20, "silence"),
        *sound(clipped(voice(20)), "clipping"),
        *sound(full_scale(20), "full-scale noise"),
        *sound(noise(60, seed=4), "noise"),
        *sound(speech, "speech"),
        marker(EOF),
        marker(TOF),
        *sound(noise(30, seed=5), "noise"),
        *sound(speech, "speech"),
    ]
    tail = [marker(EOF), marker(TOF), marker(TOF), marker(EOF)]
    return Stream([*head, *begin, *tail], len(head), len(begin))


def renewal(speech: list[bytes]) -> list[Step]:
    """What the bridge gives the engines that it has started anew."""
    quiet = noise(10, NOISE // 2, seed=6)  # the mean of four blocks of noise
    return [
        marker(EOF),
        marker(TOF),
        *sound(quiet, "the ten frames of noise"),
        *sound(noise(30, seed=7), "noise"),
        *sound(speech, "speech"),
    ]


def long_block(speech: list[bytes]) -> list[Step]:
    """Five seconds of a stream, to be repeated."""
    spoken = [*speech, *noise(60, seed=8)] * (5 * frames.PER_SECOND)
    return [marker(TOF), *sound(spoken, "the long stream")][: 5 * frames.PER_SECOND]
