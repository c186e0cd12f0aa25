# SPDX-License-Identifier: MIT
"""A voice server that misbehaves: half frames, cut frames, frames byte by byte, a connection that
is half closed or reset, and one whose answers nobody reads."""
import array
import socket
import struct
import unittest

import frames
from fault_story import LOST, FaultStory, reset

SMALL = 4096  # bytes of receive buffer, so that a voice server that does not read is soon full


def block_of(piece: bytes) -> bytes:
    """What the bridge makes of one read: a whole frame, filled up with zeros."""
    return piece.ljust(frames.SIZE, b"\0")


def marked(mark: int, place: int) -> bytes:
    """A data frame that is silent but for one sample."""
    samples = array.array("h", bytes(frames.PAYLOAD_SIZE))
    samples[place] = mark
    return frames.make(frames.DATA, samples.tobytes())


def negated(block: bytes) -> bytes:
    """The payload that comes back for a block: the scripted MMSE engine negates."""
    samples = array.array("h", block[frames.HEADER_SIZE :])
    return array.array("h", [-sample for sample in samples]).tobytes()


class VoiceServerFaults(FaultStory):
    def loud(self) -> list[bytes]:
        """Payloads that came back, silence left out."""
        self.receive()
        return [frame.payload for frame in self.back if any(frame.payload)]

    def test_half_a_frame_then_silence(self) -> None:
        voice = self.connect_plainly()
        before = self.descriptors()
        half = frames.make(frames.DATA, struct.pack("<160h", *range(1, 161)))[:162]
        self.send_piece(voice, half)
        self.send_piece(voice, frames.make(frames.DATA, struct.pack("<h", 7)))
        self.wait_for(lambda: -7 in self.receive(), "the frame behind the half one")
        expected = [negated(block_of(half)), negated(block_of(struct.pack("<ih", 0, 7)))]
        self.assertEqual(self.loud(), expected)
        self.assertEqual(self.descriptors(), before)
        self.stop_by_input()

    def test_frames_cut_at_every_byte(self) -> None:
        # Each part becomes a frame; the second one begins with what should have been payload. The
        # mark stays out of its first four bytes, which are taken for a type.
        voice = self.connect_plainly(level="info")
        self.renewals_off()
        before = self.descriptors()
        expected = []
        for cut in range(1, frames.SIZE):
            frame = marked(cut, 10 if 150 < cut < 170 else 80)
            for piece in (frame[:cut], frame[cut:]):
                self.send_piece(voice, piece)
                expected.append(negated(block_of(piece)))
        expected = [payload for payload in expected if any(payload)]
        self.wait_for(lambda: len(self.loud()) >= len(expected), "the last part")
        self.assertEqual(self.loud(), expected)
        self.assertEqual(self.descriptors(), before)
        self.expect_running()

    def test_frame_cut_so_that_audio_is_taken_for_a_type(self) -> None:
        # The engines pass the type on, and the bridge does not know it.
        voice = self.connect_plainly()
        frame = frames.make(frames.DATA, b"\x55" * frames.PAYLOAD_SIZE)
        self.send_piece(voice, frame[:100])
        self.send_piece(voice, frame[100:])
        self.expect_end("status 0", "[AppcontrollerError] Unknown Exception.\n")

    def test_frame_that_comes_byte_by_byte(self) -> None:
        # One frame for each byte: the first one, 9, makes a TOF, the zeros behind it silence.
        voice = self.connect_plainly()
        for byte in frames.make(frames.TOF)[:24]:
            self.send_piece(voice, bytes([byte]))
        self.send_piece(voice, frames.make(frames.DATA, struct.pack("<h", 5)))
        self.wait_for(lambda: -5 in self.receive(), "the whole frame behind it")
        kinds = [frame.kind for frame in self.back]
        self.assertEqual((kinds.count(frames.TOF), set(kinds)), (1, {frames.TOF, frames.DATA}))
        whole = [any(frame.payload) for frame in self.back].index(True)
        self.assertGreaterEqual(whole - kinds.index(frames.TOF), 24)
        self.expect_running()

    def test_connection_that_is_half_closed_is_a_stream_of_silence(self) -> None:
        # Kept: the end of its frames reads like silence. What was sent still comes back.
        voice = self.connect_plainly()
        before = self.descriptors()
        self.send_frames(1, 20)
        voice.shutdown(socket.SHUT_WR)
        self.wait_for(lambda: -20 in self.receive(), "frame 20")
        self.assertEqual(self.receive(), [-number for number in range(1, 21)])
        self.assertEqual(self.descriptors(), before)
        self.expect_running()
        self.stop_by_input()

    def test_reset_amid_a_flood(self) -> None:
        # Whichever of the two the bridge is at when it comes.
        voice = self.connect_plainly()
        self.send_frames(1, 200)
        reset(voice)
        self.expect_end("status 0")
        self.assertRegex(self.log(), LOST)

    def stall(self) -> None:
        """Sends, and does not read what comes back, until the bridge is held up in a write."""
        self.start_client()
        self.start_bridge(level="info")
        self.connect_voice(SMALL)
        self.renewals_off()
        self.feed_to_standstill()

    def test_answers_that_nobody_reads_hold_the_bridge_up(self) -> None:
        self.stall()
        before = self.descriptors()
        moved = self.moved_since()
        self.wait_for(lambda: self.receive() or moved(), "frames to move on")
        self.assertEqual({frame.kind for frame in self.back}, {frames.DATA})
        self.assertEqual(self.descriptors(), before)
        self.node.bridge.close_input()
        self.wait_for(lambda: self.receive() or not self.node.bridge.running(), "the end")
        self.expect_end("status 0", "ROS connector read failed.\n")

    def test_reset_while_the_bridge_is_held_up(self) -> None:
        self.stall()
        reset(self.plain)
        self.expect_end("status 0", "WARNING: Socket write failed. error : ")
        self.assertRegex(self.log(), LOST)

    def test_reset_of_a_half_closed_connection_while_the_bridge_is_held_up(self) -> None:
        # The system tells this one by the signal.
        self.start_client()
        self.start_bridge(level="info")
        self.connect_voice(SMALL)
        self.renewals_off()
        self.plain.shutdown(socket.SHUT_WR)
        self.wait_for_standstill()
        reset(self.plain)
        self.expect_end("killed by SIGPIPE")

    def test_second_voice_server_is_never_served(self) -> None:
        self.connect_plainly()
        with socket.create_connection(("127.0.0.1", self.server_port)) as second:
            second.sendall(frames.make(frames.DATA, struct.pack("<h", 99)))
            self.send_frames(1, 30)
            self.wait_for(lambda: -20 in self.receive(), "frame 20 of the first one")
            self.assertNotIn(-99, self.receive())
            second.setblocking(False)
            self.assertRaises(BlockingIOError, second.recv, 1)
        self.expect_running()


if __name__ == "__main__":
    unittest.main()
