# SPDX-License-Identifier: MIT
"""The connection phase: the engines run already, and the bridge tries again, without limit, until
both peers are there."""
import unittest

from story import CONNECTING, Story


class Connecting(Story):
    def attempts(self) -> int:
        return self.log().count(CONNECTING)

    def test_waits_for_the_sound_client(self) -> None:
        self.start_bridge()
        for role in ("vad", "mmse"):
            self.wait_for(lambda r=role: self.engine_events(r), f"the {role} engine")
        self.wait_for(lambda: self.attempts() >= 2, "a second attempt")
        failure = "WARNING: Socket connect error. error : Connection refused\n"
        self.assertIn(CONNECTING + "- ", self.log())
        self.assertIn(failure, self.log())
        self.start_client()
        self.start_voice()
        self.wait_for(lambda: "[Connected]\n" in self.log(), "the connection")

    def test_waits_for_the_voice_server(self) -> None:
        self.start_client()
        self.start_bridge()
        self.wait_for(lambda: self.attempts() >= 2, "a second attempt")
        self.assertIn("WARNING: Socket accept timeout occured.\n", self.log())
        self.assertEqual(self.engine_frames("mmse"), [], "frames moved before both were there")
        self.wait_for(self.voice_comes, "the connection")
        # A failed attempt drops the sound client too; it is connected anew.
        self.wait_for(lambda: self.client.connections >= 2, "the sound client's connection")

    def voice_comes(self) -> bool:
        """The listener of a failed attempt stands until the next attempt is on its way. Who is
        caught there is reset, and comes again."""
        if self.voice and self.voice.failure():
            self.voice.close()
            self.voice = None
        if not self.voice:
            self.start_voice()
        return "[Connected]\n" in self.log()


if __name__ == "__main__":
    unittest.main()
