# SPDX-License-Identifier: MIT
"""Engines that misbehave: ones that cannot be run, end at once or in mid-stream, are killed, flood,
answer in parts, slowly or not at all, ignore SIGTERM or the end of their input."""
import os
import signal
import unittest

import frames
from fault_story import GROWTH, TERMINATE, FaultStory
from processes import members
from story import SCRIPTED_ENGINE, speech

LAST = 20
RUNS_AHEAD = "WARNING: vad engine runs ahead. its newest frames are dropped.\n"


class EngineThatCannotBeRun(FaultStory):
    """Kept: starting it succeeds as far as the bridge can see; its first frame ends the process."""

    def expect_broken_pipe(self, engine) -> None:
        self.connect_plainly(engine=engine)
        self.feed_until_ended()
        self.expect_end("killed by SIGPIPE")
        self.assertEqual(self.engine_events("mmse"), [])

    def test_missing(self) -> None:
        self.expect_broken_pipe(self.folder / "missing")

    def test_not_executable(self) -> None:
        engine = self.folder / "engine"
        engine.write_bytes(SCRIPTED_ENGINE.read_bytes())
        engine.chmod(0o644)
        self.expect_broken_pipe(engine)

    def test_not_a_program(self) -> None:
        engine = self.folder / "engine"
        engine.write_text("neither a program nor a script\n")
        engine.chmod(0o755)
        self.expect_broken_pipe(engine)

    def test_folder(self) -> None:
        self.expect_broken_pipe(self.folder)


class EngineThatEnds(FaultStory):
    def test_mmse_engine_at_once(self) -> None:
        self.connect_plainly(mmse=["exit_after 0"])
        self.feed_until_ended()
        self.expect_end("killed by SIGPIPE")

    def test_vad_engine_at_once(self) -> None:
        self.connect_plainly(vad=["exit_after 0"])
        self.feed_until_ended()
        self.expect_end("killed by SIGPIPE")

    def kill_in_mid_stream(self, role: str) -> None:
        self.start()
        self.send(1, LAST)
        self.send_silence_until(lambda: (frames.DATA, -LAST) in self.returned(), "frame 20")
        self.kill_engine(role)
        self.expect_end("killed by SIGPIPE")
        self.assertEqual(speech(self.returned()), [(frames.DATA, -n) for n in range(1, LAST + 1)])

    def test_mmse_engine_killed_in_mid_stream(self) -> None:
        self.kill_in_mid_stream("mmse")

    def test_vad_engine_killed_in_mid_stream(self) -> None:
        self.kill_in_mid_stream("vad")

    def test_dead_vad_engine_neither_traps_the_loop_nor_fills_the_memory(self) -> None:
        # Nothing is ever written to it, as the MMSE engine does not answer: it reads as an endless
        # stream of empty frames.
        self.connect_plainly(mmse=["silent"], vad=["exit_after 0"], level="info")
        self.send_frames(1, 100)
        self.wait_for(lambda: RUNS_AHEAD in self.log(), "the backlog to be full")
        before = self.resident()
        self.send_frames(1, 300)
        self.wait_for(lambda: (frames.DATA, 280) in self.engine_frames("mmse"), "frame 280")
        self.client.send("epd_off")
        self.wait_for(lambda: "packet : epd_off." in self.log(), "the sound client to be heard")
        self.assertLess(self.resident() - before, GROWTH)
        self.assertEqual(self.log().count(RUNS_AHEAD), 1)
        self.stop_by_input()


class EngineThatAnswersWrongly(FaultStory):
    def expect_unknown_type(self) -> None:
        self.expect_end("status 0", "[AppcontrollerError] Unknown Exception.\n")
        self.assertTrue(self.log().endswith(TERMINATE))

    def test_vad_engine_that_sends_a_frame_of_unknown_type(self) -> None:
        self.start(vad=["emit 5"])
        self.expect_unknown_type()

    def test_settings_that_are_exchanged(self) -> None:
        # What the bridge takes for frames of the VAD engine are pieces of 104 bytes of longer ones:
        # every 26th of those puts what should be values where a type is looked for.
        mmse, vad = self.script("mmse"), self.script("vad")
        self.connect_plainly(settings=(vad, mmse))
        self.plain.sendall(frames.make(frames.DATA, b"\x55" * frames.PAYLOAD_SIZE) * 60)
        self.expect_unknown_type()

    def travel(self, **scripts) -> None:
        """Frames go all the way, whatever comes between them, and descriptors stay."""
        self.connect_plainly(**scripts)
        before = self.descriptors()
        self.send_frames(1, LAST)
        self.wait_for(lambda: -LAST in self.receive(), "frame 20")
        self.assertEqual(self.receive(), [-number for number in range(1, LAST + 1)])
        self.assertEqual(self.descriptors(), before)
        self.expect_running()

    def test_slow_engines(self) -> None:
        self.travel(mmse=["slow 30"], vad=["slow 30"])
        self.stop_by_input()

    def test_mmse_engine_that_writes_partial_frames(self) -> None:
        # Kept: the first part counts as a frame, and the second one as one more.
        self.travel(mmse=["cut 100"])
        quiet = [frame for frame in self.back if not any(frame.payload)]
        self.assertGreaterEqual(len(quiet), LAST - 1)

    def test_vad_engine_that_writes_partial_frames(self) -> None:
        self.travel(vad=["cut 50"])
        self.stop_by_input()

    def send_at_pace_of_vad_engine(self, first: int, last: int) -> None:
        """Frames come back without it, thanks to its earlier answers. With 200 more in its pipe,
        and its own answers not read, it and the bridge would wait for each other."""
        for number in range(first, last + 1, 10):
            self.wait_for(lambda: self.behind() < 100, "the VAD engine to catch up")
            self.send(number, number + 9)

    def behind(self) -> int:
        """Frames that the VAD engine has not taken yet."""
        return len(self.engine_frames("mmse")) - len(self.engine_frames("vad"))

    def test_vad_engine_that_floods_and_reads(self) -> None:
        self.start(vad=["extra 300"], level="info")
        self.send_at_pace_of_vad_engine(1, 250)
        self.wait_for(lambda: RUNS_AHEAD in self.log(), "the backlog to be full")
        before = self.resident()
        self.send_at_pace_of_vad_engine(251, 400)
        self.wait_for(lambda: (frames.DATA, -400) in self.returned(), "frame 400")
        expected = [(frames.DATA, -number) for number in range(1, 401)]
        self.assertEqual(speech(self.returned()), expected)
        self.assertLess(self.resident() - before, GROWTH)
        self.assertEqual(self.log().count(RUNS_AHEAD), 1)
        self.stop_by_input()

    def hold_up(self, **scripts) -> None:
        """Feeds an engine that does not read until the bridge waits for it, and for nothing else:
        its end is noticed at once."""
        self.connect_plainly(**scripts)
        self.feed_to_standstill()
        self.assertTrue(self.node.bridge.running())
        (role,) = scripts
        self.kill_engine(role)
        self.expect_end("killed by SIGPIPE")

    def test_mmse_engine_that_floods_and_does_not_read(self) -> None:
        self.hold_up(mmse=["flood"])

    def test_vad_engine_that_floods_and_does_not_read(self) -> None:
        self.hold_up(vad=["flood"])

    def test_mmse_engine_that_does_not_read(self) -> None:
        self.hold_up(mmse=["stall_after 20"])

    def test_vad_engine_that_does_not_read(self) -> None:
        self.hold_up(vad=["stall_after 20"])


class EngineThatDoesNotEnd(FaultStory):
    def hold_up_the_end(self, role: str) -> None:
        """The bridge waits for an engine that ignores SIGTERM, and for nothing else."""
        self.start(**{role: ["ignore_term"]})
        pid = self.engine_pid(role)
        self.node.bridge.close_input()
        self.wait_for(lambda: TERMINATE in self.log(), "the bridge to stop")
        self.wait_for_standstill()
        self.assertTrue(self.node.bridge.running())
        self.assertIn(pid, members(self.node.bridge.pid()))
        self.kill_engine(role)
        self.expect_end("status 0", "ROS connector read failed.\n")

    def test_mmse_engine_that_ignores_sigterm(self) -> None:
        self.hold_up_the_end("mmse")

    def test_vad_engine_that_ignores_sigterm(self) -> None:
        self.hold_up_the_end("vad")

    def test_engines_that_ignore_sigterm_end_with_their_input(self) -> None:
        self.start(mmse=["ignore_term"], vad=["ignore_term"])
        self.engine_pid("mmse"), self.engine_pid("vad")
        self.signal_bridge(signal.SIGKILL)
        self.expect_end("killed by SIGKILL")

    def test_engines_that_ignore_the_end_of_their_input_end_by_sigterm(self) -> None:
        self.start(mmse=["ignore_end"], vad=["ignore_end"])
        self.stop_by_input()

    def left_alone(self, *roles: str) -> list[int]:
        """Kills the bridge and waits until only the engines of these roles are left."""
        pids = sorted(self.engine_pid(role) for role in roles)
        self.signal_bridge(signal.SIGKILL)
        self.assertEqual(self.wait_for_end(), "killed by SIGKILL")
        group = self.node.bridge.pid()
        self.wait_for(lambda: sorted(members(group)) == pids, "the other engine to end")
        return pids

    def test_vad_engine_that_ignores_the_end_of_its_input_is_an_orphan(self) -> None:
        # Nothing but a signal ends it, and there is nobody left to send one.
        self.start(vad=["ignore_end"])
        self.engine_pid("mmse")
        (pid,) = self.left_alone("vad")
        self.wait_for(lambda: ["end"] in [e[1:] for e in self.engine_events("vad")], "its end")
        os.kill(pid, signal.SIGTERM)
        self.expect_nothing_left()

    def test_mmse_engine_that_ignores_the_end_of_its_input_keeps_the_other_one(self) -> None:
        # Kept: it was started with the VAD engine's input among its descriptors, which therefore
        # ends with it only.
        self.start(mmse=["ignore_end"])
        mmse, vad = self.engine_pid("mmse"), self.engine_pid("vad")
        self.assertEqual(self.left_alone("mmse", "vad"), sorted([mmse, vad]))
        self.wait_for(lambda: ["end"] in [e[1:] for e in self.engine_events("mmse")], "its end")
        self.assertNotIn(["end"], [e[1:] for e in self.engine_events("vad")])
        os.kill(mmse, signal.SIGTERM)
        self.expect_nothing_left()
        self.assertIn(["end"], [e[1:] for e in self.engine_events("vad")])


if __name__ == "__main__":
    unittest.main()
