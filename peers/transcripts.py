# SPDX-License-Identifier: MIT
"""The recordings of Debian's package pocketsphinx-testdata whose words are known."""
import re
from pathlib import Path

RECORDINGS = Path("/usr/share/pocketsphinx/test/data")
# Two recordings have no transcript beside them: one is what its grammar is for, the other has its
# digits in its name.
OTHERS = {
    "goforward.raw": "go forward ten meters",
    "tidigits/dhd.2934z.raw": "two nine three four zero",
}


def read() -> dict[str, list[str]]:
    """The words of each, by its path."""
    found = {str(RECORDINGS / name): text.split() for name, text in OTHERS.items()}
    for path in ("cards/cards.transcription", "librivox/transcription"):
        whole = RECORDINGS / path
        for text, name in re.findall(r"<s> (.*) </s> \((.*)\)", whole.read_text()):
            found[str(whole.parent / f"{name}.wav")] = text.split()
    return dict(sorted(found.items()))
