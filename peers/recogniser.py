# SPDX-License-Identifier: MIT
"""Debian's pocketsphinx with its English model, as it comes, and how wrong its words are."""
import re
import shutil
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

PROGRAM = "pocketsphinx_batch"
MODEL = "/usr/share/pocketsphinx/model/en-us"


class RecogniserError(Exception):
    """There is no recogniser, or it failed; the text says what to do."""


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


def understand(utterances: list[bytes]) -> list[list[str]]:
    """The words of each, given as 16 kHz mono 16-bit samples; none where nothing was recognised.
    Raises RecogniserError."""
    with tempfile.TemporaryDirectory(prefix="tolvanev-") as name:
        room = Path(name)
        for number, pcm in enumerate(utterances):
            (room / f"{number}.raw").write_bytes(pcm)
        (room / "list").write_text("".join(f"{n}\n" for n in range(len(utterances))))
        (room / "understood").touch()
        command = [PROGRAM, "-hmm", f"{MODEL}/en-us", "-lm", f"{MODEL}/en-us.lm.bin"]
        command += ["-dict", f"{MODEL}/cmudict-en-us.dict", "-ctl", room / "list"]
        command += ["-cepdir", room, "-cepext", ".raw", "-adcin", "yes"]
        command += ["-hyp", room / "understood"]
        run(command)
        lines = (room / "understood").read_text()
    found = {int(n): text.split() for text, n in re.findall(r"^(.*)\((\d+) \S+\)$", lines, re.M)}
    return [found.get(number, []) for number in range(len(utterances))]


def there() -> bool:
    return Path(MODEL).is_dir() and shutil.which(PROGRAM) is not None


def run(command: list[str | Path]) -> None:
    if not there():
        raise RecogniserError("install Debian's pocketsphinx and pocketsphinx-en-us")
    try:
        subprocess.run(command, check=True, stderr=subprocess.DEVNULL)
    except (OSError, subprocess.CalledProcessError) as error:
        raise RecogniserError(f"{PROGRAM}: {error}") from error
