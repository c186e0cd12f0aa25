# SPDX-License-Identifier: MIT
"""The first soak: the default engines at the pace of real audio, with a noisy sound client,
renewals and storms of play-sound words. Nothing may grow once the bounded queues are full."""
import array
import math
import random
import threading
import time
from pathlib import Path

import frames
from bridge_process import command_line
from noisy_client import NoisyClient
from process import ENGINES, Row, SoakError, Watch, judged, memory_row, slope
from processes import members
from ros_node import RosNode
from voice_link import LinkError, VoiceLink
from waiting import free_port, until

# Allowed growth a minute after warm-up. A frame lost in each pass would be 2 MiB, one for each
# renewal, of which there are about ten a minute, 3 KiB: a leak of more than ten frames for each
# renewal shows, and pages that the allocator takes later than in warm-up do not.
MEMORY_ALLOWED = 32 * 1024  # bytes
DESCRIPTORS_ALLOWED = 0.2
SHORTEST_JUDGED = 120.0  # seconds; in less, one page more is a slope
WARM_UP = 45.0  # seconds at least
WARM_UP_MOST = 240.0
RENEWALS_FIRST = 3  # renewals in warm-up
FULL = "sound client frame queue is full"
RENEWAL = "renew noize model."
STORM_EVERY, STORM_WORDS = 10.0, 40
MUTE_EVERY, MUTE = 30.0, 2.0  # seconds between and of EPD off


PASSAGE = 200, 330  # frames of the scene with a voice


def scene() -> list[bytes]:
    """Payloads of about seven seconds: noise, and a passage with the pulses of a voice in it. The
    length shares no rhythm with the 500 frames between renewals."""
    noise = random.Random(1)
    payloads = []
    for index in range(731):
        samples = array.array("h")
        loud = 6000 if PASSAGE[0] <= index < PASSAGE[1] and index % 40 < 30 else 0
        for at in range(index * frames.SAMPLES, (index + 1) * frames.SAMPLES):
            pulse = math.exp(-(at % 133) / 20) * math.sin(at % 133 * 0.35) * loud
            samples.append(int(pulse + noise.gauss(0, 60)))
        payloads.append(samples.tobytes())
    return payloads


class RealTime:
    """One run; call run() once."""

    def __init__(self, build: Path, minutes: float, folder: Path) -> None:
        self.seconds = minutes * 60
        self.log = folder / "bridge.log"
        self.client = NoisyClient()
        port = free_port()
        command = command_line(
            build / "Tolvanev",
            build / "tolvanev-engine",
            (build / "mmse.ini", build / "vad.ini"),
            (self.client.port, port),
        )
        self.node = RosNode(command, str(self.log))
        self.voice = VoiceLink("127.0.0.1", port)
        self._ended = threading.Event()
        self._failure = ""
        self._storms = 0

    def run(self) -> list[Row]:
        """The figures; raises SoakError with the reason when the soak has failed."""
        self.node.start()
        try:
            self.voice.connect(60)
            self.client.start()
            threading.Thread(target=self._play, daemon=True).start()
            threading.Thread(target=self._disturb, daemon=True).start()
            self._warm_up()
            renewals = self._count(RENEWAL)
            with Watch(self.node.bridge.pid()) as watch:
                self._go_on_for(self.seconds, watch)
            return self._judge(watch, self._count(RENEWAL) - renewals)
        finally:
            self._ended.set()
            self.node.stop()
            self.client.close()
            self.voice.close()

    def _count(self, text: str) -> int:
        return self.log.read_text(errors="replace").count(text)

    def _warm_up(self) -> None:
        begun = time.monotonic()
        self.client.fill()
        if not until(lambda: self._warm(begun), WARM_UP_MOST):
            raise SoakError(f"not warm after {WARM_UP_MOST:g} s, {self._count(RENEWAL)} renewals, "
                            f"{self._count(FULL)} of 1 warnings of a full queue")  # fmt: skip

    def _warm(self, begun: float) -> bool:
        self._check()
        return (
            time.monotonic() - begun > WARM_UP
            and self._count(FULL) > 0
            and self._count(RENEWAL) >= RENEWALS_FIRST
        )

    def _go_on_for(self, seconds: float, watch: Watch) -> None:
        end = time.monotonic() + seconds
        until(lambda: time.monotonic() > end or self._check() or watch.failure, seconds + 60)
        if watch.failure:
            raise SoakError(watch.failure)

    def _check(self) -> None:
        if not self.node.bridge.running():
            said = self.log.read_text(errors="replace")[-500:]
            raise SoakError(f"the bridge ended, {self.node.bridge.ending()}: {said}")
        for failure in (self._failure, self.client.failure):
            if failure:
                raise SoakError(failure)

    def _play(self) -> None:
        payloads = scene()
        try:
            while not self._ended.is_set():
                for payload in payloads:
                    self.voice.send(frames.DATA, payload)
        except LinkError as error:
            self._failure = str(error)

    def _disturb(self) -> None:
        """Storms of play-sound words, which end with one that counts, and times without EPD."""
        mute_due = MUTE_EVERY
        for turn in range(1, 1 << 30):
            if self._ended.wait(STORM_EVERY):
                return
            try:
                self.node.bridge.write(b"play_sound_on\nplay_sound_off\n" * STORM_WORDS)
                self._ended.wait(1.0)
                self.node.play_sound(False)  # a read of 256 bytes may have cut the last word
                self._storms += 1
                if turn * STORM_EVERY >= mute_due:
                    mute_due += MUTE_EVERY
                    self.client.switch(False)
                    self._ended.wait(MUTE)
                    self.client.switch(True)
            except (OSError, ValueError):
                return  # the bridge has ended, which others tell

    def _judge(self, watch: Watch, renewals: int) -> list[Row]:
        memory, descriptors = slope(watch.samples, "memory"), slope(watch.samples, "descriptors")
        numbers = [each.descriptors for each in watch.samples]
        mean, most = watch.cpu()
        sent, back = self.voice.progress()
        self.client.stop()
        pid = self.node.bridge.pid()
        how = self.node.stop()
        starts = sum(frame.kind == frames.START for frame in self.node.frames)
        table = [
            ("duration", f"{self.seconds / 60:g} min behind a warm-up, {len(numbers)} samples"),
            ("frames", f"{sent} sent, {back} back, {len(self.node.frames)} to the ROS node"),
            ("renewals, utterances", f"{renewals}, {starts}"),
            ("sound client", f"{self.client.packets} packets of 1 KiB, told {len(self.client.told)}"
                             f" times; {self._storms} storms"),
            memory_row(watch.samples, memory, MEMORY_ALLOWED),
            ("descriptors", f"{min(numbers)} to {max(numbers)}, slope {descriptors:+.3f} a minute"
                            f" (allowed {DESCRIPTORS_ALLOWED:g})"),
            ("children", f"{ENGINES} in each sample, none uncollected"),
            ("CPU of the bridge", f"{100 * mean:.1f} % of a core, highest second"
                                  f" {100 * most:.1f} %"),
            ("end", how),
        ]  # fmt: skip
        return judged(table, {
            "memory grows": self.seconds >= SHORTEST_JUDGED and memory > MEMORY_ALLOWED,
            "descriptors grow": descriptors > DESCRIPTORS_ALLOWED,
            "there was no renewal": renewals == 0,
            "the sound client was told nothing": not self.client.told,
            "it did not end well": how != "ended after its input, status 0",
            "processes were left behind": members(pid),
        })  # fmt: skip
