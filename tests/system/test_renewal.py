# SPDX-License-Identifier: MIT
"""At the 500th quiet frame both engines are restarted, and the new ones are given EOF, TOF and ten
frames of averaged noise before live audio."""
import unittest

import frames
import renewal
from processes import descriptors, members
from story import Story


class Renewal(Story):
    def quiet_until_renewal(self) -> None:
        self.start()
        self.send(1, 505)
        self.send_silence_until(lambda: self.runs("mmse") == 2, "the restarted engines")

    def runs(self, role: str) -> int:
        return sum(words[1] == "start" for words in self.engine_events(role))

    def second_run(self, role: str) -> list[tuple[int, int]]:
        """The frames that the restarted engine was given so far."""
        events = self.engine_events(role)
        pids = [words[0] for words in events if words[1] == "start"]
        given = [words for words in events if pids[1:] == [words[0]] and words[1] == "frame"]
        return [(int(words[2]), int(words[3])) for words in given]

    def noise(self) -> list[int]:
        """The noise that the first 500 frames give."""
        return renewal.noise([number for _, number in self.heard()[: renewal.EVERY]])

    def test_engines_are_restarted_once_and_given_the_twelve_frames(self) -> None:
        self.quiet_until_renewal()
        self.send_silence_until(lambda: len(self.second_run("vad")) > 12, "live audio")
        self.wait_for(lambda: len(self.heard()) >= 500, "what the noise was taken from")
        noise = self.noise()
        self.assertGreater(min(noise), 0)
        head = [(frames.EOF, 0), (frames.TOF, 0)]
        expected = head + [(frames.DATA, number) for number in noise]
        self.assertEqual(self.second_run("mmse")[:12], expected)
        negated = head + [(frames.DATA, -number) for number in noise]
        self.assertEqual(self.second_run("vad")[:12], negated)
        self.assertEqual((self.runs("mmse"), self.runs("vad")), (2, 2))

    def test_renewal_is_logged_with_the_frames_it_discards(self) -> None:
        self.quiet_until_renewal()
        self.assertEqual(self.log().count("INFO: renew noize model.\n"), 1)
        self.assertIn("DEBUG: clear bufffer size:9\n", self.log())

    def test_exactly_500_frames_were_heard_before_it(self) -> None:
        self.quiet_until_renewal()
        self.send_silence_until(lambda: (frames.EOF, 0) in self.heard(), "the priming frames")
        self.assertEqual(self.heard().index((frames.EOF, 0)), 500)

    def test_frames_go_on_after_it(self) -> None:
        self.quiet_until_renewal()
        self.send(1001, 1020)
        self.send_silence_until(lambda: (frames.DATA, -1020) in self.returned(), "frame 1020")
        back = [number for kind, number in self.returned() if -1020 <= number <= -1001]
        self.assertEqual(back, [-number for number in range(1001, 1021)])

    def test_old_engines_are_gone(self) -> None:
        self.quiet_until_renewal()
        group = self.node.bridge.pid()
        self.assertEqual(len(members(group)), 3)

    def test_descriptors_do_not_grow(self) -> None:
        self.start()
        self.send(1, 20)
        self.send_silence_until(lambda: (frames.DATA, -20) in self.returned(), "frame 20")
        before = len(descriptors(self.node.bridge.pid()))
        self.send(21, 600)
        self.send_silence_until(lambda: self.runs("mmse") == 2, "the restarted engines")
        self.send(601, 630)
        self.send_silence_until(lambda: (frames.DATA, -630) in self.returned(), "frame 630")
        self.assertEqual(len(descriptors(self.node.bridge.pid())), before)

    def test_utterance_holds_it_off(self) -> None:
        self.start(vad=["start 480"])
        self.send(1, 505)
        self.send_silence_until(lambda: len(self.heard()) > 520, "520 frames at the ROS node")
        self.assertEqual(self.runs("mmse"), 1)
        self.assertNotIn("renew noize model.", self.log())


if __name__ == "__main__":
    unittest.main()
