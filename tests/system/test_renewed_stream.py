# SPDX-License-Identifier: MIT
"""What a ROS node and a voice server read of a stream with several renewals: each writes EOF, TOF
and ten frames of averaged noise into both, and the live frames under way then never come."""
import time
import unittest

import frames
import renewal
from renewal import DELAY_LINE, EVERY, OWN
from story import Story

RENEWALS = 5
PAUSE = 0.09  # seconds without a frame of ours, in which the bridge may soon add one of silence


def average(stream: list[tuple[int, int]]) -> list[int]:
    """The ten frames that follow from what the ROS node got, utterances left out."""
    quiet, speaking = [], False
    for kind, number in stream:
        if kind == frames.DATA and not speaking:
            quiet.append(number)
        elif kind != frames.DATA:
            speaking = kind == frames.START
    return renewal.noise(quiet)


def live(stream: list[tuple[int, int]], sign: int = 1) -> list[int]:
    """The numbers of the frames that were sent, without markers and silence."""
    return [sign * number for kind, number in stream if kind == frames.DATA and number != 0]


class RenewedStream(Story):
    def stream(self) -> None:
        """Numbered frames, an utterance after each renewal, until the last renewal is well past."""
        self.start(vad=["start 101", "end 161"])
        self.number, self.after_pause = 0, set()
        last = time.monotonic()
        deadline = last + 120
        while len(self.heard()) < RENEWALS * EVERY + 50:
            self.assertLess(time.monotonic(), deadline, self.log())
            self.number += 1
            self.send(self.number, self.number)
            if time.monotonic() - last > PAUSE:
                self.after_pause.add(self.number)
            last = time.monotonic()
        # Both streams up to the same frame: the voice server gets each a moment before the node.
        self.node_stream = self.heard()
        final = live(self.node_stream)[-1]
        self.wait_for(lambda: (frames.DATA, -final) in self.returned(), "the last frame")
        returned = self.returned()
        self.voice_stream = returned[: returned.index((frames.DATA, -final)) + 1]

    def pieces(self, stream: list[tuple[int, int]]) -> list[list[tuple[int, int]]]:
        """The stream without what renewals wrote: what stands before, between and behind them."""
        starts = [at for at, (kind, _) in enumerate(stream) if kind == frames.EOF]
        self.assertEqual(len(starts), RENEWALS)
        ends = [0, *(at + OWN for at in starts)]
        return [stream[end:start] for end, start in zip(ends, [*starts, len(stream)])]

    def missing(self, pieces: list[list[tuple[int, int]]], sign: int) -> list[list[int]]:
        """For each renewal the numbers that never came; there are no others."""
        numbers = [live(piece, sign) for piece in pieces]
        for piece in numbers:
            self.assertEqual(piece, list(range(piece[0], piece[-1] + 1)))
        self.assertEqual(numbers[0][0], 1)
        return [list(range(a[-1] + 1, b[0])) for a, b in zip(numbers, numbers[1:])]

    def test_each_renewal_writes_twelve_frames_and_drops_those_under_way(self) -> None:
        self.stream()
        node, voice = self.node_stream, self.voice_stream
        places = [at for at, (kind, _) in enumerate(node) if kind == frames.EOF]
        self.assertEqual(places, [EVERY * n for n in range(1, RENEWALS + 1)])
        self.assertEqual(self.log().count("renew noize model."), RENEWALS)

        back = [at for at, (kind, _) in enumerate(voice) if kind == frames.EOF]
        for at, returned in zip(places, back):
            noise = average(node[:at])
            own = [(frames.EOF, 0), (frames.TOF, 0)]
            self.assertEqual(node[at : at + OWN], own + [(frames.DATA, n) for n in noise])
            # The scripted MMSE engine negates whatever it is given.
            expected = own + [(frames.DATA, -n) for n in noise]
            self.assertEqual(voice[returned : returned + OWN], expected)

        # Nothing else: live frames, and the markers of one utterance in each piece but the last.
        pieces, answers = self.pieces(node), self.pieces(voice)
        for parts in (pieces, answers):
            kinds = [[kind for kind, _ in piece if kind != frames.DATA] for piece in parts]
            self.assertEqual(kinds, [[frames.START, frames.END]] * RENEWALS + [[]])

        given = {number for _, number in self.engine_frames("mmse")}
        lost, unanswered = self.missing(pieces, 1), self.missing(answers, -1)
        for at_node, at_voice in zip(lost, unanswered):
            # What was lined up in the renewal's own pass has gone back to the voice server already.
            self.assertEqual(at_node[len(at_node) - len(at_voice) :], at_voice)
            if self.after_pause.isdisjoint(at_node):  # else silence may stand in the delay line
                self.assertGreaterEqual(len(at_voice), DELAY_LINE)
                self.assertTrue(given.isdisjoint(at_voice[-DELAY_LINE:]))


if __name__ == "__main__":
    unittest.main()
