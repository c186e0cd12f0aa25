# SPDX-License-Identifier: MIT
"""What a recogniser understands of what lies between START and END."""
from dataclasses import dataclass

import numpy as np

import pipes
import recogniser
import transcripts
from recogniser import Errors
from recordings import FRAME, NOISY_RANGE, RATE, Recording, read_with_sox, trim
from scenes import make_noise
from suppression import LAG

CONDITIONS = [
    ("clean", 0),
    *((kind, snr) for kind in ("white", "pink", "hum", "babble") for snr in (5, 10, 15)),
]
LEAD = 3 * RATE  # samples of noise ahead of a recording: time to settle,
TAIL = RATE  # and behind it


@dataclass
class Words:
    """Over all recordings, each between the same START and END."""

    noisy: Errors
    cleaned: Errors
    clean: Errors

    def all(self) -> tuple[Errors, Errors, Errors]:
        return self.noisy, self.cleaned, self.clean


def spoken() -> list[tuple[Recording, list[str]]]:
    texts = transcripts.read()
    return [(trim(path, read_with_sox(path), NOISY_RANGE), text) for path, text in texts.items()]


def score(said: list[list[str]], parts: list[list[np.ndarray]]) -> Errors:
    """All that was understood in one stream, in a row, against what was said in it."""
    pcm = [part.astype("<i2").tobytes() for stream in parts for part in stream]
    understood = iter(recogniser.understand(pcm))
    total = Errors()
    for text, stream in zip(said, parts):
        total += recogniser.compare(text, [word for _ in stream for word in next(understood)])
    return total


def whole(said: list[tuple[Recording, list[str]]]) -> Errors:
    """The recordings as they are, which no engine has heard."""
    return score([text for _, text in said], [[recording.samples] for recording, _ in said])


def measure(
    engine: pipes.Engine,
    kind: str,
    snr: float,
    talkers: list[Recording],
    said: list[tuple[Recording, list[str]]],
) -> Words:
    """A stream for each recording, so that what is found in it can only be meant for its words."""
    cleans = [np.pad(one.samples, (LEAD, TAIL)) for one, _ in said]
    noise = np.zeros(sum(map(len, cleans)))
    if kind != "clean":
        noise = make_noise(kind, talkers, len(noise), 0) * 10 ** (-snr / 20)
    audio: dict[str, list] = {"noisy": [], "cleaned": [], "clean": []}
    for clean in cleans:
        hiss, noise = np.split(noise, [len(clean)])
        noisy = np.clip(np.round(clean + hiss), -32768, 32767).astype("<i2")
        frames = engine.suppress(pipes.stream(noisy)).frames
        found = pipes.segments(engine.detect(frames).frames)
        # What goes in is heard LAG later; the same words in all three.
        late = {"noisy": np.pad(noisy, (LAG, 0)), "clean": np.pad(clean, (LAG, 0))}
        for name, samples in {"cleaned": pipes.samples_of(frames), **late}.items():
            audio[name].append([samples[start * FRAME : end * FRAME] for start, end in found])
    texts = [text for _, text in said]
    return Words(**{name: score(texts, parts) for name, parts in audio.items()})
