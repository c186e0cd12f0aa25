# SPDX-License-Identifier: MIT
"""What a soak looks at: figures of the bridge, and whether they grow."""
import statistics
import threading
import time
from typing import Any, NamedTuple

import processes

SETTLE = 10.0  # seconds in which a renewal must have replaced both engines
ENGINES = 2


Row = tuple[str, str]


class SoakError(Exception):
    """The soak has failed; the text is the reason."""


class Sample(NamedTuple):
    """The bridge at one moment."""

    time: float  # seconds, monotonic
    memory: int  # resident bytes
    descriptors: int
    cpu: float  # seconds used so far


def states(pid: int) -> list[str]:
    """A letter for the state of each child."""
    found = []
    for child in processes.children(pid):
        try:
            found.append(processes.state(child))
        except OSError:
            pass  # it ended while we looked
    return found


def sample(pid: int) -> Sample:
    """The figures between two renewals: amid one an engine and its pipes are missing for a while.

    Raises SoakError when the right number of engines does not come back.
    """
    deadline = time.monotonic() + SETTLE
    while True:
        before = states(pid)
        figures = processes.resident(pid), len(processes.descriptors(pid)), processes.cpu(pid)
        found = states(pid)
        if len(before) == len(found) == ENGINES and processes.ENDED not in found:
            return Sample(time.monotonic(), *figures)
        if time.monotonic() > deadline:
            raise SoakError(f"{len(found)} children instead of {ENGINES}: {found}")
        time.sleep(0.02)


def slope(samples: list[Sample], field: str) -> float:
    """Growth a minute: the straight line with the least squares of distances."""
    if len(samples) < 2:
        return 0.0
    times = [each.time / 60 for each in samples]
    return statistics.linear_regression(times, [getattr(each, field) for each in samples]).slope


def memory_row(samples: list[Sample], growth: float, allowed: float) -> Row:
    """For the table; both in bytes a minute."""
    sizes = [each.memory / 1048576 for each in samples] or [0]
    return (
        "resident memory",
        f"{min(sizes):.2f} to {max(sizes):.2f} MiB, slope {growth / 1024:+.1f} KiB a minute"
        f" (allowed {allowed / 1024:g})",
    )


def judged(table: list[Row], faults: dict[str, Any]) -> list[Row]:
    """The table; raises SoakError with it when one of the faults is there."""
    if found := [fault for fault, there in faults.items() if there]:
        raise SoakError(", ".join(found) + "".join(f"\n  {name}: {text}" for name, text in table))
    return table


class Watch(threading.Thread):
    """Samples the bridge once a second while it is a context."""

    def __init__(self, pid: int) -> None:
        super().__init__(name="watch", daemon=True)
        self.samples: list[Sample] = []
        self.failure = ""
        self._pid = pid
        self._stop_asked = threading.Event()

    def __enter__(self) -> "Watch":
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._stop_asked.set()
        self.join()

    def run(self) -> None:
        try:
            while not self._stop_asked.wait(1.0):
                self.samples.append(sample(self._pid))
        except (OSError, SoakError) as error:
            self.failure = str(error)

    def cpu(self) -> tuple[float, float]:
        """Share of one core, mean and highest second."""
        first, last = self.samples[0], self.samples[-1]
        shares = [(b.cpu - a.cpu) / (b.time - a.time)
                  for a, b in zip(self.samples, self.samples[1:])]  # fmt: skip
        return (last.cpu - first.cpu) / (last.time - first.time), max(shares)
