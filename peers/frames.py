# SPDX-License-Identifier: MIT
"""The audio frame that all parties exchange: a 4-byte type and 160 samples of 16 bit.

The voice server sends little-endian frames and gets big-endian ones back; the ROS node gets
little-endian ones. A Frame always holds its samples little-endian, whatever came over the wire.
"""
import array
import struct
from typing import BinaryIO, Iterable, Iterator, NamedTuple

DATA, START, END, TOF, EOF = 0, 1, 2, 9, 10
NAMES = {DATA: "data", START: "start", END: "end", TOF: "tof", EOF: "eof"}

RATE = 16000  # samples a second
SAMPLES = 160  # a frame, 10 ms
PER_SECOND = RATE // SAMPLES
HEADER_SIZE = 4
PAYLOAD_SIZE = 2 * SAMPLES
SIZE = HEADER_SIZE + PAYLOAD_SIZE
SILENCE = bytes(PAYLOAD_SIZE)


class Frame(NamedTuple):
    """One frame: its type (possibly one without a name) and its samples, little-endian."""

    kind: int
    payload: bytes


def make(kind: int, payload: bytes = b"", big: bool = False) -> bytes:
    """The 324 bytes of a frame. A short payload is filled up with silence."""
    if len(payload) > PAYLOAD_SIZE:
        raise ValueError(f"frame payload of {len(payload)} bytes, at most {PAYLOAD_SIZE} fit")
    payload = payload.ljust(PAYLOAD_SIZE, b"\0")
    if big:
        return struct.pack(">i", kind) + swap(payload)
    return struct.pack("<i", kind) + payload


def parse(block: bytes, big: bool = False) -> Frame:
    """The frame in exactly 324 bytes."""
    if len(block) != SIZE:
        raise ValueError(f"frame of {len(block)} bytes instead of {SIZE}")
    (kind,) = struct.unpack(">i" if big else "<i", block[:HEADER_SIZE])
    payload = bytes(block[HEADER_SIZE:])
    return Frame(kind, swap(payload) if big else payload)


def swap(payload: bytes) -> bytes:
    """The same 16-bit samples in the other byte order."""
    samples = array.array("h", payload)
    samples.byteswap()
    return samples.tobytes()


def cut(pcm: bytes) -> Iterator[bytes]:
    """Payloads of raw audio; the last one is filled up with silence."""
    for offset in range(0, len(pcm), PAYLOAD_SIZE):
        yield pcm[offset : offset + PAYLOAD_SIZE].ljust(PAYLOAD_SIZE, b"\0")


def read_payloads(stream: BinaryIO) -> Iterator[bytes]:
    """Payloads of raw audio from a stream, each as soon as it is complete."""
    while payload := read_exact(stream, PAYLOAD_SIZE):
        yield payload.ljust(PAYLOAD_SIZE, b"\0")


def read_exact(stream: BinaryIO, size: int) -> bytes:
    """Exactly `size` bytes of a pipe or file; fewer only at its end."""
    parts = bytearray()
    while len(parts) < size:
        part = stream.read(size - len(parts))
        if not part:
            break
        parts += part
    return bytes(parts)


class Cutter:
    """Cuts frames out of a byte stream that arrives in pieces of any size, as sockets deliver."""

    def __init__(self, big: bool = False) -> None:
        self.big = big
        self.rest = bytearray()  # the beginning of a frame that is not complete yet

    def feed(self, data: bytes) -> list[Frame]:
        """The frames that `data` completes."""
        self.rest += data
        whole = len(self.rest) // SIZE * SIZE
        found = [
            parse(self.rest[offset : offset + SIZE], self.big) for offset in range(0, whole, SIZE)
        ]
        del self.rest[:whole]
        return found


def count(kinds: Iterable[int]) -> dict[str, int]:
    """Number of frames by type name; types without a name are counted as "unknown"."""
    result = dict.fromkeys([*NAMES.values(), "unknown"], 0)
    for kind in kinds:
        result[NAMES.get(kind, "unknown")] += 1
    return result


def describe(counts: dict[str, int]) -> str:
    """Counts on one line, types that did not occur left out."""
    return ", ".join(f"{number} {name}" for name, number in counts.items() if number) or "none"
