# SPDX-License-Identifier: MIT
"""A microphone's audio that comes through a pipe, sent on as fresh as it came.

A pipe holds two seconds of audio. Whoever reads it only when the bridge is there finds them waiting
and, as new audio comes no slower than old audio may be sent, stays two seconds behind for good. So
this one reads all the time: before begin() to throw away, then to send, with a second waiting at
most.
"""
import os
import select
import stat
import threading
import time
from typing import BinaryIO, Iterator

import frames

BYTES_PER_SECOND = frames.PER_SECOND * frames.PAYLOAD_SIZE
BLOCK = 65536  # what a pipe holds
# Seconds for reading what already waits; a source that never pauses has no fresh end.
SETTLING = 0.5
# Seconds of audio that may wait while the bridge is held up. Recorders hand over half a second at
# once.
LATEST = 1.0
MOST = int(LATEST * BYTES_PER_SECOND)


def is_live(stream: BinaryIO) -> bool:
    """Whether audio comes while time passes, as from a pipe or a terminal; that of a file waits."""
    return not stat.S_ISREG(os.fstat(stream.fileno()).st_mode)


class LiveInput:
    """Reads from construction on, in a thread of its own."""

    def __init__(self, stream: BinaryIO) -> None:
        self._stream = stream  # keeps the file open
        self._file = stream.fileno()
        self._changed = threading.Condition()  # guards what follows
        self._waiting = bytearray()
        self._begun = False
        self._ended = False
        self._gone = {False: 0, True: 0}  # bytes thrown away before begin() and since
        threading.Thread(target=self._read, name="live input", daemon=True).start()

    def begin(self) -> None:
        """From now on the audio counts; all that came before is gone. May be called again."""
        deadline = time.monotonic() + SETTLING
        with self._changed:
            self._begun = False
            self._drop(len(self._waiting))
            while time.monotonic() < deadline and self._take():
                pass
            self._begun = True

    def early(self) -> float:
        """Seconds of audio that came before begin()."""
        return self._gone[False] / BYTES_PER_SECOND

    def late(self) -> float:
        """Seconds of audio thrown away since, because the bridge took it too slowly."""
        return self._gone[True] / BYTES_PER_SECOND

    def ended(self) -> bool:
        """Whether nothing waits and nothing more will come."""
        with self._changed:
            return self._ended and not self._waiting

    def payloads(self) -> Iterator[bytes]:
        """The audio since begin(), each frame as soon as it is complete."""
        while True:
            with self._changed:
                self._changed.wait_for(
                    lambda: self._ended or len(self._waiting) >= frames.PAYLOAD_SIZE
                )
                payload = bytes(self._waiting[: frames.PAYLOAD_SIZE])
                del self._waiting[: frames.PAYLOAD_SIZE]
            if not payload:
                return
            yield payload.ljust(frames.PAYLOAD_SIZE, b"\0")

    def _read(self) -> None:
        while not self._ended:
            select.select([self._file], [], [])
            with self._changed:
                self._take()
                self._changed.notify()

    def _take(self) -> bool:
        """Reads what has come, if anything has; the lock is held."""
        if self._ended or not select.select([self._file], [], [], 0)[0]:
            return False
        try:
            data = os.read(self._file, BLOCK)
        except OSError:
            data = b""  # a terminal that has gone ends the input like a pipe whose writer has
        self._ended = not data
        self._waiting += data
        self._drop(len(self._waiting) - (MOST if self._begun else 0))
        return True

    def _drop(self, over: int) -> None:
        """Throws the oldest bytes away; the lock is held."""
        over -= over % 2  # half a sample waits for its other half
        if over > 0:
            del self._waiting[:over]
            self._gone[self._begun] += over
