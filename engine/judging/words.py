# SPDX-License-Identifier: MIT
"""What a recogniser understands of what lies between START and END."""
import re
from dataclasses import dataclass
from pathlib import Path

import numpy as np

import pipes
import recogniser
from recogniser import Errors
from recordings import FRAME, NOISY_RANGE, POCKETSPHINX, RATE, Recording, read_with_sox, trim
from scenes import make_noise
from suppression import LAG

CONDITIONS = [
    ("clean", 0),
    *((kind, snr) for kind in ("white", "pink", "hum", "babble") for snr in (5, 10, 15)),
]
LEAD = 3 * RATE  # samples of noise ahead of a recording: time to settle,
TAIL = RATE  # and behind it
# Two recordings have no transcript beside them: one is what its grammar is for, the other has its
# digits in its name.
OTHERS = {
    "goforward.raw": "go forward ten meters",
    "tidigits/dhd.2934z.raw": "two nine three four zero",
}


@dataclass
class Words:
    """Over all recordings, each between the same START and END."""

    noisy: Errors
    cleaned: Errors
    clean: Errors

    def all(self) -> tuple[Errors, Errors, Errors]:
        return self.noisy, self.cleaned, self.clean


def transcripts() -> dict[str, list[str]]:
    """Each recording whose words are known."""
    found = {f"{POCKETSPHINX}/{name}": text.split() for name, text in OTHERS.items()}
    for path in ("cards/cards.transcription", "librivox/transcription"):
        whole = Path(POCKETSPHINX, path)
        for text, name in re.findall(r"<s> (.*) </s> \((.*)\)", whole.read_text()):
            found[str(whole.parent / f"{name}.wav")] = text.split()
    return dict(sorted(found.items()))


def spoken() -> list[tuple[Recording, list[str]]]:
    texts = transcripts()
    return [(trim(path, read_with_sox(path), NOISY_RANGE), text) for path, text in texts.items()]


def score(said: list[list[str]], parts: list[list[np.ndarray]]) -> Errors:
    """All that was understood in one stream, in a row, against what was said in it."""
    understood = iter(recogniser.understand([part for stream in parts for part in stream]))
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
