# SPDX-License-Identifier: MIT
"""The one table that bench/run prints: figure, value, target, verdict."""
import datetime
import os
import platform


class Table:
    def __init__(self):
        self.rows = []

    def add(self, figure, value, target="", verdict=""):
        self.rows.append((figure, value, target, verdict))

    def at_most(self, figure, value, most, form, aim=None):
        target = "at most " + form.format(most)
        verdict = "reached" if value <= most else "NOT REACHED"
        if aim is not None:
            target += f", aim {aim:,}"
            if value <= aim:
                verdict = "reached, aim too"
        self.add(figure, form.format(value), target, verdict)

    def at_least(self, figure, value, least, form):
        self.add(
            figure,
            form.format(value),
            "at least " + form.format(least),
            "reached" if value >= least else "NOT REACHED",
        )

    def text(self):
        """As a table of Markdown, so that it can stand in docs/performance.md."""
        rows = [("figure", "value", "target", "verdict"), *self.rows]
        rows = [(row[0].replace("  ", "&nbsp; "), *row[1:]) for row in rows]
        widths = [max(len(row[i]) for row in rows) for i in range(4)]
        lines = [
            "| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
            for row in rows
        ]
        lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
        return "\n".join(lines)


def machine(build):
    """Date, processor, cores, load, system and build type: one line."""
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        model = next(
            (line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")),
            platform.machine(),
        )
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as lines:
        build_type = next(
            (
                line.split("=", 1)[1].strip()
                for line in lines
                if line.startswith("CMAKE_BUILD_TYPE")
            ),
            "",
        )
    cores = len(os.sched_getaffinity(0))
    return (
        f"{datetime.date.today()}, {cores} cores of {model}, load {os.getloadavg()[0]:.1f}, "
        f"Linux {platform.release().split('-')[0]}, build type {build_type or 'none'}"
    )
