# SPDX-License-Identifier: MIT
"""What the stories of the engine program share: frames, synthetic sound, the program to run.

TOLVANEV_BUILD names the build directory with tolvanev-engine, mmse.ini and vad.ini.
"""
import array
import math
import os
import select
import struct
import subprocess
from typing import Any, Iterable

import engine_sounds
import frames
from engine_answers import VAD_SIZE
from frames import DATA, SIZE

BUILD = os.environ.get("TOLVANEV_BUILD", "build/debug")
ENGINE = os.path.join(BUILD, "tolvanev-engine")
MMSE = os.path.join(BUILD, "mmse.ini")
VAD = os.path.join(BUILD, "vad.ini")

TIMEOUT_S = 60  # generous: the machine may be busy

Answer = tuple[int, bytes]  # type and the rest of the frame


def frame(kind: int, samples: Iterable[int] = ()) -> bytes:
    return frames.make(kind, array.array("h", samples).tobytes())


def noise(count: int, level: int = engine_sounds.NOISE, seed: int = 1) -> list[bytes]:
    return [frames.make(DATA, each) for each in engine_sounds.noise(count, level, seed)]


def voice(count: int) -> list[bytes]:
    return [frames.make(DATA, each) for each in engine_sounds.voice(count)]


def split(data: bytes, size: int) -> list[Answer]:
    """The frames of an output."""
    assert len(data) % size == 0, len(data)
    return [
        (struct.unpack_from("<i", data, at)[0], data[at + 4 : at + size])
        for at in range(0, len(data), size)
    ]


def run(settings: str, data: bytes) -> subprocess.CompletedProcess[bytes]:
    return subprocess.run([ENGINE, settings], input=data, capture_output=True, timeout=TIMEOUT_S)


def answers(settings: str, stream: list[bytes]) -> list[Answer]:
    result = run(settings, b"".join(stream))
    assert result.returncode == 0, result.stderr
    return split(result.stdout, SIZE if settings == MMSE else VAD_SIZE)


def kinds(pairs: list[Answer]) -> list[int]:
    return [kind for kind, _ in pairs]


def level_db(pairs: list[Answer]) -> float:
    """RMS level of answered audio in dB re 1."""
    values = [s for kind, rest in pairs if kind == DATA for s in struct.unpack("<160h", rest)]
    return 10 * math.log10(sum(v * v for v in values) / len(values) + 1e-9)


class Running:
    """An engine whose pipes the test holds."""

    def __init__(self, settings: str, **more: Any) -> None:
        self.process = subprocess.Popen(
            [ENGINE, settings],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            bufsize=0,
            **more,
        )

    def __enter__(self) -> "Running":
        return self

    def __exit__(self, *_: object) -> None:
        self.process.kill()
        self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout, self.process.stderr):
            pipe.close()

    def read(self, size: int) -> tuple[bytes, list[int]]:
        """Waits for `size` bytes; returns them and the sizes in which they came."""
        data, sizes = b"", []
        while len(data) < size:
            ready, _, _ = select.select([self.process.stdout], [], [], TIMEOUT_S)
            assert ready, "no answer"
            part = os.read(self.process.stdout.fileno(), 65536)
            assert part, "output closed"
            data += part
            sizes.append(len(part))
        return data, sizes
