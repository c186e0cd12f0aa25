# SPDX-License-Identifier: MIT
"""Where somebody speaks in a recording, and at which level. Needs numpy; samples are floats."""
import numpy as np

import frames

LEVEL = -24.0  # dB below full scale, RMS: a usual speaking level with room for peaks
LOUD = 98  # percentile of the frames' levels that counts as the loudest; above it are clicks
SHORTEST = 10  # frames; what is shorter is a click


def rms(samples: np.ndarray) -> float:
    return float(np.sqrt(np.mean(np.square(samples, dtype=np.float64)))) if len(samples) else 0.0


def frame_levels(samples: np.ndarray) -> np.ndarray:
    """RMS of each whole frame."""
    whole = samples[: len(samples) // frames.SAMPLES * frames.SAMPLES]
    return np.sqrt(np.mean(whole.reshape(-1, frames.SAMPLES) ** 2, axis=1))


def loudest(levels: np.ndarray) -> float:
    return float(np.percentile(levels, LOUD))


def find(levels: np.ndarray, floor: float, gap: int) -> list[tuple[int, int]]:
    """Where frames are louder than the floor: first frame and first one after it. Gaps of less than
    `gap` frames are bridged."""
    found: list[tuple[int, int]] = []
    for index in map(int, np.flatnonzero(levels > floor)):
        start = index
        if found and index - found[-1][1] < gap:
            start, _ = found.pop()
        found.append((start, index + 1))
    return [(start, end) for start, end in found if end - start >= SHORTEST]


def whole_frames(samples: np.ndarray) -> np.ndarray:
    """A copy with the last frame filled up."""
    return np.pad(samples, (0, -len(samples) % frames.SAMPLES))


def faded(samples: np.ndarray) -> np.ndarray:
    """Whole frames, the first faded in and the last faded out."""
    samples = whole_frames(samples)
    fade = np.linspace(0, 1, frames.SAMPLES)
    samples[: len(fade)] *= fade
    samples[-len(fade) :] *= fade[::-1]
    return samples


def at_level(samples: np.ndarray, spoken: np.ndarray) -> np.ndarray:
    """The samples, amplified so that what is spoken in them is at the usual level."""
    return samples * (32768 * 10 ** (LEVEL / 20) / rms(spoken))
