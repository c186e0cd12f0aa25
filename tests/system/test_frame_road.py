# SPDX-License-Identifier: MIT
"""Frames 1 to 40 travel: nine frames of delay, through both engines, back to the voice server with
big-endian numbers, and on to the ROS node as they were, with the VAD engine's markers in place."""
import time
import unittest

import frames
from fault_story import FaultStory
from story import BOUND, Story, speech

LAST = 40
DELAY = 9  # passes that a frame waits ahead of the engines
STEP = 0.03  # seconds for one pass; the bridge waits 0.1 for the next frame


class FrameRoad(Story):
    def travel(self, **scripts) -> None:
        self.start(**scripts)
        self.send(1, LAST)
        self.send_silence_until(lambda: (frames.DATA, -LAST) in self.returned(), "frame 40")
        self.wait_for(lambda: (frames.DATA, LAST) in self.heard(), "frame 40 at the ROS node")

    def test_frames_come_back_processed_and_in_order(self) -> None:
        # The scripted MMSE engine negates. Were a number little-endian, -1 would read as 255.
        self.travel()
        expected = [(frames.DATA, -number) for number in range(1, LAST + 1)]
        self.assertEqual(speech(self.returned())[:LAST], expected)

    def test_ros_node_gets_the_input_unchanged(self) -> None:
        self.travel()
        expected = [(frames.DATA, number) for number in range(1, LAST + 1)]
        self.assertEqual(speech(self.heard())[:LAST], expected)

    def test_vad_engine_gets_the_output_of_the_mmse_engine(self) -> None:
        self.travel()
        expected = [(frames.DATA, -number) for number in range(1, LAST + 1)]
        self.assertEqual(speech(self.engine_frames("vad"))[:LAST], expected)

    def test_markers_stand_ahead_of_the_frames_they_were_found_with(self) -> None:
        self.travel(vad=["start 11", "end 31"])
        for stream, sign in ((self.returned(), -1), (self.heard(), 1)):
            kinds = [kind for kind, _ in stream]
            self.assertEqual(kinds.count(frames.START), 1)
            self.assertEqual(kinds.count(frames.END), 1)
            start, end = kinds.index(frames.START), kinds.index(frames.END)
            self.assertEqual(end - start, 21)
            if (frames.DATA, 0) not in stream[:end]:
                self.assertEqual(stream[start + 1], (frames.DATA, sign * 11))
                self.assertEqual(stream[end + 1], (frames.DATA, sign * 31))

    def test_marker_is_a_frame_of_silence(self) -> None:
        self.travel(vad=["start 11"])
        markers = [frame for frame in self.node.frames if frame.kind == frames.START]
        self.assertEqual([marker.payload for marker in markers], [frames.SILENCE])

    def test_stream_types_pass_through(self) -> None:
        self.start()
        self.voice.send(frames.TOF)
        self.send(1, 5)
        self.voice.send(frames.EOF)
        self.send_silence_until(self.voice.final_eof_returned, "the end of the stream")
        expected = [frames.TOF, *[frames.DATA] * 5, frames.EOF]
        self.assertEqual([kind for kind, _ in speech(self.returned())], expected)

    def test_mmse_counts_are_logged_at_the_end_of_a_stream(self) -> None:
        self.start()
        self.voice.send(frames.TOF)
        self.voice.send(frames.EOF)
        self.send_silence_until(lambda: "mmse:: " in self.log(), "the counts")
        self.assertRegex(
            self.log(), r"DEBUG: mmse:: data:\d+ start:0 end:0 tof:1 eof:1 unknown:0\n"
        )

    def test_pass_without_data_moves_a_frame_of_silence(self) -> None:
        self.start()
        self.wait_for(lambda: self.engine_frames("mmse"), "a frame at the MMSE engine")
        self.assertEqual(set(self.engine_frames("mmse")), {(frames.DATA, 0)})

    def test_pass_without_data_waits_a_tenth_of_a_second(self) -> None:
        self.start()
        self.wait_for(lambda: self.engine_frames("mmse"), "a frame at the MMSE engine")
        seen, begun = len(self.engine_frames("mmse")), time.monotonic()
        self.wait_for(lambda: len(self.engine_frames("mmse")) >= seen + 20, "20 passes")
        # Half of it, should the first ones have come late.
        self.assertGreater(time.monotonic() - begun, 1.0)


class DelayLine(FaultStory):
    """Frame by frame: the next one is sent when the bridge has had time for a pass with this one.
    Passes without data, which a busy machine adds, show as silence in what the engines get."""

    def closest(self, first: int, last: int) -> int:
        """How many passes the newest frame sent was ahead of the newest one at the MMSE engine
        when the two were closest."""
        given = {}  # number sent: frames that the engine had before the next one was sent
        for number in range(first, last + 1):
            self.send_frames(number, number)
            time.sleep(STEP)
            given[number] = len(self.engine_frames("mmse"))
            self.receive()
        self.wait_for(lambda: (frames.DATA, last) in self.engine_frames("mmse"), f"frame {last}")
        order = [number for _, number in self.engine_frames("mmse")]
        place = {number: order.index(number) + 1 for number in range(first, last + 1)}
        # Only those that no silence followed: it might have been in the line by then.
        followed = [n for n in range(first, last) if place[n + 1] == place[n] + 1]
        return min((place[n] - given[n] for n in followed if given[n]), default=LAST)

    def test_frame_leaves_it_at_the_tenth_pass(self) -> None:
        self.connect_plainly(vad=["start 1"])  # an utterance: no renewal
        deadline, first = time.monotonic() + BOUND, 1
        # A machine that is too busy lets the engine be late, never early.
        while (closest := self.closest(first, first + LAST)) > DELAY:
            self.assertLess(time.monotonic(), deadline, f"{closest} passes")
            first += LAST + 1
        self.assertEqual(closest, DELAY)


if __name__ == "__main__":
    unittest.main()
