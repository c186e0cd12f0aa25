# SPDX-License-Identifier: MIT
"""The robot's side of the demo: tolvanev-node, which starts the bridge, hands its frames on and is
told when a sound plays."""
import json
import socket
import tempfile
from pathlib import Path
from typing import Any

from bridge_process import StartError
from recognise import NOTHING
from ros_node import RosNode
from waiting import until

WAIT = 10.0  # seconds for the node's socket to be there
FINISH = 60.0  # seconds for commands under way
WAITING_MOST = 100  # utterances that may wait for a command


class RobotNode(RosNode):
    """A RosNode with the node in between. recognise: a command for each utterance, "" for none."""

    def __init__(self, program: Path, command: list[str], log: Path, recognise: str = "") -> None:
        # A socket's path must be short, and the demo's folder may be anywhere.
        self._folder = tempfile.TemporaryDirectory(prefix="tolvanev-")
        self._socket = Path(self._folder.name) / "control"
        self._events = Path(self._folder.name) / "events"
        self._client: socket.socket | None = None
        self.words: list[list[str]] = []  # of each utterance, when it has stopped
        options = ["--frames", "-", "--events", self._events, "--control", self._socket]
        # A demo that does not wait is no bridge that spins.
        options += ["--max-rate", "0"]
        self._recognises = bool(recognise)
        if recognise:
            options += ["--exec", recognise, "--exec-queue", WAITING_MOST]
        words = [str(word) for word in [program, *options, "--"]]
        super().__init__([*words, *command], str(log))

    def start(self, reading: bool = True) -> None:
        super().start(reading)
        client = socket.socket(socket.AF_UNIX)
        if not until(lambda: client.connect_ex(str(self._socket)) == 0, WAIT):
            client.close()
            raise StartError(f"{self.bridge.command[0]}: no socket in {WAIT:g} s")
        client.settimeout(WAIT)
        self._client = client

    def play_sound(self, on: bool) -> None:
        self._order({"order": "play_sound", "on": on})

    def understood(self) -> list[list[str]]:
        """The words of each utterance, as far as the command has written them."""
        found: dict[int, list[str]] = {}
        for event in self.events("text"):
            words = [word for word in event["text"].split() if word != NOTHING]
            found.setdefault(event["utterance"], []).extend(words)
        return [found.get(number, []) for number in range(1, len(self.utterances()) + 1)]

    def events(self, kind: str) -> list[dict[str, Any]]:
        if not self._events.exists():
            return []
        *whole, _ = self._events.read_text(errors="replace").split("\n")
        return [event for event in map(json.loads, whole) if event["event"] == kind]

    def wait_for_texts(self) -> None:
        """Until something was understood of each utterance, or time is up."""
        if self._recognises:
            wanted = {event["utterance"] for event in self.events("utterance")}
            until(lambda: wanted <= {one["utterance"] for one in self.events("text")}, FINISH)

    def stop(self) -> str:
        """Ends the node, which ends the bridge; says how the bridge ended."""
        if self._client:
            try:
                self._order({"order": "stop"})
                self.bridge.wait(WAIT)
            except OSError:
                pass  # it has ended; how, is seen below
            self._client.close()
        status = super().stop()
        ends = [event["status"] for event in self.events("run_end")]
        self.words = self.understood()
        self._folder.cleanup()
        if not ends:
            return status
        times = f" after {len(ends) - 1} restarts" if len(ends) > 1 else ""
        return f"ended by the node{times}, {ends[-1]}"

    def _order(self, order: dict[str, Any]) -> None:
        assert self._client is not None
        self._client.sendall(json.dumps(order).encode() + b"\n")
        with self._client.makefile("rb") as answer:
            answer.readline()
