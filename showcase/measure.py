# SPDX-License-Identifier: MIT
"""Measures what a run did, from nothing but the frames sent and received."""
from dataclasses import dataclass
from typing import Iterator

import numpy as np

import frames
from ros_node import RosNode
from scene import Passage, Scene, decibel
from speech import frame_levels, loudest, rms
from voice_link import Returned

CHUNK = 100  # frames that are placed together: long enough to recognise, short beside a renewal
SEARCH = 300  # frames back from the newest one sent in which a chunk is looked for
FAINT = 10  # RMS of samples; what comes back below it is too close to silence to be recognised
AUDIBLE = -50.0  # dB of full scale; quieter frames of the recording prove nothing by their absence
BELOW_SPEECH = -20.0  # dB; in a quiet recording more than the loud frames is audible
RECOGNISED = 0.3  # correlation above which a chunk counts as found; strangers stay below 0.2
PRIMING = 10  # frames of averaged noise that follow the TOF of a renewal
SETTLING = 100  # frames after the start and after each renewal in which the engines settle
GAP = 50  # frames missing at the ROS node that a renewal alone does not explain
MARGIN = 30  # frames around passages that count as neither speech nor pause


@dataclass
class Chunk:
    """Returned audio and the place in the input where it belongs (in samples)."""

    at: int
    samples: np.ndarray
    correlation: float
    delay: float  # frames between sending and coming back


@dataclass
class Comparison:
    """Cleaned audio beside the noisy recording. In the array, what did not return is 0."""

    cleaned: np.ndarray
    present: np.ndarray  # for each sample, whether it came back
    audible: np.ndarray  # for each sample, whether it is loud enough to be judged
    chunks: list[Chunk]
    restarts: list[int]  # frames of the recording with which engines started anew

    def share(self) -> float:
        """How much of what is audible in the recording came back, 0 to 1."""
        return float(np.mean(self.present[self.audible])) if self.audible.any() else 0.0

    def missing(self) -> int:
        """Frames of the recording that did not come back."""
        return round(float(np.mean(~self.present)) * len(self.present) / frames.SAMPLES)

    def delays(self) -> tuple[float, float, float]:
        """Median, lowest and highest delay in frames."""
        delays = [chunk.delay for chunk in self.chunks] or [float("nan")]
        return float(np.median(delays)), min(delays), max(delays)

    def correlation(self) -> float:
        return float(np.median([chunk.correlation for chunk in self.chunks] or [0.0]))


def stretches(returned: list[Returned]) -> list[list[Returned]]:
    """The returned audio cut at each TOF and EOF; a renewal's own noise frames are left out."""
    result: list[list[Returned]] = [[]]
    skip, before = 0, -1
    for frame in returned:
        if frame.kind in (frames.TOF, frames.EOF):
            skip = PRIMING if (before, frame.kind) == (frames.EOF, frames.TOF) else 0
            result.append([])
            before = frame.kind
        elif frame.kind == frames.DATA:
            before = frame.kind
            if skip > 0:
                skip -= 1
            else:
                result[-1].append(frame)
    return result


def place(samples: np.ndarray, sent: np.ndarray, newest: int) -> tuple[int, float]:
    """Where in `sent` the samples fit best, and how well (correlation coefficient)."""
    first = max(0, (newest - SEARCH) * frames.SAMPLES)
    field = sent[first : newest * frames.SAMPLES + len(samples)]
    # The difference of neighbours flattens the spectra, which makes the peak narrow.
    wanted, field = np.diff(samples, prepend=0.0), np.diff(field, prepend=0.0)
    places = len(field) - len(wanted) + 1
    energy = np.sum(wanted**2)
    if places < 1 or energy == 0:
        return 0, 0.0
    size = 1 << (len(field) + len(wanted)).bit_length()
    product = np.fft.irfft(np.fft.rfft(field, size) * np.conj(np.fft.rfft(wanted, size)), size)
    sums = np.concatenate([[0.0], np.cumsum(field**2)])
    energies = sums[len(wanted) :] - sums[: -len(wanted)]
    score = product[:places] / np.sqrt(energy * np.maximum(energies[:places], 1.0))
    best = int(np.argmax(score))
    return first + best, float(score[best])


def parts(stretch: list[Returned]) -> Iterator[tuple[int, np.ndarray]]:
    """The stretch in chunks: number of the first frame, samples of all."""
    for index in range(0, len(stretch), CHUNK):
        chunk = stretch[index : index + CHUNK]
        if len(chunk) < CHUNK // 4:  # too short to be recognised alone
            if index == 0:
                continue
            index = max(0, len(stretch) - CHUNK)
            chunk = stretch[index:]
        pcm = b"".join(frame.payload for frame in chunk)
        yield index, np.frombuffer(pcm, dtype="<i2").astype(np.float64)


@dataclass
class Piece:
    """A chunk in its stretch: number of its first frame there, its samples, their place in what was
    sent or None, and how sure that is."""

    index: int
    samples: np.ndarray
    at: int | None
    correlation: float


def find_pieces(stretch: list[Returned], sent: np.ndarray, delay: float | None) -> list[Piece]:
    """Recognises the chunks of a stretch. What is near silence cannot be recognised: it is put
    where it stands beside audio that is or, in a stretch of silence, where this delay puts it. The
    place of anything else stays unknown."""
    pieces = []
    for index, samples in parts(stretch):
        at, correlation = place(samples, sent, stretch[index].sent)
        pieces.append(Piece(index, samples, at if correlation >= RECOGNISED else None, correlation))
    known = [piece for piece in pieces if piece.at is not None]
    for piece in pieces:
        if piece.at is not None or rms(piece.samples) >= FAINT:
            continue
        if known:
            near = min(known, key=lambda one: abs(one.index - piece.index))
            piece.at = near.at + (piece.index - near.index) * frames.SAMPLES
        elif delay is not None:
            piece.at = round(stretch[piece.index].sent - 1 - delay) * frames.SAMPLES
    return [piece for piece in pieces if piece.at is not None]


def compare(scene: Scene, returned: list[Returned]) -> Comparison:
    """Finds the place of all returned audio in the recording."""
    lead = frames.SAMPLES  # the TOF sent first stands for one frame
    sent = np.concatenate([np.zeros(lead), scene.noisy.astype(np.float64)])
    cleaned, present = np.zeros(len(sent)), np.zeros(len(sent), dtype=bool)
    chunks: list[Chunk] = []
    restarts = []
    for stretch in stretches(returned):
        pieces = find_pieces(stretch, sent, chunks[-1].delay if chunks else None)
        for piece in pieces:
            start, end = max(piece.at, 0), min(piece.at + len(piece.samples), len(sent))
            if start < end:
                cleaned[start:end] = piece.samples[start - piece.at : end - piece.at]
                present[start:end] = True
            if piece.correlation >= RECOGNISED:
                delay = stretch[piece.index].sent - 1 - piece.at / frames.SAMPLES
                chunks.append(Chunk(piece.at - lead, piece.samples, piece.correlation, delay))
        restarts += [max(0, piece.at - lead) // frames.SAMPLES for piece in pieces[:1]]
    return Comparison(cleaned[lead:], present[lead:], audible(scene), chunks, restarts)


def renewals(returned: list[Returned]) -> int:
    """How often the noise model was renewed: an EOF with a TOF directly behind it."""
    kinds = [frame.kind for frame in returned]
    return sum(pair == (frames.EOF, frames.TOF) for pair in zip(kinds, kinds[1:]))


def audible(scene: Scene) -> np.ndarray:
    """For each sample, whether its frame is loud enough to be judged."""
    found = frame_levels(scene.noisy.astype(np.float64))
    loud = loudest(found) * 10 ** (BELOW_SPEECH / 20)
    return np.repeat(found >= min(loud, 32768 * 10 ** (AUDIBLE / 20)), frames.SAMPLES)


def speech_mask(passages: list[Passage], length: int, margin: int) -> np.ndarray:
    """For each sample, whether it lies in a passage made wider by `margin` frames."""
    mask = np.zeros(length * frames.SAMPLES, dtype=bool)
    for passage in passages:
        start = max(0, passage.start - margin)
        mask[start * frames.SAMPLES : max(0, passage.end + margin) * frames.SAMPLES] = True
    return mask


def levels(scene: Scene, comparison: Comparison) -> dict[str, tuple[float, ...]]:
    """Levels in dB of full scale before and after, in pauses and in speech."""
    pauses = ~speech_mask(scene.passages, scene.length(), MARGIN) & comparison.present
    speech = speech_mask(scene.passages, scene.length(), 0) & comparison.present
    starts = [Passage(at, at + SETTLING) for at in comparison.restarts]
    first = speech_mask(starts[:1], scene.length(), 0)
    renewed = speech_mask(starts[1:], scene.length(), 0)
    places = {
        "pauses": pauses,
        " first second": pauses & first,
        " second after renewals": pauses & renewed,
        " remaining pauses": pauses & ~first & ~renewed,
        "speech": speech,
    }
    return {
        name: tuple(
            decibel(rms(signal[where]) / 32768) for signal in (scene.noisy, comparison.cleaned)
        )
        for name, where in places.items()
        if where.any()
    }


class Heard:
    """What the ROS node got. Its audio is the input unchanged, so each frame can be identified."""

    def __init__(self, scene: Scene, node: RosNode) -> None:
        payloads = frames.cut(scene.noisy.tobytes())
        known = {payload: index for index, payload in enumerate(payloads)}
        self.origin = [
            known.get(frame.payload) if frame.kind == frames.DATA else None for frame in node.frames
        ]
        self.utterances = [
            Passage(self._next(start), self._previous(self._cut(start) if end is None else end))
            for start, end in node.utterances()
        ]
        # Numbers, from 1, of utterances whose END was held back.
        self.endless = [n for n, (_, end) in enumerate(node.utterances(), 1) if end is None]

    def _cut(self, start: int) -> int:
        """Where an utterance stops whose END did not come: at the first gap behind its start."""
        before = None
        for index, origin in enumerate(self.origin[start:], start):
            if before is not None and origin is not None and origin - before > GAP:
                return index
            before = before if origin is None else origin
        return len(self.origin)

    def _next(self, index: int) -> int:
        rest = (origin for origin in self.origin[index:] if origin is not None)
        return next(rest, self._previous(index))

    def _previous(self, index: int) -> int:
        earlier = (origin for origin in reversed(self.origin[:index]) if origin is not None)
        return next(earlier, -1) + 1

    def arrived(self, start: int, end: int) -> int:
        """How many of the recording's frames between the two reached the node."""
        return sum(origin is not None and start <= origin < end for origin in self.origin)


def overlap(one: Passage, other: Passage) -> bool:
    return one.start < other.end and other.start < one.end
