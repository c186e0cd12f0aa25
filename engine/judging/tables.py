# SPDX-License-Identifier: MIT
"""What a judging prints."""
from collections import Counter
from pathlib import Path

from floors import Verdict, percentile
from recogniser import Errors
from recordings import FRAME, RATE, Recording
from scenes import LEADS


def folder(recording: Recording) -> str:
    """Where it came from, below /usr/share: as much as tells the packages apart."""
    return "/".join(Path(recording.name).parent.relative_to("/usr/share").parts[:3])


def heading(speech: list[Recording], tune: bool) -> str:
    folders = Counter(folder(recording) for recording in speech)
    sources = ", ".join(f"{count} of {name}" for name, count in folders.items())
    seconds = sum(len(recording.samples) for recording in speech) / RATE
    kind = "Tuning" if tune else "Judging"
    return (
        f"{kind} set: {len(speech)} recordings, {seconds:.0f} s: {sources}.\n"
        f"{len(LEADS)} streams a condition; frames of {1000 * FRAME // RATE} ms.\n"
    )


def label(condition: tuple[str, float]) -> str:
    kind, snr = condition
    return "clean" if kind == "clean" else f"{kind} {snr}"


def row(cells: list, widths: list[int]) -> str:
    first, *rest = cells
    return f"{first:<11}" + "".join(f"{cell:>{width}}" for cell, width in zip(rest, widths)) + "\n"


def suppression(results: dict) -> str:
    text = "Noise suppression: dB; CPU time in us a frame, both roles\n"
    widths = [13, 13, 13, 13, 13, 8]
    head = ["first second", "pauses", "SI-SDR gain", "speech level", "distortion", "us"]
    text += row(["", *head], widths)
    for condition, result in results.items():
        one, quiet = result.suppression, condition[0] == "clean"
        cells = [one.first_second(), one.settled(), one.gain(), one.level(), one.distortion()]
        # Without noise there is nothing to attenuate or to gain.
        shown = ["-" if quiet and i < 3 else f"{cell:.1f}" for i, cell in enumerate(cells)]
        text += row([label(condition), *shown, f"{result.microseconds:.0f}"], widths)
    return text


def activity(results: dict) -> str:
    text = (
        "Voice activity: share of frames up to the hangover; delays in ms, median and 90th perc.\n"
    )
    widths = [7, 7, 7, 11, 11, 11, 8, 8, 8, 13]
    head = ["", "prec.", "recall", "F1", "onset", "offset", "false/min"]
    text += row([*head, "missed", "splits", "merges", "one to one"], widths)
    for condition, result in results.items():
        one = result.activity
        delays = [
            f"{percentile(values, 50):.0f} {percentile(values, 90):4.0f}"
            for values in (one.onsets, one.offsets)
        ]
        shares = [f"{share:.3f}" for share in (one.precision(), one.recall(), one.f1())]
        counts = [one.missed, one.splits, one.merges, f"{one.whole} of {one.utterances}"]
        false = f"{one.false_a_minute():.1f}"
        text += row([label(condition), *shares, *delays, false, *counts], widths)
    return text


def primed(starts: dict) -> str:
    text = "After a renewal: attenuation in dB, 100 to 500 ms after it, and a word after 0.6 s\n"
    widths = [9, 9, 15, 13, 9]
    text += row(["", "primed", "cold", "false starts", "word, dB", "missed"], widths)
    for condition, one in starts.items():
        false = f"{one.false_starts} in {one.starts}"
        cells = [f"{one.attenuation:.1f}", f"{one.cold:.1f}", false]
        text += row([label(condition), *cells, f"{one.word_level:+.1f}", one.word_missed], widths)
    return text


def cold(colds: dict) -> str:
    text = (
        "Cold start: attenuation in dB; distortion of speech in dB, suppressor alone and engine\n"
    )
    widths = [15, 14, 15, 21, 19]
    head = ["100 to 300 ms", "300 to 500", "first second", "begins with speech", "loud, then quiet"]
    text += row(["", *head], widths)
    for condition, one in colds.items():
        cells = [f"{value:.1f}" for value in one.attenuation]
        pairs = [f"{old:.1f} {new:6.1f}" for old, new in (one.speech_first, one.loud_first)]
        text += row([label(condition), *cells, *pairs], widths)
    return text


def errors(one: Errors) -> str:
    return f"{100 * one.rate():.1f}: {one.substituted:3} {one.deleted:3} {one.inserted:3}"


def words(whole: Errors, results: dict) -> str:
    text = (
        f"Words: % wrong of {whole.words}: substituted, deleted, inserted; {errors(whole)} of the\n"
        "recordings as they are, these from START to END, at the same places in all three\n"
    )
    widths = [20, 20, 20]
    text += row(["", "noisy", "cleaned", "clean"], widths)
    for condition, one in results.items():
        text += row([label(condition), *map(errors, one.all())], widths)
    noisy = [one.all() for (kind, _), one in results.items() if kind != "clean"]
    sums = [sum(column, Errors()) for column in zip(*noisy)]
    return text + row(["all noise", *map(errors, sums)], widths)


def soak(hours: list) -> str:
    return "".join(
        f"{one.role}: {one.early} KiB after a minute of frames, {one.late} after an hour, "
        f"{one.microseconds:.0f} us a frame\n"
        for one in hours
    )


def verdicts(found: list[Verdict]) -> str:
    text = "\nFloors\n"
    for one in found:
        sign = ">=" if one.at_least else "<="
        word = "holds" if one.holds else "MISSED"
        if not one.binding:
            word += " (for information: depends on the machine)"
        text += f"{one.name:<62}{one.value:8.3f} {sign} {one.floor:<6g} {word}\n"
    binding = [one for one in found if one.binding]
    return text + f"{sum(one.holds for one in binding)} of {len(binding)} hold.\n"
