# SPDX-License-Identifier: MIT
"""Engines that hang: the bridge waits for them for ever, or drops frames after ten minutes, and the
node restarts it after some seconds without a sign of life, whether its own output would show
frames (EPD on) or not."""
import unittest

from node_story import NodeStory

SILENT = "no frame for 1 s: an engine does not answer, or a peer does not read"


class HangingEngines(NodeStory):
    def expect_end(self) -> None:
        (end,) = self.wait_for_events("run_end")
        self.assertEqual((end["reason"], end["asked"], end["pause"]), (SILENT, False, 1))

    def start_with(self, **scripts: list[str]) -> None:
        self.start_peers()
        self.start_node("--watchdog", "1", command=self.bridge(**scripts))

    def test_mmse_engine_never_answers(self) -> None:
        self.start_with(mmse=["silent"])
        self.expect_end()
        self.settings()  # the next engines work
        self.wait_for_run(2)

    def test_mmse_engine_stalls(self) -> None:
        """It reads no more, either, and the bridge ends by itself only when it does."""
        self.start_with(mmse=["stall_after 50", "ignore_term"])
        self.wait_for_frames(20)
        self.expect_end()

    def test_vad_engine_stalls_with_epd_off(self) -> None:
        self.start_with(vad=["stall_after 100"])
        self.wait_for_frames()
        self.client.send("epd_off")
        self.expect_end()

    def test_answers_that_end_with_speech(self) -> None:
        """What was said before the engine hung is an utterance all the same."""
        self.start_with(vad=["stall_after 40"])
        (utterance,) = self.wait_for_events("utterance")
        self.assertIn(utterance["cut"], ("gap", "restart"))
        self.assertEqual(utterance["preroll"], 0.19)  # it begins with frame 20
        self.expect_end()


if __name__ == "__main__":
    unittest.main()
