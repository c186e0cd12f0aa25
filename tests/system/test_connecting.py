# SPDX-License-Identifier: MIT
"""The connection phase: the engines run already, and the bridge tries again, without limit, until
both peers are there."""
import re
import socket
import unittest

from story import CONNECTING, Story


def seconds(stamp: str) -> float:
    hours, minutes, rest = stamp.split(":")
    return (int(hours) * 60 + int(minutes)) * 60 + float(rest)


class Connecting(Story):
    def attempts(self) -> int:
        return self.log().count(CONNECTING)

    def test_waits_for_the_sound_client(self) -> None:
        self.start_bridge()
        for role in ("vad", "mmse"):
            self.wait_for(lambda r=role: self.engine_events(r), f"the {role} engine")
        self.wait_for(lambda: self.attempts() >= 2, "a second attempt")
        failure = r"- ([\d:.]{12}) WARNING: Socket connect error. error : Connection refused\n"
        self.assertRegex(self.log(), CONNECTING + failure)
        self.wait_for(lambda: len(re.findall(failure, self.log())) >= 2, "it to fail as well")
        first, second = map(seconds, re.findall(failure, self.log())[:2])
        # Five; but a time stamp may be a second early.
        self.assertGreater((second - first) % (24 * 3600), 3.9)
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

    def test_port_of_the_voice_server_is_taken(self) -> None:
        self.start_client()
        with socket.create_server(("127.0.0.1", self.server_port)):
            self.start_bridge()
            failure = "WARNING: Socket bind failed. error : Address already in use\n"
            self.wait_for(lambda: failure in self.log(), "the first attempt to fail")
        self.wait_for(self.voice_comes, "the connection")

    def test_without_warnings_the_cause_is_not_told(self) -> None:
        self.start_bridge(level="err")
        self.wait_for(lambda: self.attempts() >= 2, "a second attempt")
        self.assertEqual(self.log().replace(CONNECTING, ""), "")

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
