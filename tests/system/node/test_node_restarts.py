# SPDX-License-Identifier: MIT
"""The node keeps a bridge running: whatever ends it, and whatever it needs for its start and is not
there, frames flow again. The pauses grow, there is never a second bridge, and nothing of a run is
left when the next begins."""
import os
import shutil
import signal
import unittest
from pathlib import Path

from node_story import BRIDGE, NodeStory, SCRIPTED_ENGINE
from processes import members


class KilledProcesses(NodeStory):
    def test_bridge(self) -> None:
        self.start()
        self.expect_recovery(lambda: self.kill(self.bridge_pid()), "killed by SIGKILL")

    def test_vad_engine(self) -> None:
        self.start()
        killed = "an engine ended with SIGKILL"
        self.expect_recovery(lambda: self.kill(self.engine_pids()[0]), killed)

    def test_mmse_engine(self) -> None:
        self.start()
        killed = "an engine ended with SIGKILL"
        self.expect_recovery(lambda: self.kill(self.engine_pids()[1]), killed)


class Starts(NodeStory):
    def test_pauses_grow(self) -> None:
        self.start_node(command=["/bin/sh", "-c", "exit 3", *self.bridge()])
        ends = self.wait_for_events("run_end", 3)
        self.assertEqual([end["pause"] for end in ends], [1, 2, 4])
        self.assertEqual({end["reason"] for end in ends}, {"ended with status 3"})
        self.assertEqual([end["run"] for end in ends], [1, 2, 3])

    def test_missing_bridge_comes_back(self) -> None:
        program = self.folder / "bridge"
        self.expect_to_come_back(program, BRIDGE, [str(program), *self.bridge()[1:]])

    def test_missing_engine_comes_back(self) -> None:
        engine = self.folder / "engine"
        self.expect_to_come_back(engine, SCRIPTED_ENGINE, self.bridge(engine=engine))

    def test_missing_settings_come_back(self) -> None:
        command = self.bridge()
        settings, kept = self.folder / "vad.ini", self.folder / "kept.ini"
        settings.rename(kept)
        self.expect_to_come_back(settings, kept, command)

    def expect_to_come_back(self, path: Path, source: Path, command: list[str]) -> None:
        self.start_peers()
        self.start_node(command=command)
        (end,) = self.wait_for_events("run_end")
        self.assertIn(f"{path}", end["reason"])
        self.assertEqual((end["status"], end["pause"]), ("not started", 1))
        shutil.copy(source, path)
        self.wait_for_run(2)


class OneAtATime(NodeStory):
    """A bridge that is killed leaves its engines; these heed neither SIGTERM nor their closed
    input."""

    STUBBORN = ["ignore_term", "ignore_end"]

    def test_old_engines_are_gone_before_the_next_start(self) -> None:
        # The bridge, as it starts, looks for engines of earlier runs.
        logs = f"{self.folder}/mmse.log {self.folder}/vad.log"
        look = self.command(
            "look",
            f'for pid in $(cat {logs} 2>/dev/null | cut -d" " -f1); do\n'
            f"[ ! -e /proc/$pid ] || echo $pid >>{self.folder}/met\ndone\n"
            f'echo >>{self.folder}/starts\nexec "$@"',
        )
        self.start(command=[str(look), *self.bridge(mmse=self.STUBBORN, vad=self.STUBBORN)])
        engines = self.engine_pids()
        self.expect_recovery(lambda: self.kill(self.bridge_pid()), "killed by SIGKILL")
        self.assertEqual((self.folder / "starts").read_text(), "\n\n")
        self.assertFalse((self.folder / "met").exists(), "engines of an earlier run met the next")
        self.assertFalse([pid for pid in engines if os.path.exists(f"/proc/{pid}")])

    def test_interrupted_bridge_that_waits_for_its_engines(self) -> None:
        """It ends only once they have; who stops it does not wait for that."""
        self.start(command=self.bridge(mmse=self.STUBBORN, vad=self.STUBBORN))
        group = self.bridge_pid()
        self.stop(signal.SIGINT)
        self.assertEqual(members(group), [])


if __name__ == "__main__":
    unittest.main()
