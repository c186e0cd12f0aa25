# SPDX-License-Identifier: MIT
"""Results reach the ROS node while EPD is on and the node plays no sound. The cleaned frames go
back to the voice server all the same."""
import unittest

import frames
from story import Story, speech


class Gating(Story):
    def play(self, on: bool) -> None:
        self.node.play_sound(on)
        word = "on" if on else "off"
        text = f"INFO: play sound state from ros node is {word}.\n"
        self.wait_for(lambda: self.log().count(text) >= 1, f"play-sound {word}")

    def switch_epd(self, command: str) -> None:
        self.client.send(command)
        text = f"INFO: receive sound client packet : {command}.\n"
        self.wait_for(lambda: text in self.log(), command)

    def pass_by(self, first: int, last: int) -> None:
        """Sends these frames and waits until the last one is back at the voice server."""
        self.send(first, last)
        self.send_silence_until(
            lambda: (frames.DATA, -last) in self.returned(), f"frame {last} to come back"
        )

    def heard_numbers(self) -> list[int]:
        return [number for _, number in speech(self.heard())]

    def test_nothing_is_heard_while_epd_is_off(self) -> None:
        self.start()
        self.pass_by(1, 5)
        self.switch_epd("epd_off")
        self.pass_by(11, 15)
        self.switch_epd("epd_on")
        self.pass_by(21, 25)
        self.wait_for(lambda: 25 in self.heard_numbers(), "frame 25")
        self.assertEqual(self.heard_numbers(), [1, 2, 3, 4, 5, 21, 22, 23, 24, 25])

    def test_nothing_is_heard_while_a_sound_plays(self) -> None:
        self.start()
        self.pass_by(1, 5)
        self.play(True)
        self.pass_by(11, 15)
        self.play(False)
        self.pass_by(21, 25)
        self.wait_for(lambda: 25 in self.heard_numbers(), "frame 25")
        self.assertEqual(self.heard_numbers(), [1, 2, 3, 4, 5, 21, 22, 23, 24, 25])

    def test_sound_client_is_told_of_each_change_once(self) -> None:
        self.start()
        self.play(True)
        self.node.play_sound(True)
        self.play(False)
        self.wait_for(lambda: len(self.client.told) >= 2, "epdoff and epdon")
        self.assertEqual(self.client.told, ["epdoff", "epdon"])

    def test_sound_client_is_told_nothing_at_the_start(self) -> None:
        self.start()
        self.pass_by(1, 5)
        self.assertEqual(self.client.told, [])

    def test_change_is_logged_with_the_command(self) -> None:
        self.start()
        self.play(True)
        self.wait_for(lambda: self.client.told, "epdoff")
        self.assertIn("DEBUG: send epd state to sound client. :epdoff\n\n", self.log())


if __name__ == "__main__":
    unittest.main()
