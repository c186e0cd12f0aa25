# SPDX-License-Identifier: MIT
"""What an engine's output says about the rules of docs/engine.md.

Answers belong to frames by their order; START and END stand ahead of the answer that comes next.
"""
import struct
from collections import Counter, deque
from typing import NamedTuple

import frames
from engine_child import Written
from engine_sounds import EXTREMES, MARKERS, Step
from frames import DATA, END, EOF, START, TOF

VAD_SIZE = 104  # bytes of an answer about voice activity
TWINS = (DATA, TOF, EOF)  # types that are answered by their own; all others by DATA

# Each rule, and where in docs/engine.md it stands.
RULES = {
    "count": (2, "one answer to each frame"),
    "type": (2, "of the input's type"),
    "markers": (2, "frames of type 1 and 2 answered with type 0"),
    "size": (3, "of {size} bytes"),
    "whole": (6, "each frame whole in one write"),
    "late": (6, "each answer within 10 ms"),
    "cut": (1, "reads cut anywhere"),
    "full": (2, "nothing lost while nobody reads"),
    "extremes": (2, "silence, clipping, full-scale noise"),
    "turn": (4, "START and END in turn"),
    "place": (4, "START and END ahead of the answer to their frame"),
    "eof": (4, "END ahead of EOF if speech is open"),
    "tof": (4, "no END ahead of TOF"),
    "forget": (5, "everything forgotten at TOF"),
    "renewal": (2, "EOF and TOF first, as at a renewal"),
    "end": (7, "ends within a second of the end of its input"),
    "gone": (7, "ends within a second of a write that fails"),
    "term": (7, "ends within a second of SIGTERM"),
    "unread": (7, "the same while nobody reads its answers"),
    "memory": (8, "no growth of memory"),
}
OF_VAD = ("turn", "place", "eof", "tof")


class Stuck(Exception):
    """What comes behind cannot be judged any more; the finding is made."""


class Findings:
    """What was found of one engine. The first break of a rule counts."""

    def __init__(self, vad: bool) -> None:
        self.vad = vad
        self.broken: dict[str, str] = {}
        self._held: dict[str, str] = {}
        self.told: list[str] = []  # what no rule is about

    def rules(self) -> list[str]:
        return [rule for rule in RULES if self.vad or rule not in OF_VAD]

    def breaks(self, rule: str, text: str) -> None:
        self.broken.setdefault(rule, text)

    def holds(self, rule: str, text: str = "") -> None:
        """So far: a break found before or later counts."""
        self._held[rule] = text

    def unjudged(self) -> list[str]:
        return [each for each in self.rules() if each not in self.broken and each not in self._held]

    def good(self) -> bool:
        return not self.broken and not self.unjudged()

    def line(self, rule: str) -> str:
        number, name = RULES[rule]
        name = name.format(size=VAD_SIZE if self.vad else frames.SIZE)
        if rule in self.broken:
            verdict, text = "BROKEN", self.broken[rule]
        elif rule in self._held:
            verdict, text = "ok", self._held[rule]
        else:
            verdict, text = "?", "not judged"
        return f"  {verdict:<7} {number}  {name}" + (f": {text}" if text else "")


class Given(NamedTuple):
    """A frame that the engine was given."""

    number: int  # from 1
    step: Step
    at: float

    def partner(self) -> int:
        """The type of its answer."""
        return self.step.kind if self.step.kind in TWINS else DATA

    def name(self) -> str:
        return f"frame {self.number} ({self.step.place})"


class Answer(NamedTuple):
    """What came for a frame."""

    number: int
    kind: int
    markers: tuple[int, ...]  # ahead of it
    payload: bytes
    delay: float  # seconds


class Answers:
    """Pairs answers with frames. With a rule, all that breaks is a break of that one."""

    def __init__(self, vad: bool, findings: Findings, rule: str = "") -> None:
        self.vad = vad
        self.size = VAD_SIZE if vad else frames.SIZE
        self.findings = findings
        self.waiting: deque[Given] = deque()  # frames without an answer
        self.all: list[Answer] = []
        self.seen: Counter[str] = Counter()
        self._rule = rule
        self._last: Given | None = None  # the newest frame
        self._missed: Given | None = None  # the first that was not answered in time
        self._bytes = bytearray()  # of frames that are not complete
        self._sizes: list[int] = []  # and of the writes in which they came
        self._markers: list[int] = []  # ahead of the next answer
        self._speaking = False
        self._ending = False  # the input has ended

    def give(self, step: Step, at: float) -> None:
        """To be called ahead of the write."""
        self._last = Given(self._last.number + 1 if self._last else 1, step, at)
        self.waiting.append(self._last)

    def front(self) -> Given | None:
        """The frame that is to be answered, else the last one."""
        return self.waiting[0] if self.waiting else self._last

    def breaks(self, rule: str, given: Given | None, text: str) -> None:
        if given and rule in ("count", "type"):
            rule = "markers" if given.step.place == MARKERS else rule
            rule = "extremes" if given.step.place in EXTREMES else rule
        where = given.name() if given else "frame 1 (not yet whole)"
        self.findings.breaks(self._rule or rule, f"{where}: {text}")

    def take(self, written: Written) -> None:
        self._bytes += written.data
        self._sizes.append(len(written.data))
        if len(self._bytes) % self.size:
            return  # the rest is to come, or settle() finds that it does not
        if any(size % self.size for size in self._sizes):
            pieces = " and ".join(map(str, self._sizes[:3])) + " ..." * (len(self._sizes) > 3)
            self.breaks("whole", self.front(), f"written in pieces of {pieces} bytes")
        whole, self._bytes, self._sizes = bytes(self._bytes), bytearray(), []
        for at in range(0, len(whole), self.size):
            (kind,) = struct.unpack_from("<i", whole, at)
            self._frame(kind, whole[at + frames.HEADER_SIZE : at + self.size], written.at)

    def settle(self) -> None:
        """When nothing more is to be expected for what was given."""
        if not self._bytes:
            return
        begin = bytes(self._bytes[:8])
        text = f"{len(self._bytes)} bytes came, which begin with {begin!r}"
        self.breaks("size", self.front(), text)
        raise Stuck

    def miss(self) -> None:
        """The frame in front is late: it may be answered yet, or never."""
        self._missed = self._missed or self.front()

    def end(self) -> None:
        """The input ends. Markers that come now without a frame go nowhere: they break nothing."""
        self._ending = True

    def finish(self) -> None:
        """When the output has ended."""
        self.settle()
        if self.waiting:
            self._lost(len(self.waiting))
            self.waiting.clear()

    def _lost(self, count: int) -> None:
        """So many frames were passed over, the one that was missed first."""
        given = self._missed or self.waiting[0]
        more = f", nor were {count - 1} more" * (count > 1)
        self.breaks("count", given, "not answered" + more)
        # Answers since then were taken for those of one frame earlier.
        self.all = [answer for answer in self.all if answer.number < given.number]
        self._missed = None

    def _frame(self, kind: int, payload: bytes, at: float) -> None:
        if self.vad and kind in (START, END):
            self._marker(kind)
            return
        if not self.waiting:
            self.breaks("count", self._last, f"one answer too many, of type {kind}")
            return
        ahead = [given.partner() for given in self.waiting]
        if kind in (TOF, EOF) and kind != ahead[0] and kind in ahead:
            passed = ahead.index(kind)
            self._lost(passed)
            for _ in range(passed):
                self.waiting.popleft()
        given = self.waiting.popleft()
        if kind != given.partner():
            text = f"answered with type {kind} instead of {given.partner()}"
            self.breaks("type", given, text)
        self._check_markers(given)
        markers, self._markers = tuple(self._markers), []
        self.all.append(Answer(given.number, kind, markers, payload, at - given.at))

    def _marker(self, kind: int) -> None:
        if self._ending and not self.waiting:
            return
        name = frames.NAMES[kind].upper()
        self.seen[name] += 1
        if self._speaking == (kind == START):
            text = "START, and again START" if kind == START else "END without START"
            self.breaks("turn", self.front(), text)
        self._speaking = kind == START
        if self.waiting:
            self._markers.append(kind)
        else:
            self.breaks("place", self._last, f"{name} behind its answer")

    def _check_markers(self, given: Given) -> None:
        """At EOF speech is closed, at TOF it is dropped."""
        if given.step.kind == EOF:
            self.seen["closed"] += END in self._markers
            if self._speaking:
                self.breaks("eof", given, "no END ahead of it, though speech is open")
            self._speaking = False
        elif given.step.kind == TOF:
            self.seen["dropped"] += self._speaking
            if self._markers:
                text = f"{frames.NAMES[self._markers[-1]].upper()} ahead of it"
                self.breaks("tof", given, text)
            self._speaking = False
