# SPDX-License-Identifier: MIT
"""The ROS node's two pipes: words cut by a read, 10 MB of junk, an input that ends before the peers
are there, and an output that nobody reads."""
import struct
import termios
import unittest

import frames
from fault_story import CONNECTED, GROWTH, MEBI, SANITIZED, FaultStory, waiting_in

JUNK_WORD = b"play_sound_offf\n"  # 16 bytes, so that reads of 256 bytes cut none
JUNK = 10 * 1000 * 1000 // len(JUNK_WORD) * JUNK_WORD
JUNK_BOUND = 400.0  # seconds for 40,000 passes of the loop, which take three on a quiet machine
PLAYS = "INFO: play sound state from ros node is on.\n"


class StandardInput(FaultStory):
    def write(self, *pieces: bytes) -> None:
        """Each piece is read before the next one is written."""
        for piece in pieces:
            self.node.bridge.write(piece)
            self.wait_until_read()

    def wait_until_read(self, seconds: float = JUNK_BOUND) -> None:
        # The bridge's own end of the pipe, opened once more, tells how much waits in it.
        descriptor = f"/proc/{self.node.bridge.pid()}/fd/0"
        with open(descriptor, "rb", buffering=0) as end:
            read = lambda: waiting_in(end, termios.FIONREAD) == 0  # noqa: E731
            self.wait_for(read, "the words to be read", seconds)

    def start_spinning(self, **arguments) -> None:
        self.connect_plainly(vad=["start 1"], **arguments)
        self.spin()

    def test_words_cut_at_every_byte_are_lost(self) -> None:
        self.start_spinning()
        word = b"play_sound_on\n"
        for cut in range(1, len(word) - 1):
            self.write(word[:cut], word[cut:])
        self.assertNotIn(PLAYS, self.log())
        self.write(word)
        self.wait_for(lambda: PLAYS in self.log(), "a whole word")
        self.assertEqual(self.log().count(PLAYS), 1)
        self.stop_by_input()

    def test_word_without_its_line_feed_is_lost(self) -> None:
        self.start_spinning()
        self.write(b"play_sound_on", b"\n")
        self.write(b"play_sound_off\n")
        self.wait_for(lambda: "ros node is off." in self.log(), "a whole word")
        self.assertNotIn(PLAYS, self.log())

    def test_flood_of_ten_megabytes(self) -> None:
        self.start_spinning(level="info")
        descriptors, memory = self.descriptors(), self.resident()
        self.node.bridge.write(JUNK)
        self.wait_until_read()
        self.assertNotIn("play sound state", self.log())
        self.node.play_sound(True)
        self.wait_for(lambda: PLAYS in self.log(), "a word behind the flood")
        self.assertEqual(self.descriptors(), descriptors)
        self.assertLess(self.resident() - memory, 5 * MEBI if SANITIZED else GROWTH)
        self.stop_by_input()

    def test_closed_before_the_peers_are_there(self) -> None:
        # Not noticed until frames move.
        self.start_bridge()
        self.wait_for(lambda: "Connection refused" in self.log(), "the first attempt to fail")
        self.node.bridge.close_input()
        self.start_client()
        self.connect_voice()
        self.expect_end("status 0", CONNECTED, "[ROSConnectorError] ROS connector read failed.\n")


class OutputThatNobodyReads(FaultStory):
    def test_frames_go_on_without_a_loss_when_it_is_read_again(self) -> None:
        self.start_client()
        self.start_bridge(node_reads=False, vad=["start 1"])
        self.connect_voice()
        self.send_frames(1, 300)
        self.feed_to_standstill()
        self.assertNotIn(-300, self.receive(), "the bridge was not held up")
        heard = []
        while not heard or heard[-1] != 300:
            block = frames.read_exact(self.node.bridge.output(), frames.SIZE)
            heard.append(struct.unpack("<ih", block[:6])[1])
        self.assertEqual([number for number in heard if number], list(range(1, 301)))
        self.node.start_reading()
        self.expect_running()
        self.stop_by_input()


if __name__ == "__main__":
    unittest.main()
