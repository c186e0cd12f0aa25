# SPDX-License-Identifier: MIT
"""The check of engines: it passes the default engine and the one that docs/engine.md shows, and
names the rule and the frame of every planted fault, which are those of support/faulty_engine.py."""
import re
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path

import frames
from engine_answers import Findings
from engine_check import SPEECH
from engine_sounds import MARKERS, stream, voice
from engine_story import ENGINE, MMSE, VAD
from engine_trials import Trials

PEERS = Path(frames.__file__).parent
DOCUMENT = PEERS.parent / "docs" / "engine.md"
FAULTY = Path(__file__).parents[2] / "support" / "faulty_engine.py"
ANYWHERE = 100  # the frame at which it has a fault that could be anywhere
BOUND = 400  # seconds; a check takes half a minute on a quiet machine
TRIES = 3
AT_ONCE = 10  # trials; they wait most of the time
LATE = "late"  # the one rule that a busy machine breaks for any engine
PROGRAM = Path(ENGINE).read_bytes()
judges_time_and_memory = unittest.skipIf(
    b"__asan_init" in PROGRAM or PROGRAM.startswith(b"#!"),
    "a sanitizer, or the script that starts an emulator, takes time and memory of its own",
)

STREAM = stream(voice(SPEECH))
PLACES = [step.place for step in STREAM.steps]


def first(place: str) -> int:
    """The first frame of that place."""
    return PLACES.index(place) + 1


# Role, fault, the rules it breaks, and the frame named with the first of them.
FAULTS = [
    ("mmse", "skipping", ["count"], ANYWHERE),
    ("mmse", "twice", ["count"], ANYWHERE),
    ("mmse", "eof as data", ["type"], first("EOF")),
    ("mmse", "type 1 as it is", ["markers"], first(MARKERS)),
    ("mmse", "short", ["size"], ANYWHERE),
    ("mmse", "greeting", ["size"], 1),
    ("mmse", "torn", ["whole"], ANYWHERE),
    ("mmse", "slow", ["late"], ANYWHERE),
    ("mmse", "buffered", ["late", "gone"], 2),
    ("mmse", "silence", ["extremes"], first("silence")),
    ("mmse", "clipping", ["extremes"], first("clipping")),
    ("mmse", "believing in whole reads", ["cut"], 1),
    ("mmse", "dropping", ["full"], None),
    ("mmse", "remembering", ["forget"], STREAM.again + 2),
    ("mmse", "primed in silence", ["renewal"], 1),
    ("mmse", "staying after the end", ["end"], 1),
    ("mmse", "staying when nobody reads", ["gone"], 1),
    ("mmse", "deaf to sigterm", ["term", "unread"], 1),
    ("mmse", "goodbye at sigterm", ["unread"], 1),
    ("mmse", "leaking", ["memory"], None),
    ("vad", "long", ["size"], ANYWHERE),
    ("vad", "start twice", ["turn"], first("speech")),
    ("vad", "no end", ["turn"], first("clipping")),
    ("vad", "late marker", ["place", "eof", "turn"], first("speech")),
    ("vad", "open at eof", ["eof"], first("EOF")),
    ("vad", "end at tof", ["tof"], STREAM.again + 1),
    ("vad", "remembering", ["forget", "turn"], None),
]  # fmt: skip


def settings(folder: Path, role: str, fault: str) -> Path:
    path = folder / f"{role}-{fault}.ini".replace(" ", "-")
    path.write_text(f"{role}\n{fault}\n")
    return path


class Folder(unittest.TestCase):
    """A test with a fresh folder."""

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tolvanev-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)


@judges_time_and_memory
class PlantedFaults(Folder):
    """All trials run side by side; each test looks at the findings of its own."""

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        pool = ThreadPoolExecutor(AT_ONCE)
        cls.addClassCleanup(pool.shutdown)
        cls.found: dict[tuple[str, str], Future[Findings]] = {
            (role, fault): pool.submit(cls.find, role, fault) for role, fault, *_ in FAULTS
        }
        cls.deaf = pool.submit(cls.find, "vad", "hearing nothing")

    @classmethod
    def find(cls, role: str, fault: str) -> Findings:
        """On a machine that is too busy for an engine to end within a second, one that would have
        done so looks as if it broke that rule, too: it is tried again, alone by then."""
        expected = {LATE, *(rule for one in FAULTS if one[:2] == (role, fault) for rule in one[2])}
        for _ in range(TRIES):
            trials = Trials(FAULTY, settings(cls.folder, role, fault), role == "vad", voice(SPEECH))
            trials.run(STREAM)
            if set(trials.findings.broken) <= expected:
                break
        return trials.findings

    def test_each_is_found_and_no_other_rule_is_broken(self) -> None:
        for role, fault, rules, number in FAULTS:
            with self.subTest(role=role, fault=fault):
                findings = self.found[role, fault].result(BOUND)
                self.assertLessEqual(set(rules), set(findings.broken))
                self.assertLessEqual(set(findings.broken), {*rules, LATE}, findings.broken)
                if number:
                    self.assertRegex(findings.broken[rules[0]], rf"^frame {number}\b")

    def test_markers_that_never_came_are_not_judged(self) -> None:
        findings = self.deaf.result(BOUND)
        self.assertLessEqual(set(findings.broken), {LATE})
        self.assertEqual(findings.unjudged(), ["turn", "place", "eof", "tof"])
        self.assertFalse(findings.good())


class Command(Folder):
    """What a script sees."""

    def call(self, *arguments: str | Path) -> subprocess.CompletedProcess[str]:
        command = [sys.executable, "-B", str(PEERS / "engine_check.py"), *map(str, arguments)]
        return subprocess.run(command, capture_output=True, text=True, timeout=BOUND)

    def assert_passes(self, *arguments: str | Path) -> None:
        done = self.call(*arguments)
        late = re.findall(r"^  BROKEN .* each answer within 10 ms", done.stdout, re.MULTILINE)
        self.assertEqual((done.returncode, done.stderr), (1 if late else 0, ""), done.stdout)
        ending = rf"\n[1-9]\d* rules hold, {len(late)} broken, 0 not judged\n$"
        self.assertRegex(done.stdout, ending)

    @judges_time_and_memory
    def test_default_engine_passes(self) -> None:
        self.assert_passes(ENGINE, MMSE, VAD)

    def test_engine_of_the_document_passes(self) -> None:
        (text,) = re.findall(
            r"^```python\n(.*?)^```$", DOCUMENT.read_text(), re.DOTALL | re.MULTILINE
        )
        self.assertLessEqual(text.count("\n"), 30)
        engine = self.folder / "engine"
        engine.write_text(text)
        engine.chmod(0o755)
        for role in ("mmse", "vad"):
            (self.folder / f"{role}.ini").write_text(f"role = {role}\n")
        speech = self.folder / "speech.raw"
        speech.write_bytes(b"".join(voice(SPEECH)))
        roles = [self.folder / "mmse.ini", self.folder / "vad.ini"]
        self.assert_passes(engine, *roles, "--speech", speech)

    def test_broken_rule_is_named_and_is_status_one(self) -> None:
        roles = [settings(self.folder, role, "greeting") for role in ("mmse", "vad")]
        done = self.call(FAULTY, *roles)
        self.assertEqual((done.returncode, done.stderr), (1, ""))
        self.assertIn("BROKEN  3  of 104 bytes: frame 1 (TOF): 117 bytes came", done.stdout)
        self.assertRegex(done.stdout, r"rules hold, [2-4] broken, [1-9]\d* not judged\n$")

    def test_what_cannot_be_read_or_started_is_status_two(self) -> None:
        done = self.call(ENGINE, MMSE, VAD, "--speech", "/nosuch.wav")
        message = "engine_check: /nosuch.wav: No such file or directory\n"
        self.assertEqual((done.returncode, done.stderr), (2, message))
        done = self.call("./nosuch", MMSE, VAD)
        message = "engine_check: ./nosuch: No such file or directory\n"
        self.assertEqual((done.returncode, done.stderr), (2, message))


if __name__ == "__main__":
    unittest.main()
