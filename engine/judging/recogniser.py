# SPDX-License-Identifier: MIT
"""Debian's pocketsphinx with its English model, as it comes, and how wrong its words are."""
import re
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

import numpy as np

MODEL = "/usr/share/pocketsphinx/model/en-us"


@dataclass
class Errors:
    """The fewest changes that make what was understood of what was said."""

    substituted: int = 0
    deleted: int = 0
    inserted: int = 0
    words: int = 0  # that were said

    def __add__(self, other: "Errors") -> "Errors":
        return Errors(
            self.substituted + other.substituted,
            self.deleted + other.deleted,
            self.inserted + other.inserted,
            self.words + other.words,
        )

    def changes(self) -> int:
        return self.substituted + self.deleted + self.inserted

    def rate(self) -> float:
        return self.changes() / self.words


def compare(said: list[str], understood: list[str]) -> Errors:
    """By edit distance, all changes alike."""
    row = [Errors(inserted=count) for count in range(len(understood) + 1)]
    for word in said:
        before, row = row, [row[0] + Errors(deleted=1, words=1)]
        for index, heard in enumerate(understood):
            ways = (
                before[index] + Errors(substituted=int(word != heard), words=1),
                before[index + 1] + Errors(deleted=1, words=1),
                row[index] + Errors(inserted=1),
            )
            row.append(min(ways, key=Errors.changes))
    return row[-1]


def understand(utterances: list[np.ndarray]) -> list[list[str]]:
    """The words of each; none where nothing was recognised."""
    with tempfile.TemporaryDirectory() as name:
        room = Path(name)
        for number, samples in enumerate(utterances):
            samples.astype("<i2").tofile(room / f"{number}.raw")
        (room / "list").write_text("".join(f"{n}\n" for n in range(len(utterances))))
        (room / "understood").touch()
        command = ["pocketsphinx_batch", "-hmm", f"{MODEL}/en-us", "-lm", f"{MODEL}/en-us.lm.bin"]
        command += ["-dict", f"{MODEL}/cmudict-en-us.dict", "-ctl", room / "list"]
        command += ["-cepdir", room, "-cepext", ".raw", "-adcin", "yes"]
        command += ["-hyp", room / "understood"]
        subprocess.run(command, check=True, stderr=subprocess.DEVNULL)
        lines = (room / "understood").read_text()
    found = {int(n): text.split() for text, n in re.findall(r"^(.*)\((\d+) \S+\)$", lines, re.M)}
    return [found.get(number, []) for number in range(len(utterances))]
