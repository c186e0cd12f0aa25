# SPDX-License-Identifier: MIT
"""A sound client that never keeps quiet: audio, commands and junk, and what it is told.

All goes out in packets of 1024 bytes, as many as the bridge reads in one go: a DATA header is then
never cut inside its digits, which would end the bridge.
"""
import random
import threading

from process import SoakError
from sound_client import CommandError, SoundClient
from waiting import until

PACKET = 1024
INTERVAL = 0.02  # seconds between packets: half of what the bridge reads at the pace of real audio
DATA_HEADER = b"DATA  1012\n\n"
COMMANDS = [b"BEGIN\r\n\r\n", b"END\r\n\r\n", b"CANCEL\r\n\r\n", b"EPD_ON\r\n\r\n"]
CUT = [b"BEGIN", b"CANCEL\r", b"END\r\n", b"EPD_O", b"BEG"]  # at the end of a packet
JUNK = bytes(byte for byte in range(256) if byte != ord("D"))  # no DATA by chance
KEPT = 60000  # frames that the bridge keeps of a sound client, which takes none back


def padded(packet: bytes) -> bytes:
    return packet.ljust(PACKET, b".")


class NoisyClient(SoundClient):
    """Says nothing before start()."""

    def __init__(self, seed: int = 1) -> None:
        super().__init__()
        self.packets = 0
        self.failure = ""
        self._random = random.Random(seed)
        self._quiet = threading.Event()
        self._next: list[bytes] = []  # what goes out before anything by chance

    def start(self) -> None:
        """Begins to talk to a bridge that has connected, or is about to be noticed."""
        if not until(self.connected, 60):
            raise SoakError("the bridge did not connect to the sound client")
        threading.Thread(target=self._talk, name="noisy client", daemon=True).start()

    def fill(self) -> None:
        """More frames than the bridge keeps: each BEGIN makes two."""
        packet = padded(b"BEGIN\r\n\r\n" * (PACKET // 9))
        self._next += [packet] * (KEPT // (2 * (PACKET // 9)) + 20)

    def switch(self, on: bool) -> None:
        self._next.append(padded(b"EPD_ON\r\n\r\n" if on else b"EPD_OFF\r\n\r\n"))

    def _talk(self) -> None:
        try:
            while not self._quiet.wait(INTERVAL):
                self.send_bytes(self._next.pop(0) if self._next else self._packet(), "noise")
                self.packets += 1
        except CommandError as error:
            self.failure = f"sound client: {error}"

    def _packet(self) -> bytes:
        kind = self._random.random()
        if kind < 0.7:
            return DATA_HEADER + self._random.randbytes(PACKET - len(DATA_HEADER))
        if kind < 0.85:
            return bytes(self._random.choices(JUNK, k=PACKET))
        words = padded(b"".join(self._random.choices(COMMANDS, k=20)))
        if kind < 0.95:
            return words
        cut = self._random.choice(CUT)
        return words[: -len(cut)] + cut

    def stop(self) -> None:
        """Ends the talk and checks what was told: the two texts by turns."""
        self._quiet.set()
        wrong = [text for index, text in enumerate(self.told)
                 if text != ("epdoff", "epdon")[index % 2]]  # fmt: skip
        if wrong:
            raise SoakError(f"the sound client was told {wrong[0]!r} out of turn")
