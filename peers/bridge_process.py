# SPDX-License-Identifier: MIT
"""The bridge as a child process, with its engines. stop() ends them all; whoever is killed outright
leaves a bridge behind that ends only once it has met both peers."""
import os
import signal
import subprocess
import threading
from pathlib import Path
from typing import BinaryIO, Callable

from processes import members
from waiting import until

POLITE = 2.0  # seconds that each way of ending the bridge gets before a harder one


def command_line(
    program: Path, engine: str | Path, settings: tuple[Path, Path], ports: tuple[int, int],
    level: str = "info",
) -> list[str]:  # fmt: skip
    """A bridge on this machine; settings of the MMSE and the VAD engine, ports of the sound client
    and the voice server."""
    words = [program, "-i", "127.0.0.1", "-c", ports[0], "-s", ports[1], "-l", level]
    return [str(word) for word in [*words, "-b", engine, "-m", settings[0], "-v", settings[1]]]


class StartError(Exception):
    """The bridge could not be started; the text names the file."""


class BridgeProcess:
    """One run of the bridge. Its standard input stays open until stop()."""

    def __init__(self, command: list[str], log: str | None = None) -> None:
        self.command = command
        self.log = log  # file for its standard error; None: ours
        self._process: subprocess.Popen[bytes] | None = None

    def start(self) -> None:
        try:
            errors = open(self.log, "wb") if self.log else None
        except OSError as error:
            raise StartError(f"{self.log}: {error.strerror}") from error
        try:
            # A process group of its own: Ctrl-C reaches us only, and we end the bridge in good
            # order.
            self._process = subprocess.Popen(
                self.command,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=errors,
                process_group=0,
            )
        except OSError as error:
            raise StartError(f"{self.command[0]}: {error.strerror}") from error
        finally:
            if errors:
                errors.close()

    def output(self) -> BinaryIO:
        assert self._process is not None and self._process.stdout is not None
        return self._process.stdout

    def write(self, text: bytes) -> None:
        """Writes to its standard input at once; raises BrokenPipeError when it has ended."""
        assert self._process is not None and self._process.stdin is not None
        self._process.stdin.write(text)
        self._process.stdin.flush()

    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    def close_input(self) -> None:
        """Ends its standard input, which it answers by ending."""
        assert self._process is not None and self._process.stdin is not None
        self._process.stdin.close()

    def ending(self) -> str:
        """How it ended: "status 0" or "killed by SIGPIPE"; "" while it runs."""
        assert self._process is not None
        code = self._process.poll()
        return "" if code is None else describe(code)

    def wait(self, seconds: float) -> None:
        """Until it has ended, so long at most."""
        until(lambda: not self.running(), seconds)

    def pid(self) -> int | None:
        return self._process.pid if self._process else None

    def on_exit(self, action: Callable[[], None]) -> None:
        """Calls the action from a thread when the bridge has ended by itself."""
        assert self._process is not None
        process = self._process

        def watch() -> None:
            process.wait()
            action()

        threading.Thread(target=watch, daemon=True).start()

    def stop(self) -> str:
        """Ends it: end of input, then SIGINT, then SIGKILL. Returns how it ended."""
        process = self._process
        if process is None:
            return "was not started"
        how = "ended by itself" if process.poll() is not None else "ended after its input"
        try:
            process.stdin.close()
        except BrokenPipeError:
            pass  # it has ended and left a word unread; nobody needs it any more
        for number, name in ((signal.SIGINT, "SIGINT"), (signal.SIGKILL, "SIGKILL")):
            if until(lambda: process.poll() is not None, POLITE):
                break
            how = f"needed {name}"
            process.send_signal(number)
        process.wait()
        return f"{how}, {describe(process.returncode)}{self._end_group(process.pid)}"

    @staticmethod
    def _end_group(group: int) -> str:
        """Engines end when their input ends; one that does not is killed and reported."""
        if until(lambda: not members(group), POLITE):
            return ""
        for pid in members(group):
            os.kill(pid, signal.SIGKILL)
        return ", engines were left behind and killed"


def describe(code: int) -> str:
    """An exit status in words."""
    return f"status {code}" if code >= 0 else f"killed by {signal.Signals(-code).name}"
