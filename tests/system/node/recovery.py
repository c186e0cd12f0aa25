#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How long the node needs until frames flow again: from each kind of fault to the first frame of
the next run, as a table for docs/node.md. No test: nothing here fails for being slow.

By hand:  TOLVANEV_BUILD=build/release PYTHONPATH=peers tests/system/node/recovery.py
"""
import argparse
import os
import signal
import statistics
import sys
import time
import unittest
from typing import Callable, NamedTuple

from node_story import NodeStory

FRAMES = 30  # ahead of each fault
ABSENCE = 3.0  # seconds
STUBBORN = ["ignore_term", "ignore_end"]


class Recovery(NodeStory):
    """One node and one fault."""

    def runTest(self) -> None:
        """For the unit test runner, which comes with the cleaning up."""

    def measure(self, fault: "Fault") -> float:
        """Seconds from the fault, or from the return of who was absent, to the first frame."""
        fifo = self.folder / "frames"
        os.mkfifo(fifo)
        reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.start("--frames", fifo, command=self.bridge(**fault.scripts))
        self.wait_for_frames(FRAMES)
        began = time.monotonic()
        fault.happen(self)
        while not self.events("run_end"):
            self.drain(reader)
            time.sleep(0.002)
        self.drain(reader)  # the next run begins a second later
        if not self.microphone.present:
            time.sleep(ABSENCE)
            began = time.monotonic()
            self.microphone.present = True
        while not self.drain(reader):
            time.sleep(0.0005)
        return time.monotonic() - began

    @staticmethod
    def drain(reader: int) -> int:
        """Reads all that is there; says how many bytes."""
        try:
            return len(os.read(reader, 1 << 20))
        except BlockingIOError:
            return 0

    def kill_bridge(self, number: int = signal.SIGKILL) -> None:
        self.kill(self.bridge_pid(), number)

    def kill_engine(self, which: int, number: int = signal.SIGKILL) -> None:
        self.kill(self.engine_pids()[which], number)


class Fault(NamedTuple):
    name: str
    happen: Callable[[Recovery], object]
    scripts: dict[str, list[str]] = {}


FAULTS = (
    Fault("bridge killed (SIGKILL)", Recovery.kill_bridge),
    Fault("bridge interrupted (SIGINT)", lambda run: run.kill_bridge(signal.SIGINT)),
    Fault(
        "bridge killed; its engines heed neither SIGTERM nor their closed input",
        Recovery.kill_bridge,
        {"mmse": STUBBORN, "vad": STUBBORN},
    ),
    Fault("VAD engine killed", lambda run: run.kill_engine(0)),
    Fault("MMSE engine killed", lambda run: run.kill_engine(1)),
    Fault("voice server resets its connection", lambda run: run.microphone.reset()),
    Fault("voice server sends a torn frame", lambda run: run.microphone.send(bytes([77] * 324))),
    Fault(
        "voice server closes and stays away; from its return",
        lambda run: run.microphone.stay_away(),
    ),
    Fault("sound client resets its connection", lambda run: run.client.reset()),
    Fault(
        "sound client cuts a DATA header", lambda run: run.client.send_bytes(b"DATA 1", "a header")
    ),
    Fault("voice server closes one way only", lambda run: run.microphone.half_close()),
    Fault("VAD engine hangs (SIGSTOP)", lambda run: run.kill_engine(0, signal.SIGSTOP)),
    Fault("MMSE engine hangs (SIGSTOP)", lambda run: run.kill_engine(1, signal.SIGSTOP)),
    Fault("bridge hangs (SIGSTOP)", lambda run: run.kill_bridge(signal.SIGSTOP)),
)


def times(fault: Fault, runs: int) -> list[float]:
    found: list[float] = []

    class One(Recovery):
        def runTest(self) -> None:
            found.append(self.measure(fault))

    for _ in range(runs):
        result = unittest.TestResult()
        One().run(result)
        if not result.wasSuccessful():
            sys.exit("\n".join(text for _, text in result.errors + result.failures))
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description="Measures how soon the node has frames again.")
    parser.add_argument("--runs", type=int, default=5, help="of each fault (%(default)s)")
    options = parser.parse_args()
    print("| fault | median, s | worst, s |")
    print("|---|---:|---:|")
    for fault in FAULTS:
        found = times(fault, options.runs)
        print(f"| {fault.name} | {statistics.median(found):.2f} | {max(found):.2f} |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
