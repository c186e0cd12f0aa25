# SPDX-License-Identifier: MIT
"""Every way to end, with its message and its status. What the table in README.md says is told
here."""
import re
import signal
import socket
import threading
import unittest

import frames
from fault_story import LOST, TERMINATE, FaultStory, reset
from story import BOUND
from voice_link import LinkError


class Ending(FaultStory):
    def test_reset_by_the_voice_server(self) -> None:
        voice = self.connect_plainly()
        reset(voice)
        self.assertEqual(self.wait_for_end(), "status 0")
        self.assertRegex(self.log(), LOST)
        self.expect_nothing_left()

    def test_close_by_the_voice_server(self) -> None:
        # Kept: not noticed in itself; the frames that still come back for it end the process. If
        # frames lay unread when it closed, its system has reset the connection instead.
        voice = self.connect_plainly()
        voice.close()
        ending = self.wait_for_end()
        was_reset = re.search(LOST, self.log())
        self.assertEqual(ending, "status 0" if was_reset else "killed by SIGPIPE")
        self.expect_nothing_left()

    def test_reset_by_the_sound_client(self) -> None:
        with socket.create_server(("127.0.0.1", self.client_port)) as listener:
            self.start_bridge()
            client, _ = listener.accept()
        self.start_voice()
        self.wait_for(lambda: "[Connected]" in self.log(), "the bridge to be connected")
        reset(client)
        self.assertEqual(self.wait_for_end(), "status 0")
        self.assertIn("[SoundClientError] Unknown Exception.\n", self.log())
        self.assertNotIn(TERMINATE, self.log())

    def test_close_by_the_sound_client_is_not_noticed(self) -> None:
        self.start()
        self.client.close()
        self.client = None
        self.send(1, 30)
        self.send_silence_until(lambda: (frames.DATA, -30) in self.returned(), "frame 30")
        self.assertTrue(self.node.bridge.running())

    def test_end_of_standard_input(self) -> None:
        self.start()
        self.node.bridge.close_input()
        self.assertEqual(self.wait_for_end(), "status 0")
        self.assertIn("[ROSConnectorError] ROS connector read failed.\n", self.log())
        self.assertTrue(self.log().endswith(TERMINATE))
        self.expect_nothing_left()

    def test_node_that_stops_reading_for_good(self) -> None:
        self.start()
        self.node.bridge.output().close()
        self.assertEqual(self.wait_for_end(), "killed by SIGPIPE")
        self.expect_nothing_left()

    def test_engine_with_an_unknown_frame_type(self) -> None:
        self.start(vad=["emit 5"])
        self.assertEqual(self.wait_for_end(), "status 0")
        self.assertIn("[AppcontrollerError] Unknown Exception.\n", self.log())
        self.assertTrue(self.log().endswith(TERMINATE))

    def test_mmse_engine_that_dies(self) -> None:
        self.start(mmse=["exit_after 20"])
        self.assertEqual(self.wait_for_end(), "killed by SIGPIPE")
        self.expect_nothing_left()

    def test_vad_engine_that_dies(self) -> None:
        self.start(vad=["exit_after 20"])
        self.assertEqual(self.wait_for_end(), "killed by SIGPIPE")
        self.expect_nothing_left()

    def test_engine_that_does_not_exist(self) -> None:
        # Kept: starting it succeeds as far as the bridge can see; its first frame ends the process.
        self.start(engine=self.folder / "missing")
        self.assertEqual(self.wait_for_end(), "killed by SIGPIPE")

    def test_interrupt_while_processing(self) -> None:
        self.start()
        self.send(1, 20)
        self.signal_bridge(signal.SIGINT)
        self.assertEqual(self.wait_for_end(), "status 0")
        self.assertNotIn(TERMINATE, self.log())
        self.expect_nothing_left()

    def test_interrupt_at_any_moment(self) -> None:
        # A flood keeps the bridge out of its waits most of the time.
        self.start()
        self.addCleanup(self.stop_flood)
        self.flood = threading.Thread(target=self.send_for_ever, daemon=True)
        self.flood.start()
        self.wait_for(lambda: len(self.returned()) > 100, "the flood")
        self.signal_bridge(signal.SIGINT)
        self.assertEqual(self.wait_for_end(), "status 0")
        self.expect_nothing_left()

    def send_for_ever(self) -> None:
        try:
            while True:
                self.send(1, 100)
        except LinkError:
            pass  # the bridge has ended

    def stop_flood(self) -> None:
        self.flood.join(BOUND)
        self.assertFalse(self.flood.is_alive())

    def test_interrupt_while_connecting(self) -> None:
        self.start_bridge()
        self.wait_for(lambda: "Connecting" in self.log(), "the first attempt")
        self.signal_bridge(signal.SIGINT)
        self.assertEqual(self.wait_for_end(), "status 0")
        self.expect_nothing_left()

    def test_terminated_bridge_leaves_no_engine(self) -> None:
        self.start()
        self.signal_bridge(signal.SIGTERM)
        self.assertEqual(self.wait_for_end(), "killed by SIGTERM")
        self.expect_nothing_left()

    def test_killed_bridge_leaves_no_engine(self) -> None:
        self.start()
        self.signal_bridge(signal.SIGKILL)
        self.assertEqual(self.wait_for_end(), "killed by SIGKILL")
        self.expect_nothing_left()

    def test_descriptors_do_not_grow_while_processing(self) -> None:
        self.start()
        self.send(1, 20)
        self.send_silence_until(lambda: (frames.DATA, -20) in self.returned(), "frame 20")
        before = self.descriptors()
        self.send(21, 600)  # across a renewal
        self.send_silence_until(lambda: "renew noize model." in self.log(), "a renewal")
        self.send(601, 630)
        self.send_silence_until(lambda: (frames.DATA, -630) in self.returned(), "frame 630")
        self.assertEqual(self.descriptors(), before)

    def test_ports_are_free_again(self) -> None:
        self.start()
        self.stop_by_input()  # looks at the port
        with socket.create_server(("127.0.0.1", self.server_port)):
            pass


if __name__ == "__main__":
    unittest.main()
