# SPDX-License-Identifier: MIT
"""What the stories of the real program share: the bridge with stand-in peers and scripted engines.

TOLVANEV_BUILD names the build directory; the stand-ins are those of peers/. Every story uses free
loopback ports and a fresh folder, waits for conditions with a generous bound, and ends by checking
that neither the bridge nor an engine is left.
"""
import os
import signal
import tempfile
import time
import unittest
from pathlib import Path

import frames
from bridge_process import command_line
from processes import members
from ros_node import RosNode
from sound_client import SoundClient
from voice_link import VoiceLink
from waiting import free_port, until

BUILD = Path(os.environ.get("TOLVANEV_BUILD", "build/debug")).resolve()
BRIDGE = BUILD / "Tolvanev"
SCRIPTED_ENGINE = BUILD / "tests" / "scripted_engine"
# Of a cross build: a script that starts the emulator.
EMULATED = BRIDGE.read_bytes().startswith(b"#!")
BOUND = 60.0  # seconds for things that take well under one on a quiet machine

CONNECTING = "Connecting to Server ... "

# A shell has what runs in its background ignore interrupts, and the bridge would begin so.
signal.signal(signal.SIGINT, signal.default_int_handler)


def numbered(number: int) -> bytes:
    """A payload whose first sample tells frames apart; 0 would look like silence."""
    return number.to_bytes(2, "little", signed=True).ljust(frames.PAYLOAD_SIZE, b"\0")


def number_of(payload: bytes) -> int:
    return int.from_bytes(payload[:2], "little", signed=True)


class Story(unittest.TestCase):
    """One bridge, its peers and engines."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tolvanev-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.engine_log = {"mmse": self.folder / "mmse.log", "vad": self.folder / "vad.log"}
        self.bridge_log = self.folder / "bridge.log"
        self.node: RosNode | None = None
        self.client: SoundClient | None = None
        self.voice: VoiceLink | None = None
        self.client_port = free_port()
        self.server_port = free_port()
        self.addCleanup(self.leave_nothing_behind)

    def leave_nothing_behind(self) -> None:
        if self.voice:
            self.voice.close()
        if self.client:
            self.client.close()
        if self.node and self.node.bridge.pid():
            group = self.node.bridge.pid()
            self.node.stop()
            self.assertTrue(until(lambda: not members(group), BOUND), "processes left behind")

    # Starting.

    def script(self, role: str, *lines: str) -> Path:
        """Writes the script of an engine; see scripted_engine.cpp for the directives."""
        path = self.folder / f"{role}.ini"
        head = [f"role {role}", f"log {self.engine_log[role]}"]
        path.write_text("\n".join([*head, *lines]) + "\n")
        return path

    def start_bridge(self, mmse=(), vad=(), engine=SCRIPTED_ENGINE, level="debug",
                     settings=None, node_reads=True, through=()) -> None:  # fmt: skip
        """Engines get scripts, or these settings files (mmse, vad) instead. through: a command that
        runs the one behind it."""
        settings = settings or (self.script("mmse", *mmse), self.script("vad", *vad))
        ports = self.client_port, self.server_port
        command = [*through, *command_line(BRIDGE, engine, settings, ports, level)]
        self.node = RosNode(command, str(self.bridge_log))
        self.node.start(reading=node_reads)

    def start_client(self) -> None:
        self.client = SoundClient(port=self.client_port)

    def start_voice(self) -> None:
        self.voice = VoiceLink("127.0.0.1", self.server_port, fast=True)
        self.voice.connect(BOUND)

    def start(self, **arguments) -> None:
        """Everything, up to the first pass of the loop."""
        self.start_client()
        self.start_bridge(**arguments)
        self.start_voice()
        self.wait_for(lambda: "[Connected]" in self.log(), "the bridge to be connected")
        self.wait_for_client()

    def wait_for_client(self) -> None:
        """A stand-in that is closed before it has accepted the connection would reset it. That it
        has: by now the bridge may have ended again."""
        self.wait_for(lambda: self.client.connections > 0, "the sound client's connection")

    # Looking and waiting.

    def log(self) -> str:
        return self.bridge_log.read_text(errors="replace") if self.bridge_log.exists() else ""

    def engine_events(self, role: str) -> list[list[str]]:
        """The words of each line that an engine of this role logged, all runs of it in order."""
        log = self.engine_log[role]
        if not log.exists():
            return []
        *whole, _ = log.read_text().split("\n")  # the last line may still be in the making
        return [line.split() for line in whole]

    def engine_frames(self, role: str) -> list[tuple[int, int]]:
        """Type and first sample of each frame that engines of this role were given."""
        events = self.engine_events(role)
        return [(int(words[2]), int(words[3])) for words in events if words[1] == "frame"]

    def wait_for(self, condition, what: str, seconds: float = BOUND) -> None:
        if not until(condition, seconds):
            self.fail(f"waited {seconds:g} s for {what}; the bridge said:\n{self.log()}")

    def wait_for_end(self) -> str:
        """How the bridge ended by itself: "status 0" or "killed by SIGPIPE"."""
        self.wait_for(lambda: not self.node.bridge.running(), "the bridge to end")
        return self.node.bridge.ending()

    # Feeding.

    def send(self, first: int, last: int) -> None:
        """Data frames with these numbers."""
        for number in range(first, last + 1):
            self.voice.send(frames.DATA, numbered(number))

    def send_silence_until(self, condition, what: str) -> None:
        """Keeps frames moving: the delay line hands on one for each that comes."""
        deadline = time.monotonic() + BOUND
        while not condition():
            if time.monotonic() > deadline:
                self.fail(f"sent silence for {BOUND:g} s waiting for {what}:\n{self.log()}")
            self.voice.send(frames.DATA)

    def returned(self) -> list[tuple[int, int]]:
        """Type and first sample of each frame that came back to the voice server."""
        return [(frame.kind, number_of(frame.payload)) for frame in self.voice.returned()]

    def heard(self) -> list[tuple[int, int]]:
        """Type and first sample of each frame that the ROS node got."""
        return [(frame.kind, number_of(frame.payload)) for frame in list(self.node.frames)]


def speech(events: list[tuple[int, int]]) -> list[tuple[int, int]]:
    """Without the silent frames of passes in which nothing came from the voice server."""
    return [event for event in events if event != (frames.DATA, 0)]
