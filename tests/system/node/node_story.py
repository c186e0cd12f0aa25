# SPDX-License-Identifier: MIT
"""What the stories of the node share: tolvanev-node with the real bridge and peers that come back
by themselves. Engines are scripted, so that a story knows where speech begins and ends.

Every story ends by checking that nothing of the node is left: no process of its bridges, no file
half written, no socket.
"""
import json
import os
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path
from typing import Callable, Iterable, Iterator

import frames
from bridge_process import command_line
from processes import children, descriptors, members
from sound_client import SoundClient
from waiting import free_port, until

BUILD = Path(os.environ.get("TOLVANEV_BUILD", "build/debug")).resolve()
NODE = BUILD / "tolvanev-node"
BRIDGE = BUILD / "Tolvanev"
SCRIPTED_ENGINE = BUILD / "tests" / "scripted_engine"
BOUND = 60.0  # seconds for things that take a few on a quiet machine

# AddressSanitizer sets freed memory aside, 256 MB of it if nothing is said.
SANITIZED = b"__asan_init" in NODE.read_bytes()
os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"
SPEECH = 20, 60  # frames of each engine's life between which it finds speech
RESET = struct.pack("ii", 1, 0)  # SO_LINGER: closing resets the connection

# A shell has what runs in its background ignore interrupts, and the node would begin so.
signal.signal(signal.SIGINT, signal.default_int_handler)


def reset(peer: socket.socket) -> None:
    """Ends a connection as a peer does that is killed with something unread."""
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
    os.close(peer.detach())


class Microphone:
    """A voice server that is never discouraged: connects, sends frames at the pace of real audio,
    numbered in their first sample, reads what comes back, and connects again when the bridge has
    gone. Can be told to misbehave."""

    def __init__(self, port: int, payloads: Iterator[bytes] | None = None) -> None:
        """payloads: what it sends, instead of numbers."""
        self.port = port
        self._payloads = payloads
        self.connections = 0
        self.present = True  # False: stays away once it has lost its connection
        self.peer: socket.socket | None = None
        self._pause_until = 0.0
        self._then: Callable[[socket.socket], None] | None = None  # instead of the next frame
        self._stop = False
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self) -> None:
        while not self._stop:
            try:
                if not self.present:
                    raise ConnectionError
                with socket.create_connection(("127.0.0.1", self.port), 1) as self.peer:
                    self.connections += 1
                    self._pause_until, self._then = 0.0, None
                    self._talk(self.peer)
            except OSError:
                time.sleep(0.02)

    def _talk(self, peer: socket.socket) -> None:
        peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        number, began = 0, time.monotonic()
        while not self._stop:
            if self._then:
                return self._then(peer)
            number += 1
            if time.monotonic() >= self._pause_until:
                peer.sendall(frames.make(frames.DATA, self._payload(number)))
            peer.settimeout(max(began + number / frames.PER_SECOND - time.monotonic(), 0.001))
            try:
                if not peer.recv(65536):
                    return
            except TimeoutError:
                pass

    def _payload(self, number: int) -> bytes:
        return next(self._payloads) if self._payloads else struct.pack("<h", number % 32768)

    def send(self, data: bytes) -> None:
        """Between two frames."""
        self.peer.sendall(data)

    def reset(self) -> None:
        self._then = reset

    def stay_away(self) -> None:
        """Closes in good order, and does not come back before it is `present` again."""
        self.present = False
        self._then = socket.socket.close

    def pause(self, seconds: float) -> None:
        self._pause_until = time.monotonic() + seconds

    def half_close(self) -> None:
        """Sends no more, and goes on reading."""
        self._pause_until = float("inf")
        self.peer.shutdown(socket.SHUT_WR)

    def close(self) -> None:
        self._stop = True
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
        if self.node and self.node.poll() is None:
            self.node.terminate()
            self.look_for_bridges()
            self.node.wait(BOUND)
        if self.microphone:
            self.microphone.close()
        if self.client:
            self.client.close()
        left = until(lambda: not any(members(group) for group in self.groups), BOUND)
        self.assertTrue(left, "processes left behind")
        if self.node and self.node.returncode != -signal.SIGKILL:
            hidden = [path.name for path in self.folder.rglob(".*")]
            self.assertEqual((hidden, self.socket.exists()), ([], False), "files left behind")

    # Starting.

    def settings(self, mmse: Iterable[str] = (), vad: Iterable[str] = ()) -> tuple[Path, Path]:
        """Scripts of the engines; see scripted_engine.cpp for the directives."""
        start, end = SPEECH
        scripts = {"mmse": mmse, "vad": [f"start {start}", f"end {end}", *vad]}
        for role, lines in scripts.items():
            log = self.folder / f"{role}.log"
            text = "\n".join([f"role {role}", f"log {log}", "unlogged", *lines]) + "\n"
            (self.folder / f"{role}.ini").write_text(text)
        return self.folder / "mmse.ini", self.folder / "vad.ini"

    def bridge(self, engine: Path = SCRIPTED_ENGINE, level: str = "info", **scripts) -> list[str]:
        """The command line of a bridge; of its engines the scripts (mmse, vad)."""
        ports = self.client_port, self.server_port
        return command_line(BRIDGE, engine, self.settings(**scripts), ports, level)

    def command(self, name: str, text: str) -> Path:
        """A shell script of this name."""
        path = self.folder / name
        path.write_text(f"#!/bin/sh\n{text}\n")
        path.chmod(0o755)
        return path

    def start_node(
        self, *options: object, command: Iterable[str] | None = None, events: bool = True,
        through: Iterable[str] = (), **popen,
    ) -> None:  # fmt: skip
        """through: a command that runs the one behind it. popen: arguments of subprocess.Popen."""
        usual = ["--events", self.events_file] if events else []
        words = [*through, NODE, *usual, "--control", self.socket, *options, "--"]
        words += self.bridge() if command is None else command
        with self.log_file.open("ab") as log:
            popen = {"stderr": log, "stdin": subprocess.DEVNULL} | popen
            self.node = subprocess.Popen([str(word) for word in words], **popen)
        self.wait_for(self.answers, "the node to start")

    def answers(self) -> bool:
        """Somebody listens on the control socket."""
        self.assertIsNone(self.node.poll(), self.log())
        with socket.socket(socket.AF_UNIX) as client:
            return client.connect_ex(str(self.socket)) == 0

    def start_client(self) -> None:
        self.client = self.client or SoundClient(port=self.client_port)

    def start_peers(self) -> None:
        self.start_client()
        self.microphone = self.microphone or Microphone(self.server_port)

    def start(self, *options: object, **arguments) -> None:
        """Everything, up to the first frames."""
        self.start_peers()
        self.start_node(*options, **arguments)
        self.wait_for_frames()

    # Looking and waiting.

    def log(self) -> str:
        return self.log_file.read_text(errors="replace") if self.log_file.exists() else ""

    def events(self, kind: str | None = None) -> list[dict]:
        """Those of the events file so far, of one kind or of all."""
        if not self.events_file.exists():
            return []
        *whole, _ = self.events_file.read_text().split("\n")  # the last may be in the making
        all_of_them = [json.loads(line) for line in whole]
        return [event for event in all_of_them if kind in (None, event["event"])]

    def wait_for(self, condition: Callable[[], object], what: str, seconds: float = BOUND) -> None:
        if not until(condition, seconds):
            self.fail(f"waited {seconds:g} s for {what}; the node said:\n{self.log()}")

    def wait_for_events(self, kind: str, number: int = 1) -> list[dict]:
        self.wait_for(lambda: len(self.events(kind)) >= number, f"{number} events {kind}")
        return self.events(kind)

    def wait_for_state(self, state: str) -> None:
        self.wait_for(lambda: self.status()["state"] == state, f"state {state}")

    def wait_for_log(self, text: str) -> None:
        self.wait_for(lambda: text in self.log(), f'"{text}"')

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
        self.wait_for(self.bridges, "a bridge")
        return self.bridges()[0]

    def engine_pids(self) -> list[int]:
        """The VAD engine is started first."""
        self.wait_for(lambda: len(children(self.bridge_pid())) == 2, "both engines")
        return children(self.bridge_pid())

    def bridges(self) -> list[int]:
        """All that run."""
        return [pid for pid in children(self.node.pid) if self.runs(pid, BRIDGE)]

    @staticmethod
    def runs(pid: int, program: Path) -> bool:
        try:
            return os.path.samefile(f"/proc/{pid}/exe", program)
        except OSError:
            return False  # it has ended

    def look_for_bridges(self) -> None:
        if self.node and self.node.poll() is None:
            self.groups.update(children(self.node.pid))

    # Talking.

    def connect(self) -> socket.socket:
        """A control client."""
        client = socket.socket(socket.AF_UNIX)
        self.addCleanup(client.close)
        client.connect(str(self.socket))
        client.settimeout(BOUND)
        return client

    def order(self, order: dict, client: socket.socket | None = None) -> dict:
        """Its answer. Without a client of its own it comes from one that leaves at once."""
        own = client or self.connect()
        own.sendall(json.dumps(order).encode() + b"\n")
        with own.makefile("rb") as stream:
            answer = stream.readline()
        if client is None:
            own.close()
        return json.loads(answer)

    def play_sound(self, on: bool, client: socket.socket) -> None:
        order = {"order": "play_sound", "on": on}
        self.assertEqual(self.order(order, client), {"ok": True})

    def ask(self, *words: str) -> subprocess.CompletedProcess:
        command = [NODE, "--ask", self.socket, *words]
        return subprocess.run(command, capture_output=True, text=True, timeout=BOUND)

    # Faults and what the node makes of them.

    def kill(self, pid: int, number: int = signal.SIGKILL) -> None:
        self.look_for_bridges()
        os.kill(pid, number)

    def end_reasons(self, number: int = 1) -> list[str]:
        """Of the ends of so many runs."""
        return [event["reason"] for event in self.wait_for_events("run_end", number)]

    def expect_recovery(self, fault: Callable[[], object], reason: str) -> None:
        """Frames flow again, the node has said why they did not, and holds no more open than
        before."""
        run, before = self.status()["run"], self.open_files()
        fault()
        self.wait_for_run(run + 1)
        self.assertIn(reason, self.end_reasons(run)[-1])
        self.expect_open_files(before)

    def open_files(self) -> int:
        """Of the node, when nobody is just talking to it."""
        counts = [len(descriptors(self.node.pid))]
        self.wait_for(lambda: self._steady(counts), "the node's open files to stay the same")
        return counts[-1]

    def _steady(self, counts: list[int]) -> bool:
        counts.append(len(descriptors(self.node.pid)))
        return len(counts) > 3 and len(set(counts[-4:])) == 1

    def expect_open_files(self, number: int) -> None:
        self.wait_for(
            lambda: len(descriptors(self.node.pid)) == number, f"{number} open files of the node"
        )

    def stop(self, number: int = signal.SIGTERM) -> float:
        """Ends the node; returns how many seconds that took. Its status is 0."""
        self.look_for_bridges()
        began = time.monotonic()
        self.node.send_signal(number)
        self.assertEqual(self.node.wait(BOUND), 0, self.log())
        return time.monotonic() - began
