# SPDX-License-Identifier: MIT
"""The engine's own executable, fed and read through its pipes."""
import configparser
import resource
import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np

from frames import DATA, END, EOF, RATE, START, TOF
from frames import SAMPLES as FRAME

AUDIO = np.dtype([("kind", "<i4"), ("samples", "<i2", FRAME)])  # 324 bytes
RESULT = np.dtype([("kind", "<i4"), ("values", "<f4", 25)])  # 104 bytes


@dataclass
class Answer:
    """What came out for one input, and the CPU time that it took."""

    frames: np.ndarray
    seconds: float


@dataclass
class Engine:
    """One build of the engine with its two settings files."""

    program: Path
    mmse: Path
    vad: Path

    def hangover(self) -> int:
        """The longest time without voice before END, in frames."""
        settings = configparser.ConfigParser()
        settings.read([self.program.parent / "vad.ini", self.vad])  # the first has every key
        keys = ("hangover_ms", "long_hangover_ms")
        return max(settings.getint("vad", key) for key in keys) * RATE // FRAME // 1000

    def suppress(self, audio: np.ndarray) -> Answer:
        return self._run(self.mmse, audio, AUDIO)

    def detect(self, audio: np.ndarray) -> Answer:
        return self._run(self.vad, audio, RESULT)

    def _run(self, settings: Path, audio: np.ndarray, answer: np.dtype) -> Answer:
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        command = [self.program, settings]
        out = subprocess.run(command, input=audio.tobytes(), stdout=subprocess.PIPE, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        seconds = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        return Answer(np.frombuffer(out.stdout, dtype=answer), seconds)


def data(samples: np.ndarray) -> np.ndarray:
    """Data frames of int16 samples."""
    frames = np.zeros(len(samples) // FRAME, dtype=AUDIO)
    frames["samples"] = samples[: len(frames) * FRAME].reshape(-1, FRAME)
    return frames


def mark(kind: int) -> np.ndarray:
    """One frame of another type, silent."""
    frame = np.zeros(1, dtype=AUDIO)
    frame["kind"] = kind
    return frame


def stream(samples: np.ndarray) -> np.ndarray:
    """A stream from TOF to EOF."""
    return np.concatenate([mark(TOF), data(samples), mark(EOF)])


def samples_of(frames: np.ndarray) -> np.ndarray:
    """The audio of answered data frames."""
    return frames["samples"][frames["kind"] == DATA].ravel().astype(np.float64)


def segments(results: np.ndarray) -> list[tuple[int, int]]:
    """Utterances that the engine found: first frame, first frame after it."""
    found, position, start = [], 0, None
    for kind in results["kind"]:
        if kind == DATA:
            position += 1
        elif kind == START:
            start = position
        elif kind in (END, TOF) and start is not None:
            found.append((start, position))
            start = None
    return found if start is None else [*found, (start, position)]
