# SPDX-License-Identifier: MIT
"""The stand-in for the voice server with a microphone on its standard input: what came before the
bridge was there is not sent, nothing goes out faster than it comes, and a file is played whole."""
import os
import socket
import subprocess
import sys
import threading
import time
import unittest
from pathlib import Path

import frames
from fault_story import reset
from live_input import LATEST, LiveInput
from story import BOUND, number_of, numbered
from waiting import free_port, until

SCRIPT = Path(frames.__file__).with_name("voice_server.py")
OLD, NEW = 1, 2  # first samples of frames from before and after the bridge was there


class Echo:
    """A bridge without engines: returns each frame at once."""

    def __init__(self, port: int, resets: int = 0) -> None:
        self._resets = resets  # connections that are reset unread, as between two attempts
        self.got: list[tuple[int, int]] = []  # type and first sample of each frame
        self._listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self._serve, daemon=True).start()

    def data(self) -> list[int]:
        """First samples of the audio so far, silence left out."""
        return [first for kind, first in self.got if kind == frames.DATA and first]

    def _serve(self) -> None:
        for _ in range(self._resets):
            peer, _ = self._listener.accept()
            peer.recv(1, socket.MSG_PEEK)  # something has been sent
            reset(peer)
        peer, _ = self._listener.accept()
        with self._listener, peer:
            cutter = frames.Cutter()
            while part := peer.recv(65536):
                for frame in cutter.feed(part):
                    self.got.append((frame.kind, number_of(frame.payload)))
                    peer.sendall(frames.make(*frame, big=True))


class VoiceServerScript(unittest.TestCase):
    def setUp(self) -> None:
        self.port = free_port()

    def launch(self, *options: str, stdin=subprocess.PIPE) -> None:
        command = [sys.executable, "-B", str(SCRIPT), "-", "--port", str(self.port), *options]
        self.script = subprocess.Popen(
            command, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0
        )
        self.addCleanup(self.end)

    def end(self) -> None:
        self.script.kill()
        self.script.wait()
        for pipe in (self.script.stdin, self.script.stdout, self.script.stderr):
            if pipe:
                pipe.close()

    def wait_for(self, condition, what: str) -> None:
        if not until(condition, BOUND):
            self.fail(f"waited {BOUND:g} s for {what}")

    def wait_until_it_waits(self) -> None:
        line = self.script.stderr.readline()
        self.assertIn(b"waiting for the bridge", line)

    def write(self, first: int, count: int) -> None:
        self.script.stdin.write(numbered(first) * count)

    def finish(self) -> str:
        """Ends the input; returns the messages."""
        if self.script.stdin:
            self.script.stdin.close()
        self.assertEqual(self.script.wait(BOUND), 0)
        return self.script.stderr.read().decode()

    def test_audio_from_before_the_bridge_is_thrown_away(self) -> None:
        self.launch()
        self.write(OLD, 250)  # more than a pipe holds: it is being read
        self.wait_until_it_waits()
        echo = Echo(self.port)
        self.wait_for(lambda: echo.got, "the first frame")
        self.write(NEW, 30)
        messages = self.finish()
        self.assertEqual(echo.data(), [NEW] * 30)
        self.assertIn("threw away 2.5 s that came before the bridge was there", messages)

    def test_microphone_that_was_there_first_is_heard_at_once(self) -> None:
        # Two seconds wait in the pipe, and the bridge is there as well.
        source, sink = os.pipe()
        os.write(sink, numbered(OLD) * 200)
        echo = Echo(self.port)
        self.launch(stdin=source)
        os.close(source)
        self.wait_for(lambda: echo.got, "the first frame")
        os.write(sink, numbered(NEW) * 30)
        os.close(sink)
        self.finish()
        self.assertEqual(echo.data(), [NEW] * 30)

    def test_nothing_goes_out_faster_than_audio_comes(self) -> None:
        echo = Echo(self.port)
        self.launch()
        self.wait_for(lambda: echo.got, "the first frame")
        begun = time.monotonic()
        self.write(NEW, 90)  # a recorder's block
        self.wait_for(lambda: len(echo.data()) == 90, "the block")
        # It may run by a hundredth faster, and a tenth of a second ahead.
        self.assertGreater(time.monotonic() - begun, 0.9 / 1.01 - 0.11)
        self.finish()

    def test_regular_file_on_standard_input_is_played_whole(self) -> None:
        with open(os.memfd_create("speech"), "w+b") as file:
            file.write(numbered(OLD) * 250)
            file.seek(0)
            self.launch("--fast", stdin=file)
        self.wait_until_it_waits()
        echo = Echo(self.port)
        self.finish()
        self.assertEqual(echo.data(), [OLD] * 250)

    def test_pipe_is_played_whole_on_request(self) -> None:
        self.launch("--fast", "--whole")
        self.write(OLD, 150)  # as much as a pipe takes while nobody reads
        self.wait_until_it_waits()
        echo = Echo(self.port)
        self.finish()
        self.assertEqual(echo.data(), [OLD] * 150)

    def test_connection_that_the_bridge_did_not_read_is_made_again(self) -> None:
        self.launch("--whole")
        self.write(OLD, 20)
        echo = Echo(self.port, resets=2)
        self.wait_for(lambda: echo.got, "the first frame")
        self.write(NEW, 20)
        messages = self.finish()
        self.assertEqual(echo.data(), [OLD] * 20 + [NEW] * 20)
        self.assertEqual(messages.count("the bridge did not come to read; once more"), 2)

    def test_microphone_is_heard_afresh_when_it_was_not_read(self) -> None:
        self.launch()
        echo = Echo(self.port, resets=1)
        self.wait_for(lambda: self.write(OLD, 1) or echo.got, "the first frame")
        self.write(NEW, 20)
        messages = self.finish()
        self.assertEqual(echo.data()[-20:], [NEW] * 20)
        self.assertEqual(messages.count("the bridge did not come to read; once more"), 1)

    def test_input_that_has_ended_too_early_is_told(self) -> None:
        self.launch()
        self.write(OLD, 20)
        self.script.stdin.close()
        self.wait_until_it_waits()
        echo = Echo(self.port)
        messages = self.finish()
        self.assertEqual(echo.data(), [])
        self.assertIn("the input has ended already; --whole plays all of a pipe", messages)


class Waiting(unittest.TestCase):
    """What waits while the bridge takes nothing."""

    def setUp(self) -> None:
        source, sink = os.pipe()
        self.sink = open(sink, "wb", buffering=0)
        stream = open(source, "rb")
        self.addCleanup(stream.close)
        self.addCleanup(lambda: list(self.live.payloads()))  # until nobody reads from it
        self.addCleanup(self.sink.close)
        self.live = LiveInput(stream)

    def test_the_newest_second_is_kept(self) -> None:
        self.live.begin()
        for number in range(1, 301):
            self.sink.write(numbered(number))
        self.assertTrue(until(lambda: self.live.late() == 3.0 - LATEST, BOUND), self.live.late())
        self.sink.close()
        kept = [number_of(payload) for payload in self.live.payloads()]
        most = int(LATEST * frames.PER_SECOND)
        self.assertEqual(kept, list(range(301 - most, 301)))
        self.assertTrue(self.live.ended())

    def test_sample_that_is_half_gone_stays_whole(self) -> None:
        self.sink.write(numbered(OLD)[:-1])
        self.live.begin()
        self.sink.write(b"\0" + numbered(NEW))
        self.sink.close()
        first = next(self.live.payloads())
        self.assertEqual(first[:4], bytes((0, 0, NEW, 0)))


if __name__ == "__main__":
    unittest.main()
