# SPDX-License-Identifier: MIT
"""The engine program as its user sees it: how it ends, its messages, its exit status."""

import signal
import subprocess
import tempfile
import unittest

from engine_story import ENGINE, MMSE, TIMEOUT_S, VAD, VAD_SIZE, Running, frame, noise, run
from frames import DATA, SIZE, TOF


class Ending(unittest.TestCase):
    def test_end_of_input_between_frames_is_success(self) -> None:
        for settings in (MMSE, VAD):
            for stream in (b"", frame(TOF), frame(TOF) + noise(1)[0]):
                result = run(settings, stream)
                self.assertEqual((result.returncode, result.stderr), (0, b""))

    def test_half_frame_is_an_error(self) -> None:
        for settings in (MMSE, VAD):
            for size in (1, 4, 323):
                result = run(settings, frame(TOF) + frame(DATA)[:size])
                self.assertEqual(result.returncode, 1)
                self.assertIn(b"input ended inside a frame", result.stderr)

    def test_closed_output_is_an_error_and_no_signal(self) -> None:
        for settings in (MMSE, VAD):
            with Running(settings) as engine:
                engine.process.stdout.close()
                engine.process.stdin.write(frame(TOF))
                self.assertEqual(engine.process.wait(TIMEOUT_S), 1)
                self.assertIn(b"standard output: Broken pipe", engine.process.stderr.read())

    def test_sigterm_ends_it_even_if_the_parent_blocked_or_ignored_it(self) -> None:
        def deaf() -> None:
            signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
            signal.signal(signal.SIGTERM, signal.SIG_IGN)

        for settings, size in ((MMSE, SIZE), (VAD, VAD_SIZE)):
            for prepare in (None, deaf):
                with Running(settings, preexec_fn=prepare) as engine:
                    engine.process.stdin.write(frame(TOF))
                    engine.read(size)
                    engine.process.terminate()
                    self.assertEqual(engine.process.wait(TIMEOUT_S), -signal.SIGTERM)


class CommandLine(unittest.TestCase):
    def call(self, *arguments: str) -> tuple[int, str, str]:
        result = subprocess.run(
            [ENGINE, *arguments],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=TIMEOUT_S,
        )
        return result.returncode, result.stdout, result.stderr

    def bad(self, text: str, *options: str) -> str:
        with tempfile.NamedTemporaryFile("w", suffix=".ini") as file:
            file.write(text)
            file.flush()
            status, out, err = self.call(*options, file.name)
            self.assertEqual((status, out), (2, ""))
            return err.replace(file.name, "FILE")

    def test_settings_as_shipped_are_good(self) -> None:
        self.assertEqual(self.call("--check", MMSE), (0, f"{MMSE}: good, role mmse\n", ""))
        self.assertEqual(self.call("--check", VAD), (0, f"{VAD}: good, role vad\n", ""))

    def test_bad_settings_name_file_line_and_key(self) -> None:
        text = "[engine]\nrole = vad\n\n[vad]\nonset = 3\n"
        message = "tolvanev-engine: FILE:5: key 'onset': unknown in section [vad]\n"
        self.assertEqual(self.bad(text), message)
        self.assertEqual(self.bad(text, "--check"), message)
        self.assertIn(
            "FILE:4: key 'onset_ms': 'x' is not",
            self.bad("[engine]\nrole = vad\n[vad]\nonset_ms = x\n"),
        )
        self.assertIn("key 'role': missing", self.bad("[vad]\nonset_ms = 30\n"))

    def test_missing_file_gives_path_and_reason(self) -> None:
        self.assertEqual(
            self.call("/nonexistent.ini"),
            (2, "", "tolvanev-engine: /nonexistent.ini: No such file or directory\n"),
        )

    def test_help_and_version_succeed(self) -> None:
        self.assertEqual(self.call("--help")[::2], (0, ""))
        self.assertRegex(self.call("--version")[1], r"^tolvanev-engine \d+\.\d+\.\d+\n$")

    def test_wrong_command_lines_get_the_usage(self) -> None:
        for arguments in ((), (MMSE, VAD), ("--unknown",), ("--check",), ("--help", MMSE)):
            status, out, err = self.call(*arguments)
            self.assertEqual((status, out), (2, ""))
            self.assertTrue(err.startswith("Usage:"))


if __name__ == "__main__":
    unittest.main()
