# SPDX-License-Identifier: MIT
"""Runs the micro-benchmarks and reads their report."""
import json
import os
import re
import subprocess
from typing import Any

from figures import Table
from programs import Programs


def results(programs: Programs, smoke: bool) -> dict[str, dict[str, Any]] | None:
    """Benchmarks by name: the least CPU time of several repetitions, in nanoseconds, and counters.
    Repetitions take turns, so that all meet the same machine. None when they were not built."""
    if not os.access(programs.micro, os.X_OK):
        return None
    options = {
        "format": "json",
        "min_time": 0.01 if smoke else 0.05,
        "repetitions": 1 if smoke else 7,
        "enable_random_interleaving": "true",
        "filter": "-parse.*/8" if smoke else ".",
    }
    command = [str(programs.micro), *(f"--benchmark_{key}={options[key]}" for key in options)]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    scale = {"ns": 1, "us": 1e3, "ms": 1e6}
    found: dict[str, dict[str, Any]] = {}
    for case in json.loads(done.stdout)["benchmarks"]:
        if case["run_type"] != "iteration":
            continue  # means and the like
        if case.get("error_occurred"):
            raise RuntimeError(f"{case['name']}: {case['error_message']}")
        name = re.sub(r"/(iterations|repeats):[^/]*|/manual_time", "", case["name"])
        time = case["cpu_time"] * scale[case["time_unit"]]
        if name not in found or time < found[name]["ns"]:
            found[name] = {**case, "ns": time}
    return found


def add_rows(table: Table, found: dict[str, dict[str, Any]] | None) -> None:
    """The figures with targets, then the others."""
    if found is None:
        table.add("micro-benchmarks", "not run: Google Benchmark is not installed")
        return
    time = {name: case["ns"] for name, case in found.items()}
    for order, name, most in ((1, "equal byte orders", 150), (0, "different ones", 250)):
        built, new = time[f"buildFrame/{order}"], time[f"buildFrameNewBuilder/{order}"]
        times = time[f"buildFrameReference/{order}"] / built
        table.at_most(f"building a frame, {name}", built, most, "{:.0f} ns")
        table.at_most("  with a new builder", new, most, "{:.0f} ns")
        table.at_least("  times faster than the reference reading", times, 50, "{:.0f}")
    if "parseData/8" in time:
        for case, name in (
            ("parseData", "sound client: 8 MB block by 4 MB block"),
            ("parseJunk", "  junk: 8 MB by 4 MB"),
            ("parseNearKeywords", "  near keywords: 8 MB by 4 MB"),
        ):
            table.at_most(name, time[f"{case}/8"] / time[f"{case}/4"], 2.2, "{:.2f}")
            if case != "parseData":
                kept = found[f"{case}/8"]["kept"]
                table.at_most("    kept of it", kept, 2048, "{:.0f} bytes")
    table.at_most("renewal: averaging and frames", time["renewalFrames"] / 1e6, 0.2, "{:.4f} ms")
    table.add("noise average", f"{time['noiseAverage'] / 1e3:.1f} us")
    table.add("one createResultData step", f"{found['createResultData']['ns_per_frame']:.0f} ns")
    table.add("header of a frame", f"{time['headerOf']:.1f} ns")
    packing = f"{time['packSamples/1']:.0f}, {time['packSamples/0']:.0f} ns"
    table.add("packing 160 samples, equal, different", packing)
