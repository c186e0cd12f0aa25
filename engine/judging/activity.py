# SPDX-License-Identifier: MIT
"""How well START and END fit what a person hears."""
from dataclasses import dataclass, field

import numpy as np

from recordings import FRAME, RATE
from scenes import Scene, Spoken

FRAME_MS = 1000 * FRAME // RATE
EARLY = 10  # frames before the label at which START still belongs to the utterance
LATE = 50  # frames after the label in which END is looked for by the delay


@dataclass
class Activity:
    """Counts and delays over some streams.

    What is declared within the hangover behind an utterance is no error: END cannot be known before
    it. By how much END comes late is told by the delays.
    """

    hangover: int  # frames
    hit: int = 0  # frames
    wrong: int = 0
    lost: int = 0
    onsets: list[int] = field(default_factory=list)  # ms
    offsets: list[int] = field(default_factory=list)  # ms
    false_starts: int = 0
    utterances: int = 0
    missed: int = 0
    splits: int = 0
    merges: int = 0
    whole: int = 0  # utterances with one START and one END and nothing else
    minutes: float = 0  # of all streams
    cold: int = 0  # false starts in the first second of a stream

    def add(self, scene: Scene, found: list[tuple[int, int]]) -> None:
        self.minutes += scene.length() * FRAME_MS / 60000
        self._add_frames(scene, found)
        for number, one in enumerate(scene.spoken):
            self._add_utterance(scene.spoken, number, one, found)
        for start, end in found:
            over = [one for one in scene.spoken if start < one.end and end > one.start]
            self.merges += max(0, len({one.recording for one in over}) - 1)
            if not over or start < over[0].start - EARLY:
                self.false_starts += 1
                self.cold += start < RATE // FRAME

    def _add_frames(self, scene: Scene, found: list[tuple[int, int]]) -> None:
        said, waited, declared = np.zeros((3, scene.length()), dtype=bool)
        for one in scene.spoken:
            said[one.start : one.end] = True
            waited[one.end : one.end + self.hangover] = True
        for start, end in found:
            declared[start:end] = True
        self.hit += int(np.sum(said & declared))
        self.wrong += int(np.sum(~said & ~waited & declared))
        self.lost += int(np.sum(said & ~declared))

    def _add_utterance(
        self, spoken: list[Spoken], number: int, one: Spoken, found: list[tuple[int, int]]
    ) -> None:
        """Delays count where an edge belongs to this utterance: not one of a merged segment."""
        over = [(start, end) for start, end in found if start < one.end and end > one.start]
        before = spoken[number - 1].end if number else -EARLY
        after = spoken[number + 1].start if number + 1 < len(spoken) else one.end + 10 * LATE
        self.utterances += 1
        self.missed += not over
        self.splits += max(0, len(over) - 1)
        if not over:
            return
        if over[0][0] >= max(before, one.start - EARLY):
            self.onsets.append(FRAME_MS * (over[0][0] - one.start))
        if over[-1][1] <= after:
            self.offsets.append(FRAME_MS * (over[-1][1] - one.end))
        self.whole += len(over) == 1

    def precision(self) -> float:
        return self.hit / max(1, self.hit + self.wrong)

    def recall(self) -> float:
        return self.hit / max(1, self.hit + self.lost)

    def f1(self) -> float:
        return 2 * self.hit / max(1, 2 * self.hit + self.wrong + self.lost)

    def false_a_minute(self) -> float:
        return self.false_starts / self.minutes
