# SPDX-License-Identifier: MIT
"""What the stories of the node share: tolvanev-node with the real bridge and peers that come back
by themselves. Engines are scripted, so that a story knows where speech begins and ends.

Every story ends by checking that no process of the node, its bridges and engines is left.
"""
import json
import os
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

import frames
from bridge_process import command_line
from processes import children, descriptors, members
from sound_client import SoundClient
from voice_link import LinkError, VoiceLink
from waiting import free_port, until

BUILD = Path(os.environ.get("TOLVANEV_BUILD", "build/debug")).resolve()
NODE = BUILD / "tolvanev-node"
BRIDGE = BUILD / "Tolvanev"
SCRIPTED_ENGINE = BUILD / "tests" / "scripted_engine"
BOUND = 60.0  # seconds for things that take a few on a quiet machine
SPEECH = 20, 60  # frames of each engine's life between which it finds speech

signal.signal(signal.SIGINT, signal.default_int_handler)


class Microphone:
    """A voice server that is never discouraged: connects, sends silence at the pace of real audio,
    and connects again when the bridge has gone."""

    def __init__(self, port: int) -> None:
        self.port = port
        self.link: VoiceLink | None = None
        self.connections = 0
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self) -> None:
        while not self._stop.is_set():
            self.link = VoiceLink("127.0.0.1", self.port)
            try:
                self.link.connect(0.2)
                self.connections += 1
                while not self._stop.is_set():
                    self.link.send(frames.DATA, b"\1\0" * 160)
            except LinkError:
                pass
            finally:
                self.link.close()

    def close(self) -> None:
        self._stop.set()
        self._thread.join(BOUND)


class NodeStory(unittest.TestCase):
    """One node, and whatever befalls it."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tolvanev-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.events_file = self.folder / "events.jsonl"
        self.log_file = self.folder / "node.log"
        self.socket = self.folder / "control"
        self.client_port, self.server_port = free_port(), free_port()
        self.node: subprocess.Popen | None = None
        self.client: SoundClient | None = None
        self.microphone: Microphone | None = None
        self.groups: set[int] = set()  # of every bridge that was seen
        self.addCleanup(self.leave_nothing_behind)

    def leave_nothing_behind(self) -> None:
        if self.microphone:
            self.microphone.close()
        if self.node and self.node.poll() is None:
            self.node.terminate()
            self.node.wait(BOUND)
        if self.client:
            self.client.close()
        self.look_for_bridges()
        left = until(lambda: not any(members(group) for group in self.groups), BOUND)
        self.assertTrue(left, "processes left behind")

    # Starting.

    def settings(self, mmse=(), vad=()) -> tuple[Path, Path]:
        start, end = SPEECH
        scripts = {"mmse": mmse, "vad": [f"start {start}", f"end {end}", *vad]}
        for role, lines in scripts.items():
            text = "\n".join([f"role {role}", *lines]) + "\n"
            (self.folder / f"{role}.ini").write_text(text)
        return self.folder / "mmse.ini", self.folder / "vad.ini"

    def bridge(self, engine=SCRIPTED_ENGINE, **scripts) -> list[str]:
        ports = self.client_port, self.server_port
        return command_line(BRIDGE, engine, self.settings(**scripts), ports)

    def start_node(self, *options: str, command: list[str] | None = None, stdout=None) -> None:
        command = command or self.bridge()
        words = [NODE, "--events", self.events_file, "--control", self.socket, *options]
        with self.log_file.open("ab") as log:
            self.node = subprocess.Popen(
                [str(word) for word in words] + ["--", *command], stderr=log, stdout=stdout
            )
        self.wait_for(lambda: self.events("state"), "the node to start")

    def start_peers(self) -> None:
        self.client = self.client or SoundClient(port=self.client_port)
        self.microphone = self.microphone or Microphone(self.server_port)

    def start(self, *options: str, **arguments) -> None:
        """Everything, up to the first frames."""
        self.start_peers()
        self.start_node(*options, **arguments)
        self.wait_for_frames()

    # Looking and waiting.

    def log(self) -> str:
        return self.log_file.read_text(errors="replace") if self.log_file.exists() else ""

    def events(self, kind: str | None = None) -> list[dict]:
        if not self.events_file.exists():
            return []
        *whole, _ = self.events_file.read_text().split("\n")  # the last may be in the making
        all_of_them = [json.loads(line) for line in whole]
        return [event for event in all_of_them if kind in (None, event["event"])]

    def wait_for(self, condition, what: str, seconds: float = BOUND) -> None:
        if not until(condition, seconds):
            self.fail(f"waited {seconds:g} s for {what}; the node said:\n{self.log()}")

    def status(self) -> dict:
        return self.order({"order": "status"})["status"]

    def frames(self) -> int:
        return self.status()["frames"]["data"]

    def wait_for_frames(self, number: int = 1) -> None:
        """So many more than now."""
        wanted = self.frames() + number
        self.wait_for(lambda: self.frames() >= wanted, f"{number} frames")
        self.look_for_bridges()

    def wait_for_run(self, run: int) -> None:
        """Frames of this run or a later one."""
        self.wait_for(
            lambda: (now := self.status())["run"] >= run and now["frame_age"] is not None,
            f"frames of run {run}",
        )
        self.look_for_bridges()

    def bridge_pid(self) -> int:
        """The running bridge."""
        self.wait_for(lambda: self._bridges(), "a bridge")
        return self._bridges()[0]

    def engine_pids(self) -> list[int]:
        return children(self.bridge_pid())

    def _bridges(self) -> list[int]:
        return [one["pid"] for one in self.status()["processes"] if one["name"] == "bridge"]

    def look_for_bridges(self) -> None:
        if self.node and self.node.poll() is None:
            self.groups.update(self._bridges())

    # Talking.

    def connect(self) -> socket.socket:
        """A control client."""
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(BOUND)
        client.connect(str(self.socket))
        self.addCleanup(client.close)
        return client

    def order(self, order: dict, client: socket.socket | None = None) -> dict:
        own = client or self.connect()
        own.sendall(json.dumps(order).encode() + b"\n")
        answer = own.makefile("rb").readline()
        if client is None:
            own.close()
        return json.loads(answer)

    def stop(self, number: int = signal.SIGTERM) -> float:
        """Ends the node; returns how many seconds that took. Its status is 0."""
        self.look_for_bridges()
        began = time.monotonic()
        self.node.send_signal(number)
        self.assertEqual(self.node.wait(BOUND), 0, self.log())
        return time.monotonic() - began

    def reasons(self) -> list[str]:
        """Of the ends so far."""
        return [event["reason"] for event in self.events("run_end")]

    def open_files(self) -> int:
        return len(descriptors(self.node.pid))
