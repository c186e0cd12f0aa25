# SPDX-License-Identifier: MIT
"""Processes as the system's /proc shows them. An OSError when there is no such process."""
import os
import time
from pathlib import Path
from typing import Iterator

PAGE = os.sysconf("SC_PAGE_SIZE")
ENDED = "Z"  # the state of a process that nobody has collected


def _fields(pid: int) -> list[str]:
    """State, parent, group and so on: what follows the name, which may hold blanks."""
    return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()


def state(pid: int) -> str:
    """A letter, e.g. ENDED."""
    return _fields(pid)[0]


def _of_group(group: int) -> Iterator[tuple[int, str]]:
    """Each process of a process group and its state."""
    for entry in Path("/proc").glob("[0-9]*"):
        try:
            its_state, _, its_group = _fields(int(entry.name))[:3]
        except OSError:
            continue  # it was collected while we looked
        if int(its_group) == group:
            yield int(entry.name), its_state


def members(group: int) -> list[int]:
    """Running processes of a process group; dead ones that nobody collects do not count."""
    return [pid for pid, its_state in _of_group(group) if its_state != ENDED]


def zombies(group: int) -> list[int]:
    """Ended processes of a process group that nobody has collected."""
    return [pid for pid, its_state in _of_group(group) if its_state == ENDED]


def children(pid: int) -> list[int]:
    """Its child processes, ended ones included."""
    return [int(child) for child in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def descriptors(pid: int) -> set[int]:
    """The numbers of its open files."""
    return {int(name) for name in os.listdir(f"/proc/{pid}/fd")}


def resident(pid: int) -> int:
    """Its resident memory in bytes."""
    return int(Path(f"/proc/{pid}/statm").read_text().split()[1]) * PAGE


def peak(pid: int) -> int:
    """The most resident memory that it ever had, in KB."""
    status = Path(f"/proc/{pid}/status").read_text()
    return int(status.partition("VmHWM:")[2].split()[0])


def cpu(pid: int) -> float:
    """Seconds of processor time that it has used. /proc counts in ticks of 10 ms; this clock, of
    which the C library makes the same name, in nanoseconds."""
    return time.clock_gettime(~pid << 3 | 2)


def tree(pid: int, leave_out: Path) -> list[int]:
    """The process and those it started, and so on, without those that run this program."""
    try:
        if os.path.samefile(f"/proc/{pid}/exe", leave_out):
            return []
        return [pid, *(below for child in children(pid) for below in tree(child, leave_out))]
    except OSError:
        return []  # it ended while we looked
