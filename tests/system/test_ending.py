# SPDX-License-Identifier: MIT
"""How peers end the bridge, with message and status: one test for each row of the table in
README.md, and named after it. The rows of the command line are in test_start_up.py, of peers that
stay away in test_connecting.py and test_descriptors.py, of what they cut in test_cut_frames.py and
test_sound_client_faults.py, of who does not read in test_voice_server_faults.py,
test_standard_streams.py and test_unread_messages.py, of engines in test_engine_faults.py, of
signals in test_signals.py."""
import socket
import termios
import unittest

import frames
from fault_story import LOST, SANITIZED, TERMINATE, FaultStory, reset, waiting_in


class Ending(FaultStory):
    @unittest.skipIf(SANITIZED, "a sanitizer cannot look at memory without a descriptor of its own")
    def test_no_process_or_pipe_to_be_had_at_start(self) -> None:
        self.start_bridge(through=("prlimit", "--nofile=4"))
        self.expect_end("status 0", "[FATAL] [AppcontrollerError] VAD connector launch failed. ")
        self.assertTrue(self.log().endswith(TERMINATE))

    def expect_lost_voice_server(self) -> None:
        self.expect_end("status 0")
        self.assertRegex(self.log(), LOST)
        self.assertNotIn(TERMINATE, self.log())

    def test_voice_server_reset_the_connection(self) -> None:
        reset(self.connect_plainly())
        self.expect_lost_voice_server()

    def test_voice_server_closed_the_connection(self) -> None:
        # Kept: not noticed in itself; the frames that still come back for it end the process.
        voice = self.connect_plainly()
        self.pause_bridge()
        self.receive()  # all that has come back
        voice.close()
        self.let_bridge_go()
        self.expect_end("killed by SIGPIPE")
        self.assertNotIn("VoiceServerError", self.log())

    def test_voice_server_closed_the_connection_and_left_frames_unread(self) -> None:
        # Its system resets the connection.
        voice = self.connect_plainly()
        self.wait_for(lambda: waiting_in(voice, termios.FIONREAD) > 0, "a frame to come back")
        voice.close()
        self.expect_lost_voice_server()

    def test_sound_client_reset_the_connection(self) -> None:
        with socket.create_server(("127.0.0.1", self.client_port)) as listener:
            self.start_bridge()
            client, _ = listener.accept()
        self.connect_voice()
        reset(client)
        self.expect_end("status 0", "[SoundClientError] Unknown Exception.\n")
        self.assertNotIn(TERMINATE, self.log())

    def test_sound_client_closed_the_connection(self) -> None:
        # Kept: not noticed; the second thing that it is told ends the process.
        self.start()
        self.client.close()
        self.client = None
        self.send(1, 30)
        self.send_silence_until(lambda: (frames.DATA, -30) in self.returned(), "frame 30")
        self.node.play_sound(True)
        self.wait_for(lambda: "send epd state to sound client. :epdoff" in self.log(), "epdoff")
        self.expect_running()
        self.node.play_sound(False)
        self.expect_end("killed by SIGPIPE")

    def test_ros_node_closed_our_standard_input(self) -> None:
        self.start()
        self.stop_by_input()
        self.assertTrue(self.log().endswith(TERMINATE))

    def test_ros_node_closed_our_standard_output(self) -> None:
        self.start(node_reads=False)
        self.node.bridge.output().close()
        self.expect_end("killed by SIGPIPE")


if __name__ == "__main__":
    unittest.main()
