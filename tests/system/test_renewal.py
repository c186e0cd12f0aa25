# SPDX-License-Identifier: MIT
"""At the 500th quiet frame both engines are restarted, and the new ones are given EOF, TOF and ten
frames of averaged noise before live audio. ROS node and voice server get these, too, and never the
live frames under way."""
import unittest

import frames
from processes import descriptors, members
from renewal import DELAY_LINE, EVERY, OWN
from story import BRIDGE, BUILD, SCRIPTED_ENGINE, Story
from trial import Failed, Trial, delayed

FLOOD = str(BUILD / "tests" / "flood" / "flood")
SENT, RENEWALS = 3000, 5  # frames, and what these come to at least


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

    def test_engines_are_restarted_once_and_given_what_the_ros_node_gets(self) -> None:
        self.quiet_until_renewal()
        self.send_silence_until(lambda: len(self.second_run("vad")) > OWN, "live audio")
        self.wait_for(lambda: len(self.heard()) >= EVERY + OWN, "the priming frames")
        own = self.heard()[EVERY : EVERY + OWN]
        self.assertEqual(own[:2], [(frames.EOF, 0), (frames.TOF, 0)])
        self.assertGreater(min(own[2:]), (frames.DATA, 0))
        self.assertEqual(self.second_run("mmse")[:OWN], own)
        self.assertEqual(self.second_run("vad")[:OWN], [(kind, -number) for kind, number in own])
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

    def test_each_of_several_writes_twelve_frames_and_drops_those_under_way(self) -> None:
        """The flood knows all that both streams must hold, each sample of the noise included."""
        # In each run of the engine: an utterance 91 frames behind the noise, at first 101.
        settings = self.script("mmse"), self.script("vad", "start 101", "end 161")
        log = str(self.bridge_log)
        trial = Trial(BRIDGE, SCRIPTED_ENGINE, settings, level="debug", log=log)
        options = ["--negated", "--drain", "--frames", str(SENT), "--window", "24"]
        try:
            report = trial.run([FLOOD, *options])
        except Failed as error:
            self.fail(f"{error}\n{self.log()}")
        self.assertFalse(members(trial.process.pid()))

        heard = report["results"]
        count = sum(heard[kind] for kind in ("live", "silent", "markers", "noise"))
        self.assertGreaterEqual(heard["renewals"], RENEWALS)
        self.assertEqual(heard["renewals"], count // EVERY)
        self.assertEqual(self.log().count("renew noize model."), heard["renewals"])
        last = count % EVERY  # frames of the last piece, markers of whose utterance may be to come
        markers = 2 * heard["renewals"] + (last > OWN + 90) + (last > OWN + 151)
        self.assertEqual(heard["markers"], markers)

        given = {number for _, number in self.engine_frames("mmse")}
        for numbers in delayed(report):
            self.assertEqual(len(numbers), DELAY_LINE)
            self.assertTrue(given.isdisjoint(numbers))


if __name__ == "__main__":
    unittest.main()
