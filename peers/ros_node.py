#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A ROS node's part: starts the bridge, takes its result frames, tells it when a sound plays.

By hand:  peers/ros_node.py --out heard.wav -- build/release/Tolvanev -i 127.0.0.1 ...
          then type "on" or "off" (a sound plays or not), "quit" or Ctrl-D ends.
"""
import argparse
import os
import signal
import sys
import threading
from typing import Callable

import audio
import frames
from bridge_process import BridgeProcess, StartError
from frames import Frame
from waiting import say

WORDS = {True: b"play_sound_on\n", False: b"play_sound_off\n"}


class RosNode:
    """Starts the bridge on start(), collects its frames, ends it on stop()."""

    def __init__(
        self,
        command: list[str],
        log: str | None = None,
        on_frame: Callable[[int, Frame], None] | None = None,
    ) -> None:
        self.bridge = BridgeProcess(command, log)
        self.frames: list[Frame] = []  # grows as they arrive
        self._on_frame = on_frame  # called from the reading thread with index and frame
        self._reader = threading.Thread(target=self._read, name="ros node", daemon=True)

    def start(self, reading: bool = True) -> None:
        """Starts the bridge; raises StartError when there is none. Reading may begin later."""
        self.bridge.start()
        if reading:
            self.start_reading()

    def start_reading(self) -> None:
        """Collects frames from now on."""
        self._reader.start()

    def play_sound(self, on: bool) -> None:
        """Tells the bridge that a sound starts or has ended."""
        self.bridge.write(WORDS[on])

    def stop(self) -> str:
        """Ends the bridge and says how it ended. Frames already written are still collected."""
        status = self.bridge.stop()
        if self._reader.ident is not None:
            self._reader.join(timeout=2)  # the pipe ends with the bridge
        if status != "was not started":
            self.bridge.output().close()
        return status

    def _read(self) -> None:
        while len(block := frames.read_exact(self.bridge.output(), frames.SIZE)) == frames.SIZE:
            frame = frames.parse(block)
            self.frames.append(frame)
            if self._on_frame:
                self._on_frame(len(self.frames) - 1, frame)

    def utterances(self) -> list[tuple[int, int | None]]:
        """Start and end of each utterance as indices into `frames`; None: no end came.

        An end without a start, or the reverse, happens when frames were held back meanwhile.
        """
        found: list[tuple[int, int | None]] = []
        for index, frame in enumerate(list(self.frames)):
            if frame.kind == frames.START:
                found.append((index, None))
            elif frame.kind == frames.END and found and found[-1][1] is None:
                found[-1] = (found[-1][0], index)
        return found

    def heard(self) -> bytes:
        """The audio that came, markers left out."""
        return b"".join(frame.payload for frame in list(self.frames) if frame.kind == frames.DATA)


class EventList:
    """Prints markers with the time in the node's own stream, which has gaps."""

    def __init__(self) -> None:
        self._explained = False

    def show(self, index: int, frame: Frame) -> None:
        if frame.kind == frames.DATA:
            return
        if not self._explained:
            print(
                "Times count the frames received, 100 a second; what is held back is not in them."
            )
            self._explained = True
        name = frames.NAMES.get(frame.kind, f"type {frame.kind}")
        print(f"{index / frames.PER_SECOND:8.2f} s  {name}", flush=True)


def converse(node: RosNode) -> None:
    """Follows standard input until it ends or says quit, or the bridge has ended."""
    meanings = {"on": True, "play_sound_on": True, "off": False, "play_sound_off": False}
    for line in sys.stdin:
        word = line.strip().lower()
        if word == "quit":
            return
        if word in meanings:
            node.play_sound(meanings[word])
        elif word:
            say(f"not a command: {word} (commands: on, off, quit)")


def engine_of(command: list[str]) -> str:
    """The engine that a bridge started with this command runs."""
    engine = "./Tolvanev"
    for word, following in zip(command, [*command[1:], ""]):
        if word in ("-b", "--binary"):
            engine = following
        elif word.startswith("--binary="):
            engine = word.partition("=")[2]
    return engine


SEE_TABLE = 'see the table "When does it end" in README.md'


def broken_pipe(command: list[str], heard: bool) -> str:
    """What usually is behind a bridge killed by SIGPIPE, which itself says nothing. heard: frames
    have come, so there were engines."""
    engine = engine_of(command)
    if not os.path.isfile(engine):
        reason = f"the engine {engine} is not there (-b)"
    elif not os.access(engine, os.X_OK):
        reason = f"the engine {engine} is not executable (-b)"
    elif heard:
        reason = "usually a voice server that has finished and closed its connection"
    else:
        reason = (
            "usually an engine that ended, at once if its settings are wrong "
            f"(`{engine} --check FILE` tells), or a voice server that closed its connection"
        )
    return f"{reason}; {SEE_TABLE}"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description="Stands in for the ROS node.",
        usage="%(prog)s [-h] [--out WAV] -- BRIDGE [ITS OPTIONS ...]",
        epilog="Exit status 1 when the bridge could not be started or was killed by a signal.",
    )
    parser.add_argument("--out", metavar="WAV", help="file for the audio that comes")
    parser.add_argument("command", nargs="+", help="bridge and its arguments, after --")
    options, strangers = parser.parse_known_args()
    if strangers:
        text = f"{' '.join(strangers)}: not for me; put -- in front of the bridge and its options"
        parser.error(text)
    return options


def main() -> int:
    options = parse_arguments()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    signal.signal(signal.SIGHUP, signal.default_int_handler)  # a terminal that is closed
    try:
        recording = audio.Recording(options.out) if options.out else None
    except audio.AudioError as error:
        say(str(error))
        return 1
    node = RosNode(options.command, on_frame=EventList().show)
    result = run(node)
    if recording:
        try:
            recording.save(node.heard())
        except audio.AudioError as error:
            say(str(error))
            return 1
    return result


def run(node: RosNode) -> int:
    """Holds the bridge until it ends or somebody ends it; returns our exit status."""
    try:
        node.start()
        # A signal to the process wakes the main thread out of reading standard input.
        node.bridge.on_exit(lambda: os.kill(os.getpid(), signal.SIGTERM))
        converse(node)
    except StartError as error:
        say(str(error))
        return 1
    except (BrokenPipeError, KeyboardInterrupt):
        pass  # by hand, or the bridge has ended; the status below tells
    finally:
        for number in (signal.SIGTERM, signal.SIGHUP):  # the bridge's end now comes from us
            signal.signal(number, signal.SIG_IGN)
        status = node.stop()
        counts = frames.count(frame.kind for frame in node.frames)
        say(f"bridge {status}; frames: {frames.describe(counts)}")
    if "killed by" not in status or "needed" in status:
        if "by itself" in status:
            say(f"it has said why, if not clearly; {SEE_TABLE}")
        return 0
    if "SIGPIPE" in status:
        say(broken_pipe(node.bridge.command, bool(node.frames)))
    return 1


if __name__ == "__main__":
    sys.exit(main())
