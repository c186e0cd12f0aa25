# SPDX-License-Identifier: MIT
"""What the engine does with a stream: markers around speech, and the priming of the noise model."""

import math
import struct
import tempfile
import unittest

from engine_story import MMSE, VAD, answers, frame, kinds, level_db, noise, run, split, voice
from frames import DATA, END, EOF, SIZE, START, TOF


class Markers(unittest.TestCase):
    def test_end_stands_before_eof(self) -> None:
        seen = kinds(answers(VAD, [frame(TOF)] + voice(60) + [frame(EOF)]))
        self.assertEqual(seen.count(START), 1)
        self.assertEqual(seen[-2:], [END, EOF])

    def test_noise_alone_is_no_utterance_not_even_in_a_cold_start(self) -> None:
        for level in (30, 300, 3000):
            suppressed = answers(MMSE, [frame(TOF)] + noise(150, level))
            stream = [struct.pack("<i", kind) + rest for kind, rest in suppressed]
            self.assertNotIn(START, kinds(answers(VAD, stream)))

    def test_early_speech_is_found(self) -> None:
        stream = [frame(TOF)] + noise(10, 30) + voice(60)
        seen = kinds(answers(VAD, stream))
        self.assertIn(START, seen[10:25])

    def test_nothing_is_added_before_tof(self) -> None:
        seen = kinds(answers(VAD, [frame(TOF)] + voice(60) + [frame(TOF)] + [frame(DATA)] * 3))
        self.assertIn(START, seen)
        self.assertNotIn(END, seen)
        self.assertEqual(seen[-4:], [TOF, DATA, DATA, DATA])

    def test_start_and_end_alternate(self) -> None:
        stream = [frame(TOF)]
        for _ in range(4):
            stream += voice(50) + noise(50, level=3)
        markers = [k for k in kinds(answers(VAD, stream + [frame(EOF)])) if k in (START, END)]
        self.assertEqual(markers, [START, END] * 4)

    def test_stream_after_tof_is_answered_like_a_first_one(self) -> None:
        stream = [frame(TOF)] + noise(20) + voice(40)
        for settings in (MMSE, VAD):
            first = answers(settings, stream)
            second = answers(settings, voice(35) + stream)[-len(first) :]
            self.assertEqual(second, first)


class Priming(unittest.TestCase):
    # The mean of four recordings of noise at level 300, as the bridge sends it: 6 dB quieter.
    PRIMED = [frame(EOF), frame(TOF)] + noise(10, level=150)

    def attenuation_db(self, head: list[bytes], settings: str = MMSE) -> float:
        live = noise(50, seed=2)
        result = run(settings, b"".join(head + live))
        return 20 * math.log10(300) - level_db(split(result.stdout, SIZE)[-50:])

    def test_primed_start_suppresses_noise_at_once(self) -> None:
        self.assertGreater(self.attenuation_db(self.PRIMED), 15)

    def test_priming_gain_makes_up_for_the_averaging(self) -> None:
        with tempfile.NamedTemporaryFile("w", suffix=".ini") as plain:
            plain.write("[engine]\nrole = mmse\n[mmse]\npriming_gain_db = 0\n")
            plain.flush()
            self.assertLess(self.attenuation_db(self.PRIMED, plain.name), 10)

    def test_other_starts_are_cold(self) -> None:
        self.assertLess(self.attenuation_db(self.PRIMED[1:]), 5)

    def test_no_frame_is_added_or_lost(self) -> None:
        self.assertEqual(kinds(answers(MMSE, self.PRIMED)), [EOF, TOF] + [DATA] * 10)

    def test_noise_is_suppressed_after_a_second_of_a_cold_start(self) -> None:
        pairs = answers(MMSE, [frame(TOF)] + noise(200))
        self.assertGreater(20 * math.log10(300) - level_db(pairs[101:]), 15)


if __name__ == "__main__":
    unittest.main()
