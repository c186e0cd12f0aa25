# SPDX-License-Identifier: MIT
"""All that is tried with one engine and settings file, rule by rule."""
import statistics
import time
from pathlib import Path
from typing import Callable, Iterator

import frames
from engine_answers import Answer, Answers, Findings, Stuck
from engine_child import EngineChild
from engine_play import FIRST, FULL, LATE, PATIENCE, SETTLE, Play
from engine_sounds import Step, Stream, long_block, noise, renewal, sound

PLAYS = 3  # a frame that is late each time is the engine's doing, not the machine's
OFTEN = 0.05  # and so are more late frames than this share each time
END = 1.0  # seconds in which an engine ends
PIPES = 2000  # frames, more than both pipes hold
TOGETHER = 20  # frames that are written at once when they are many
THIRD = 10000  # frames between two looks at the memory
THIRD_SECONDS = 10.0  # or so long, if that is shorter
GROWTH = 256 << 10  # bytes from look to look that are no growth yet

MAIN = ("count", "type", "size", "whole", "extremes", "markers")


class Trials:
    """One engine with one settings file."""

    def __init__(self, engine: str | Path, settings: Path, vad: bool, speech: list[bytes]) -> None:
        self.findings = Findings(vad)
        self._engine = engine
        self._settings = settings
        self._speech = speech

    def run(self, stream: Stream) -> list[Answer]:
        """Tries all rules; returns the answers to the stream, one for each frame if they hold."""
        answers: list[Answer] = []
        try:
            answers = self._at_pace(stream)
            if _prompt(answers) and self.findings.broken.keys() <= {"late", "forget"}:
                self._in_pieces(stream, answers)
                self._play("renewal", lambda play: play.at_pace(renewal(self._speech), SETTLE))
                self._play("full", lambda play: play.unread(sound(noise(100), "noise") * 20))
                self._memory()
        except Stuck:
            pass  # the rule is broken; how it ends can be tried all the same
        self._ends(FIRST if _prompt(answers) else PATIENCE)
        return answers

    def _play(self, rule: str, action: Callable[[Play], None]) -> list[Answer]:
        """A play whose every break is one of this rule."""
        with Play(self._engine, self._settings, self.findings, rule) as play:
            try:
                action(play)
                play.finish()
                self.findings.holds(rule, f"{len(play.answers.all)} frames")
            except Stuck:
                pass  # the rule is broken; others may hold
            return play.answers.all

    # The stream, at the pace of audio.

    def _at_pace(self, stream: Stream) -> list[Answer]:
        played = self._once(stream.steps)
        answers, seen = played.all, played.seen
        for rule in MAIN:
            self.findings.holds(rule, f"{len(answers)} frames" if rule == "count" else "")
        if self.findings.vad and seen["START"]:
            self.findings.holds("turn", f"{seen['START']} START, {seen['END']} END")
            self.findings.holds("place")
        if seen["closed"]:
            self.findings.holds("eof")
        if seen["dropped"]:
            self.findings.holds("tof")
        if len(answers) > 1:  # the first has the engine's start ahead of it
            self._judge_delay(answers, stream.steps)
            start = answers[0].delay * 1000
            self.findings.told.append(f"its first answer came {start:.0f} ms after its start")
        self._judge_forgetting(answers, stream)
        return answers

    def _once(self, steps: list[Step]) -> Answers:
        with Play(self._engine, self._settings, self.findings) as play:
            play.at_pace(steps)
            play.finish()
            return play.answers

    def _judge_delay(self, answers: list[Answer], steps: list[Step]) -> None:
        """What was late is played again: a machine that is busy is late now here, now there."""
        delays = sorted(answer.delay * 1000 for answer in answers[1:])
        middle = statistics.median(delays)
        text = f"median {middle:.2f} ms, 99 % within {delays[len(delays) * 99 // 100]:.2f}, "
        text += f"all within {delays[-1]:.2f}"
        once, often, plays = _late(answers), _often(answers), 1
        late = once
        while (late or often) and plays < PLAYS and middle < LATE * 1000:
            again = self._once(steps[: max(once)]).all
            more = _late(again)
            late = {each: min(late[each], more[each]) for each in late.keys() & more.keys()}
            often = often and _often(again)
            plays += 1
        if often:
            late = late or once
        if late:
            first = min(late)
            when = f"frame {first}: after {late[first] * 1000:.0f} ms"
            self.findings.breaks("late", f"{when}; {len(late)} of {len(answers)} late; {text}")
        self.findings.holds("late", text + f"; {len(once)} late, but not again" * bool(once))

    # The same again: behind TOF, and in pieces.

    def _judge_forgetting(self, answers: list[Answer], stream: Stream) -> None:
        if len(answers) < len(stream.steps):
            return
        for one, other in _beginnings(answers, stream):
            if (one.kind, one.markers) != (other.kind, other.markers):
                self._differ(one, other, "types")
        self.findings.holds("forget", "types alike")

    def _differ(self, one: Answer, other: Answer, what: str) -> None:
        text = f"frame {other.number}: other {what} than frame {one.number}, its like in the start"
        self.findings.breaks("forget", text)

    def _in_pieces(self, stream: Stream, answers: list[Answer]) -> None:
        beginning = stream.steps[: stream.length]
        again = self._play("cut", lambda play: play.in_pieces(beginning))
        if self.findings.vad:
            return  # the bridge looks at types only
        if [each.payload for each in again] != [each.payload for each in answers[: stream.length]]:
            self.findings.holds("forget", "types alike; samples differ from run to run")
            return
        for one, other in _beginnings(answers, stream):
            if one.payload != other.payload:
                self._differ(one, other, "samples")
        self.findings.holds("forget", "samples alike")

    # For long.

    def _memory(self) -> None:
        with Play(self._engine, self._settings, self.findings) as play:
            looks = list(_looks(play, long_block(self._speech)))
        sizes = [size for _, size in looks]
        text = ", ".join(f"{size >> 10:,} KiB after {count:,} frames" for count, size in looks)
        if all(later - earlier > GROWTH for earlier, later in zip(sizes, sizes[1:])):
            self.findings.breaks("memory", text)
        self.findings.holds("memory", text)

    # Ways to end.

    def _ends(self, patience: float) -> None:
        """Each with a stream begun and an engine that waits for more."""
        self._end("end", EngineChild.close_input, patience)
        self._end("gone", _fail_a_write, patience)
        self._end("term", EngineChild.terminate, patience)
        self._end("unread", _fill_and_terminate, patience)

    def _end(self, rule: str, action: Callable[[EngineChild], None], patience: float) -> None:
        with EngineChild(self._engine, self._settings) as child:
            try:
                child.send(frames.make(frames.TOF), patience)
                child.take(patience)
                if child.output_ended:
                    return
                action(child)
            except BrokenPipeError:
                return  # it has ended by itself
            if not child.ended(END):
                when = "later" if child.ended(END) else "not at all"
                self.findings.breaks(rule, f"frame 1 (TOF) was answered; it ended {when}")
            self.findings.holds(rule)

    def wrong_settings(self, name: str, path: Path) -> None:
        """What happens; no rule says what should."""
        with EngineChild(self._engine, path) as child:
            try:
                child.send(frames.make(frames.TOF), PATIENCE)
                answered = bool(child.take(2 * PATIENCE))
            except BrokenPipeError:
                answered = False
            child.ended(0 if answered else END)
            text = "goes on and answers" if answered else child.ending()
            self.findings.told.append(f"{name}: {text.replace(f'{path.parent}/', '')}")


def _late(answers: list[Answer]) -> dict[int, float]:
    """Frames that were answered late, and after how many seconds."""
    return {answer.number: answer.delay for answer in answers[1:] if answer.delay > LATE}


def _often(answers: list[Answer]) -> bool:
    return len(_late(answers)) > OFTEN * len(answers)


def _prompt(answers: list[Answer]) -> bool:
    """Whether it answers at all, and does not hold answers back until more frames come."""
    return bool(answers) and all(answer.delay < PATIENCE for answer in answers[1:])


def _beginnings(answers: list[Answer], stream: Stream) -> Iterator[tuple[Answer, Answer]]:
    """What was answered to the same frames behind the first TOF and behind a later one."""
    return zip(answers[1 : stream.length], answers[stream.again + 1 : stream.again + stream.length])


def _looks(play: Play, block: list[Step]) -> Iterator[tuple[int, int]]:
    """Frames so far and resident bytes, three times."""
    count = 0
    for _ in range(3):
        end, until = count + THIRD, time.monotonic() + THIRD_SECONDS
        while count < end and time.monotonic() < until:
            at = count % len(block)
            steps = block[at : at + TOGETHER]
            play.together(steps)
            count += len(steps)
        yield count, play.child.memory()


def _fail_a_write(child: EngineChild) -> None:
    child.close_output()
    child.send(frames.make(frames.DATA), PATIENCE)


def _fill_and_terminate(child: EngineChild) -> None:
    """The bridge reads nothing while it waits for an engine to end."""
    frame = frames.make(frames.DATA)
    for _ in range(PIPES):
        if child.send(frame, FULL) < len(frame):
            break
    child.terminate()
