# SPDX-License-Identifier: MIT
"""An hour of frames through both roles: memory, and the time that a frame takes."""
import os
import subprocess
import threading
from dataclasses import dataclass

import numpy as np

import pipes
import processes

HOUR = 360_000  # frames
MINUTE = 6_000  # frames after which memory counts as settled


@dataclass
class Soak:
    role: str
    early: int  # KiB resident after a minute of frames
    late: int  # and after an hour
    microseconds: float  # CPU time a frame


def run(engine: pipes.Engine, role: str, minute: np.ndarray, answer_size: int) -> Soak:
    """Feeds the same minute sixty times, a stream of its own each time."""
    settings = engine.mmse if role == "mmse" else engine.vad
    assert len(minute) == MINUTE
    stream = minute.tobytes()
    with subprocess.Popen(
        [engine.program, settings], stdin=subprocess.PIPE, stdout=subprocess.PIPE
    ) as process:
        marks: list[int] = []

        def drain() -> None:
            """Reads on while the other thread writes; looks at memory after whole minutes."""
            whole = 0
            while part := os.read(process.stdout.fileno(), 1 << 16):
                whole += len(part)
                if not marks and whole >= MINUTE * answer_size:
                    marks.append(processes.resident(process.pid) // 1024)

        reader = threading.Thread(target=drain)
        reader.start()
        for _ in range(HOUR // MINUTE):
            process.stdin.write(stream)
        process.stdin.flush()
        # The last frames may still be in the pipe: a few hundred of an hour.
        marks.append(processes.resident(process.pid) // 1024)
        seconds = processes.cpu(process.pid)
        process.stdin.close()
        reader.join()
    return Soak(role, marks[0], marks[-1], 1e6 * seconds / HOUR)
