# SPDX-License-Identifier: MIT
"""A sound client that misbehaves: blocks cut at every byte, byte by byte, half a block then
silence, junk, a connection that is closed or reset at inconvenient times."""
import socket
import unittest

from fault_story import CONNECTED, TERMINATE, FaultStory, reset

LOST = "[SoundClientError] Unknown Exception.\n"
EPD_OFF = b"EPD_OFF\r\n\r\n"
EPD_ON = b"EPD_ON\r\n\r\n"
DATA = b"DATA 640\n\n"  # a header; cutting it behind its first digit ends the link


class SoundClientFaults(FaultStory):
    def setUp(self) -> None:
        super().setUp()
        self.listener = socket.create_server(("127.0.0.1", self.client_port))
        self.addCleanup(self.listener.close)
        self.listener.settimeout(60)

    def connect_both(self, **arguments) -> None:
        """The bridge with two peers that are plain sockets. It moves silence as fast as it can; an
        utterance that has begun keeps it from renewals."""
        self.start_bridge(vad=["start 1"], **arguments)
        self.sound, _ = self.listener.accept()
        self.addCleanup(self.sound.close)
        self.sound.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.connect_voice()
        self.spin()
        self.wait_for(lambda: "operation header :1" in self.log(), "the utterance")
        self.before = self.descriptors()

    def say(self, *pieces: bytes) -> None:
        """Each piece is read before the next one is sent."""
        for piece in pieces:
            self.send_piece(self.sound, piece)

    def count(self, command: str) -> int:
        return self.log().count(f"receive sound client packet : {command}.\n")

    def expect_count(self, command: str, number: int) -> None:
        self.wait_for(lambda: self.count(command) >= number, f"{command} {number}")
        self.assertEqual(self.count(command), number)

    def expect_unharmed(self) -> None:
        """Whatever was said, the next commands are obeyed and frames move on."""
        on, off = self.count("epd_on"), self.count("epd_off")
        self.say(EPD_OFF, EPD_ON)
        self.expect_count("epd_off", off + 1)
        self.expect_count("epd_on", on + 1)
        self.assertEqual(self.descriptors(), self.before)
        self.expect_running()

    def test_commands_cut_at_every_byte(self) -> None:
        # A keyword that is cut is put together; one whose end is cut off is obeyed at once.
        self.connect_both()
        cuts = {"begin": b"BEGIN", "end": b"END", "cancel": b"CANCEL", "epd_on": b"EPD_ON",
                "epd_off": b"EPD_OFF"}  # fmt: skip
        for name, keyword in cuts.items():
            block = keyword + b"\r\n\r\n"
            for cut in range(1, len(block)):
                self.say(block[:cut], block[cut:])
            self.expect_count(name, len(block) - 1)
        self.expect_unharmed()
        self.stop_by_input()

    def test_command_that_comes_byte_by_byte(self) -> None:
        self.connect_both()
        self.say(*[bytes([byte]) for byte in EPD_OFF])
        self.expect_count("epd_off", 1)
        self.expect_unharmed()

    def test_half_a_command_then_silence(self) -> None:
        self.connect_both()
        self.say(EPD_OFF[:5])
        self.expect_running()
        self.assertEqual(self.count("epd_off"), 0)
        self.say(EPD_OFF[5:])
        self.expect_count("epd_off", 1)
        self.expect_unharmed()

    def test_data_block_cut_at_every_byte(self) -> None:
        # The payload holds a command, which counts for nothing when the block is taken as one.
        self.connect_both()
        payload = EPD_OFF.ljust(640, b".")
        block = DATA + payload + b"."  # one byte more: now the block is taken
        for cut in range(1, len(block)):
            if block[:cut] != b"DATA 6":
                self.say(block[:cut], block[cut:])
        self.say(EPD_ON)
        self.expect_count("epd_on", 1)
        self.assertEqual(self.count("epd_off"), 0)
        self.expect_unharmed()

    def test_sound_client_cut_a_data_header_inside_its_digits(self) -> None:
        self.connect_both()
        self.sound.sendall(b"DATA 6")
        self.expect_end("status 0", LOST)
        self.assertNotIn(TERMINATE, self.log())

    def test_half_a_data_block_then_silence(self) -> None:
        # It waits for the rest, however long: both halves hold a command, and neither is obeyed.
        self.connect_both()
        half = EPD_OFF.ljust(320, b".")
        self.say(DATA + half)
        self.expect_running()
        self.say(half + b".", EPD_ON)
        self.expect_count("epd_on", 1)
        self.assertEqual(self.count("epd_off"), 0)
        self.expect_unharmed()

    def test_data_block_that_never_ends(self) -> None:
        # It takes in everything, commands as well; frames move on.
        self.connect_both()
        self.say(b"DATA 4294967294\n\n", *[EPD_OFF * 50] * 20)
        self.expect_running()
        self.assertEqual(self.count("epd_off"), 0)
        self.stop_by_input()

    def test_junk(self) -> None:
        self.connect_both()
        junk = bytes(byte for byte in range(256) if byte not in b"BCDE") * 4
        self.say(*[junk] * 300)
        self.expect_unharmed()

    def test_half_closed_connection_is_still_told(self) -> None:
        self.connect_both()
        self.sound.shutdown(socket.SHUT_WR)
        self.node.play_sound(True)
        self.sound.settimeout(60)
        self.assertEqual(self.sound.recv(100), b"epdoff\n\n")
        self.expect_running()

    def test_closed_while_a_voice_server_is_waited_for(self) -> None:
        # Not noticed then, nor later.
        self.start_bridge()
        self.listener.accept()[0].close()
        self.connect_voice()
        self.expect_running()
        self.stop_by_input()

    def test_reset_while_a_voice_server_is_waited_for(self) -> None:
        self.start_bridge()
        reset(self.listener.accept()[0])
        self.connect_voice()
        self.expect_end("status 0", CONNECTED, LOST)


if __name__ == "__main__":
    unittest.main()
