# SPDX-License-Identifier: MIT
"""Small helpers of all peers: messages, bounded waits, free ports."""
import os
import socket
import sys
import time
from typing import Callable

POLL = 0.02  # seconds between looks at a condition; short beside a frame round of 0.1 s


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
    """A loopback TCP port that nobody uses now; someone else could still take it."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
