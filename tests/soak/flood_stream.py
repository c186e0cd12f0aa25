# SPDX-License-Identifier: MIT
"""What the second soak sends, and what must come of it: a plain model of the bridge's output, with
the renewals and their averaged noise."""
import array
import collections
import random
import struct

import frames

PATTERNS = 97  # frames with different samples; a prime, so that they meet each place of a block
NUMBER = 4  # bytes: two samples tell the number of a frame
RENEWAL_EVERY = 500  # frames at the ROS node
BLOCK, BLOCKS = 10, 4  # frames in a block of noise, and blocks in an average
DELAY_LINE = 9

_random = random.Random(1)
_TAILS = [array.array("h", [_random.randint(-32767, 32767) for _ in range(frames.SAMPLES - 2)])
          for _ in range(PATTERNS)]  # fmt: skip
_SENT = [tail.tobytes() for tail in _TAILS]
_BACK = [frames.swap(array.array("h", [-value for value in tail]).tobytes()) for tail in _TAILS]
SILENCE = frames.make(frames.DATA)
EOF, TOF = frames.make(frames.EOF), frames.make(frames.TOF)


class Mismatch(Exception):
    """A frame that should not have come; the text says what was expected."""


def sent_frame(number: int) -> bytes:
    """The frame with this number, from 1 on."""
    return struct.pack("<ihh", 0, number & 0x7FFF, number >> 15) + _SENT[number % PATTERNS]


def returned_frame(number: int) -> bytes:
    """As it comes back: negated by the scripted engine, most significant bytes first."""
    return struct.pack(">ihh", 0, -(number & 0x7FFF), -(number >> 15)) + _BACK[number % PATTERNS]


def number_in(block: bytes) -> int:
    low, high = struct.unpack_from("<hh", block, frames.HEADER_SIZE)
    return high << 15 | low


def cleaned(block: bytes) -> bytes:
    """Any frame as it comes back."""
    frame = frames.parse(block)
    samples = array.array("h", frame.payload)
    return frames.make(frame.kind, array.array("h", [-v for v in samples]).tobytes(), big=True)


class Model:
    """Follows the ROS node's stream block by block, and knows what may come next."""

    def __init__(self) -> None:
        self.number = 0  # the newest that was heard, or dropped before one that was heard
        self.heard = 0  # frames with numbers
        self.returned = 0  # the same at the voice server
        self.silent = 0
        self.renewals = 0
        self.dropped = 0
        self.least, self.most = 1 << 30, 0
        self.events: collections.deque = collections.deque()  # heard and not yet back
        self._count = 0  # blocks since the start
        self._noise: list[bytes] = []  # block in the making
        self._blocks: collections.deque = collections.deque(maxlen=BLOCKS)
        self._expected: collections.deque[bytes] = collections.deque()  # of a renewal
        self._gap = False  # frames may be missing before the next one with a number
        self._silent_before = 0
        self._newest_back = 0

    def hear(self, block: bytes, sent: int) -> bool:
        """Takes the next block; true when the bridge renews its noise model with it."""
        if self._expected:
            expected = self._expected.popleft()
            if block != expected:
                raise Mismatch(f"frame {self._count + 1}, of renewal {self.renewals}, is wrong")
            self.events.append(block)
        elif block == SILENCE:
            self.silent += 1
            self.events.append(block)
        else:
            self._hear_number(block, sent)
        return self._examine(block)

    def _hear_number(self, block: bytes, sent: int) -> None:
        number = self.number + 1
        if self._gap:
            number = number_in(block)
            gap = number - self.number - 1
            silent = self.silent - self._silent_before
            if not DELAY_LINE - silent <= gap <= sent - self.number:
                raise Mismatch(f"renewal {self.renewals} dropped {gap} frames of {sent} sent,"
                               f" behind {self.number}")  # fmt: skip
            self._take_gap(gap)
        if block != sent_frame(number):
            raise Mismatch(f"frame {number} was expected at the ROS node, {number_in(block)} came")
        self.number = number
        self.heard += 1
        self.events.append(number)

    def _take_gap(self, gap: int) -> None:
        self._gap = False
        self.dropped += gap
        self.least, self.most = min(self.least, gap), max(self.most, gap)

    def finish(self, sent: int) -> None:
        """The last frames may have been dropped as well."""
        if self._gap and sent > self.number:
            self._take_gap(sent - self.number)
            self.number = sent

    def _examine(self, block: bytes) -> bool:
        self._count += 1
        if block[0] == frames.DATA:
            self._noise.append(block)
            if len(self._noise) == BLOCK:
                self._blocks.append([array.array("h", each[frames.HEADER_SIZE :])
                                     for each in self._noise])  # fmt: skip
                self._noise = []
        if self._count % RENEWAL_EVERY:
            return False
        self.renewals += 1
        self._gap = True
        self._silent_before = self.silent
        self._expected += [EOF, TOF, *self._average()]
        return True

    def _average(self) -> list[bytes]:
        """Frame i is the mean of the i-th frames of the newest four blocks, rounded down."""
        noise = []
        for place in range(BLOCK):
            rows = [block[place] for block in self._blocks]
            means = array.array("h", [sum(column) // len(rows) for column in zip(*rows)])
            noise.append(frames.make(frames.DATA, means.tobytes()))
        return noise

    def check_back(self, block: bytes) -> None:
        """Compares a frame that came back with what was heard."""
        event = self.events[0]
        if event == EOF and block != cleaned(EOF):
            self._check_surplus(block)
            return
        self.events.popleft()
        if isinstance(event, int):
            if block != returned_frame(event):
                raise Mismatch(f"frame {event} was expected at the voice server")
            self.returned += 1
            self._newest_back = event
        elif block != cleaned(event):
            raise Mismatch("a frame without a number came back changed")

    def _check_surplus(self, block: bytes) -> None:
        """It came back in the very pass in which a renewal dropped its other half."""
        if block == cleaned(SILENCE):
            return
        self._newest_back += 1
        if block != returned_frame(self._newest_back):
            raise Mismatch(f"frame {self._newest_back} or the end was expected back")
