# SPDX-License-Identifier: MIT
"""One run of a program against all its peers: started here, fed and checked by the flood."""
import json
import os
import socket
import subprocess
from contextlib import AbstractContextManager, ExitStack, nullcontext
from pathlib import Path
from typing import Any, Callable, Sequence

import processes
from bridge_process import BridgeProcess, command_line
from renewal import DELAY_LINE
from sound_client import SoundClient
from waiting import free_port, until

START = 120  # seconds; valgrind and strace start slowly
END = 20
Report = dict[str, Any]


def delayed(report: Report) -> list[list[int]]:
    """The numbers that stood in the delay line at each renewal: the newest that the voice server
    never got back. None where there was a pause: silence may have stood there, too."""
    return [
        list(range(first, later))[-DELAY_LINE:]
        for first, later in report["returned"]["lost"]
        if not any(first <= number <= later for number in report["pauses"])
    ]


class Failed(Exception):
    """A run that did not come to a good end; the text says why."""


class Trial:
    """One run of a program that takes the bridge's options; call run() once. The settings files
    are those of the MMSE and the VAD engine."""

    def __init__(
        self, program: Path, engine: Path, settings: tuple[Path, Path],
        prefix: Sequence[str] = (), level: str = "info", log: str = os.devnull,
    ) -> None:  # fmt: skip
        self.engine = engine
        self.port = free_port()
        self.client = SoundClient()  # says nothing
        command = command_line(program, engine, settings, (self.client.port, self.port), level)
        self.process = BridgeProcess([*prefix, *command], log)

    def run(
        self,
        flood: Sequence[str],
        calls: bool = True,
        watching: Callable[[int], AbstractContextManager] = nullcontext,
    ) -> Report:
        """What the flood reports, and CPU time and memory of the program and what it started,
        engines apart. calls: the program connects to the sound client, too. watching is given the
        program's pid and stands around the flood."""
        with ExitStack() as stack:
            stack.callback(self.client.close)
            self.process.start()
            stack.callback(self.process.output().close)
            stack.callback(self.process.stop)  # what is still there when something fails
            voice = stack.enter_context(socket.socket())
            self._connect(voice, calls)
            with watching(self.process.pid()):
                report = self._flood(flood, (voice.fileno(), self.process.output().fileno()))
            self.process.close_input()
            if not until(lambda: not self.process.running(), END):
                raise Failed("the program does not end")
            if self.process.ending() != "status 0":
                raise Failed(f"the program ended with {self.process.ending()}")
            return report

    def _connect(self, voice: socket.socket, calls: bool) -> None:
        def connected() -> bool:
            if not self.process.running():
                raise Failed(f"ended at once: {' '.join(self.process.command)}")
            here = self.client.connected() or not calls
            return here and voice.connect_ex(("127.0.0.1", self.port)) == 0

        # A frame must leave at once and in one piece: the bridge takes what one read gives.
        voice.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if not until(connected, START):
            raise Failed("the program does not accept us")

    def _flood(self, flood: Sequence[str], ends: tuple[int, int]) -> Report:
        os.set_blocking(ends[1], False)
        command = [flood[0], *map(str, ends), *flood[1:]]
        with subprocess.Popen(
            command, pass_fds=ends, text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        ) as running:  # fmt: skip
            warm = running.stdout.readline()
            before = self._cpu() if warm else 0.0
            out, errors = running.communicate("\n")
        if running.returncode != 0:
            words = " ".join([*self.process.command, "|", *command])
            raise Failed(f"{words}:\n{out}{errors}")
        memory = sum(map(processes.peak, self._members()))
        return {
            **json.loads(out), "cpu_us": (self._cpu() - before) * 1e6, "peak_rss_kb": memory
        }  # fmt: skip

    def _members(self) -> list[int]:
        return processes.tree(self.process.pid(), self.engine)

    def _cpu(self) -> float:
        return sum(map(processes.cpu, self._members()))
