# SPDX-License-Identifier: MIT
"""Plays a stream to an engine, as the bridge does and as pipes may do: at the pace of audio, in
pieces, without reading, many frames at once."""
import random
import time
from pathlib import Path

import frames
from engine_answers import Answers, Findings, Stuck
from engine_child import EngineChild
from engine_sounds import Step

PACE = 1 / frames.PER_SECOND  # seconds from frame to frame
LATE = 0.010  # seconds that an answer may take
FIRST = 10.0  # seconds for the first answer, which has the engine's start ahead of it
PATIENCE = 1.0  # for each other one
MISSES = 3  # after so many waits in vain nobody waits for an answer
SLACK = 30.0  # seconds by which a play may last longer than its audio
SETTLE = 0.005  # seconds in which an answer too many comes
FULL = 0.2  # seconds in which nothing more goes into a pipe that is full
PIECES = (1, 3, 4, 100, 323, 324, 325, 648, 1000)  # bytes


class Play:
    """One run of an engine. What its answers break goes to the findings."""

    def __init__(
        self, engine: str | Path, settings: Path, findings: Findings, rule: str = ""
    ) -> None:
        self.child = EngineChild(engine, settings)
        self.answers = Answers(findings.vad, findings, rule)
        self._started = False  # it has had its time for the first answer
        self._misses = 0
        self._until = time.monotonic() + FIRST + SLACK

    def __enter__(self) -> "Play":
        return self

    def __exit__(self, *_: object) -> None:
        self.child.close()

    # Ways to play; each ends with Stuck when the engine has.

    def at_pace(self, steps: list[Step], pace: float = PACE) -> None:
        """One frame after the other, each when the one before it is answered and its time is
        over."""
        self._until += len(steps) * pace
        for step in steps:
            begun = time.monotonic()
            self.together([step])
            self._collect(begun + pace - time.monotonic())
            if not self.answers.waiting:
                self.answers.settle()

    def in_pieces(self, steps: list[Step]) -> None:
        """Cut anywhere, each piece a read of its own."""
        chance = random.Random(1)
        data = b"".join(frames.make(step.kind, step.payload) for step in steps)
        given = at = 0
        while at < len(data):
            piece = data[at : at + chance.choice(PIECES)]
            at += len(piece)
            complete, given = steps[given : at // frames.SIZE], at // frames.SIZE
            self.together(complete, piece)
            self.child.has_read_all(PATIENCE)
            self._collect(SETTLE)
            if not self.answers.waiting:
                self.answers.settle()

    def unread(self, steps: list[Step]) -> None:
        """Until both pipes are full, and only then reads."""
        self.together(steps[:1])
        for step in steps[1:]:
            self.answers.give(step, time.monotonic())
            data = frames.make(step.kind, step.payload)
            sent = self.child.send(data, FULL)
            if sent < len(data):
                self._write(data[sent:])
                break
        self._wait()

    def together(self, steps: list[Step], data: bytes | None = None) -> None:
        """In one write, whose bytes may be others, and waits for the answers."""
        now = time.monotonic()
        for step in steps:
            self.answers.give(step, now)
        self._write(data or b"".join(frames.make(step.kind, step.payload) for step in steps))
        self._wait()

    def finish(self) -> None:
        """Ends its input and takes what is left."""
        self.answers.end()
        self.child.close_input()
        deadline = time.monotonic() + PATIENCE
        while not self.child.output_ended and time.monotonic() < deadline:
            for written in self.child.take(deadline - time.monotonic()):
                self.answers.take(written)
        self.answers.finish()

    # Steps of them.

    def _write(self, data: bytes) -> None:
        """All of it, while answers are taken."""
        deadline = time.monotonic() + FIRST
        try:
            while data and time.monotonic() < deadline:
                data = data[self.child.send(data, LATE) :]
                if data:
                    self._collect(0)
        except BrokenPipeError:
            self._closed()
        if data:
            self.answers.breaks("count", self.answers.front(), "not read")
            raise Stuck

    def _wait(self) -> None:
        """Until all is answered. Not for long, and not again and again, when nothing comes."""
        patience = PATIENCE if self._started else FIRST
        while self.answers.waiting and self._misses < MISSES:
            if not self._collect(patience, once=True) or time.monotonic() > self._until:
                break
        self._started = True
        if self.answers.waiting:
            self.answers.miss()
            self._misses += 1
            if self._misses <= MISSES:
                self.answers.settle()
        if time.monotonic() > self._until:
            self._give_up()

    def _collect(self, seconds: float, once: bool = False) -> bool:
        """Whether anything comes in this time; once: no more than is there with the first of it."""
        deadline = time.monotonic() + seconds
        came = False
        while True:
            for written in self.child.take(deadline - time.monotonic()):
                self.answers.take(written)
                came = True
            if self.child.output_ended:
                self._closed()
            if once or time.monotonic() >= deadline:
                return came

    def _closed(self) -> None:
        self.child.ended(PATIENCE)
        text = f"the engine closed its pipe; {self.child.ending()}"
        self.answers.breaks("count", self.answers.front(), text)
        raise Stuck

    def _give_up(self) -> None:
        late = [answer for answer in self.answers.all[1:] if answer.delay > LATE]
        where = f"frame {late[0].number}" if late else self.answers.front().name()
        self.answers.findings.breaks("late", f"{where}: so slow that the rest was not tried")
        raise Stuck
