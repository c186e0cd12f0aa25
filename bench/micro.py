# SPDX-License-Identifier: MIT
"""Runs the micro-benchmarks and reads their report."""
import json
import os
import re
import subprocess


def results(programs, smoke):
    """Benchmarks by name: the least CPU time of several repetitions, in nanoseconds, and counters.
    Repetitions take turns, so that all meet the same machine. None when they were not built."""
    if not os.access(programs.micro, os.X_OK):
        return None
    done = subprocess.run(
        [
            programs.micro,
            "--benchmark_format=json",
            f"--benchmark_min_time={0.01 if smoke else 0.05}",
            f"--benchmark_repetitions={1 if smoke else 7}",
            "--benchmark_enable_random_interleaving=true",
        ]
        + (["--benchmark_filter=-parse.*/8"] if smoke else []),
        capture_output=True,
        text=True,
        check=True,
    )
    scale = {"ns": 1, "us": 1e3, "ms": 1e6}
    found = {}
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


def add_rows(table, found):
    """The figures with targets, then the others."""
    if found is None:
        table.add("micro-benchmarks", "not run: Google Benchmark is not installed")
        return
    time = {name: case["ns"] for name, case in found.items()}
    for order, name, most in ((1, "equal byte orders", 150), (0, "different ones", 250)):
        built = time[f"buildFrame/{order}"]
        fresh = time[f"buildFrameNewBuilder/{order}"]
        table.at_most(f"building a frame, {name}", built, most, "{:.0f} ns")
        table.at_most("  with a new builder", fresh, most, "{:.0f} ns")
        table.at_least(
            "  times faster than the reference reading",
            time[f"buildFrameReference/{order}"] / built,
            50,
            "{:.0f}",
        )
    if "parseData/8" in time:
        table.at_most(
            "sound client: 8 MB block by 4 MB block",
            time["parseData/8"] / time["parseData/4"],
            2.2,
            "{:.2f}",
        )
        for case, name in (("parseJunk", "junk"), ("parseNearKeywords", "near keywords")):
            table.at_most(
                f"  {name}: 8 MB by 4 MB", time[f"{case}/8"] / time[f"{case}/4"], 2.2, "{:.2f}"
            )
            table.at_most("    kept of it", found[f"{case}/8"]["kept"], 2048, "{:.0f} bytes")
    table.at_most("renewal: averaging and frames", time["renewalFrames"] / 1e6, 0.2, "{:.4f} ms")
    table.add("noise average", f"{time['noiseAverage'] / 1e3:.1f} us")
    table.add("one createResultData step", f"{found['createResultData']['ns_per_frame']:.0f} ns")
    table.add("header of a frame", f"{time['headerOf']:.1f} ns")
    table.add(
        "packing 160 samples, equal, different",
        f"{time['packSamples/1']:.0f}, {time['packSamples/0']:.0f} ns",
    )
