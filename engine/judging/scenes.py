# SPDX-License-Identifier: MIT
"""What the engine gets to hear: recordings one after the other, with pauses, in noise."""
import subprocess
from dataclasses import dataclass

import numpy as np

import speech
from recordings import FRAME, RATE, Recording

SEED = 20
# Seconds of noise ahead of the first word, one stream each: time to settle, or hardly any.
LEADS = (3.0, 0.5, 3.0, 0.3)
PAUSES = (0.8, 2.0)  # seconds between recordings, drawn evenly
TAIL = 1.0  # seconds of noise at the end
TALKERS = 16  # in the babble: more than anyone can follow
LOWEST = 100  # Hz; judged is what lies above: no speech is below, but a good part of pink noise
SNRS = (0, 5, 10, 15)
NOISES = ("white", "pink", "hum", "babble")


@dataclass
class Spoken:
    """One utterance: first frame, first frame after it, and which recording it is part of."""

    start: int
    end: int
    recording: int


@dataclass
class Scene:
    """One stream, float samples."""

    clean: np.ndarray
    noise: np.ndarray
    spoken: list[Spoken]
    lead: int  # frames

    def noisy(self) -> np.ndarray:
        return np.clip(np.round(self.clean + self.noise), -32768, 32767).astype("<i2")

    def length(self) -> int:
        return len(self.clean) // FRAME


def above_lowest(samples: np.ndarray) -> np.ndarray:
    spectrum = np.fft.rfft(samples)
    spectrum[: int(LOWEST * len(samples) / RATE)] = 0
    return np.fft.irfft(spectrum, len(samples))


def lay_out(recordings: list[Recording], number: int) -> tuple[np.ndarray, list[Spoken], int]:
    """Clean speech of stream `number`, where somebody speaks, and the lead in frames."""
    chance = np.random.default_rng(SEED + number)
    lead = at = round(LEADS[number] * RATE / FRAME)
    parts, spoken = [np.zeros(at * FRAME)], []
    for index in chance.permutation(len(recordings)):
        recording = recordings[index]
        spoken += [Spoken(at + a, at + b, int(index)) for a, b in recording.utterances]
        pause = round(chance.uniform(*PAUSES) * RATE / FRAME)
        parts += [recording.samples, np.zeros(pause * FRAME)]
        at += len(recording.samples) // FRAME + pause
    return np.concatenate([*parts, np.zeros(round(TAIL * RATE))]), spoken, lead


def of_sox(kind: str, count: int, number: int) -> np.ndarray:
    """White or pink noise; -R makes it the same each time, so every stream takes its own part."""
    command = ["sox", "-R", "-r", str(RATE), "-n", "-t", "raw", "-e", "signed", "-b", "16", "-c"]
    command += ["1", "-", "synth", f"{(number + 1) * count}s", kind + "noise", "vol", "0.5"]
    pcm = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
    return np.frombuffer(pcm, dtype="<i2")[number * count :].astype(np.float64)


def hum(count: int) -> np.ndarray:
    """Mains hum: 50 Hz and 19 harmonics whose amplitude falls with their number."""
    time = np.arange(count) / RATE
    return sum(np.sin(2 * np.pi * 50 * n * time + n * n) / n for n in range(1, 21))


def babble(recordings: list[Recording], count: int, number: int) -> np.ndarray:
    """Many talkers, each saying one recording after the other without a pause."""
    chance = np.random.default_rng(SEED + 100 + number)
    total = np.zeros(count)
    for _ in range(TALKERS):
        line = np.concatenate([recordings[i].samples for i in chance.permutation(len(recordings))])
        line = np.roll(line, int(chance.integers(len(line))))
        total += np.resize(line, count)
    return total


def make_noise(kind: str, talkers: list[Recording], count: int, number: int) -> np.ndarray:
    """Noise at the level of speech, both over the whole band: 0 dB."""
    if kind == "hum":
        noise = hum(count)
    elif kind == "babble":
        noise = babble(talkers, count, number)
    else:
        noise = of_sox(kind, count, number)
    return speech.at_level(noise, noise)


def build(speech: list[Recording], talkers: list[Recording], kind: str, snr: float) -> list[Scene]:
    """The streams of one condition; `kind` "clean" is speech in digital silence."""
    scenes = []
    for number in range(len(LEADS)):
        clean, spoken, lead = lay_out(speech[number :: len(LEADS)], number)
        noise = np.zeros(len(clean))
        if kind != "clean":
            noise = make_noise(kind, talkers, len(clean), number) * 10 ** (-snr / 20)
        scenes.append(Scene(clean, noise, spoken, lead))
    return scenes
