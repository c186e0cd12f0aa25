# SPDX-License-Identifier: MIT
"""The node ends when it is told to, whatever it is doing, with status 0 and soon, and leaves no
process, no socket and no half-written file; killed outright, it takes bridge and engines along."""
import signal
import unittest

from node_story import NodeStory
from processes import members

SOON = 5.0  # seconds; 2.5 are promised, and a busy machine takes some
BOTH = signal.SIGTERM, signal.SIGINT


class Stopped(NodeStory):
    def expect_end(self, number: int) -> None:
        self.assertLess(self.stop(number), SOON)
        self.assertFalse(self.socket.exists())
        self.assertFalse(any(members(group) for group in self.groups))
        self.assertEqual(self.events("state")[-1]["state"], "stopping")
        self.assertIn("stopped", self.log())

    def test_while_starting(self) -> None:
        """The bridge has not said a word yet, and does not heed an interrupt."""
        deaf = self.command("deaf", 'trap "" INT TERM\nsleep 60')
        for number in BOTH:
            self.start_node(command=[str(deaf), *self.bridge()])
            self.assertEqual(self.status()["state"], "starting")
            self.expect_end(number)

    def test_while_connecting(self) -> None:
        for number in BOTH:
            self.start_node()
            self.wait_for_state("connecting")
            self.expect_end(number)
        self.start_client()  # and now it is the voice server that it waits for
        self.start_node()
        self.wait_for(lambda: self.client.connected(), "the bridge's connection")
        self.expect_end(signal.SIGTERM)

    def test_while_streaming(self) -> None:
        for number in BOTH:
            self.start()
            self.expect_end(number)
            end = self.events("run_end")[-1]
            self.assertEqual((end["asked"], end["status"]), (True, "status 0"))
            self.assertEqual((end["reason"], end["pause"]), ("asked to stop", 0))

    def test_while_restarting(self) -> None:
        for number in BOTH:
            self.start_node(command=["/bin/sh", "-c", "exit", *self.bridge()])
            self.wait_for_state("restarting")
            self.expect_end(number)

    def test_while_stopping(self) -> None:
        """These engines hold it up for a second. More signals change nothing."""
        stubborn = ["ignore_term", "ignore_end"]
        self.start(command=self.bridge(mmse=stubborn, vad=stubborn))
        self.node.terminate()
        self.wait_for_state("stopping")
        self.node.send_signal(signal.SIGHUP)
        self.node.send_signal(signal.SIGTERM)
        self.expect_end(signal.SIGINT)

    def test_by_order(self) -> None:
        self.start()
        self.assertEqual(self.ask("stop").returncode, 0)
        self.assertEqual(self.node.wait(SOON), 0)
        self.assertIn("stopping: order", self.log())

    def test_stopped_bridge(self) -> None:
        """One that does not even run (SIGSTOP) is killed."""
        self.start()
        self.kill(self.bridge_pid(), signal.SIGSTOP)
        self.expect_end(signal.SIGTERM)


class Killed(NodeStory):
    def expect_nothing_left(self) -> None:
        self.look_for_bridges()
        self.node.kill()
        self.node.wait()
        self.wait_for(lambda: not any(members(group) for group in self.groups), "all to end")

    def test_while_streaming(self) -> None:
        self.start()
        self.expect_nothing_left()
        self.assertTrue(self.socket.exists())
        self.start()  # a killed node leaves its socket; the next one replaces it
        self.stop()

    def test_while_connecting(self) -> None:
        """The bridge looks at its closed input only when its peers are there."""
        self.start_node()
        self.engine_pids()
        self.expect_nothing_left()

    def test_stopped_bridge(self) -> None:
        self.start()
        self.kill(self.bridge_pid(), signal.SIGSTOP)
        self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
