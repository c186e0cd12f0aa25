# SPDX-License-Identifier: MIT
"""SIGINT, SIGTERM and SIGKILL in each state that the bridge can be in. The first one stops the
engines and ends it with status 0; the others end it at once, and the engines with it, as their
input ends."""
import contextlib
import os
import signal
import socket
import threading
import unittest

from fault_story import TERMINATE, FaultStory
from processes import members
from story import BOUND, BUILD, CONNECTING
from voice_link import LinkError
from waiting import until

ENDINGS = {
    signal.SIGINT: "status 0",
    signal.SIGTERM: "killed by SIGTERM",
    signal.SIGKILL: "killed by SIGKILL",
}
SMALL = 4096  # bytes of receive buffer
IGNORING_CHILDREN = ("/usr/bin/env", "--ignore-signal=CHLD")
REAL_ENGINE = BUILD / "tolvanev-engine"


class State(FaultStory):
    """Each reach_ method brings a bridge into one state."""

    def reach_pause(self) -> None:
        """Asleep between two attempts to connect."""
        self.start_bridge()
        self.wait_for(lambda: "Connection refused" in self.log(), "the first attempt to fail")

    def reach_connecting(self) -> None:
        """Waiting for a sound client whose queue of connections is full."""
        listener, *fillers = (socket.socket() for _ in range(3))
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(("127.0.0.1", self.client_port))
        listener.listen(0)
        for filler in fillers:
            filler.setblocking(False)
            filler.connect_ex(listener.getsockname())
        for each in (listener, *fillers):
            self.addCleanup(each.close)
        self.start_bridge()
        self.wait_for(lambda: "Connecting" in self.log(), "the first attempt")
        self.assertEqual(self.log(), CONNECTING)

    def reach_accepting(self) -> None:
        self.start_client()
        self.start_bridge()
        self.wait_for_client()

    def reach_processing(self) -> None:
        self.connect_plainly()
        self.send_frames(1, 20)
        self.wait_for(lambda: -10 in self.receive(), "frame 10")

    def reach_write_to_mmse_engine(self) -> None:
        self.connect_plainly(mmse=["flood"])
        self.feed_to_standstill()

    def reach_write_to_vad_engine(self) -> None:
        self.connect_plainly(vad=["flood"])
        self.feed_to_standstill()

    def reach_write_to_voice_server(self) -> None:
        self.start_client()
        self.start_bridge(level="info", vad=["start 1"])
        self.connect_voice(SMALL)
        self.feed_to_standstill()

    def reach_write_to_node(self) -> None:
        self.start_client()
        self.start_bridge(node_reads=False)
        self.connect_voice()
        self.feed_to_standstill()

    def reach_renewal(self, role: str = "mmse") -> None:
        """Waiting for an engine to end."""
        self.start(**{role: ["ignore_term"]}, level="info")
        self.send_silence_until(lambda: "renew noize model." in self.log(), "a renewal")
        self.wait_for_standstill()


class EachState(State):
    """A signal ends it from there, whatever it waits for."""

    def end_by(self, number: signal.Signals) -> None:
        self.assertTrue(self.node.bridge.running())
        self.signal_bridge(number)
        self.expect_end(ENDINGS[number])
        self.assertNotIn(TERMINATE, self.log())


def add_stories() -> None:
    """One test for each state and signal; an interrupt amid a renewal is a story of its own."""
    for name in [name for name in dir(State) if name.startswith("reach_")]:
        for number in ENDINGS:
            if (name, number) == ("reach_renewal", signal.SIGINT):
                continue

            def story(self, reach=name, number=number) -> None:
                getattr(self, reach)()
                self.end_by(number)

            setattr(EachState, f"test_{number.name}_{name.removeprefix('reach_')}", story)


add_stories()


class Special(State):
    def interrupt_renewal(self, role: str) -> None:
        """It waits for the engines that it has told to end, and then ends itself; no other engine
        is started."""
        self.reach_renewal(role)
        self.assertEqual(self.started(), [1, 1], "new engines before the old ones have ended")
        self.signal_bridge(signal.SIGINT)
        self.signal_bridge(signal.SIGINT)
        self.wait_for_standstill()
        self.assertTrue(self.node.bridge.running())
        self.wait_for(self.ended_without_engines, "the bridge to end")
        self.expect_end("status 0")
        self.assertNotIn(TERMINATE, self.log())
        self.assertEqual(self.started(), [1, 1])

    def started(self) -> list[int]:
        """How many engines have been started in each role."""
        return [
            sum(words[1] == "start" for words in self.engine_events(role))
            for role in ("vad", "mmse")
        ]

    def ended_without_engines(self) -> bool:
        """Kills every engine that has begun; not what the leak checker starts when the bridge
        exits."""
        events = self.engine_events("mmse") + self.engine_events("vad")
        engines = {int(words[0]) for words in events if words[1] == "start"}
        for pid in engines.intersection(members(self.node.bridge.pid())):
            with contextlib.suppress(ProcessLookupError):  # it may just have ended by itself
                os.kill(pid, signal.SIGKILL)
        return not self.node.bridge.running()

    def test_interrupt_amid_a_renewal_that_waits_for_the_mmse_engine(self) -> None:
        self.interrupt_renewal("mmse")

    def test_interrupt_amid_a_renewal_that_waits_for_the_vad_engine(self) -> None:
        self.interrupt_renewal("vad")

    def test_interrupt_at_a_renewal(self) -> None:
        # As soon as it is told; the engines may be old, new, or between the two.
        self.start(level="info")
        self.send_silence_until(lambda: "renew noize model." in self.log(), "a renewal")
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")

    def test_interrupt_soon_after_the_start(self) -> None:
        # Until it has taken over the signal, that ends it by itself; no engine is there by then.
        for milliseconds in range(0, 20, 2):
            self.start_bridge()
            until(lambda: False, milliseconds / 1000)
            self.signal_bridge(signal.SIGINT)
            self.assertIn(self.wait_for_end(), ("status 0", "killed by SIGINT"))
            self.expect_nothing_left()
            self.node.stop()

    def test_interrupt_at_any_moment(self) -> None:
        # A flood keeps the bridge out of its waits most of the time.
        self.start()
        self.addCleanup(self.stop_flood)
        self.flood = threading.Thread(target=self.send_for_ever, daemon=True)
        self.flood.start()
        self.wait_for(lambda: len(self.returned()) > 100, "the flood")
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")

    def send_for_ever(self) -> None:
        with contextlib.suppress(LinkError):  # the bridge has ended
            while True:
                self.send(1, 100)

    def stop_flood(self) -> None:
        self.flood.join(BOUND)
        self.assertFalse(self.flood.is_alive())

    def test_second_interrupt_changes_nothing(self) -> None:
        self.reach_processing()
        self.signal_bridge(signal.SIGINT)
        self.signal_bridge(signal.SIGINT)
        self.expect_end("status 0")

    # Started with SIGCHLD ignored it cannot collect its engines: ending them fails, in the handler.

    def test_failing_interrupt_while_peers_are_awaited_is_a_failed_attempt(self) -> None:
        self.start_client()
        self.start_bridge(through=IGNORING_CHILDREN)
        self.wait_for(self.client.connected, "the sound client's connection")
        self.signal_bridge(signal.SIGINT)
        self.wait_for(lambda: self.log().count("Connecting") == 2, "the next attempt")
        self.signal_bridge(signal.SIGINT)
        self.wait_for(lambda: self.log().count("Connecting") == 3, "one more attempt")
        self.signal_bridge(signal.SIGTERM)
        self.expect_end("killed by SIGTERM")

    def test_failing_interrupt_in_a_pass_ends_the_bridge(self) -> None:
        self.start_client()
        self.start_bridge(through=IGNORING_CHILDREN)
        self.connect_voice()
        self.signal_bridge(signal.SIGINT)
        self.expect_end("killed by SIGABRT", "[FATAL] Unknown Exception")

    @unittest.skipUnless(REAL_ENGINE.exists(), "the default engine is not built")
    def test_default_engines_end_with_a_killed_bridge(self) -> None:
        self.start_client()
        self.start_bridge(engine=REAL_ENGINE, settings=(BUILD / "mmse.ini", BUILD / "vad.ini"))
        self.connect_voice()
        self.send_frames(1, 30)
        self.wait_for(lambda: self.receive() or self.back, "frames")
        self.assertEqual(len(members(self.node.bridge.pid())), 3, self.log())
        self.signal_bridge(signal.SIGKILL)
        self.expect_end("killed by SIGKILL")


if __name__ == "__main__":
    unittest.main()
