# SPDX-License-Identifier: MIT
"""Small helpers of all peers: messages, bounded waits, free ports."""
import errno
import itertools
import os
import socket
import sys
import time
from typing import Callable

POLL = 0.02  # seconds between looks at a condition; short beside a frame round of 0.1 s
PORTS = range(10000, 30000)
_turns = itertools.count(os.getpid() * 389)  # each process begins elsewhere


def say(text: str) -> None:
    """One line on standard error, with the script's name in front."""
    name = os.path.basename(sys.argv[0]).removesuffix(".py") or "peer"
    print(f"{name}: {text}", file=sys.stderr, flush=True)


def until(condition: Callable[[], object], seconds: float) -> bool:
    """Waits until the condition holds; false when it does not within the time."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() >= deadline:
            return False
        time.sleep(POLL)
    return True


def free_port() -> int:
    """A TCP port that nobody uses, of those that the system does not hand out by itself: other
    programs connect from those, and perhaps to those, at any moment."""
    for _ in PORTS:
        port = PORTS[next(_turns) % len(PORTS)]
        with socket.socket() as probe:
            try:
                probe.bind(("", port))
            except OSError:
                continue  # somebody's
            return port
    raise OSError(errno.EADDRINUSE, f"no port from {PORTS[0]} to {PORTS[-1]} is free")
