# SPDX-License-Identifier: MIT
"""Cold starts: streams without a primed start, through the engine and its suppressor alone."""
import configparser
import contextlib
import dataclasses
import tempfile
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

import numpy as np

import pipes
from recordings import FRAME, RATE, Recording, frame_levels
from scenes import LEADS, above_lowest, make_noise
from suppression import LAG, Suppression, decibel, power

STARTS = 20  # in noise alone, each with other noise
SPANS = ((10, 30), (30, 50), (0, 100))  # frames: 100 to 300 ms, 300 to 500 ms, the first second
SPOKEN = 30  # recordings that begin a stream, or are said after loud noise
LOUD = 60  # frames of noise ten times as loud,
QUIET = 40  # and frames until somebody speaks
SYLLABLE = 15.0  # dB below the loudest frame of a recording
FOLLOWED = 200  # frames of speech that are judged


@dataclass
class Cold:
    """Means over all streams, in dB."""

    attenuation: list[float]  # in each of SPANS
    speech_first: tuple[float, float]  # distortion of speech: suppressor alone, engine
    loud_first: tuple[float, float]


@contextlib.contextmanager
def suppressor_alone(engine: pipes.Engine) -> Iterator[pipes.Engine]:
    """Without the fast start, and as deep as it goes from the first frame on."""
    settings = configparser.ConfigParser()
    settings.read(engine.mmse)
    settings["mmse"]["cold_repeats"] = "0"
    settings["mmse"]["gentle_db"] = settings["mmse"]["suppression_db"]
    with tempfile.NamedTemporaryFile("w", suffix=".ini") as file:
        settings.write(file)
        file.flush()
        yield dataclasses.replace(engine, mmse=Path(file.name))


def suppress(engine: pipes.Engine, noisy: np.ndarray) -> np.ndarray:
    samples = np.clip(np.round(noisy), -32768, 32767).astype("<i2")
    return pipes.samples_of(engine.suppress(pipes.stream(samples)).frames)


def attenuation(engine: pipes.Engine, noise: np.ndarray) -> list[float]:
    """The noise alone, for a second."""
    before = above_lowest(noise)
    after = above_lowest(suppress(engine, noise))[LAG:]
    parts = [slice(FRAME * start, FRAME * end - LAG) for start, end in SPANS]
    return [decibel(power(before[part]) / power(after[part])) for part in parts]


def first_syllable(one: Recording) -> int:
    """The first frame that noise does not hide: before it a stream would begin with noise."""
    levels = frame_levels(one.samples)
    return int(np.argmax(levels > np.max(levels) - SYLLABLE))


def distortion(
    engine: pipes.Engine, spoken: list[Recording], noise: np.ndarray, loud: bool
) -> float:
    """Each recording opens a stream, or stands in one that begins loud and falls quiet."""
    lead = (LOUD + QUIET) * FRAME if loud else 0
    found = Suppression()
    for number, one in enumerate(spoken):
        speech = one.samples[first_syllable(one) * FRAME :][: FOLLOWED * FRAME]
        clean = np.concatenate([np.zeros(lead), speech])
        hiss = noise[number * RATE :][: len(clean)].copy()
        if loud:
            hiss[: LOUD * FRAME] *= 10
        heard = above_lowest(suppress(engine, clean + hiss))[LAG:]
        parts = [x[lead : len(heard)] for x in (above_lowest(clean + hiss), above_lowest(clean))]
        found.add_bins(parts[0], heard[lead:], parts[1])
    return found.distortion()


def measure(
    engine: pipes.Engine, kind: str, snr: float, talkers: list[Recording], speech: list[Recording]
) -> Cold:
    noise = make_noise(kind, talkers, (STARTS + SPOKEN) * RATE, len(LEADS)) * 10 ** (-snr / 20)
    alone = [attenuation(engine, noise[n * RATE :][:RATE]) for n in range(STARTS)]
    spoken = [one for one in speech if len(one.samples) > RATE][:: len(speech) // SPOKEN][:SPOKEN]
    with suppressor_alone(engine) as plain:
        both = plain, engine
        first = [distortion(one, spoken, noise, False) for one in both]
        loud = [distortion(one, spoken, noise, True) for one in both]
    means = [float(mean) for mean in np.mean(alone, axis=0)]
    return Cold(means, (first[0], first[1]), (loud[0], loud[1]))
