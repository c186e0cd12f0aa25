# SPDX-License-Identifier: MIT
"""The third soak: the node with the default engines at the pace of real audio, and a fault every so
many seconds. Frames flow again after each, every utterance between them is found, nothing grows."""
import itertools
import json
import os
import signal
import socket
import subprocess
import time
from datetime import datetime, timezone
from pathlib import Path
from typing import Any, Iterator

import processes
from bridge_process import command_line
from node_story import Microphone
from process import Row, SoakError, judged
from real_time import PASSAGE, scene
from sound_client import SoundClient
from waiting import free_port, until

EVERY = 20.0  # seconds from one fault to the next
WATCHDOG = 5  # seconds
BACK = 60.0  # seconds in which frames must flow again
WARM_UP = 10  # faults before growth is judged: one of each kind, and then some
MEMORY_ALLOWED = 256 * 1024  # bytes between the least of the first and of the last third
HEARD = 1.0  # seconds from frames flowing again to the first utterance that must be found


class NodeFaults:
    """One run; call run() once."""

    def __init__(self, build: Path, minutes: float, folder: Path) -> None:
        self.seconds = minutes * 60
        self.folder = folder
        self.client = SoundClient()
        self.spoken: list[tuple[float, float]] = []  # when each passage was sent, on the wall clock
        self.quiet: list[tuple[float, float]] = []  # from a fault until frames flowed again
        port = free_port()
        bridge = command_line(
            build / "Tolvanev",
            build / "tolvanev-engine",
            (build / "mmse.ini", build / "vad.ini"),
            (self.client.port, port),
        )
        outputs = ["--wav", folder / "wav", "--wav-files", 20, "--metrics", folder / "metrics"]
        outputs += ["--events", folder / "events", "--frames", folder / "frames"]
        outputs += ["--exec", "wc -c", "--control", folder / "control", "--watchdog", WATCHDOG]
        command = [build / "tolvanev-node", *outputs, "--", *bridge]
        with (folder / "log").open("wb") as log:
            self.node = subprocess.Popen([str(word) for word in command], stderr=log)
        self.microphone = Microphone(port, self._payloads())
        self.faults = itertools.cycle(
            [
                ("bridge killed", lambda: os.kill(self._process("bridge"), signal.SIGKILL)),
                ("one engine killed", lambda: os.kill(self._process("engine"), signal.SIGKILL)),
                (
                    "other engine killed",
                    lambda: os.kill(self._process("engine", 1), signal.SIGKILL),
                ),
                ("voice server reset", self.microphone.reset),
                ("sound client reset", self.client.reset),
                ("an engine hangs", lambda: os.kill(self._process("engine"), signal.SIGSTOP)),
                ("player vanishes", self._vanishing_player),
            ]
        )

    def _payloads(self) -> Iterator[bytes]:
        """Endless audio; notes when passages of it are taken to be sent."""
        began = 0.0
        for at, audio in itertools.cycle(enumerate(scene())):
            if at == PASSAGE[0]:
                began = time.time()
            elif at == PASSAGE[1]:
                self.spoken.append((began, time.time()))
            yield audio

    def run(self) -> list[Row]:
        """The figures; raises SoakError with the reason when the soak has failed."""
        try:
            self._wait_for_frames(0)
            return self._go_on()
        finally:
            self.microphone.close()
            self.node.terminate()
            self.node.wait(BACK)
            self.client.close()

    def _go_on(self) -> list[Row]:
        samples, recovery = [], {}
        end = time.monotonic() + self.seconds
        while time.monotonic() < end:
            time.sleep(EVERY)
            samples.append((processes.resident(self.node.pid), self._descriptors()))
            name, fault = next(self.faults)
            began, run = time.time(), self.status()["run"]
            fault()
            self._wait_for_frames(run if name == "player vanishes" else run + 1)
            self.quiet.append((began, time.time()))
            recovery.setdefault(name, []).append(self.quiet[-1][1] - began)
        time.sleep(2)
        return self._judge(samples, recovery)

    def status(self) -> dict[str, Any]:
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(BACK)
            client.connect(str(self.folder / "control"))
            client.sendall(b'{"order": "status"}\n')
            return json.loads(client.makefile().readline())["status"]

    def _descriptors(self) -> int:
        return len(processes.descriptors(self.node.pid))

    def _process(self, name: str, number: int = 0) -> int:
        found: list[int] = []

        def look() -> bool:  # the status is as of the last second, and engines may be renewed
            found[:] = [one["pid"] for one in self.status()["processes"] if one["name"] == name]
            return len(found) > number and os.path.exists(f"/proc/{found[number]}")

        if not until(look, BACK):
            raise SoakError(f"no {name} in {BACK:g} s")
        return found[number]

    def _vanishing_player(self) -> None:
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.folder / "control"))
            client.sendall(b'{"order": "play_sound", "on": true}\n')
            client.recv(100)
            time.sleep(0.3)

    def _wait_for_frames(self, run: int) -> None:
        def flowing() -> bool:
            if self.node.poll() is not None:
                raise SoakError(f"the node ended with {self.node.returncode}")
            try:
                now = self.status()
            except OSError:
                return False
            return now["run"] >= run and now["frame_age"] is not None and now["frame_age"] < 0.5

        if not until(flowing, BACK):
            log = (self.folder / "log").read_text(errors="replace")[-2000:]
            raise SoakError(f"no frames of run {run} in {BACK:g} s:\n{log}")

    def _judge(self, samples: list[tuple[int, int]], recovery: dict[str, list[float]]) -> list[Row]:
        events = [json.loads(line) for line in (self.folder / "events").read_text().splitlines()]
        heard = [event for event in events if event["event"] == "utterance"]
        missed, whole = self._missed(heard)
        judged_samples = samples[min(WARM_UP, len(samples) // 2) :]
        third = max(1, len(judged_samples) // 3)
        memory = [size for size, _ in judged_samples]
        growth = min(memory[-third:]) - min(memory[:third])
        descriptors = {count for _, count in judged_samples}
        status = self.status()
        group = self._process("bridge")
        began = time.monotonic()
        self.node.terminate()
        self.node.wait(BACK)
        stop = time.monotonic() - began
        left = not until(lambda: not processes.members(group), BACK)
        table = [
            ("duration", f"{self.seconds / 60:g} min, {len(self.quiet)} faults, "
                         f"{status['restarts']} restarts"),
            ("frames, utterances", f"{status['frames']['data']}, {len(heard)}"),
            ("passages between faults", f"{whole}, not found: {missed or 'none'}"),
            ("memory of the node", f"{min(memory) >> 10} to {max(memory) >> 10} KiB, "
                                   f"{growth >> 10:+} KiB from the first to the last third"),
            ("descriptors of the node", f"{min(descriptors)} to {max(descriptors)}"),
            ("end", f"{stop:.2f} s, status {self.node.returncode}"),
        ]  # fmt: skip
        for name, times in recovery.items():
            row = f"frames after {min(times):.1f} to {max(times):.1f} s, {len(times)} times"
            table.append((name, row))
        return judged(table, {
            "memory grows": growth > MEMORY_ALLOWED,
            "descriptors grow": len(descriptors) > 1,
            "passages were not found": missed,
            "too few passages to judge": whole < len(self.quiet) / 2,
            "it did not end well": self.node.returncode != 0,
            "processes were left behind": left,
        })  # fmt: skip

    def _missed(self, heard: list[dict[str, Any]]) -> tuple[list[str], int]:
        """Of the passages that no fault touched: when those were that were not found, and all."""
        missed, whole = [], 0
        spans = [(seconds_of(event["start"]), seconds_of(event["end"])) for event in heard]
        for began, ended in self.spoken:
            if any(began < back + HEARD and fault < ended + HEARD for fault, back in self.quiet):
                continue
            whole += 1
            if not any(start < ended + HEARD and end > began for start, end in spans):
                missed.append(datetime.fromtimestamp(began, timezone.utc).isoformat())
        return missed, whole


def seconds_of(text: str) -> float:
    """A time of an event on the wall clock."""
    return datetime.fromisoformat(text.replace("Z", "+00:00")).timestamp()
