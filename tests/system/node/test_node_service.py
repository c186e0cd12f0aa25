# SPDX-License-Identifier: MIT
"""The node as a service: what systemd is told when it has started it, and what an operator reads:
one line an event, with levels for the journal, nothing for hours on end, and no harm from standard
error that nobody reads."""
import os
import socket
import subprocess
import unittest

from node_story import BOUND, NodeStory
from waiting import until


class UnderSystemd(NodeStory):
    def setUp(self) -> None:
        super().setUp()
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.manager.close)
        self.manager.bind(str(self.folder / "notify"))
        self.manager.settimeout(BOUND)
        self.told: list[str] = []

    def environment(self, **more: str) -> dict[str, str]:
        return os.environ | {"NOTIFY_SOCKET": str(self.folder / "notify")} | more

    def wait_for_word(self, word: str) -> None:
        """Something that was not told before."""
        while word not in self.told:
            self.told += self.manager.recv(4096).decode().splitlines()
        self.told.remove(word)

    def test_from_ready_to_stopping(self) -> None:
        self.start_client()
        self.start_node(env=self.environment(WATCHDOG_USEC="400000"))
        self.wait_for_word("READY=1")
        self.wait_for_word("STATUS=connecting")
        for _ in range(3):
            self.wait_for_word("WATCHDOG=1")
        self.start_peers()
        self.wait_for_word("STATUS=streaming")
        self.microphone.reset()
        self.wait_for_word("STATUS=restarting: voice server reset the connection")
        self.wait_for_word("STATUS=streaming")
        self.stop()
        self.wait_for_word("STOPPING=1")

    def test_without_watchdog(self) -> None:
        self.start_node(env=self.environment())
        self.wait_for_word("STATUS=connecting")
        self.stop()
        self.wait_for_word("STOPPING=1")
        self.assertNotIn("WATCHDOG=1", self.told)

    def test_manager_that_is_gone(self) -> None:
        self.manager.close()
        self.start(env=self.environment(WATCHDOG_USEC="400000"))
        self.stop()


class Messages(NodeStory):
    def test_journal_levels(self) -> None:
        self.log_file.touch()
        about = self.log_file.stat()
        journal = f"{about.st_dev}:{about.st_ino}"
        self.start(env=os.environ | {"JOURNAL_STREAM": journal})
        self.microphone.reset()
        self.wait_for_run(2)
        self.stop()
        lines = self.log().splitlines()
        self.assertEqual([line for line in lines if line[:3] not in ("<3>", "<4>", "<6>")], [])
        self.assertIn("<3>bridge: [VoiceServerError] Data connector read failed.", lines)
        self.assertIn("<6>stopping: SIGTERM", lines)
        warned = "<4>the bridge ended (status 0): voice server reset the connection"
        self.assertTrue(any(line.startswith(warned) for line in lines), lines)

    def test_another_journal(self) -> None:
        """Standard error was led elsewhere since: it is people who read it."""
        self.start_node(env=os.environ | {"JOURNAL_STREAM": "1:2"})
        self.stop()
        self.assertRegex(self.log(), r"(?m)^\d\d:\d\d:\d\d\.\d{3} info: stopping: SIGTERM$")

    def test_unfinished_line(self) -> None:
        """The bridge says what it waits for without a line feed."""
        self.start_client()
        self.start_node()
        self.wait_for_log("info: bridge: Connecting to Server ...\n")

    def test_repeated_messages(self) -> None:
        talker = self.command(
            "talker",
            "i=0\nwhile [ $i -lt 300 ]; do i=$((i + 1))\n"
            'echo "- 01:02:03.004 ERROR: Socket connect error. error : Connection refused" >&2\n'
            'done\necho "- 01:02:03.004 ERROR: all said" >&2\nexec sleep 60',
        )
        self.start_node(command=[str(talker), *self.bridge()])
        self.wait_for_log("error: bridge: all said\n")
        said = self.log().count("error: bridge: Socket connect error. error : Connection refused")
        self.assertEqual(said, 1)

    def test_level(self) -> None:
        self.start("--log-level", "warn")
        self.microphone.reset()
        self.wait_for_run(2)
        self.stop()
        levels = {line.split()[1] for line in self.log().splitlines()}
        self.assertEqual(levels, {"error:", "warning:"})

    def test_nobody_reads_standard_error(self) -> None:
        """Far more than its pipe and the node hold; the bridge's messages are taken all the same,
        or it would wait for that."""
        marker = self.folder / "all-said"
        talker = self.command("talker", f"seq 1 20000 >&2\ntouch {marker}\nexec sleep 60")
        self.start_node(command=[str(talker), *self.bridge()], stderr=subprocess.PIPE)
        with self.node.stderr:
            self.assertTrue(until(marker.exists, BOUND), "the bridge was held up")
            self.assertEqual(self.status()["run"], 1)
            self.stop()

    def test_standard_error_is_closed(self) -> None:
        self.start_peers()
        self.start_node(stderr=subprocess.PIPE)
        self.node.stderr.close()
        self.wait_for_frames()
        self.microphone.reset()
        self.wait_for_run(2)
        self.stop()


if __name__ == "__main__":
    unittest.main()
