# SPDX-License-Identifier: MIT
"""The stand-ins as commands that somebody types: what they say when something is wrong, and the
exit status that tells a script."""
import os
import signal
import socket
import subprocess
import sys
import unittest
from pathlib import Path

import frames
from bridge_process import command_line
from ros_node import broken_pipe
from sound_client import SoundClient
from story import BOUND, BRIDGE, SCRIPTED_ENGINE, Story
from voice_link import LinkError
from waiting import until

PEERS = Path(frames.__file__).parent
BAD = "/nonexistent/heard.wav"


def call(name: str, *arguments: str) -> tuple[int, str]:
    """Exit status and messages of a command that ends by itself."""
    command = [sys.executable, "-B", str(PEERS / name), *arguments]
    result = subprocess.run(
        command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=BOUND
    )
    return result.returncode, result.stderr


class BadOutput(unittest.TestCase):
    """Told before anything is started, in one line."""

    def test_of_the_voice_server(self) -> None:
        message = f"voice_server: {BAD}: No such file or directory\n"
        self.assertEqual(call("voice_server.py", "-", "--out", BAD), (1, message))

    def test_of_the_ros_node(self) -> None:
        message = f"ros_node: {BAD}: No such file or directory\n"
        self.assertEqual(call("ros_node.py", "--out", BAD, "--", str(BRIDGE)), (1, message))


class RosNodeCommand(Story):
    """The bridge's options, and what stands behind its silent end."""

    def test_bridge_without_the_two_dashes(self) -> None:
        status, message = call("ros_node.py", str(BRIDGE), "-i", "127.0.0.1")
        self.assertEqual(status, 2)
        self.assertIn("-i 127.0.0.1: not for me; put -- in front of the bridge", message)

    def by_hand(self, engine: str | Path, settings: Path) -> list[str]:
        """A node with a bridge of our ports."""
        ports = self.client_port, self.server_port
        command = [sys.executable, "-B", str(PEERS / "ros_node.py"), "--"]
        return [*command, *command_line(BRIDGE, engine, (settings, settings), ports)]

    def end_of_bridge(self, engine: str) -> tuple[int, str]:
        """Exit status and messages of a node whose bridge gets one frame."""
        client = SoundClient(port=self.client_port)
        self.addCleanup(client.close)
        command = self.by_hand(engine, self.script("mmse", "exit_after 0"))
        # Its standard input stays open: the end of that would end the bridge.
        source, sink = os.pipe()
        self.addCleanup(os.close, sink)
        with open(source) as stdin:
            node = subprocess.Popen(command, stdin=stdin, stderr=subprocess.PIPE, text=True)
        self.addCleanup(node.kill)
        self.start_voice()
        try:
            while node.poll() is None:
                self.voice.send(frames.DATA)
        except LinkError:
            pass  # the bridge has ended
        _, messages = node.communicate(timeout=BOUND)
        return node.returncode, messages

    def test_engine_that_is_not_there(self) -> None:
        status, messages = self.end_of_bridge("./nosuch")
        self.assertEqual(status, 1)
        self.assertIn("killed by SIGPIPE", messages)
        self.assertIn("the engine ./nosuch is not there (-b); see the table", messages)

    def test_engine_that_is_not_executable(self) -> None:
        engine = self.folder / "engine"
        engine.write_bytes(b"")
        status, messages = self.end_of_bridge(str(engine))
        self.assertEqual(status, 1)
        self.assertIn(f"the engine {engine} is not executable (-b); see the table", messages)

    def test_engine_that_ends(self) -> None:
        status, messages = self.end_of_bridge(str(SCRIPTED_ENGINE))
        self.assertEqual(status, 1)
        self.assertIn("usually an engine that ended, at once if its settings are wrong", messages)

    def test_closed_terminal_leaves_no_bridge(self) -> None:
        # It still waits for its peers, so it would not notice that its input has ended.
        command = self.by_hand(SCRIPTED_ENGINE, self.script("mmse"))
        source, sink = os.pipe()
        self.addCleanup(os.close, sink)
        with open(source) as stdin:
            node = subprocess.Popen(command, stdin=stdin, stderr=subprocess.PIPE, text=True)
        self.addCleanup(node.kill)
        until(lambda: "Connecting" in node.stderr.readline(), BOUND)
        node.send_signal(signal.SIGHUP)
        _, messages = node.communicate(timeout=BOUND)
        self.assertIn("bridge needed SIGINT, status 0", messages)

    def test_voice_server_that_has_finished_is_named(self) -> None:
        self.assertIn(
            "a voice server that has finished",
            broken_pipe(["-b", str(SCRIPTED_ENGINE)], heard=True),
        )
        self.assertIn("usually an engine", broken_pipe(["-b", str(SCRIPTED_ENGINE)], heard=False))


class SoundClientCommands(Story):
    def test_what_was_sent_is_told(self) -> None:
        speech = self.folder / "speech.raw"
        speech.write_bytes(bytes(4000))
        port = self.client_port
        command = [sys.executable, "-B", str(PEERS / "sound_client.py"), "--port", str(port)]
        # The last word is a slip and ends it.
        command += ["begin", "Data", str(speech), "CANCEL", "wait", "soon"]
        client = subprocess.Popen(
            command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True
        )
        self.addCleanup(client.kill)
        self.assertIn("listening on", client.stderr.readline())
        got = b""
        with socket.create_connection(("127.0.0.1", port), BOUND) as bridge:
            while part := bridge.recv(65536):
                got += part
        _, messages = client.communicate(timeout=BOUND)
        data = b"DATA 3200\n\n" + bytes(3200) + b"DATA 800\n\n" + bytes(800)
        self.assertEqual(got, b"BEGIN\r\n\r\n" + data + b"CANCEL\r\n\r\n")
        told = [line.removeprefix("sound_client: ") for line in messages.splitlines()]
        self.assertEqual(
            [line for line in told if line.startswith("sent")],
            ["sent BEGIN, 9 bytes", f"sent DATA, 0.12 s of audio in 2 blocks, {len(data)} bytes",
             "sent CANCEL, 10 bytes"],
        )  # fmt: skip
        self.assertEqual((told[-1], client.returncode), ("wait soon: not a number of seconds", 1))


if __name__ == "__main__":
    unittest.main()
