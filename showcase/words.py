# SPDX-License-Identifier: MIT
"""What a recogniser understands of each utterance, beside what was said."""
from dataclasses import dataclass

import frames
import recogniser
from measure import Comparison, Heard, overlap
from recogniser import Errors
from scene import Passage, Scene, to_samples


PREROLL = 20  # frames from before START in each of the node's utterances


@dataclass
class Part:
    """Utterances and passages that overlap: one of each, unless a passage was cut."""

    start: int  # frame of the recording
    passages: list[int]  # their numbers, from 0
    noisy: list[list[str]]  # of each utterance
    cleaned: list[list[str]]
    said: list[str]  # nothing if it is not known, or if not all of it could be heard

    def rows(self) -> list[tuple[str, str]]:
        """What is shown of it."""
        said = [("said", " ".join(self.said))] if self.said else []
        return [*said, ("noisy", shown(self.noisy)), ("cleaned", shown(self.cleaned))]


@dataclass
class Words:
    parts: list[Part]
    problem: str = ""  # why there are none

    def errors(self) -> tuple[Errors, Errors]:
        """Of noisy and of cleaned, where it is known what was said."""
        noisy, cleaned = Errors(), Errors()
        for part in self.parts:
            if part.said:
                noisy += recogniser.compare(part.said, sum(part.noisy, []))
                cleaned += recogniser.compare(part.said, sum(part.cleaned, []))
        return noisy, cleaned


def shown(utterances: list[list[str]]) -> str:
    return " | ".join(" ".join(words) or "(nothing)" for words in utterances)


def said_in(scene: Scene, passages: list[int]) -> list[str]:
    held_back = [Passage(*span) for span in (scene.epd_off, scene.sound) if span]
    if not scene.said or any(
        overlap(scene.passages[number], span) for number in passages for span in held_back
    ):
        return []
    return [word for number in passages for word in scene.said[number]]


def gather(
    scene: Scene, utterances: list[Passage], noisy: list[list[str]], cleaned: list[list[str]]
) -> list[Part]:
    """What belongs together, in the order of time."""
    parts: list[Part] = []
    for one, before, after in zip(utterances, noisy, cleaned):
        within = [number for number, each in enumerate(scene.passages) if overlap(each, one)]
        if parts and within and within[0] in parts[-1].passages:
            parts[-1].passages += within[1:]
        else:
            parts.append(Part(one.start, within, [], [], []))
        parts[-1].noisy.append(before)
        parts[-1].cleaned.append(after)
    for part in parts:
        part.said = said_in(scene, part.passages)
    return parts


def listen(scene: Scene, comparison: Comparison, heard: Heard, noisy: list[list[str]]) -> Words:
    """Each utterance as it came back to the voice server, beside what the node's command has
    understood of it (noisy). Both begin as early."""
    spans = [(max(0, one.start - PREROLL), one.end) for one in heard.utterances]
    cleaned = [
        to_samples(comparison.cleaned[start * frames.SAMPLES : end * frames.SAMPLES]).tobytes()
        for start, end in spans
    ]
    try:
        understood = recogniser.understand(cleaned)
    except recogniser.RecogniserError as error:
        return Words([], str(error))
    return Words(gather(scene, heard.utterances, noisy, understood))
