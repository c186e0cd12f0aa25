# SPDX-License-Identifier: MIT
"""How much noise goes, and what that does to the speech. Everything above the lowest frequency."""
from dataclasses import dataclass, field

import numpy as np

from recordings import FRAME, RATE
from scenes import Scene, above_lowest

LAG = FRAME  # samples by which the suppressed audio lags
SECOND = RATE // FRAME  # frames
SETTLED = 2 * SECOND  # frames after which the suppressor counts as adapted
AROUND = 20  # frames at both ends of an utterance that are neither speech nor pause
WINDOW = 2 * FRAME  # samples of a spectrum
# A bin is dominated by speech if it is so much stronger than the noise, and not much weaker than
# the strongest of its recording: below that lies the rounding to 16 bit.
DOMINANT = 6.0  # dB: twice the amplitude
AUDIBLE = 50.0  # dB


def power(samples: np.ndarray) -> float:
    return float(np.sum(np.square(samples))) + 1e-9


def decibel(ratio: float) -> float:
    return 10 * np.log10(ratio)


def si_sdr(heard: np.ndarray, clean: np.ndarray) -> float:
    """Scale-invariant signal-to-distortion ratio in dB."""
    target = clean * (np.dot(heard, clean) / power(clean))
    return decibel(power(target) / power(heard - target))


def spectra(samples: np.ndarray) -> np.ndarray:
    """Power spectra of overlapping windows, one a frame."""
    windows = np.lib.stride_tricks.sliding_window_view(samples, WINDOW)[::FRAME]
    return np.square(np.abs(np.fft.rfft(windows * np.hanning(WINDOW), axis=1))) + 1e-3


@dataclass
class Suppression:
    """Sums over some streams."""

    before_first: float = 0  # power of noise in pauses: first second
    after_first: float = 0
    before_later: float = 0  # when settled
    after_later: float = 0
    gains: list[float] = field(default_factory=list)  # dB of SI-SDR, one an utterance
    levels: list[float] = field(default_factory=list)  # dB, one an utterance
    errors: list[np.ndarray] = field(default_factory=list)  # dB, one a bin

    def add(self, scene: Scene, out: np.ndarray) -> None:
        length = scene.length() * FRAME
        noisy = above_lowest(scene.noisy().astype(np.float64))[: length - LAG]
        heard = above_lowest(out)[LAG:length]
        clean = above_lowest(scene.clean)[: length - LAG]
        self._add_pauses(scene, noisy, heard)
        for one in scene.spoken:
            if one.start >= SETTLED and one.end < scene.length():
                part = slice(one.start * FRAME, one.end * FRAME)
                gain = si_sdr(heard[part], clean[part]) - si_sdr(noisy[part], clean[part])
                self.gains.append(gain)
                scale = np.dot(heard[part], clean[part]) / power(clean[part])
                self.levels.append(2 * decibel(max(scale, 1e-3)))
                self.add_bins(noisy[part], heard[part], clean[part])

    def _add_pauses(self, scene: Scene, noisy: np.ndarray, heard: np.ndarray) -> None:
        pause = np.ones(scene.length() - LAG // FRAME, dtype=bool)
        for one in scene.spoken:
            pause[max(0, one.start - AROUND) : one.end + AROUND] = False
        before, after = (np.sum(np.square(x.reshape(-1, FRAME)), axis=1) for x in (noisy, heard))
        if scene.lead >= SETTLED:  # the other streams begin with speech
            self.before_first += float(np.sum(before[:SECOND][pause[:SECOND]]))
            self.after_first += float(np.sum(after[:SECOND][pause[:SECOND]]))
        self.before_later += float(np.sum(before[SETTLED:][pause[SETTLED:]]))
        self.after_later += float(np.sum(after[SETTLED:][pause[SETTLED:]]))

    def add_bins(self, noisy: np.ndarray, heard: np.ndarray, clean: np.ndarray) -> None:
        speech, noise, result = spectra(clean), spectra(noisy - clean), spectra(heard)
        dominant = speech > noise * 10 ** (DOMINANT / 10)
        dominant &= speech > np.max(speech) * 10 ** (-AUDIBLE / 10)
        self.errors.append(np.abs(10 * np.log10(result[dominant] / speech[dominant])))

    def first_second(self) -> float:
        return decibel((self.before_first + 1e-9) / (self.after_first + 1e-9))

    def settled(self) -> float:
        return decibel((self.before_later + 1e-9) / (self.after_later + 1e-9))

    def distortion(self) -> float:
        return float(np.mean(np.concatenate(self.errors)))

    def gain(self) -> float:
        return float(np.mean(self.gains))

    def level(self) -> float:
        return float(np.mean(self.levels))
