# SPDX-License-Identifier: MIT
"""Counts that repeat: user instructions, system calls and heap allocations of the bridge alone.

Each is the difference of two run lengths, so that start-up and end cancel out.
"""
import collections
import os
import re
import shutil
import subprocess
import tempfile

UTTERANCE = ["--utterance"]  # no renewal comes
QUIET = []  # noise is gathered, and every 500th result renews the noise model


def in_scratch(measure):
    """Runs measure with the path of a scratch file that exists only for it."""
    with tempfile.TemporaryDirectory() as folder:
        return measure(os.path.join(folder, "out"))


def between(programs, program, options, lengths, prefix, total):
    """What total() says for both lengths, divided by the passes between them."""
    counts = []
    for length in lengths:
        report = programs.run(program, "--frames", str(length), *options, prefix=prefix)
        counts.append((passes_of(report), total()))
    passes = counts[1][0] - counts[0][0]
    return (counts[1][1] - counts[0][1]) / passes


def passes_of(report):
    """Every pass takes one frame, or makes one of silence: a renewal's losses have had theirs."""
    return report["sent"] + report["results"]["silent"]


def instructions(programs, program, options, lengths):
    """User instructions a frame; None without valgrind."""
    if not shutil.which("valgrind"):
        return None

    def measure(out):
        def total():
            with open(out, encoding="utf-8") as profile:
                return int(re.search(r"^totals: (\d+)", profile.read(), re.MULTILINE).group(1))

        prefix = [
            "valgrind",
            "--tool=callgrind",
            "--trace-children=no",
            f"--callgrind-out-file={out}",
        ]
        return between(programs, program, options, lengths, prefix, total)

    return in_scratch(measure)


def top_functions(programs, lengths, count):
    """Where the instructions go: (instructions a frame, function), largest first."""
    if not shutil.which("callgrind_annotate"):
        return []
    costs = []
    frames = []
    for length in lengths:

        def measure(out, length=length):
            prefix = [
                "valgrind",
                "--tool=callgrind",
                "--trace-children=no",
                f"--callgrind-out-file={out}",
            ]
            report = programs.run(
                programs.bridge, "--frames", str(length), *UTTERANCE, prefix=prefix
            )
            frames.append(passes_of(report))
            text = subprocess.run(
                ["callgrind_annotate", "--threshold=100", out],
                capture_output=True,
                text=True,
                check=True,
            ).stdout
            costs.append(functions_of(text))

        in_scratch(measure)
    growth = costs[1]
    growth.subtract(costs[0])
    passed = frames[1] - frames[0]
    return [(cost / passed, name) for name, cost in growth.most_common(count)]


def functions_of(annotation):
    costs = collections.Counter()
    for line in annotation.splitlines():
        match = re.match(r"\s*([\d,]+) \([ \d.]+%\)\s+\S+?:(.+?) \[", line)
        if match:
            costs[match.group(2)] += int(match.group(1).replace(",", ""))
    return costs


def calls_of_passes(programs, frames):
    """The system calls of every pass of the loop in an utterance, as a list of counters by name.
    None without strace. A pass begins where the bridge waits up to 100 ms for the voice server."""
    if not shutil.which("strace"):
        return None

    def measure(out):
        programs.run(
            programs.bridge, "--frames", str(frames), *UTTERANCE, prefix=["strace", "-o", out]
        )
        passes = []
        with open(out, encoding="utf-8", errors="replace") as trace:
            for line in trace:
                name = line.split("(", 1)[0]
                if "tv_nsec=100000000}, NULL" in line or "tv_usec=100000})" in line:
                    passes.append(collections.Counter())
                if passes:
                    passes[-1][name] += 1
        return passes

    return in_scratch(measure)


def allocations(programs, options, lengths):
    """Heap allocations a frame, and the bytes by which the peak of the longer run is higher."""

    def measure(out):
        peaks = []

        def total():
            with open(out, encoding="utf-8") as counts:
                calls, peak = map(int, counts.read().split())
            peaks.append(peak)
            return calls

        prefix = ["env", f"MALLOC_COUNT_REPORT={out}", f"LD_PRELOAD={programs.malloc_count}"]
        rate = between(programs, programs.bridge, options, lengths, prefix, total)
        return rate, peaks[1] - peaks[0]

    return in_scratch(measure)
