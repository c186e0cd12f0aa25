# SPDX-License-Identifier: MIT
"""The engine as the bridge sees it: one answer to each frame, however the pipes cut them."""

import math
import os
import random
import select
import struct
import time
import unittest
from typing import Iterator

from engine_story import (
    MMSE, TIMEOUT_S, VAD, VAD_SIZE, Answer, Running, answers, frame, kinds, noise, run, split,
    voice,
)  # fmt: skip
from frames import DATA, END, EOF, SAMPLES, SIZE, START, TOF


class FrameCount(unittest.TestCase):
    STREAM = (
        [frame(TOF)]
        + noise(30)
        + voice(60)
        + [frame(START)]
        + noise(40)
        + [frame(END)]
        + [frame(EOF), frame(TOF)]
        + voice(40)
        + [frame(TOF)]
        + noise(5)
        + voice(30)
        + [frame(77), frame(EOF)]
    )

    def pieces(self, seed: int) -> Iterator[bytes]:
        data, at, chance = b"".join(self.STREAM), 0, random.Random(seed)
        while at < len(data):
            size = chance.choice([1, 3, 100, 323, 324, 325, 648, 5000])
            yield data[at : at + size]
            at += size

    def answer_pieces(self, settings: str, seed: int) -> bytes:
        with Running(settings) as engine:
            out = b""
            for piece in self.pieces(seed):
                engine.process.stdin.write(piece)
                while select.select([engine.process.stdout], [], [], 0)[0]:
                    out += os.read(engine.process.stdout.fileno(), 65536)
            out += engine.process.communicate(timeout=TIMEOUT_S)[0]
            self.assertEqual(engine.process.returncode, 0)
        return out

    def test_mmse_answers_each_frame_with_one_of_the_partner_type(self) -> None:
        sent = [struct.unpack_from("<i", f)[0] for f in self.STREAM]
        expected = [kind if kind in (DATA, TOF, EOF) else DATA for kind in sent]
        self.assertEqual(kinds(answers(MMSE, self.STREAM)), expected)

    def test_vad_answers_each_frame_with_one_of_the_partner_type(self) -> None:
        sent = [struct.unpack_from("<i", f)[0] for f in self.STREAM]
        expected = [kind if kind in (DATA, TOF, EOF) else DATA for kind in sent]
        seen = kinds(answers(VAD, self.STREAM))
        self.assertIn(START, seen)
        self.assertEqual([kind for kind in seen if kind not in (START, END)], expected)

    def test_answer_does_not_depend_on_how_the_input_is_cut(self) -> None:
        for settings in (MMSE, VAD):
            whole = run(settings, b"".join(self.STREAM)).stdout
            for seed in range(3):
                with self.subTest(settings=settings, seed=seed):
                    self.assertEqual(self.answer_pieces(settings, seed), whole)

    def test_frames_without_audio_pass_mmse_unchanged(self) -> None:
        samples = list(range(SAMPLES))
        pairs = answers(MMSE, [frame(k, samples) for k in (TOF, EOF, START, END)])
        self.assertEqual(pairs, [(k, frame(k, samples)[4:]) for k in (TOF, EOF, DATA, DATA)])

    def test_each_frame_is_answered_before_the_next_is_read(self) -> None:
        for settings, size in ((MMSE, SIZE), (VAD, VAD_SIZE)):
            with self.subTest(settings=settings), Running(settings) as engine:
                for sent in [frame(TOF)] + [frame(DATA)] * 20:  # silence adds no marker
                    engine.process.stdin.write(sent)
                    self.assertEqual(engine.read(size)[1], [size])

    def test_pipe_that_is_full_loses_nothing(self) -> None:
        for settings, size in ((MMSE, SIZE), (VAD, VAD_SIZE)):
            with self.subTest(settings=settings), Running(settings) as engine:
                # More than an input and an output pipe of 64 KiB hold, written by a child.
                feeder = os.fork()
                if feeder == 0:
                    try:
                        os.write(engine.process.stdin.fileno(), b"".join(noise(50) * 40))
                    finally:
                        os._exit(0)
                time.sleep(0.3)  # lets both pipes fill up
                data, _ = engine.read(2000 * size)
                os.waitpid(feeder, 0)
                self.assertEqual(set(kinds(split(data, size))) - {START, END}, {DATA})


class Nonsense(unittest.TestCase):
    """Frames that no peer would send. Under the sanitizers these are the engine's fuzz test."""

    @staticmethod
    def frames(seed: int) -> Iterator[Answer]:
        chance = random.Random(seed)
        level = chance.choice([0, 1, 300, 32767])
        kinds = [DATA] * 20 + [START, END, TOF, EOF, -1, 77, 2**31 - 1, -(2**31)]
        for _ in range(400):
            if chance.random() < 0.02:
                level = chance.choice([0, 1, 300, 32767])
            samples = [chance.randint(-level, level) for _ in range(SAMPLES)]
            if chance.random() < 0.1:
                samples = [chance.choice([-32768, 32767])] * SAMPLES
            yield chance.choice(kinds), frame(DATA, samples)[4:]

    def test_any_types_and_samples_are_answered_one_to_one(self) -> None:
        for seed in range(5):
            sent = list(self.frames(seed))
            stream = [struct.pack("<i", kind) + rest for kind, rest in sent]
            partners = [kind if kind in (DATA, TOF, EOF) else DATA for kind, _ in sent]
            with self.subTest(seed=seed):
                self.assertEqual(kinds(answers(MMSE, stream)), partners)
                found = answers(VAD, stream)
                self.assertEqual([k for k in kinds(found) if k not in (START, END)], partners)
                for _, rest in found:
                    self.assertTrue(all(map(math.isfinite, struct.unpack("<25f", rest))))


if __name__ == "__main__":
    unittest.main()
