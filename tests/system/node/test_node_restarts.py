# SPDX-License-Identifier: MIT
"""The node keeps a bridge running: whatever ends the bridge, its engines or a peer, frames flow
again, and the node says why there was a pause."""
import os
import signal
import unittest

from node_story import NodeStory


class Restarts(NodeStory):
    def test_killed_bridge(self) -> None:
        self.start()
        os.kill(self.bridge_pid(), signal.SIGKILL)
        self.wait_for_run(2)
        self.assertEqual(self.reasons(), ["killed by SIGKILL"])

    def test_killed_mmse_engine(self) -> None:
        self.start()
        os.kill(self.engine_pids()[1], signal.SIGKILL)
        self.wait_for_run(2)
        self.assertEqual(self.reasons(), ["an engine ended with SIGKILL"])


if __name__ == "__main__":
    unittest.main()
