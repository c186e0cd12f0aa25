# SPDX-License-Identifier: MIT
"""The demo's judgement: what it takes for audio that came through, what it does to a recording,
which command lines it refuses. The recordings are made here: bursts of noise for speech, and
silence."""
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np

import audio
import frames
import measure
import report
import scene
from voice_link import Returned

OPTIONS = Path(report.__file__).with_name("demo_options.py")
DELAY = 20  # frames between sending and coming back


def bursts(*loud: tuple[int, int], length: int) -> np.ndarray:
    """Noise at a speaking level between these frames, digital silence elsewhere."""
    samples = np.zeros(length * frames.SAMPLES)
    chance = np.random.default_rng(1)
    for start, end in loud:
        samples[start * frames.SAMPLES : end * frames.SAMPLES] = 2000 * chance.standard_normal(
            (end - start) * frames.SAMPLES
        )
    return scene.to_samples(samples)


def make_scene(samples: np.ndarray) -> scene.Scene:
    return scene.Scene(
        clean=None, noisy=samples, passages=[], epd_off=None, sound=None, source="", made=""
    )


def come_back(samples: np.ndarray, *lost: tuple[int, int]) -> list[Returned]:
    """What the bridge returns of this recording if each of these spans falls to a renewal."""
    payloads = list(frames.cut(samples.tobytes()))
    back = [Returned(frames.TOF, frames.SILENCE, DELAY)]
    for index, payload in enumerate(payloads):
        if any(start == index for start, _ in lost):
            sent = index + 1 + DELAY
            back += [Returned(frames.EOF, frames.SILENCE, sent)]
            back += [Returned(frames.TOF, frames.SILENCE, sent)]
            back += [Returned(frames.DATA, payloads[0], sent)] * measure.PRIMING
        if not any(start <= index < end for start, end in lost):
            back.append(Returned(frames.DATA, payload, index + 2 + DELAY))
    return back


class CameThrough(unittest.TestCase):
    def check_whole(self, samples: np.ndarray, *lost: tuple[int, int]) -> measure.Comparison:
        found = measure.compare(make_scene(samples), come_back(samples, *lost))
        expected = samples.astype(float)
        for start, end in lost:
            expected[start * frames.SAMPLES : end * frames.SAMPLES] = 0
        self.assertEqual(found.share(), 1.0)
        self.assertEqual(found.missing(), sum(end - start for start, end in lost))
        self.assertTrue(np.array_equal(found.cleaned, expected))
        return found

    def test_silence_that_cannot_be_recognised(self) -> None:
        samples = bursts((150, 350), (650, 800), length=1000)
        found = self.check_whole(samples)
        self.assertEqual(found.delays(), (DELAY, DELAY, DELAY))

    def test_silence_beside_renewals(self) -> None:
        samples = bursts((150, 350), (900, 1100), length=1300)
        self.check_whole(samples, (500, 530), (800, 830))  # nothing but silence between the two

    def test_missing_speech_counts(self) -> None:
        samples = bursts((100, 500), length=600)
        found = measure.compare(make_scene(samples), come_back(samples, (300, 400)))
        self.assertEqual(found.share(), 0.75)
        self.assertEqual(found.missing(), 100)

    def test_other_audio_does_not(self) -> None:
        samples = bursts((100, 500), length=600)
        found = measure.compare(make_scene(samples), come_back(samples[::-1]))
        self.assertEqual((found.share(), found.chunks), (0.0, []))


class Recording(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tolvanev-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.path = str(self.folder / "speech.wav")

    def test_as_it_is(self) -> None:
        samples = bursts((50, 250), length=400)
        audio.save(self.path, samples.tobytes())
        made = scene.as_it_is(self.path)
        self.assertTrue(np.array_equal(made.noisy, samples))
        self.assertEqual((made.epd_off, made.sound, made.clean), (None, None, None))

    def test_what_was_made_of_a_short_one_is_told(self) -> None:
        audio.save(self.path, bursts((50, 250), length=400).tobytes())
        made = scene.build(10, self.path)
        # 2.1 s with soft ends and a pause of 0.8 s fit 14 times into 40 s.
        self.assertEqual(
            made.made,
            "silence at its ends cut off (2.1 s are left), level set, repeated: 14 times in all, "
            "mixed with noise 10 dB below the speech",
        )

    def test_what_was_made_of_a_long_one_is_told(self) -> None:
        audio.save(self.path, bursts((0, 7000), length=7000).tobytes())
        self.assertIn("level set, shortened to 60 s, mixed", scene.build(10, self.path).made)

    def test_silence_is_refused(self) -> None:
        audio.save(self.path, bytes(3200))
        for build in (scene.as_it_is, lambda path: scene.build(10, path)):
            with self.assertRaisesRegex(audio.AudioError, "no sound in it"):
                build(self.path)

    def test_results_of_an_earlier_run_are_cleared_and_nothing_else(self) -> None:
        for name in ("cleaned.wav", "summary.txt", "mine.wav"):
            (self.folder / name).write_text("old")
        report.clear(self.folder)
        self.assertEqual([path.name for path in self.folder.iterdir()], ["mine.wav"])


class CommandLine(unittest.TestCase):
    def refusal(self, *arguments: str) -> str:
        command = [sys.executable, "-B", str(OPTIONS), *arguments]
        result = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual(result.returncode, 2)
        return result.stderr

    def test_noise_is_a_number_in_range(self) -> None:
        for value in ("nan", "inf", "-inf", "1e9", "loud"):
            self.assertIn("not a number of dB from -20 to 100", self.refusal(f"--snr={value}"))

    def test_as_is_needs_a_recording_and_adds_no_noise(self) -> None:
        self.assertIn("--as-is needs a recording of yours", self.refusal("--as-is"))
        message = self.refusal("--as-is", "--snr", "3", "speech.wav")
        self.assertIn("--as-is adds no noise, so --snr means nothing", message)


if __name__ == "__main__":
    unittest.main()
