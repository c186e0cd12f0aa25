# SPDX-License-Identifier: MIT
"""Runs the bridge, its engines and all its peers on real speech, and measures what comes out.

The story: passages of speech in noise go from the voice server through the bridge and back. One
passage is said while the sound client has end-point detection off, one while the ROS node plays a
sound; of these the ROS node must hear nothing. Now and then the bridge renews its noise model.
"""
import argparse
import shlex
import signal
import sys
import time
from pathlib import Path
from typing import Callable, Iterator

import audio
import demo_options
import frames
import measure
import picture
import recogniser
import report
import scene as scenes
import words
from bridge_process import StartError, command_line
from robot_node import RobotNode
from sound_client import CommandError, SoundClient
from voice_link import LinkError, VoiceLink
from voice_server import VoiceServer
from waiting import free_port

RECOGNISE = Path(__file__).with_name("recognise")
CONNECT = 20  # seconds for the bridge to connect; it retries every 5 s
LOG_TAIL = 15  # last lines of the log that are shown when a run fails


class Demo:
    """One run: the parties, what happens when, and the progress line."""

    def __init__(self, scene: scenes.Scene, options: argparse.Namespace) -> None:
        self.scene, self.fast = scene, options.fast
        port = free_port()
        build = options.build
        self.sound_client = SoundClient()
        command = command_line(
            build / "Tolvanev",
            build / "tolvanev-engine",
            (build / "mmse.ini", build / "vad.ini"),
            (self.sound_client.port, port),
        )
        recognise = shlex.quote(str(RECOGNISE)) if recogniser.there() else ""
        self.node = RobotNode(build / "tolvanev-node", command, options.out / "node.log", recognise)
        self.link = VoiceLink("127.0.0.1", port, options.fast, on_frame=self._before_frame)
        self.server = VoiceServer(self.link)
        self.switched: list[tuple[int, str]] = []
        self.told: list[tuple[int, str]] = []
        self._plan = sorted(self._switches(), key=lambda step: step[0])
        self._state = {"EPD": "on", "sound": "off"}
        self._shown = 0.0  # when progress was last shown
        self.status = "was not started"  # how the bridge ended

    def _switches(self) -> Iterator[tuple[int, str, Callable[[], None]]]:
        """When, what and how something is switched."""
        if self.scene.epd_off:
            begin, end = self.scene.epd_off
            yield begin, "EPD off", lambda: self.sound_client.send("epd_off")
            yield end, "EPD on", lambda: self.sound_client.send("epd_on")
        if self.scene.sound:
            begin, end = self.scene.sound
            yield begin, "sound on", lambda: self.node.play_sound(True)
            yield end, "sound off", lambda: self.node.play_sound(False)

    def run(self) -> None:
        """Plays the scene; whatever happens, nothing keeps running afterwards."""
        try:
            self.node.start()
            self.link.connect(CONNECT)
            self.server.play(frames.cut(self.scene.noisy.tobytes()))
            self.node.wait_for_texts()
        finally:
            # The bridge first: it would be killed by a write to a voice server that has gone.
            self.status = self.node.stop()
            self.link.close()
            self.sound_client.close()
        self._show(self.link.progress()[0], last=True)

    def _before_frame(self, number: int) -> None:
        """Does what is due before this frame. Frame 0 is TOF, so the recording starts at 1."""
        at = number - 1
        while len(self.told) < len(self.sound_client.told):
            self.told.append((at, self.sound_client.told[len(self.told)]))
        while self._plan and at >= self._plan[0][0]:
            _, name, action = self._plan.pop(0)
            action()
            self.switched.append((at, name))
            what, state = name.split()
            self._state[what] = state
        self._show(number)

    def _show(self, number: int, last: bool = False) -> None:
        terminal = sys.stderr.isatty()
        now = time.monotonic()
        if not last and now - self._shown < (0.25 if terminal else 10):
            return
        self._shown = now
        at = min(max(0, number - 1), self.scene.length()) / frames.PER_SECOND
        whole = self.scene.length() / frames.PER_SECOND
        # As the summary counts them: of all frames those with audio.
        back = sum(frame.kind == frames.DATA for frame in self.link.returned())
        heard = sum(frame.kind == frames.DATA for frame in list(self.node.frames))
        text = (
            f"{at:4.1f}/{whole:.1f} s: data sent {self.link.sent_counts()['data']}, back {back}, "
            f"ROS {heard}, utterances {len(self.node.utterances())}, "
            f"EPD {self._state['EPD']}, sound {self._state['sound']}"
        )
        end = "\n" if last or not terminal else ""
        clear = "\r\033[K" if terminal else ""  # the line before may have been longer
        print(clear + text, end=end, file=sys.stderr, flush=True)


def write_results(demo: Demo, out: Path) -> list[str]:
    """Measures, writes all files and prints the summary; returns what was wrong."""
    scene, node = demo.scene, demo.node
    audio.save(out / "returned.wav", demo.server.cleaned())
    audio.save(out / "heard.wav", node.heard())
    returned = demo.link.returned()
    comparison = measure.compare(scene, returned)
    audio.save(out / "cleaned.wav", scenes.to_samples(comparison.cleaned).tobytes())
    heard = measure.Heard(scene, node)
    print("Recognising words ...", file=sys.stderr, flush=True)
    understood = words.listen(scene, comparison, heard, node.words)
    run = report.Run(
        scene=scene,
        sent=demo.link.sent_counts(),
        back=frames.count(frame.kind for frame in returned),
        heard_counts=frames.count(frame.kind for frame in node.frames),
        comparison=comparison,
        heard=heard,
        words=understood,
        switched=demo.switched,
        told=demo.told,
        renewals=measure.renewals(returned),
        log=(out / "node.log").read_text(errors="replace"),
        status=demo.status,
        pace="as fast as answered: more delay and more missing frames than in real time"
        if demo.fast
        else "real time",
    )
    (out / "utterances.txt").write_text(report.events(run))
    (out / "overview.svg").write_text(picture.draw(scene, run.comparison, run.heard, run.words))
    wrong = report.problems(run)
    verdict = "".join(f"FAILED: {text}\n" for text in wrong) or "Audio came through.\n"
    text = report.summary(run) + verdict
    (out / "summary.txt").write_text(text)
    print(f"\n{text}\n{report.files(out)}", end="", flush=True)
    return wrong


def show_end(demo: Demo, path: Path) -> None:
    """How the bridge ended, and its last words when it had any."""
    print(f"demo: the bridge {demo.status}", file=sys.stderr)
    if path.exists() and (lines := path.read_text(errors="replace").splitlines()):
        print(f"Last lines of {path}:", *lines[-LOG_TAIL:], sep="\n  ", file=sys.stderr)


def perform(options: argparse.Namespace) -> int:
    # First of all the recording: it may be a result of an earlier run.
    scene = (
        scenes.as_it_is(options.wav) if options.as_is else scenes.build(options.snr, options.wav)
    )
    options.out.mkdir(parents=True, exist_ok=True)
    report.clear(options.out)
    if scene.clean is not None:
        audio.save(options.out / "clean.wav", scene.clean.tobytes())
    audio.save(options.out / "noisy.wav", scene.noisy.tobytes())
    demo = Demo(scene, options)
    try:
        demo.run()
    except (LinkError, CommandError, OSError) as error:
        print(f"\ndemo: {error}", file=sys.stderr)
        show_end(demo, options.out / "node.log")
        return 1
    return 1 if write_results(demo, options.out) else 0


def main() -> int:
    options = demo_options.parse()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        return perform(options)
    except KeyboardInterrupt:
        print("\ndemo: interrupted", file=sys.stderr)
    except (audio.AudioError, StartError) as error:
        print(f"demo: {error}", file=sys.stderr)
    except OSError as error:
        print(f"demo: {error.filename or options.out}: {error.strerror}", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
