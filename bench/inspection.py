# SPDX-License-Identifier: MIT
"""Counts that repeat: user instructions, system calls and heap allocations of the program alone.

Each is the difference of two run lengths, so that start-up and end cancel out.
"""
import collections
import re
import shutil
import subprocess
import tempfile
from pathlib import Path
from typing import Callable

from programs import Programs

Lengths = tuple[int, int]


def counts_between(
    programs: Programs, program: Path, utterance: bool, lengths: Lengths,
    prefix: list[str], read: Callable[[], collections.Counter],
) -> dict[str, float]:  # fmt: skip
    """What read() finds after both runs: the differences by the passes between them."""
    passes, counts = [], []
    for length in lengths:
        report = programs.run(program, "--frames", str(length), prefix=prefix, utterance=utterance)
        # Every pass takes one frame, or makes one of silence: a renewal's losses have had theirs.
        passes.append(report["sent"] + report["results"]["silent"])
        counts.append(read())
    counts[1].subtract(counts[0])
    return {name: count / (passes[1] - passes[0]) for name, count in counts[1].most_common()}


def instructions(
    programs: Programs, program: Path, utterance: bool, lengths: Lengths,
    by_function: bool = False,
) -> dict[str, float] | None:  # fmt: skip
    """User instructions a frame, as "total" or by function; None without valgrind."""
    if not shutil.which("valgrind"):
        return None
    with tempfile.NamedTemporaryFile() as out:

        def read() -> collections.Counter:
            if not by_function:
                profile = Path(out.name).read_text(encoding="utf-8")
                return collections.Counter(total=int(re.search(r"totals: (\d+)", profile)[1]))
            costs: collections.Counter = collections.Counter()
            command = ["callgrind_annotate", "--threshold=100", out.name]
            text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
            for cost, name in re.findall(r"^ *([\d,]+) \([ \d.]+%\)\s+\S+?:(.+?) \[", text, re.M):
                costs[name] += int(cost.replace(",", ""))
            return costs

        prefix = ["valgrind", "--tool=callgrind", "--trace-children=no",
                  f"--callgrind-out-file={out.name}"]  # fmt: skip
        return counts_between(programs, program, utterance, lengths, prefix, read)


def calls_of_passes(programs: Programs, frames: int) -> list[collections.Counter] | None:
    """The system calls of every pass of the bridge's loop in an utterance, by name. None without
    strace. A pass begins where the bridge waits up to 100 ms for the voice server."""
    if not shutil.which("strace"):
        return None
    with tempfile.NamedTemporaryFile() as out:
        programs.run(
            programs.bridge, "--frames", str(frames), prefix=["strace", "-o", out.name],
            utterance=True,
        )  # fmt: skip
        trace = Path(out.name).read_text(encoding="utf-8", errors="replace")
    passes: list[collections.Counter] = []
    for line in trace.splitlines():
        if "tv_nsec=100000000}, NULL" in line or "tv_usec=100000})" in line:
            passes.append(collections.Counter())
        if passes:
            passes[-1][line.split("(", 1)[0]] += 1
    return passes


def allocations(programs: Programs, utterance: bool, lengths: Lengths) -> tuple[float, int]:
    """Heap allocations a frame, and the bytes by which the peak of the longer run is higher."""
    peaks = []
    with tempfile.NamedTemporaryFile() as out:

        def read() -> collections.Counter:
            calls, peak = map(int, Path(out.name).read_text().split())
            peaks.append(peak)
            return collections.Counter(calls=calls)

        prefix = ["env", f"MALLOC_COUNT_REPORT={out.name}", f"LD_PRELOAD={programs.malloc_count}"]
        rates = counts_between(programs, programs.bridge, utterance, lengths, prefix, read)
    return rates["calls"], peaks[1] - peaks[0]
