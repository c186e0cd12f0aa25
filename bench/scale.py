# SPDX-License-Identifier: MIT
"""Many bridges on one machine, each at real-time pace with peers and engines of its own."""
import concurrent.futures
import resource
import time

from programs import cpu_per_frame

BRIDGES = (1, 10, 50, 100)
FRAMES = 600  # six seconds each


def children_cpu_s():
    """Of all processes that were started from here, directly or not, and have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def text(programs):
    lines = [
        "| bridges | CPU of one bridge | a frame | above the delay, p50 | p99 | worst "
        "| peak memory of one | bridges, engines and peers |",
        "|---" * 8 + "|",
    ]
    for count in BRIDGES:
        before = children_cpu_s(), time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(count) as pool:
            runs = list(
                pool.map(
                    lambda _: programs.run(
                        programs.bridge,
                        "--paced",
                        "100",
                        "--quick-ack",
                        "--utterance",
                        "--frames",
                        str(FRAMES),
                    ),
                    range(count),
                )
            )
        cores = (children_cpu_s() - before[0]) / (time.monotonic() - before[1])
        share = sum(run["cpu_us"] / run["seconds"] for run in runs) / count / 1e4
        frame = sum(map(cpu_per_frame, runs)) / count
        mean = {key: sum(run["response_us"][key] for run in runs) / count for key in ("p50", "p99")}
        worst = max(run["response_us"]["max"] for run in runs)
        memory = max(run["peak_rss_kb"] for run in runs)
        lines.append(
            f"| {count} | {share:.2f} % of a core | {frame:.0f} us | {mean['p50']:.0f} us "
            f"| {mean['p99']:.0f} us | {worst / 1000:.1f} ms | {memory:,} KB "
            f"| {cores:.2f} cores |"
        )
    return "\n".join(lines)
