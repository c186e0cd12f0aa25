# SPDX-License-Identifier: MIT
"""An engine as the bridge starts it, by its path and with one argument, on pipes that tell each of
its writes from the next. Every wait is bounded; close() leaves no process behind."""
import fcntl
import os
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time
from pathlib import Path
from typing import NamedTuple

from bridge_process import describe
from processes import members, resident
from waiting import until

ROOM = 1 << 20  # bytes of the output's pipe; each write takes a page, and 16 of them are too few
MOST = 65536  # bytes of one write that are looked at together; a pipe in packets cuts at 4096


class Written(NamedTuple):
    """One write of the engine, and when it came."""

    data: bytes
    at: float


class EngineChild:
    """A running engine. An OSError when it cannot be started."""

    def __init__(self, engine: str | Path, settings: str | Path) -> None:
        its_input, self._input = os.pipe2(os.O_CLOEXEC)
        self._output, its_output = os.pipe2(os.O_CLOEXEC | os.O_DIRECT)  # packets: a write, a read
        self._errors = tempfile.TemporaryFile()
        self.output_ended = False
        try:
            fcntl.fcntl(self._output, fcntl.F_SETPIPE_SZ, ROOM)
            # By its path, as the bridge does: no search along PATH.
            self._process = subprocess.Popen(
                [str(engine), str(settings)],
                executable=os.path.abspath(engine),
                stdin=its_input,
                stdout=its_output,
                stderr=self._errors,
                process_group=0,
            )
        except OSError:
            self._close_pipes()
            raise
        finally:
            os.close(its_input)
            os.close(its_output)
        os.set_blocking(self._input, False)
        os.set_blocking(self._output, False)

    def __enter__(self) -> "EngineChild":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    # Its input and output.

    def send(self, data: bytes, seconds: float) -> int:
        """Writes, at most this long; returns how many bytes went. BrokenPipeError: it reads no
        more."""
        deadline = time.monotonic() + seconds
        rest = memoryview(data)
        while rest:
            ready = select.select([], [self._input], [], max(0.0, deadline - time.monotonic()))[1]
            if not ready:
                break
            rest = rest[os.write(self._input, rest) :]
        return len(data) - len(rest)

    def take(self, seconds: float) -> list[Written]:
        """What it has written, after waiting for the first write at most this long."""
        taken: list[Written] = []
        wait = max(0.0, seconds)
        while not self.output_ended and select.select([self._output], [], [], wait)[0]:
            data = os.read(self._output, MOST)
            self.output_ended = not data
            if data:
                taken.append(Written(data, time.monotonic()))
            wait = 0.0
        return taken

    def has_read_all(self, seconds: float) -> bool:
        """Waits until it has read what was sent, so that the next piece is a read of its own."""
        deadline = time.monotonic() + seconds
        waiting = bytearray(4)
        while time.monotonic() < deadline:
            fcntl.ioctl(self._input, termios.FIONREAD, waiting)
            if struct.unpack("i", waiting) == (0,):
                return True
            time.sleep(0.0002)
        return False

    def close_input(self) -> None:
        if self._input >= 0:
            os.close(self._input)
            self._input = -1

    def close_output(self) -> None:
        """From here on its writes fail."""
        if self._output >= 0:
            os.close(self._output)
            self._output = -1

    # Its process.

    def terminate(self) -> None:
        self._process.terminate()

    def ended(self, seconds: float) -> bool:
        return until(lambda: self._process.poll() is not None, seconds)

    def ending(self) -> str:
        """How it ended and the last line that it said: "status 2, saying '...'"."""
        code = self._process.poll()
        how = "still running" if code is None else describe(code)
        said = self.said()
        return f"{how}, saying '{said}'" if said else how

    def said(self) -> str:
        """Its last line on standard error."""
        end = self._errors.seek(0, os.SEEK_END)
        self._errors.seek(max(0, end - 4096))
        lines = self._errors.read().decode(errors="replace").split("\n")
        return next((line.strip() for line in reversed(lines) if line.strip()), "")

    def memory(self) -> int:
        """Resident bytes, of its children too."""
        return sum(map(resident, members(self._process.pid)))

    def close(self) -> None:
        """Kills what is left of it. Running it twice is harmless."""
        for pid in members(self._process.pid):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass  # it has just ended
        self._process.wait()
        self._close_pipes()

    def _close_pipes(self) -> None:
        self.close_input()
        self.close_output()
        self._errors.close()
