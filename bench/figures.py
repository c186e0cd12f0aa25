# SPDX-License-Identifier: MIT
"""The tables that runs print, and docs/figures.md, the page into which they write them."""
import datetime
import os
import platform
import re
import sys
from pathlib import Path
from typing import Any, Sequence

PAGE = Path(__file__).resolve().parent.parent / "docs" / "figures.md"


class Table:
    """Rows of figure, value, target, verdict."""

    def __init__(self) -> None:
        self.rows: list[tuple[str, str, str, str]] = []

    def add(self, figure: str, value: str, target: str = "", verdict: str = "") -> None:
        self.rows.append((figure, value, target, verdict))

    def at_most(self, figure: str, value: Any, most: Any, form: str, shown: str = "") -> None:
        verdict = "reached" if value <= most else "NOT REACHED"
        self.add(figure, shown or form.format(value), "at most " + form.format(most), verdict)

    def at_least(self, figure: str, value: float, least: float, form: str) -> None:
        verdict = "reached" if value >= least else "NOT REACHED"
        self.add(figure, form.format(value), "at least " + form.format(least), verdict)

    def text(self) -> str:
        return markdown(("figure", "value", "target", "verdict"), self.rows)


def markdown(head: Sequence[str], rows: Sequence[Sequence[str]]) -> str:
    """A table in columns; two blanks ahead of a row's name set it in."""
    table = [head, *((row[0].replace("  ", "&nbsp; "), *row[1:]) for row in rows)]
    widths = [max(len(row[i]) for row in table) for i in range(len(head))]
    lines = [
        "| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
        for row in table
    ]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def machine(build: Path) -> str:
    """Date, processor, cores, load, system and build type: one line."""
    processor = re.search(r"^model name\s*: (.+)", Path("/proc/cpuinfo").read_text(), re.M)
    build_type = re.search(
        r"^CMAKE_BUILD_TYPE.*=(.+)", (build / "CMakeCache.txt").read_text(), re.M
    )
    return (
        f"{datetime.date.today()}, {len(os.sched_getaffinity(0))} cores of "
        f"{processor[1] if processor else platform.machine()}, load {os.getloadavg()[0]:.1f}, "
        f"Linux {platform.release().split('-')[0]}, "
        f"build type {build_type[1] if build_type else 'none'}"
    )


def write(section: str, text: str) -> None:
    """Replaces what stands between this section's marks in docs/figures.md."""
    begin, end = f"<!-- {section}: written by a run -->", f"<!-- end of {section} -->"
    page = PAGE.read_text()
    if begin not in page or end not in page:
        sys.exit(f"{PAGE}: no marks of {section}")
    head, tail = page.split(begin)[0], page.split(end)[1]
    PAGE.write_text(f"{head}{begin}\n\n{text.strip()}\n\n{end}{tail}")
