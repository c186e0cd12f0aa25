# SPDX-License-Identifier: MIT
"""Frames that TCP cuts: what becomes of a stream that is written with no thought of it, and how the
stand-in for the voice server keeps one whole. The bridge is stopped now and then, as a busy machine
might stop it, so that frames pile up in front of it.
"""
import socket
import struct
import threading
import time
import unittest

import frames
from fault_story import TERMINATE, FaultStory, taken
from story import BOUND, BUILD
from voice_link import UNDER_WAY_MOST, VoiceLink

ENGINE = BUILD / "tolvanev-engine"
SMALL = 8192  # bytes of send buffer, so that both buffers together are soon full


def loud(number: int, sign: int = 1) -> bytes:
    """A payload without a silent sample; the scripted MMSE engine negates it."""
    return struct.pack("<160h", *(sign * (number + place) for place in range(frames.SAMPLES)))


def under_way(link: VoiceLink) -> int:
    sent, returned = link.progress()
    return sent - returned


LOUD = frames.make(frames.DATA, loud(1000))


class CutFrames(FaultStory):
    @unittest.skipUnless(ENGINE.exists(), "this build has no engine")
    def test_frame_cut_by_a_full_buffer_shifts_the_rest_and_ends_it(self) -> None:
        # The default engines answer any frame, so it is the bridge that meets a type which is none.
        settings = (BUILD / "mmse.ini", BUILD / "vad.ini")
        voice = self.connect_plainly(engine=ENGINE, settings=settings)
        voice.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, SMALL)
        threading.Thread(target=self.take_all, args=(voice,), daemon=True).start()
        sent = 0
        while sent % frames.SIZE == 0:  # a buffer can be full just at the end of a frame
            self.pause_bridge()
            sent += self.fill(voice, LOUD * 1000)
            self.let_bridge_go()
            self.wait_for(lambda: taken(voice), "the bridge to read all of it, half a frame too")
        # The rest of that frame begins with samples, which are taken for its type.
        rest = LOUD[sent % frames.SIZE :]
        voice.sendall(rest + LOUD)
        self.feed_until_ended()
        kind = struct.unpack_from("<I", rest + LOUD)[0]
        self.expect_end(
            "status 0", f"[AppcontrollerError] Invalid header type : {kind}\n", TERMINATE
        )

    @staticmethod
    def fill(voice: socket.socket, stream: bytes) -> int:
        """Sends as long as there is room; how many bytes there were."""
        sent = 0
        try:
            while sent < len(stream):
                sent += voice.send(stream[sent:], socket.MSG_DONTWAIT)
        except BlockingIOError:
            return sent
        raise AssertionError("no buffer was full")

    def test_stand_in_keeps_a_bursty_stream_whole(self) -> None:
        self.start_client()
        self.start_bridge(level="info")
        link = self.voice = VoiceLink("127.0.0.1", self.server_port)
        link.connect(BOUND)
        self.renewals_off()
        self.enough = threading.Event()
        self.addCleanup(self.enough.set)
        sending = threading.Thread(target=self.play, args=(link,), daemon=True)
        sending.start()
        for pause in (0.3, 0.6, 0.9):
            self.pause_bridge()
            time.sleep(pause)
            self.let_bridge_go()
            sent = link.progress()[0]
            self.wait_for(lambda n=sent: link.progress()[0] >= n + 50, "50 frames more")
        # One that lasts: it waits with a second of frames under way, however long that takes.
        self.pause_bridge()
        self.wait_for(lambda: under_way(link) > UNDER_WAY_MOST / 2, "frames under way")
        time.sleep(1.5)
        self.assertLessEqual(under_way(link), UNDER_WAY_MOST)
        self.let_bridge_go()
        self.enough.set()
        self.wait_for(lambda: not sending.is_alive(), "the last frame to be sent")
        self.wait_for(lambda: self.came_back(link)[-1:] == [loud(self.last, -1)], "the last frame")
        expected = [loud(number, -1) for number in range(1, self.last + 1)]
        self.assertEqual(self.came_back(link), expected)

    def play(self, link: VoiceLink) -> None:
        self.last = 0
        while not self.enough.is_set():
            self.last += 1
            link.send(frames.DATA, loud(self.last))
        for _ in range(20):  # through the delay line
            link.send(frames.DATA)

    @staticmethod
    def came_back(link: VoiceLink) -> list[bytes]:
        """Payloads that are not silence."""
        return [frame.payload for frame in link.returned() if any(frame.payload)]


if __name__ == "__main__":
    unittest.main()
