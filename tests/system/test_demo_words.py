# SPDX-License-Identifier: MIT
"""What the demo tells of words: which belong together, how wrong they are, and what it says when
there is no recogniser. Nothing is recognised here."""
import io
import os
import subprocess
import sys
import tempfile
import unittest
import wave
from pathlib import Path
from unittest import mock

import numpy as np

import frames
import picture
import recogniser
import report
import words
from measure import Comparison
from recogniser import Errors
from scene import Passage, Scene

RECOGNISE = Path(words.__file__).with_name("recognise.py")


class Compare(unittest.TestCase):
    def check(self, said: str, understood: str, *counts: int) -> None:
        found = recogniser.compare(said.split(), understood.split())
        self.assertEqual(found, Errors(*counts, words=len(said.split())))

    def test_all_alike(self) -> None:
        self.check("go forward ten meters", "go forward ten meters", 0, 0, 0)

    def test_each_kind_of_change(self) -> None:
        self.check("ten of clubs", "an of clubs", 1, 0, 0)
        self.check("ten of clubs", "of clubs", 0, 1, 0)
        self.check("ten of clubs", "ten of of clubs", 0, 0, 1)

    def test_the_fewest_changes_count(self) -> None:
        self.check("go forward ten meters", "forward ten meters and more", 0, 1, 2)

    def test_nothing_understood_and_nothing_said(self) -> None:
        self.check("ten of clubs", "", 0, 3, 0)
        self.check("", "ten of clubs", 0, 0, 3)


def make_scene(said: list[list[str]], epd_off: tuple[int, int] | None = None) -> Scene:
    """Three passages of a second each, two seconds apart."""
    return Scene(
        clean=None,
        noisy=np.zeros(1000 * frames.SAMPLES, dtype="<i2"),
        passages=[Passage(at, at + 100) for at in (100, 400, 700)],
        epd_off=epd_off,
        sound=None,
        source="",
        made="",
        said=said,
    )


SAID = [["one"], ["two", "three", "four"], ["five"]]


class Gather(unittest.TestCase):
    def gather(self, scene: Scene, *spans: tuple[int, int]) -> list[words.Part]:
        found = [Passage(*span) for span in spans]
        noisy = [[f"noisy{number}"] for number in range(len(found))]
        cleaned = [[f"cleaned{number}"] for number in range(len(found))]
        return words.gather(scene, found, noisy, cleaned)

    def test_utterances_of_one_passage_belong_together(self) -> None:
        parts = self.gather(make_scene(SAID), (95, 210), (400, 440), (460, 520))
        self.assertEqual([part.said for part in parts], SAID[:2])
        self.assertEqual(
            parts[1].rows(),
            [
                ("said", "two three four"),
                ("noisy", "noisy1 | noisy2"),
                ("cleaned", "cleaned1 | cleaned2"),
            ],
        )

    def test_an_utterance_over_two_passages_has_the_words_of_both(self) -> None:
        parts = self.gather(make_scene(SAID), (95, 450), (460, 520), (700, 800))
        self.assertEqual([part.said for part in parts], [SAID[0] + SAID[1], SAID[2]])

    def test_outside_speech_nothing_was_said(self) -> None:
        parts = self.gather(make_scene(SAID), (250, 300), (310, 330))
        self.assertEqual([part.said for part in parts], [[], []])

    def test_what_was_held_back_in_part_does_not_count(self) -> None:
        parts = self.gather(make_scene(SAID, epd_off=(450, 600)), (400, 450), (700, 800))
        self.assertEqual([part.said for part in parts], [[], SAID[2]])

    def test_words_of_your_own_recording_are_not_known(self) -> None:
        (part,) = self.gather(make_scene([]), (100, 200))
        self.assertEqual(part.rows(), [("noisy", "noisy0"), ("cleaned", "cleaned0")])


class Listen(unittest.TestCase):
    def test_cleaned_is_cut_as_the_node_cuts(self) -> None:
        """With 200 ms from before START, where there are as many."""
        scene = make_scene(SAID)
        cleaned = np.repeat(np.arange(1000), frames.SAMPLES).astype(float)
        comparison = mock.Mock(Comparison, cleaned=cleaned)
        heard = mock.Mock(utterances=[Passage(5, 210), Passage(400, 440)])

        def first_and_last(utterances: list[bytes]) -> list[list[str]]:
            samples = [np.frombuffer(pcm, dtype="<i2") for pcm in utterances]
            return [[str(one[0]), str(one[-1])] for one in samples]

        with mock.patch.object(recogniser, "understand", first_and_last):
            found = words.listen(scene, comparison, heard, [["go"], ["two"]])
        self.assertEqual([part.noisy for part in found.parts], [[["go"]], [["two"]]])
        self.assertEqual([part.cleaned for part in found.parts], [[["0", "209"]], [["380", "439"]]])

    def test_without_a_recogniser_there_is_a_reason(self) -> None:
        heard = mock.Mock(utterances=[Passage(95, 210)])
        comparison = mock.Mock(Comparison, cleaned=np.zeros(1000 * frames.SAMPLES))
        missing = recogniser.RecogniserError("install it")
        with mock.patch.object(recogniser, "understand", side_effect=missing):
            found = words.listen(make_scene(SAID), comparison, heard, [[]])
        self.assertEqual(
            report.understood(found), "What a recogniser understands: not known, install it.\n"
        )


class Shown(unittest.TestCase):
    PARTS = [
        words.Part(120, [0], [["on"]], [["one"]], ["one"]),
        words.Part(250, [], [["<a"]], [[]], []),
        words.Part(400, [1], [["two"], ["for"]], [["two", "three", "four"]], SAID[1]),
    ]

    def test_summary(self) -> None:
        self.assertEqual(
            report.understood(words.Words(self.PARTS)).splitlines()[1:],
            [
                "   1.20 s   said     one",
                "            noisy    on",
                "            cleaned  one",
                "   2.50 s   noisy    <a",
                "            cleaned  (nothing)",
                "   4.00 s   said     two three four",
                "            noisy    two | for",
                "            cleaned  two three four",
                "Wrong words, of 4 in the passages that could be heard: 3 before, 0 after.",
            ],
        )

    def test_picture_has_every_line(self) -> None:
        drawn = "\n".join(picture.understood(words.Words(self.PARTS), 100))
        for text in ("two | for", "two three four", "&lt;a", "(nothing)", ">1.2 s<", ">4.0 s<"):
            self.assertIn(text, drawn)


class Recognise(unittest.TestCase):
    def refusal(self, utterance: bytes, path: str) -> str:
        command = [sys.executable, "-B", str(RECOGNISE)]
        environment = os.environ | {"PATH": path}
        result = subprocess.run(command, input=utterance, capture_output=True, env=environment)
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        return result.stderr.decode()

    @staticmethod
    def wav(rate: int) -> bytes:
        file = io.BytesIO()
        with wave.open(file, "wb") as utterance:
            utterance.setparams((1, 2, rate, 0, "NONE", ""))
            utterance.writeframes(bytes(320))
        return file.getvalue()

    def test_what_is_no_utterance_is_refused(self) -> None:
        path = os.environ["PATH"]
        self.assertIn("no WAV file", self.refusal(b"", path))
        self.assertIn("RIFF", self.refusal(b"hello, this is no WAV file", path))
        self.assertIn("not 16 kHz, mono, 16 bit", self.refusal(self.wav(8000), path))

    def test_a_missing_recogniser_is_named(self) -> None:
        with tempfile.TemporaryDirectory(prefix="tolvanev-") as empty:
            message = self.refusal(self.wav(frames.RATE), empty)
        self.assertIn("install Debian's pocketsphinx and pocketsphinx-en-us", message)


if __name__ == "__main__":
    unittest.main()
