# SPDX-License-Identifier: MIT
"""What the demo tells at its end: events, figures, and whether the run was a success."""
from dataclasses import dataclass
from pathlib import Path

import frames
from measure import Comparison, Heard, levels, overlap
from scene import Passage, Scene
from words import Words

EPD_LINES = ["receive sound client packet : epd_off.", "receive sound client packet : epd_on."]
SOUND_LINES = [f"play sound state from ros node is {word}." for word in ("on", "off")]
# A switch acts within the frames on their way, so its first and last part prove nothing.
SETTLING = 100  # frames
SILENCE = -120.0  # dB of full scale; below this no sample is other than 0
ENOUGH_BACK = 0.9  # share of the recording that must return
ENOUGH_ALIKE = 0.3  # correlation between input and output that only the same audio reaches


@dataclass
class Run:
    """All that was recorded of one run."""

    scene: Scene
    sent: dict[str, int]
    back: dict[str, int]
    heard_counts: dict[str, int]
    comparison: Comparison
    heard: Heard
    words: Words
    switched: list[tuple[int, str]]  # frame at which something was asked for
    told: list[tuple[int, str]]  # frames sent when the sound client got a text
    renewals: int  # of the noise model
    log: str
    status: str  # how the bridge ended
    pace: str


def seconds(frame: int) -> str:
    return f"{frame / frames.PER_SECOND:7.2f} s"


def events(run: Run) -> str:
    """All events on the time line of the recording."""
    lines = [(frame, f"asked for {what}") for frame, what in run.switched]
    lines += [(frame, f'sound client told "{text}"') for frame, text in run.told]
    for number, utterance in enumerate(run.heard.utterances, 1):
        lines.append((utterance.start, f"start of utterance {number}"))
        lost = " (its END was held back)" if number in run.heard.endless else ""
        lines.append((utterance.end, f"end of utterance {number}{lost}"))
    for number, passage in enumerate(run.scene.passages, 1):
        lines.append((passage.start, f"(speech {number} begins)"))
        lines.append((passage.end, f"(speech {number} ends)"))
    head = "Time in the recording; speech as it was put together, utterances as the bridge found.\n"
    return head + "".join(f"{seconds(at)}  {text}\n" for at, text in sorted(lines))


def held_back(run: Run) -> list[Passage]:
    """When the ROS node should have got nothing."""
    return [Passage(*span) for span in (run.scene.epd_off, run.scene.sound) if span]


def leaked(run: Run, span: tuple[int, int]) -> tuple[int, int]:
    """Frames that reached the ROS node while held back, and how many there were."""
    start, end = span[0] + SETTLING // 2, span[1] - SETTLING
    return run.heard.arrived(start, end), max(0, end - start)


def problems(run: Run) -> list[str]:
    """Why the run was no success; empty when it was one."""
    found = []
    if run.back["data"] < ENOUGH_BACK * run.scene.length():
        found.append(f"only {run.back['data']} of {run.scene.length()} data frames came back")
    correlation = run.comparison.correlation()
    if correlation < ENOUGH_ALIKE or run.comparison.share() < ENOUGH_BACK:
        share = 100 * run.comparison.share()
        found.append(
            f"the audio that came back is not the input: {share:.0f} % of what is audible in it "
            f"recognised, correlation {correlation:.2f}"
        )
    if not run.heard.utterances and run.scene.clean is not None:
        found.append("no utterance was found")
    found += switch_problems(run)
    if not run.status.endswith("status 0"):
        found.append(f"the bridge {run.status}")
    return found


def switch_problems(run: Run) -> list[str]:
    """What is wrong with holding back, where the scene has it."""
    found, words, expected = [], [], []
    for name, span, lines in (
        ("EPD was off", run.scene.epd_off, EPD_LINES),
        ("a sound played", run.scene.sound, SOUND_LINES),
    ):
        if not span:
            continue
        words += lines
        count, of = leaked(run, span)
        if count or not of:
            found.append(f"while {name}, {count} of {of} frames reached the ROS node")
    found += [f'node.log lacks "{text}"' for text in words if text not in run.log]
    if run.scene.sound:
        expected = ["epdoff", "epdon"]
    texts = [text for _, text in run.told]
    if texts != expected:
        found.append(f"the sound client was told {texts} instead of {expected}")
    return found


def summary(run: Run) -> str:
    """The figures, every one of them measured in this run."""
    rows = [*frame_rows(run), *speech_rows(run), *sound_rows(run), *end_rows(run)]
    figures = "".join(f"{name:<26}{text}\n" for name, text in rows)
    return f"{figures}\n{understood(run.words)}\n{legend(run)}\n"


def understood(words: Words) -> str:
    """The words of each utterance before and after, beside those said if they are known."""
    if words.problem:
        return f"What a recogniser understands: not known, {words.problem}.\n"
    text = "What a recogniser understands, before and after (| is between two utterances):\n"
    for part in words.parts:
        at = seconds(part.start)
        for name, line in part.rows():
            text += f"{at:<12}{name:<9}{line}\n"
            at = ""
    noisy, cleaned = words.errors()
    if noisy.words:
        text += (
            f"Wrong words, of {noisy.words} in the passages that could be heard: "
            f"{noisy.changes()} before, {cleaned.changes()} after.\n"
        )
    return text


def legend(run: Run) -> str:
    """What the counts hold beside the recording."""
    text = """\
Sent is the recording between a tof and an eof, then silence that pushes it out of the bridge.
Each renewal of the noise model adds an eof, a tof and ten data frames of averaged noise to what
comes back and to what the ROS node gets, and drops the frames under way."""
    if held_back(run):
        text += """
While EPD is off or a sound plays, start and end come back but do not reach the ROS node; an
utterance counts if its start did."""
    return text + "\n"


def frame_rows(run: Run) -> list[tuple[str, str]]:
    scene = run.scene
    return [
        ("speech from", scene.source),
        ("made of it", scene.made),
        ("recording", seconds(scene.length()).strip()),
        ("pace", run.pace),
        ("voice server sent", frames.describe(run.sent)),
        ("  got back", frames.describe(run.back)),
        ("ROS node got", frames.describe(run.heard_counts)),
    ]


def speech_rows(run: Run) -> list[tuple[str, str]]:
    silenced = held_back(run)
    open_ones = [p for p in run.scene.passages if not any(overlap(p, s) for s in silenced)]
    found = [p for p in open_ones if any(overlap(p, u) for u in run.heard.utterances)]
    stray = [u for u in run.heard.utterances if not any(overlap(p, u) for p in run.scene.passages)]
    rows = [
        (
            "passages spoken",
            f"{len(run.scene.passages)}, "
            f"{len(run.scene.passages) - len(open_ones)} of them with EPD off or a sound playing",
        ),
        (
            "utterances found",
            f"{len(run.heard.utterances)}, in {len(found)} of the other {len(open_ones)} passages; "
            f"{len(stray)} outside speech, {len(run.heard.endless)} without an end",
        ),
    ]
    for name, span in (("with EPD off", run.scene.epd_off), ("while sound plays", run.scene.sound)):
        if span:
            count, of = leaked(run, span)
            text = f"ROS node got {count} of {of} frames (first 0.5 s, last 1 s left out)"
            rows.append((name, text))
    return rows


def level(value: float) -> str:
    return "silence" if value < SILENCE else f"{value:.1f} dB"


def sound_rows(run: Run) -> list[tuple[str, str]]:
    rows = []
    for name, (before, after) in levels(run.scene, run.comparison).items():
        text = f"{level(before)} before, {level(after)} after"
        if min(before, after) >= SILENCE:
            text += f": {before - after:.1f} dB lower"
        rows.append((f"level in {name}" if name[0] != " " else f" {name}", text))
    missing = run.comparison.missing()
    renewals = run.renewals
    each = f" ({missing / renewals:.1f} a renewal)" if renewals else ""
    median, low, high = run.comparison.delays()
    rows += [
        (
            "delay",
            f"{median:.1f} frames ({10 * median:.0f} ms), {low:.1f} to {high:.1f}; by correlation; "
            "starts anew at each renewal",
        ),
        (
            "audio came through",
            f"{100 * run.comparison.share():.1f} % of what is audible, correlation "
            f"{run.comparison.correlation():.2f}; {missing} of its frames missing{each}",
        ),
    ]
    return rows


def end_rows(run: Run) -> list[tuple[str, str]]:
    texts = ", ".join(f"{text} at {seconds(at).strip()}" for at, text in run.told) or "nothing"
    return [
        ("noise model renewed", f"{run.renewals} times"),
        ("sound client was told", texts),
        ("bridge", run.status),
    ]


RESULTS = [
    ("noisy.wav", "before: what the voice server sent"),
    ("cleaned.wav", "after: what it got back, at the same places; what never came is silence"),
    ("returned.wav", "what it got back as it came, with the noise of renewals"),
    ("heard.wav", "what the ROS node got"),
    ("clean.wav", "the speech without noise, for comparison"),
    ("overview.svg", "all of it in one picture"),
    ("utterances.txt", "what happened when"),
    ("node.log", "messages of the node and the bridge"),
    ("summary.txt", "the figures above"),
]


def clear(folder: Path) -> None:
    """Removes what an earlier run has left, so that nothing old stands beside the new."""
    for name, _ in RESULTS:
        (folder / name).unlink(missing_ok=True)


def files(folder: Path) -> str:
    """Where to listen and look."""
    rows = [(folder / name, text) for name, text in RESULTS if (folder / name).exists()]
    width = max(len(str(path)) for path, _ in rows) + 2
    shown = "".join(f"  {path!s:<{width}}{text}\n" for path, text in rows)
    return f"Listen, e.g. with `play {folder / 'cleaned.wav'}`, and look:\n{shown}"
