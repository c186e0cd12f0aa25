# SPDX-License-Identifier: MIT
"""The bridge's exit status is 0 whatever happened; the node says what did: the rows of the table in
README.md, each by the reason that the node gives for the end of the run."""
import signal
import time
import unittest

import frames
from node_story import BRIDGE, SANITIZED, NodeStory


class AtTheStart(NodeStory):
    """Ends without frames, in one node each, or where the command line does not matter in one."""

    def expect(self, reason: str, command: list[str]) -> None:
        self.start_node(command=command)
        self.assertIn(reason, self.end_reasons()[0])

    def test_wrong_option(self) -> None:
        self.expect("wrong option: undefined option: --loud", [*self.bridge(), "--loud"])

    def test_option_without_value(self) -> None:
        self.expect("wrong option: option needs value: --client_port", [*self.bridge(), "-c"])

    def test_help(self) -> None:
        self.expect("it printed its help text", [*self.bridge(), "--help"])

    def test_log_level(self) -> None:
        self.expect("log_level is err, warn, info or debug", self.bridge(level="loud"))

    def test_engine_is_the_bridge(self) -> None:
        self.expect("is the bridge itself", self.bridge(engine=BRIDGE))

    @unittest.skipIf(SANITIZED, "the sanitizers need more descriptors themselves")
    def test_no_pipes_for_engines(self) -> None:
        few = ["/bin/sh", "-c", 'ulimit -n 6; exec "$0" "$@"', *self.bridge()]
        self.expect("no process or pipe for an engine: ", few)

    def test_image_of_another_machine(self) -> None:
        program = self.folder / "bridge"
        program.write_bytes(b"\x7fELF\2\1\1" + bytes(64))
        program.chmod(0o755)
        self.expect("ended with status 12", [str(program), *self.bridge()[1:]])

    def test_node_that_is_started_with_signals_ignored(self) -> None:
        """As some programs start others; the bridge could then neither collect its engines nor be
        interrupted."""
        ignoring = ["/bin/sh", "-c", 'trap "" CHLD INT PIPE; exec "$0" "$@"']
        self.start(through=ignoring)
        self.kill(self.bridge_pid(), signal.SIGINT)
        self.assertIn("was interrupted", self.end_reasons()[0])
        self.assertEqual(self.wait_for_events("run_end")[0]["status"], "status 0")


class WhileFramesFlow(NodeStory):
    def expect(self, reason: str, status: str) -> None:
        (end,) = self.wait_for_events("run_end")
        self.assertIn(reason, end["reason"])
        self.assertEqual((end["status"], end["asked"], end["pause"]), (status, False, 1))
        self.wait_for_log(f"the bridge ended ({status}): {end['reason']}; next start in 1 s")

    def test_voice_server_reset(self) -> None:
        self.start()
        self.microphone.reset()
        self.expect("voice server reset the connection", "status 0")

    def test_voice_server_closed(self) -> None:
        self.start()
        self.microphone.stay_away()
        (end,) = self.wait_for_events("run_end")
        self.assertRegex(end["reason"], "voice server (reset|closed) the connection")

    def test_sound_client_reset(self) -> None:
        self.start()
        self.client.reset()
        self.expect("sound client reset the connection", "status 0")

    def test_sound_client_closed(self) -> None:
        """The bridge notices when it tells it of a sound for the second time."""
        self.start()
        self.client.close()
        self.client = None
        player = self.connect()
        for on in True, False, True:
            self.play_sound(on, player)
            time.sleep(0.2)  # a pass of the bridge; what changes back within one is not told
        self.expect("sound client, or voice server, closed the connection", "SIGPIPE")

    def test_sound_client_cut_a_header(self) -> None:
        self.start()
        self.client.send_bytes(b"DATA 1", "half a header")
        self.expect("cut a DATA header inside its digits", "status 0")

    def test_frame_of_unknown_type(self) -> None:
        self.start()
        self.microphone.send(frames.make(77))
        self.expect("the voice server tore a frame", "status 0")

    def test_engine_that_answers_wrongly(self) -> None:
        """As exchanged settings have it, and there sooner or later."""
        self.start_peers()
        self.start_node(command=self.bridge(vad=["emit 5"]))
        self.expect("are -m and -v exchanged?", "status 0")

    def test_signals(self) -> None:
        self.start()
        self.kill(self.bridge_pid(), signal.SIGTERM)
        self.expect("killed by SIGTERM", "SIGTERM")


if __name__ == "__main__":
    unittest.main()
