# SPDX-License-Identifier: MIT
"""The figures that the engine has to reach on the judging set."""
from dataclasses import dataclass

import numpy as np

GROWTH = 64  # KiB: what an hour may add to a process, some pages of its libraries


@dataclass
class Verdict:
    name: str
    value: float
    floor: float
    at_least: bool  # else at most
    binding: bool = True  # a figure that depends on the machine's speed fails nothing

    @property
    def holds(self) -> bool:
        return self.value >= self.floor if self.at_least else self.value <= self.floor


def percentile(values: list, part: float) -> float:
    return float(np.percentile(values, part)) if values else float("nan")


def check_suppression(results: dict) -> list[Verdict]:
    found = []
    for kind, attenuation, distortion, gain in (("pink", 15, 4.3, 3.3), ("white", 16.5, 3.7, 7.5)):
        one, name = results[kind, 5].suppression, f"{kind} 5 dB"
        found += [
            Verdict(f"{name}: attenuation in pauses, dB", one.settled(), attenuation, True),
            Verdict(f"{name}: distortion of speech, dB", one.distortion(), distortion, False),
            Verdict(f"{name}: SI-SDR gain, dB", one.gain(), gain, True),
        ]
    clean = results["clean", 0].suppression.distortion()
    return [*found, Verdict("clean: distortion of speech, dB", clean, 1.8, False)]


def check_activity(results: dict) -> list[Verdict]:
    found = []
    scores = {("clean", 0): 0.95, ("pink", 5): 0.93, ("white", 5): 0.93, ("babble", 10): 0.80}
    for (kind, snr), floor in scores.items():
        name = "clean" if kind == "clean" else f"{kind} {snr} dB"
        found.append(Verdict(f"{name}: F1", results[kind, snr].activity.f1(), floor, True))
    for kind in ("pink", "white"):
        one, name = results[kind, 5].activity, f"{kind} 5 dB"
        onset, late, offset = (
            percentile(one.onsets, 50),
            percentile(one.onsets, 90),
            percentile(one.offsets, 50),
        )
        found += [
            Verdict(f"{name}: onset, median ms", onset, 50, False),
            Verdict(f"{name}: onset, 90th percentile ms", late, 80, False),
            Verdict(f"{name}: offset, median ms", offset, 260, False),
        ]
    missed = sum(result.activity.missed for result in results.values())
    false = results["pink", 5].activity.false_a_minute()
    return [
        *found,
        Verdict("everywhere: utterances missed", missed, 0, False),
        Verdict("pink 5 dB: false starts a minute", false, 6, False),
        Verdict("clean: false starts", results["clean", 0].activity.false_starts, 0, False),
    ]


def check(results: dict, starts: dict, hours: list) -> list[Verdict]:
    cost = max(result.microseconds for result in results.values())
    return [
        *check_suppression(results),
        *check_activity(results),
        Verdict("white, primed start: attenuation, dB", starts["white", 5].attenuation, 17, True),
        Verdict("pink, primed start: attenuation, dB", starts["pink", 5].attenuation, 10, True),
        *(
            Verdict(f"{one.role}: KiB more after an hour", one.late - one.early, GROWTH, False)
            for one in hours
        ),
        Verdict("both roles: microseconds a frame", cost, 100, False, binding=False),
    ]
