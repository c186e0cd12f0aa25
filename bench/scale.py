# SPDX-License-Identifier: MIT
"""Many bridges on one machine, each at real-time pace with peers and engines of its own."""
import resource
import time
from concurrent.futures import ThreadPoolExecutor

import figures
from programs import Programs, cpu_per_frame, percentile
from trial import Report

BRIDGES = (1, 10, 50, 100)
FRAMES = 600  # six seconds each
HEAD = ("bridges", "CPU of one bridge", "a frame", "above the delay, p50", "p99", "worst",
        "peak memory of one", "bridges, engines and peers")  # fmt: skip


def children_cpu_s() -> float:
    """Of all processes that were started from here, directly or not, and have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def text(programs: Programs) -> str:
    def run(_: int) -> Report:
        options = ["--pace", "100", "--quick-ack", "--frames", str(FRAMES)]
        return programs.run(programs.bridge, *options, utterance=True)

    rows = []
    for count in BRIDGES:
        cpu_before, before = children_cpu_s(), time.monotonic()
        with ThreadPoolExecutor(count) as pool:
            runs = list(pool.map(run, range(count)))
        cores = (children_cpu_s() - cpu_before) / (time.monotonic() - before)
        share = sum(run["cpu_us"] / run["seconds"] for run in runs) / count / 1e4
        frame = sum(map(cpu_per_frame, runs)) / count
        p50, p99 = (
            sum(percentile(run["response_us"], part) for run in runs) / count for part in (50, 99)
        )
        worst = max(max(run["response_us"]) for run in runs)
        memory = max(run["peak_rss_kb"] for run in runs)
        rows.append((
            str(count), f"{share:.2f} % of a core", f"{frame:.0f} us", f"{p50:.0f} us",
            f"{p99:.0f} us", f"{worst / 1000:.1f} ms", f"{memory:,} KB", f"{cores:.2f} cores",
        ))  # fmt: skip
    return figures.markdown(HEAD, rows)
