# SPDX-License-Identifier: MIT
"""Nobody reads the bridge's standard error and its pipe is full: it waits with its message,
whatever that is, and an interrupt ends it there like everywhere else."""
import fcntl
import os
import signal
import unittest

import frames
from fault_story import CONNECTED, SANITIZED, WRITE, FaultStory, reset
from story import CONNECTING

PIPE = 4096  # bytes: the smallest pipe there is


class FullPipe(FaultStory):
    def start_unread(self, room: str = "", level: str = "err", **arguments) -> None:
        """Starts the bridge with room for these messages, and not for one byte more."""
        self.bridge_log = self.folder / "errors"
        os.mkfifo(self.bridge_log)
        self.errors = os.open(self.bridge_log, os.O_RDWR)
        self.addCleanup(os.close, self.errors)
        fcntl.fcntl(self.errors, fcntl.F_SETPIPE_SZ, PIPE)
        os.write(self.errors, bytes(PIPE - len(room)))
        self.start_bridge(level=level, **arguments)

    def connect_unread(self, **arguments) -> None:
        """Everything, up to the first pass, with no room for the message behind it."""
        self.start_client()
        self.start_unread(CONNECTING + CONNECTED, **arguments)
        self.wait_for(lambda: self.try_voice(None), "the bridge to listen")
        self.addCleanup(self.plain.close)
        self.wait_for_client()

    def log(self) -> str:
        return "nothing that anybody has read"

    def is_held_up(self) -> bool:
        """It stands in a write to standard error."""
        return self.standing_in()[:2] == [WRITE, "0x2"]

    def expect_interrupted(self) -> None:
        self.wait_for(self.is_held_up, "the bridge to wait with its message")
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")

    def test_before_connecting(self) -> None:
        self.start_unread()
        self.expect_interrupted()

    def test_when_connected(self) -> None:
        self.start_client()
        self.start_unread(CONNECTING)
        self.wait_for(lambda: self.try_voice(None), "the bridge to listen")
        self.addCleanup(self.plain.close)
        self.expect_interrupted()

    @unittest.skipIf(SANITIZED, "a sanitizer cannot look at memory without a descriptor of its own")
    def test_when_no_engine_can_be_started(self) -> None:
        self.start_unread(through=("prlimit", "--nofile=4"))
        self.expect_interrupted()

    def test_when_the_voice_server_is_lost(self) -> None:
        self.connect_unread()
        reset(self.plain)
        self.expect_interrupted()

    def test_when_an_engine_talks_nonsense(self) -> None:
        self.connect_unread(mmse=["emit 0", "silent"], vad=["emit 5", "silent"])
        self.plain.sendall(frames.make(frames.DATA) * 10)
        self.expect_interrupted()

    def test_when_the_node_has_gone(self) -> None:
        self.connect_unread()
        self.node.bridge.close_input()
        self.expect_interrupted()

    def test_amid_a_line_of_the_log(self) -> None:
        # Nobody listens where the sound client should be: the cause is a line of the log.
        self.start_unread(CONNECTING, level="warn")
        self.expect_interrupted()


if __name__ == "__main__":
    unittest.main()
