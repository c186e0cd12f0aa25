# SPDX-License-Identifier: MIT
"""What a soak looks at: figures of the bridge from /proc, and whether they grow."""
import os
import threading
import time
from pathlib import Path
from typing import NamedTuple

PAGE = os.sysconf("SC_PAGE_SIZE")
TICKS = os.sysconf("SC_CLK_TCK")
SETTLE = 10.0  # seconds in which a renewal must have replaced both engines
ENGINES = 2


class SoakError(Exception):
    """The soak has failed; the text is the reason."""


class Sample(NamedTuple):
    """The bridge at one moment."""

    time: float  # seconds, monotonic
    memory: int  # resident bytes
    descriptors: int
    cpu: float  # seconds used so far


def children(pid: int) -> list[str]:
    """A letter for the state of each child; Z is one that has ended and was not collected."""
    states = []
    for child in Path(f"/proc/{pid}/task/{pid}/children").read_text().split():
        try:
            states.append(Path(f"/proc/{child}/stat").read_text().rpartition(")")[2].split()[0])
        except OSError:
            pass  # it ended while we looked
    return states


def sample(pid: int) -> Sample:
    """The figures between two renewals: amid one an engine and its pipes are missing for a while.

    Raises SoakError when the right number of engines does not come back.
    """
    deadline = time.monotonic() + SETTLE
    while True:
        before = children(pid)
        memory = int(Path(f"/proc/{pid}/statm").read_text().split()[1]) * PAGE
        descriptors = len(os.listdir(f"/proc/{pid}/fd"))
        times = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[11:13]
        states = children(pid)
        if len(states) == ENGINES and "Z" not in states and len(before) == ENGINES:
            cpu = sum(map(int, times)) / TICKS
            return Sample(time.monotonic(), memory, descriptors, cpu)
        if time.monotonic() > deadline:
            raise SoakError(f"{len(states)} children instead of {ENGINES}: {states}")
        time.sleep(0.02)


def slope(samples: list[Sample], field: str) -> float:
    """Growth a minute: the straight line with the least squares of distances."""
    times = [each.time / 60 for each in samples]
    values = [float(getattr(each, field)) for each in samples]
    middle, mean = sum(times) / len(times), sum(values) / len(values)
    spread = sum((moment - middle) ** 2 for moment in times)
    together = sum((t - middle) * (v - mean) for t, v in zip(times, values))
    return together / spread if spread else 0.0


class Watch(threading.Thread):
    """Samples the bridge once a second from start() to stop()."""

    def __init__(self, pid: int) -> None:
        super().__init__(name="watch", daemon=True)
        self.samples: list[Sample] = []
        self.failure = ""
        self._pid = pid
        self._stop_asked = threading.Event()

    def run(self) -> None:
        try:
            while not self._stop_asked.wait(1.0):
                self.samples.append(sample(self._pid))
        except (OSError, SoakError) as error:
            self.failure = str(error)

    def stop(self) -> None:
        self._stop_asked.set()
        self.join()

    def cpu(self) -> tuple[float, float]:
        """Share of one core, mean and highest second."""
        first, last = self.samples[0], self.samples[-1]
        shares = [(b.cpu - a.cpu) / (b.time - a.time)
                  for a, b in zip(self.samples, self.samples[1:])]  # fmt: skip
        return (last.cpu - first.cpu) / (last.time - first.time), max(shares)
