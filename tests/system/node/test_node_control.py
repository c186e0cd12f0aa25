# SPDX-License-Identifier: MIT
"""Orders on the control socket: play_sound reaches the bridge, whatever becomes of the bridge or of
who gave the order; and clients that flood, babble or read nothing harm nobody."""
import json
import signal
import socket
import stat
import subprocess
import unittest

from node_story import BOUND, NODE, SANITIZED, NodeStory

STATUS = b'{"order":"status"}\n'
LIMIT = "a sound is said to play for longer than --play-sound-limit; taken as ended"
# Bytes; all answers to what is sent would be two hundred millions.
GROWTH = 16_000_000 if SANITIZED else 2_000_000
VANISHED = "control client has gone without saying that its sound has ended; taken as ended"


class PlaySound(NodeStory):
    """The bridge tells its sound client of each change ("epdoff": the robot plays a sound), and its
    ROS node gets no frames meanwhile."""

    def wait_for_told(self, *words: str) -> None:
        self.wait_for(lambda: self.client.told == list(words), f"the sound client to hear {words}")

    def expect_no_frames(self) -> None:
        before = self.status()
        self.wait_for(lambda: self.status()["frame_age"] > 0.3, "frames to stop")
        self.assertLess(self.frames() - before["frames"]["data"], 100)

    def test_gates_the_frames(self) -> None:
        self.start()
        player, other = self.connect(), self.connect()
        self.play_sound(True, player)
        self.wait_for_told("epdoff")
        self.expect_no_frames()
        self.play_sound(True, other)
        self.play_sound(False, player)
        self.assertTrue(self.status()["play_sound"])  # the other one still plays
        self.play_sound(False, other)
        self.wait_for_told("epdoff", "epdon")
        self.wait_for_frames()
        self.assertEqual([event["on"] for event in self.events("play_sound")], [True, False])

    def test_quick_changes(self) -> None:
        """The bridge looks at no more than 256 bytes a pass; only the last state counts."""
        self.start()
        player = self.connect()
        for number in range(301):
            self.play_sound(number % 2 == 0, player)
        self.wait_for(lambda: self.client.told[-1:] == ["epdoff"], "the last state")
        self.expect_no_frames()

    def test_is_repeated_to_the_next_bridge(self) -> None:
        self.start()
        player = self.connect()
        self.play_sound(True, player)
        self.wait_for_told("epdoff")
        self.kill(self.bridge_pid())
        self.wait_for_told("epdoff", "epdoff")
        self.play_sound(False, player)
        self.wait_for_run(2)
        self.wait_for_told("epdoff", "epdoff", "epdon")

    def test_who_plays_vanishes(self) -> None:
        self.start()
        player = self.connect()
        self.play_sound(True, player)
        self.wait_for_told("epdoff")
        player.close()
        self.wait_for_told("epdoff", "epdon")
        self.wait_for_frames()
        self.assertIn(f"warning: {VANISHED}", self.log())

    def test_limit(self) -> None:
        self.start("--play-sound-limit", "0.5")
        player = self.connect()
        self.play_sound(True, player)
        self.wait_for_told("epdoff", "epdon")
        self.wait_for_log(f"warning: {LIMIT}")
        player.close()
        self.wait_for_frames()
        self.assertNotIn(VANISHED, self.log())

    def test_by_hand(self) -> None:
        self.start()
        words = [NODE, "--ask", self.socket, "play_sound"]
        with subprocess.Popen(words, stdout=subprocess.PIPE) as player:
            self.assertIn(b"A sound plays until", player.stdout.readline())
            self.wait_for_told("epdoff")
            player.send_signal(signal.SIGINT)
            self.assertEqual(player.wait(BOUND), 0)
        self.wait_for_told("epdoff", "epdon")
        self.assertNotIn(VANISHED, self.log())


class Restart(NodeStory):
    def test_order(self) -> None:
        """The only cure for a sound client that has closed, which the bridge does not notice."""
        self.start()
        self.assertEqual(self.order({"order": "restart"}), {"ok": True})
        self.wait_for_run(2)
        self.assertEqual([end["reason"] for end in self.events("run_end")], ["asked to restart"])

    def test_by_hand(self) -> None:
        self.start()
        words = [NODE, "--ask", self.socket, "restart"]
        self.assertEqual(subprocess.run(words, timeout=BOUND).returncode, 0)
        self.wait_for_run(2)


class Clients(NodeStory):
    """Frames flow all the while."""

    def setUp(self) -> None:
        super().setUp()
        self.start()

    def tearDown(self) -> None:
        self.wait_for_frames(20)
        self.assertEqual(self.status()["run"], 1)

    def answers_to(self, data: bytes, number: int) -> list[dict]:
        client = self.connect()
        client.sendall(data)
        with client.makefile("rb") as stream:
            return [json.loads(stream.readline()) for _ in range(number)]

    def test_flood_of_orders(self) -> None:
        answers = self.answers_to(STATUS * 300, 300)
        self.assertEqual({answer["ok"] for answer in answers}, {True})

    def test_garbage(self) -> None:
        lines = [b"", b"{", b"[" * 3000, b"\xff\xfe\0", b"12", b'"status"', b"{}", b'{"order":1}']
        lines += [b'{"order":"dance"}', b'{"order":"play_sound","on":"yes"}', bytes(range(11, 256))]
        lines += [b'{"a":' * 500, b'{"order":"status"} {"order":"stop"}']
        answers = self.answers_to(b"\n".join(lines) + b"\n" + STATUS, len(lines) + 1)
        self.assertEqual([answer["ok"] for answer in answers], [False] * len(lines) + [True])
        self.assertTrue(all(answer["error"] for answer in answers[:-1]))

    def test_megabytes_without_a_line_feed(self) -> None:
        client = self.connect()
        with self.assertRaises((BrokenPipeError, ConnectionResetError)):
            for _ in range(64):
                client.sendall(b"x" * 65536)
        self.wait_for_log("warning: control client: a line of more than 4096 bytes; closed")

    def test_unread_answers(self) -> None:
        client = self.connect()
        client.settimeout(0.5)
        before = self.node_memory()
        with self.assertRaises(TimeoutError):
            for _ in range(64):
                client.sendall(STATUS * 4096)
        self.assertLess(self.node_memory() - before, GROWTH)

    def node_memory(self) -> int:
        return self.status()["processes"][0]["memory"]

    def test_hundred_clients(self) -> None:
        before = self.open_files()
        clients = [self.connect() for _ in range(100)]
        for client in clients:
            client.sendall(STATUS)
        for client in clients:
            with client.makefile("rb") as stream:
                self.assertTrue(json.loads(stream.readline())["ok"])
            client.close()
        self.expect_open_files(before)

    def test_more_clients_than_it_takes(self) -> None:
        """Those who were first are served, and later ones again when these have gone."""
        before = self.open_files()
        clients = [self.connect() for _ in range(256)]
        self.assertEqual(self.connect().recv(1), b"")
        self.assertTrue(self.order({"order": "status"}, clients[0])["ok"])
        for client in clients:
            client.close()
        self.expect_open_files(before)

    def test_half_an_order_and_gone(self) -> None:
        before = self.open_files()
        for data in b"", STATUS[:7], STATUS * 3 + STATUS[:7]:
            client = self.connect()
            client.sendall(data)
            client.close()
        self.expect_open_files(before)


class Socket(NodeStory):
    def second_node(self, path: object) -> subprocess.CompletedProcess:
        words = [NODE, "--control", path, "--", *self.bridge()]
        return subprocess.run(words, capture_output=True, text=True, timeout=BOUND)

    def test_only_for_its_user(self) -> None:
        self.start_node()
        about = self.socket.stat()
        self.assertTrue(stat.S_ISSOCK(about.st_mode))
        self.assertEqual(stat.S_IMODE(about.st_mode), 0o600)

    def test_second_node_refuses(self) -> None:
        self.start_node()
        second = self.second_node(self.socket)
        self.assertEqual(second.returncode, 1)
        self.assertIn("another node listens there", second.stderr)
        self.assertEqual(self.status()["run"], 1)  # and the first is still to be reached

    def test_socket_of_a_killed_node_is_replaced(self) -> None:
        with socket.socket(socket.AF_UNIX) as dead:
            dead.bind(str(self.socket))
        self.start_node()
        self.assertTrue(self.order({"order": "status"})["ok"])

    def test_what_is_no_socket_stays(self) -> None:
        kept = self.folder / "kept"
        kept.write_text("dear")
        second = self.second_node(kept)
        self.assertEqual((second.returncode, kept.read_text()), (1, "dear"))
        self.assertIn("is there and no socket", second.stderr)

    def test_path_that_cannot_be(self) -> None:
        for path in self.folder / "no" / "folder", self.folder / ("x" * 120):
            second = self.second_node(path)
            self.assertEqual(second.returncode, 1)
            self.assertIn("--control", second.stderr)


class Ask(NodeStory):
    def test_status(self) -> None:
        self.start()
        told = self.ask("status")
        self.assertEqual((told.returncode, told.stderr), (0, ""))
        self.assertIn("state: streaming\n", told.stdout)
        self.assertRegex(told.stdout, r"(?m)^frames:\n  data: \d+$")

    def test_nobody_there(self) -> None:
        told = self.ask("status")
        self.assertEqual(told.returncode, 1)
        self.assertIn("No such file or directory", told.stderr)

    def test_no_such_word(self) -> None:
        told = self.ask("dance")
        self.assertEqual(told.returncode, 2)
        self.assertIn("takes one of status, play_sound, restart, stop", told.stderr)


if __name__ == "__main__":
    unittest.main()
