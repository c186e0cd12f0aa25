# SPDX-License-Identifier: MIT
"""A sound client that stays away uses the bridge up: each failed attempt to reach it leaves a
descriptor open, one every five seconds, until no more are to be had. At the usual limit of 1,024
that is after some 85 minutes. The limit here is small, and is the bridge's alone.
"""
import resource
import signal
import unittest

from fault_story import CONNECTED, SANITIZED, FaultStory
from processes import descriptors

NOT_REACHED = "WARNING: Socket connect error. error : Connection refused\n"
USED_UP = "WARNING: Socket open error. error : Too many open files\n"
NOBODY_CAME = "WARNING: Socket accept timeout occured.\n"


# Runs a command with every descriptor below 1,019 taken. Of the five that are left for select the
# engines' pipes take four, and the first failed attempt the last.
CROWDED = """
import os, resource, sys
resource.setrlimit(resource.RLIMIT_NOFILE, (2048, 2048))
for number in range(3, 1019):
    os.dup2(2, number)
os.execv(sys.argv[1], sys.argv[1:])
"""


class SoundClientThatStaysAway(FaultStory):
    def open_numbers(self) -> set[int]:
        return descriptors(self.node.bridge.pid())

    def allow_one_more(self) -> None:
        """Leaves the bridge the descriptor of its next attempt and none beyond it."""
        limit = min(set(range(1024)) - self.open_numbers()) + 1
        resource.prlimit(self.node.bridge.pid(), resource.RLIMIT_NOFILE, (limit, limit))

    def dialled_in_vain(self) -> bool:
        """A voice server that tries to connect all the time; whether the bridge gave up on it."""
        if self.try_voice(None):
            self.plain.close()
        return NOBODY_CAME in self.log()

    @unittest.skipIf(SANITIZED, "a sanitizer cannot look at memory without a descriptor of its own")
    def test_it_uses_the_descriptors_up_for_good(self) -> None:
        self.start_bridge()
        self.wait_for(lambda: NOT_REACHED in self.log(), "the first attempt to fail")
        before = self.open_numbers()
        self.allow_one_more()
        self.wait_for(lambda: USED_UP in self.log(), "an attempt without a descriptor")
        self.assertEqual(self.log().count(NOT_REACHED), 2)
        self.assertEqual(len(self.open_numbers() - before), 1)
        # The sound client comes too late, and the voice server finds nobody.
        self.start_client()
        attempts = self.log().count(USED_UP)
        self.wait_for(lambda: self.log().count(USED_UP) > attempts, "one more attempt")
        self.assertEqual(self.client.connections, 0)
        self.assertFalse(self.try_voice(None), "the bridge listens")
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")

    def test_higher_limit_does_not_help(self) -> None:
        # select cannot watch a descriptor above 1,023: the bridge reaches the sound client, but
        # waits for no voice server, not even for one that is there.
        hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        if hard != resource.RLIM_INFINITY and hard < 2048:
            self.skipTest("this machine allows too few descriptors")
        self.start_bridge(through=("/usr/bin/python3", "-c", CROWDED))
        self.wait_for(lambda: NOT_REACHED in self.log(), "the first attempt to fail")
        self.start_client()
        self.wait_for(lambda: self.client.connections > 0, "the sound client to be reached")
        self.wait_for(self.dialled_in_vain, "the voice server to be given up")
        self.assertNotIn(CONNECTED, self.log())
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")


if __name__ == "__main__":
    unittest.main()
