# SPDX-License-Identifier: MIT
"""What measures and what is measured."""
import shutil
from pathlib import Path
from typing import Sequence

from trial import Report, Trial


class Programs:
    """The programs of one build: those that measure and those that are measured."""

    def __init__(self, build: Path) -> None:
        self.build = build.resolve()
        bench = self.build / "bench"
        self.flood = self.build / "tests" / "flood" / "flood"
        self.engine = bench / "null_engine"
        self.micro = bench / "micro"
        self.malloc_count = bench / "libmalloc_count.so"
        self.bridge = self.build / "Tolvanev"
        self.static = bench / "static_bridge"
        self.limit = bench / "limit"
        alternatives = Path(__file__).resolve().parent / "alternatives"
        self.socat = alternatives / "socat_relay"
        self.asyncio = alternatives / "asyncio_relay"

    def alternatives(self) -> list[tuple[str, Path]]:
        """Name and program of those that can run here."""
        found = [("asyncio relay", self.asyncio)]
        return found + ([("socat pipeline", self.socat)] if shutil.which("socat") else [])

    def run(
        self, program: Path, *options: str, utterance: bool = False, prefix: Sequence[str] = ()
    ) -> Report:
        """One run with null engines; prefix is put in front of the program. In an utterance the VAD
        engine says START first: no noise is gathered, no renewal comes."""
        settings = Path("null.mmse"), Path("null.vad.utterance" if utterance else "null.vad")
        plain = [] if program in (self.bridge, self.static) else ["--plain"]
        trial = Trial(program, self.engine, settings, prefix)
        return trial.run([str(self.flood), *plain, *options], calls=program != self.socat)


def cpu_per_frame(report: Report) -> float:
    """In microseconds, of the program alone."""
    return report["cpu_us"] / report["measured"]


def percentile(values: list[float], part: int) -> float:
    return sorted(values)[(len(values) - 1) * part // 100]
