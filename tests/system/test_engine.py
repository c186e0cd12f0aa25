# SPDX-License-Identifier: MIT
"""The whole engine program, as its user sees it: pipes, messages, exit status.

TOLVANEV_BUILD names the build directory with tolvanev-engine, mmse.ini and vad.ini.
"""

import math
import os
import random
import select
import signal
import struct
import subprocess
import tempfile
import time
import unittest

BUILD = os.environ.get("TOLVANEV_BUILD", "build/debug")
ENGINE = os.path.join(BUILD, "tolvanev-engine")
MMSE = os.path.join(BUILD, "mmse.ini")
VAD = os.path.join(BUILD, "vad.ini")

DATA, START, END, TOF, EOF = 0, 1, 2, 9, 10
SAMPLES = 160  # 10 ms at 16 kHz
IN_SIZE = 324
VAD_SIZE = 104
TIMEOUT_S = 20  # generous: the machine may be busy


def frame(kind, samples=None):
    return struct.pack("<i160h", kind, *(samples or [0] * SAMPLES))


def noise(frames, level=300, seed=1):
    chance = random.Random(seed)
    return [frame(DATA, [int(chance.gauss(0, level)) for _ in range(SAMPLES)])
            for _ in range(frames)]


def voice(frames, level=6000):
    """A buzz at 120 Hz with formants and a syllable rhythm: enough of a voice for the detector."""
    out = []
    for index in range(frames):
        samples = []
        for n in range(index * SAMPLES, (index + 1) * SAMPLES):
            t = n / 16000
            syllable = 0.6 + 0.4 * math.sin(2 * math.pi * 4 * t)
            buzz = sum(math.sin(2 * math.pi * 120 * h * t) /
                       (1 + abs(h - 5) * abs(h - 12) / 8) for h in range(1, 25))
            samples.append(int(level * syllable * buzz / 4))
        out.append(frame(DATA, samples))
    return out


def split(data, size):
    """Cuts the output into (type, rest) pairs."""
    assert len(data) % size == 0, len(data)
    return [(struct.unpack_from("<i", data, at)[0], data[at + 4:at + size])
            for at in range(0, len(data), size)]


def run(settings, data):
    return subprocess.run([ENGINE, settings], input=data, capture_output=True, timeout=TIMEOUT_S)


def answers(settings, frames):
    result = run(settings, b"".join(frames))
    assert result.returncode == 0, result.stderr
    return split(result.stdout, IN_SIZE if settings == MMSE else VAD_SIZE)


def kinds(pairs):
    return [kind for kind, _ in pairs]


def level_db(pairs):
    """RMS level of answered audio in dB re 1."""
    values = [s for kind, rest in pairs if kind == DATA for s in struct.unpack("<160h", rest)]
    return 10 * math.log10(sum(v * v for v in values) / len(values) + 1e-9)


class Running:
    """An engine whose pipes the test holds."""

    def __init__(self, settings, **more):
        self.process = subprocess.Popen([ENGINE, settings], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        bufsize=0, **more)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout, self.process.stderr):
            pipe.close()

    def read(self, size):
        """Waits for `size` bytes; returns them and the sizes in which they came."""
        data, sizes = b"", []
        while len(data) < size:
            ready, _, _ = select.select([self.process.stdout], [], [], TIMEOUT_S)
            assert ready, "no answer"
            part = os.read(self.process.stdout.fileno(), 65536)
            assert part, "output closed"
            data += part
            sizes.append(len(part))
        return data, sizes


class FrameCount(unittest.TestCase):
    STREAM = ([frame(TOF)] + noise(30) + voice(60) + [frame(START)] + noise(40) + [frame(END)] +
              [frame(EOF), frame(TOF)] + voice(40) + [frame(TOF)] + noise(5) + voice(30) +
              [frame(77), frame(EOF)])

    def pieces(self, seed):
        data, at, chance = b"".join(self.STREAM), 0, random.Random(seed)
        while at < len(data):
            size = chance.choice([1, 3, 100, 323, 324, 325, 648, 5000])
            yield data[at:at + size]
            at += size

    def answer_pieces(self, settings, seed):
        with Running(settings) as engine:
            out = b""
            for piece in self.pieces(seed):
                engine.process.stdin.write(piece)
                while select.select([engine.process.stdout], [], [], 0)[0]:
                    out += os.read(engine.process.stdout.fileno(), 65536)
            out += engine.process.communicate(timeout=TIMEOUT_S)[0]
            self.assertEqual(engine.process.returncode, 0)
        return out

    def test_mmse_answers_each_frame_with_one_of_the_partner_type(self):
        sent = [struct.unpack_from("<i", f)[0] for f in self.STREAM]
        expected = [kind if kind in (DATA, TOF, EOF) else DATA for kind in sent]
        self.assertEqual(kinds(answers(MMSE, self.STREAM)), expected)

    def test_vad_answers_each_frame_with_one_of_the_partner_type(self):
        sent = [struct.unpack_from("<i", f)[0] for f in self.STREAM]
        expected = [kind if kind in (DATA, TOF, EOF) else DATA for kind in sent]
        seen = kinds(answers(VAD, self.STREAM))
        self.assertIn(START, seen)
        self.assertEqual([kind for kind in seen if kind not in (START, END)], expected)

    def test_answer_does_not_depend_on_how_the_input_is_cut(self):
        for settings in (MMSE, VAD):
            whole = run(settings, b"".join(self.STREAM)).stdout
            for seed in range(3):
                with self.subTest(settings=settings, seed=seed):
                    self.assertEqual(self.answer_pieces(settings, seed), whole)

    def test_frames_without_audio_pass_mmse_unchanged(self):
        samples = list(range(SAMPLES))
        pairs = answers(MMSE, [frame(k, samples) for k in (TOF, EOF, START, END)])
        self.assertEqual(pairs, [(k, frame(k, samples)[4:]) for k in (TOF, EOF, DATA, DATA)])

    def test_each_frame_is_answered_before_the_next_is_read(self):
        for settings, size in ((MMSE, IN_SIZE), (VAD, VAD_SIZE)):
            with self.subTest(settings=settings), Running(settings) as engine:
                for sent in [frame(TOF)] + [frame(DATA)] * 20:  # silence adds no marker
                    engine.process.stdin.write(sent)
                    self.assertEqual(engine.read(size)[1], [size])

    def test_pipe_that_is_full_loses_nothing(self):
        for settings, size in ((MMSE, IN_SIZE), (VAD, VAD_SIZE)):
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
    def frames(seed):
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

    def test_any_types_and_samples_are_answered_one_to_one(self):
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


class Markers(unittest.TestCase):
    def test_end_stands_before_eof(self):
        seen = kinds(answers(VAD, [frame(TOF)] + voice(60) + [frame(EOF)]))
        self.assertEqual(seen.count(START), 1)
        self.assertEqual(seen[-2:], [END, EOF])

    def test_noise_alone_is_no_utterance_not_even_in_a_cold_start(self):
        for level in (30, 300, 3000):
            suppressed = answers(MMSE, [frame(TOF)] + noise(150, level))
            stream = [struct.pack("<i", kind) + rest for kind, rest in suppressed]
            self.assertNotIn(START, kinds(answers(VAD, stream)))

    def test_early_speech_is_found(self):
        stream = [frame(TOF)] + noise(10, 30) + voice(60)
        seen = kinds(answers(VAD, stream))
        self.assertIn(START, seen[10:25])

    def test_nothing_is_added_before_tof(self):
        seen = kinds(answers(VAD, [frame(TOF)] + voice(60) + [frame(TOF)] + [frame(DATA)] * 3))
        self.assertIn(START, seen)
        self.assertNotIn(END, seen)
        self.assertEqual(seen[-4:], [TOF, DATA, DATA, DATA])

    def test_start_and_end_alternate(self):
        stream = [frame(TOF)]
        for _ in range(4):
            stream += voice(50) + noise(50, level=3)
        markers = [k for k in kinds(answers(VAD, stream + [frame(EOF)])) if k in (START, END)]
        self.assertEqual(markers, [START, END] * 4)

    def test_stream_after_tof_is_answered_like_a_first_one(self):
        stream = [frame(TOF)] + noise(20) + voice(40)
        for settings in (MMSE, VAD):
            first = answers(settings, stream)
            second = answers(settings, voice(35) + stream)[-len(first):]
            self.assertEqual(second, first)


class Priming(unittest.TestCase):
    # The mean of four recordings of noise at level 300, as the bridge sends it: 6 dB quieter.
    PRIMED = [frame(EOF), frame(TOF)] + noise(10, level=150)

    def attenuation_db(self, head, settings=MMSE):
        live = noise(50, seed=2)
        result = run(settings, b"".join(head + live))
        return 20 * math.log10(300) - level_db(split(result.stdout, IN_SIZE)[-50:])

    def test_primed_start_suppresses_noise_at_once(self):
        self.assertGreater(self.attenuation_db(self.PRIMED), 15)

    def test_priming_gain_makes_up_for_the_averaging(self):
        with tempfile.NamedTemporaryFile("w", suffix=".ini") as plain:
            plain.write("[engine]\nrole = mmse\n[mmse]\npriming_gain_db = 0\n")
            plain.flush()
            self.assertLess(self.attenuation_db(self.PRIMED, plain.name), 10)

    def test_other_starts_are_cold(self):
        self.assertLess(self.attenuation_db(self.PRIMED[1:]), 5)

    def test_no_frame_is_added_or_lost(self):
        self.assertEqual(kinds(answers(MMSE, self.PRIMED)), [EOF, TOF] + [DATA] * 10)

    def test_noise_is_suppressed_after_a_second_of_a_cold_start(self):
        pairs = answers(MMSE, [frame(TOF)] + noise(200))
        self.assertGreater(20 * math.log10(300) - level_db(pairs[101:]), 15)


class Ending(unittest.TestCase):
    def test_end_of_input_between_frames_is_success(self):
        for settings in (MMSE, VAD):
            for stream in (b"", frame(TOF), frame(TOF) + noise(1)[0]):
                result = run(settings, stream)
                self.assertEqual((result.returncode, result.stderr), (0, b""))

    def test_half_frame_is_an_error(self):
        for settings in (MMSE, VAD):
            for size in (1, 4, 323):
                result = run(settings, frame(TOF) + frame(DATA)[:size])
                self.assertEqual(result.returncode, 1)
                self.assertIn(b"input ended inside a frame", result.stderr)

    def test_closed_output_is_an_error_and_no_signal(self):
        for settings in (MMSE, VAD):
            with Running(settings) as engine:
                engine.process.stdout.close()
                engine.process.stdin.write(frame(TOF))
                self.assertEqual(engine.process.wait(TIMEOUT_S), 1)
                self.assertIn(b"standard output: Broken pipe", engine.process.stderr.read())

    def test_sigterm_ends_it_even_if_the_parent_blocked_or_ignored_it(self):
        def deaf():
            signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
            signal.signal(signal.SIGTERM, signal.SIG_IGN)

        for settings, size in ((MMSE, IN_SIZE), (VAD, VAD_SIZE)):
            for prepare in (None, deaf):
                with Running(settings, preexec_fn=prepare) as engine:
                    engine.process.stdin.write(frame(TOF))
                    engine.read(size)
                    engine.process.terminate()
                    self.assertEqual(engine.process.wait(TIMEOUT_S), -signal.SIGTERM)


class CommandLine(unittest.TestCase):
    def call(self, *arguments):
        result = subprocess.run([ENGINE, *arguments], stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=TIMEOUT_S)
        return result.returncode, result.stdout, result.stderr

    def bad(self, text, *options):
        with tempfile.NamedTemporaryFile("w", suffix=".ini") as file:
            file.write(text)
            file.flush()
            status, out, err = self.call(*options, file.name)
            self.assertEqual((status, out), (2, ""))
            return err.replace(file.name, "FILE")

    def test_settings_as_shipped_are_good(self):
        self.assertEqual(self.call("--check", MMSE), (0, f"{MMSE}: good, role mmse\n", ""))
        self.assertEqual(self.call("--check", VAD), (0, f"{VAD}: good, role vad\n", ""))

    def test_bad_settings_name_file_line_and_key(self):
        text = "[engine]\nrole = vad\n\n[vad]\nonset = 3\n"
        message = "FILE:5: key 'onset': unknown in section [vad]\n"
        self.assertEqual(self.bad(text), message)
        self.assertEqual(self.bad(text, "--check"), message)
        self.assertIn("FILE:4: key 'onset_ms': 'x' is not",
                      self.bad("[engine]\nrole = vad\n[vad]\nonset_ms = x\n"))
        self.assertIn("key 'role': missing", self.bad("[vad]\nonset_ms = 30\n"))

    def test_missing_file_gives_path_and_reason(self):
        self.assertEqual(self.call("/nonexistent.ini"),
                         (2, "", "/nonexistent.ini: No such file or directory\n"))

    def test_help_and_version_succeed(self):
        self.assertEqual(self.call("--help")[::2], (0, ""))
        self.assertRegex(self.call("--version")[1], r"^tolvanev-engine \d+\.\d+\.\d+\n$")

    def test_wrong_command_lines_get_the_usage(self):
        for arguments in ((), (MMSE, VAD), ("--unknown",), ("--check",), ("--help", MMSE)):
            status, out, err = self.call(*arguments)
            self.assertEqual((status, out), (2, ""))
            self.assertTrue(err.startswith("Usage:"))


if __name__ == "__main__":
    unittest.main()
