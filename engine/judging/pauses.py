# SPDX-License-Identifier: MIT
"""Speakers who pause inside a sentence: what each setting of the hangovers makes of it."""
import configparser
import contextlib
import dataclasses
import glob
import tempfile
from collections.abc import Iterator
from pathlib import Path

import numpy as np

import pipes
import speech
import transcripts
from recordings import FRAME, NOISY_RANGE, RATE, Recording, frame_levels, load
from scenes import make_noise

SETTINGS = {"quick": (100, 180), "default": None, "patient": (300, 300)}  # ms, both hangovers
PAUSES = (None, 0.3, 0.4, 0.5, 0.8)  # seconds; None is as long as it was said
OWN = 15  # frames; a shorter gap is none of the speaker's pauses
LEAD = 2 * RATE  # samples of noise ahead, and behind
SNR = 10  # dB


def own_pauses(samples: np.ndarray) -> list[tuple[int, int]]:
    """First frame of each pause, and the first after it."""
    levels = frame_levels(samples)
    parts = speech.find(levels, speech.loudest(levels) - NOISY_RANGE, OWN)
    return [(end, start) for (_, end), (start, _) in zip(parts, parts[1:])]


def sentences() -> list[Recording]:
    """All recordings of the tuning set whose speaker pauses inside."""
    paths = sorted(glob.glob(f"{transcripts.RECORDINGS}/**/*.wav", recursive=True))
    return [one for one in load(paths, NOISY_RANGE) if own_pauses(one.samples)]


def with_pauses(samples: np.ndarray, seconds: float | None) -> np.ndarray:
    """The same words, each pause made longer or shorter in its middle."""
    if seconds is None:
        return samples
    parts, at = [], 0
    for first, after in own_pauses(samples):
        middle, more = (first + after) // 2 * FRAME, round(seconds * RATE) - (after - first) * FRAME
        parts += [samples[at : middle + min(0, more) // 2], np.zeros(max(0, more))]
        at = middle - min(0, more) // 2
    return np.concatenate([*parts, samples[at:]])


def in_one_piece(engine: pipes.Engine, clean: np.ndarray, noise: np.ndarray) -> bool:
    quiet = np.zeros(LEAD)
    whole = np.concatenate([quiet, clean, quiet])
    noisy = np.clip(np.round(whole + noise[: len(whole)]), -32768, 32767).astype("<i2")
    audio = engine.suppress(pipes.stream(noisy)).frames
    return len(pipes.segments(engine.detect(audio).frames)) == 1


@contextlib.contextmanager
def with_hangovers(engine: pipes.Engine, both: tuple[int, int] | None) -> Iterator[pipes.Engine]:
    settings = configparser.ConfigParser()
    settings.read(engine.vad)
    if both:
        settings["vad"]["hangover_ms"], settings["vad"]["long_hangover_ms"] = map(str, both)
    with tempfile.NamedTemporaryFile("w", suffix=".ini") as file:
        settings.write(file)
        file.flush()
        yield dataclasses.replace(engine, vad=Path(file.name))


def table(engine: pipes.Engine) -> str:
    spoken = sentences()
    silence = np.zeros(20 * RATE)
    noise = make_noise("pink", [], len(silence), 0) * 10 ** (-SNR / 20)
    heads = ["as said" if one is None else f"{one} s" for one in PAUSES]
    text = f"Sentences in one piece, of {len(spoken)} with pauses inside; clean, pink {SNR} dB\n"
    text += f"{'':<11}" + "".join(f"{head:>12}" for head in heads) + "\n"
    for name, hangovers in SETTINGS.items():
        text += f"{name:<11}"
        with with_hangovers(engine, hangovers) as one:
            for pause in PAUSES:
                audio = [with_pauses(recording.samples, pause) for recording in spoken]
                clean, noisy = (
                    sum(in_one_piece(one, sentence, around) for sentence in audio)
                    for around in (silence, noise)
                )
                text += f"{f'{clean}, {noisy}':>12}"
        text += "\n"
    return text
