# SPDX-License-Identifier: MIT
"""Peers of the bridge that fail or stay away: frames flow again as soon as they are back, and
states in which there are none for good reason end no bridge."""
import time
import unittest

from node_story import Microphone, NodeStory

# Watchdogs are looked at once a second.
QUIET = 2.5  # seconds without frames, for a watchdog of one second


class VoiceServer(NodeStory):
    def test_resets(self) -> None:
        self.start()
        self.expect_recovery(self.microphone.reset, "voice server reset the connection")

    def test_closes_and_is_absent(self) -> None:
        self.start()
        before = self.open_files()
        self.microphone.stay_away()
        self.wait_for_events("run_end")
        self.wait_for(lambda: self.status()["run"] == 2, "the next run")
        self.wait_for_state("connecting")
        self.microphone.present = True
        self.wait_for_run(2)
        self.assertRegex(self.end_reasons()[0], "voice server (closed|reset) the connection")
        self.expect_open_files(before)

    def test_half_closes(self) -> None:
        """The bridge takes the end of its data for frames, as fast as it can."""
        self.start("--max-rate", "300")
        spun = "far more frames than audio has for 5 s: the voice server has closed one way only"
        self.expect_recovery(self.microphone.half_close, spun)

    def test_says_nothing(self) -> None:
        """The bridge fills in silence, ten frames a second: nothing is wrong."""
        self.start("--watchdog", "1", "--max-rate", "300")
        self.microphone.pause(QUIET)
        time.sleep(QUIET)
        self.assertEqual(self.events("run_end"), [])


class AbsentSoundClient(NodeStory):
    def test_is_waited_for_so_long(self) -> None:
        """Each attempt costs the bridge a descriptor. The first failure costs it five seconds, too,
        of which a restart knows nothing."""
        self.microphone = Microphone(self.server_port)
        self.start_node("--max-wait", "1")
        self.wait_for_state("connecting")
        self.wait_for_log("bridge: Socket connect error. error : Connection refused")
        (end,) = self.wait_for_events("run_end")
        self.assertEqual(
            end["reason"],
            "its peers were not there for 1 s, and each attempt costs it a descriptor",
        )
        self.start_client()
        self.wait_for_run(2)


class SoundClientThatResets(NodeStory):
    def test_comes_back(self) -> None:
        self.start()
        lost = "sound client reset the connection"
        self.expect_recovery(self.client.reset, lost)


class NoFramesForGoodReason(NodeStory):
    def expect_patience(self) -> None:
        before = self.frames()
        time.sleep(QUIET)
        self.assertLess(self.frames() - before, 100)  # those that were under way
        self.assertEqual((self.events("run_end"), self.status()["run"]), ([], 1))

    def test_epd_off_and_sounds(self) -> None:
        self.start("--watchdog", "1")
        self.wait_for(self.client.connected, "the sound client's connection")
        self.client.send("epd_off")
        self.expect_patience()
        self.client.send("epd_on")
        self.wait_for_frames()
        player = self.connect()
        self.play_sound(True, player)
        self.expect_patience()
        self.play_sound(False, player)
        self.wait_for_frames()


if __name__ == "__main__":
    unittest.main()
