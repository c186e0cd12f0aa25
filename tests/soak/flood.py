# SPDX-License-Identifier: MIT
"""The second soak: frames as fast as they are answered, through scripted engines, and every sample
that comes out is checked. Only the frames that a renewal drops may be missing."""
import collections
import select
import socket
import time
from pathlib import Path

import frames
from bridge_process import BridgeProcess, command_line
from flood_stream import SILENCE, Mismatch, Model, sent_frame
from noisy_client import NoisyClient
from process import SoakError, sample, slope
from processes import members
from waiting import free_port, until

WINDOW = 40  # frames on their way; more than the delay line and the engines hold
PRIMING = 12  # frames that a renewal adds of its own
STALL = 0.005  # seconds without an answer after which more go out anyway
WIDER = 4  # frames; engines that have just started let more than the first ones wait
TAIL = 1000  # silent frames behind the last one, which move it out unless a renewal dropped it
GIVE_UP = 60.0  # seconds without any answer
SAMPLE_EVERY = 1.0
MEMORY_ALLOWED = 64 * 1024  # bytes a minute
SHORTEST_JUDGED = 60.0  # seconds; in less, one page more is a slope
CLEARED = "clear bufffer size:9\n"
PROGRESS_EVERY = 100_000


class Flood:
    """One run; call run() once."""

    def __init__(self, build: Path, number: int, folder: Path) -> None:
        self.number = number
        self.log = folder / "flood.log"
        self.client = NoisyClient()  # connected and silent
        self.port = free_port()
        scripts = folder / "mmse.ini", folder / "vad.ini"
        for script in scripts:
            script.write_text(f"role {script.stem}\n")
        engine = build / "tests" / "scripted_engine"
        ports = self.client.port, self.port
        command = command_line(build / "Tolvanev", engine, scripts, ports, "debug")
        self.bridge = BridgeProcess(command, str(self.log))
        self.model = Model()
        self.voice = socket.socket()
        self.sent = 0  # frames with numbers
        self.silence = 0  # frames without one, to move the last ones out
        self.flying = 0  # frames on their way, as far as can be known
        self.window = WINDOW
        self.heard_rest = b""
        self.back_rest = b""
        self.back: collections.deque[bytes] = collections.deque()
        self.samples = []

    def run(self) -> list[tuple[str, str]]:
        """The figures; raises SoakError with the reason when the soak has failed."""
        self.bridge.start()
        try:
            self._connect()
            begun = time.monotonic()
            self._flood()
            taken = time.monotonic() - begun
            pid = self.bridge.pid()
            how = self.bridge.stop()
            return self._judge(taken, how, members(pid))
        except Mismatch as error:
            raise SoakError(str(error)) from error
        finally:
            self.bridge.stop()
            self.bridge.output().close()
            self.voice.close()
            self.client.close()

    def _connect(self) -> None:
        connected = until(lambda: self.voice.connect_ex(("127.0.0.1", self.port)) == 0, 60)
        if not connected or not until(lambda: "[Connected]" in self.log.read_text(), 60):
            raise SoakError(f"no connection to the bridge: {self.log.read_text()}")
        # One send is one segment: the bridge does not put split frames together.
        self.voice.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def _flood(self) -> None:
        output = self.bridge.output()
        answered = looked = time.monotonic()
        told = 0
        while not self._done():
            self._send()
            readable, _, _ = select.select([self.voice, output], [], [], STALL)
            now = time.monotonic()
            if readable:
                answered = now
            elif now - answered > GIVE_UP:
                raise SoakError(f"no answer for {GIVE_UP:g} s after {self.sent} frames")
            else:
                self.window += WIDER
            if output in readable:
                self._hear(output.read1(65536))
            if self.voice in readable:
                self._take_back(self.voice.recv(65536))
            if now - looked > SAMPLE_EVERY:
                looked = now
                self.samples.append(sample(self.bridge.pid()))
            if self.model.number // PROGRESS_EVERY > told:
                told = self.model.number // PROGRESS_EVERY
                print(f"  {self.model.number} frames, {self.model.renewals} renewals", flush=True)

    def _done(self) -> bool:
        """All numbers were heard or dropped, and all that was heard came back as well."""
        if self.sent < self.number or self.model.events:
            return False
        if self.silence > TAIL:
            self.model.finish(self.sent)
        return self.model.number >= self.number

    def _send(self) -> None:
        while self.flying < self.window:
            self.flying += 1
            if self.sent < self.number:
                self.sent += 1
                self.voice.sendall(sent_frame(self.sent))
            else:
                self.silence += 1
                self.voice.sendall(SILENCE)

    def _hear(self, data: bytes) -> None:
        """The model follows what the ROS node gets."""
        if not data:
            raise SoakError(f"the bridge ended: {self.log.read_text()[-500:]}")
        self.heard_rest += data
        whole = len(self.heard_rest) // frames.SIZE * frames.SIZE
        for at in range(0, whole, frames.SIZE):
            self.flying -= 1
            if self.model.hear(self.heard_rest[at : at + frames.SIZE], self.sent):
                # A renewal has just dropped all that the bridge had read.
                self.flying, self.window = PRIMING, WINDOW
        self.heard_rest = self.heard_rest[whole:]
        self._compare()

    def _take_back(self, data: bytes) -> None:
        if not data:
            raise SoakError(f"the bridge closed the connection: {self.log.read_text()[-500:]}")
        self.back_rest += data
        whole = len(self.back_rest) // frames.SIZE * frames.SIZE
        self.back += [self.back_rest[at : at + frames.SIZE] for at in range(0, whole, frames.SIZE)]
        self.back_rest = self.back_rest[whole:]
        self._compare()

    def _compare(self) -> None:
        """What came back is what was heard, cleaned."""
        while self.back and self.model.events:
            self.model.check_back(self.back.popleft())

    def _judge(self, taken: float, how: str, left: list[int]) -> list[tuple[str, str]]:
        model = self.model
        cleared = self.log.read_text(errors="replace").count(CLEARED)
        memory = slope(self.samples[len(self.samples) // 4 :], "memory") if self.samples else 0
        sizes = [each.memory for each in self.samples] or [0]
        missing = self.number - model.heard - model.dropped
        table = [
            ("frames", f"{self.number} sent in {taken:.0f} s, {self.number / taken:.0f} a second"),
            ("checked", f"{model.heard} frames at the ROS node, {model.returned} at the voice"
                        f" server, {(model.heard + model.returned) * frames.SAMPLES} samples"),
            ("renewals", f"{model.renewals}, each with its 12 frames of priming"),
            ("dropped by renewals", f"{model.dropped} frames, {model.least} to {model.most} each"),
            ("lost otherwise", str(missing)),
            ("silence", f"{model.silent} frames: passes without data, and the end"),
            ("resident memory", f"{min(sizes) / 1048576:.2f} to {max(sizes) / 1048576:.2f} MiB,"
                                f" slope {memory / 1024:+.1f} KiB a minute"
                                f" (allowed {MEMORY_ALLOWED / 1024:g})"),
            ("end", how),
        ]  # fmt: skip
        reasons = []
        if missing:
            reasons.append("frames were lost")
        if cleared != model.renewals:
            reasons.append(f"{cleared} renewals with nine frames in the delay line are logged")
        if taken > SHORTEST_JUDGED and memory > MEMORY_ALLOWED:
            reasons.append("memory grows")
        if how != "ended after its input, status 0" or left:
            reasons.append("it did not end well")
        if reasons:
            text = "".join(f"\n  {name}: {figure}" for name, figure in table)
            raise SoakError(", ".join(reasons) + text)
        return table
