#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Plays the bridge to an engine and says for each rule of docs/engine.md whether it holds.

By hand:  peers/engine_check.py path/to/engine its-settings-for-noise its-settings-for-speech
"""
import argparse
import signal
import sys
import tempfile
from pathlib import Path

import audio
import frames
from engine_answers import Answer, Findings
from engine_sounds import Step, Stream, stream, voice
from engine_trials import Trials
from waiting import say

SPEECH = 60  # frames


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description="Plays the bridge to an engine and says for each rule of docs/engine.md "
        "whether it holds, with the first frame that breaks it.",
        epilog="It takes about half a minute. Exit status 0 when all rules hold, 1 when one is "
        "broken or not judged, 2 when the engine could not be started.",
    )
    parser.add_argument("engine", help="the executable, as for the bridge's -b")
    parser.add_argument("mmse", type=Path, help="its settings file for noise suppression, -m")
    parser.add_argument("vad", type=Path, help="its settings file for voice activity, -v")
    parser.add_argument("--speech", metavar="FILE", help="somebody who speaks for a second without "
                        "a pause, if a synthetic voice is no speech to the engine")  # fmt: skip
    return parser.parse_args()


def check(engine: str, mmse: Path, vad: Path, speech: list[bytes]) -> bool:
    """Whether all rules hold; prints what was found."""
    heard = stream(speech)
    print(f"mmse: {engine} {mmse}", flush=True)
    suppression = Trials(engine, mmse, False, speech)
    answers = suppression.run(heard)
    finish(suppression)
    print(f"vad: {engine} {vad}", flush=True)
    activity = Trials(engine, vad, True, speech)
    activity.run(as_answered(heard, answers))
    finish(activity)
    return conclude([suppression.findings, activity.findings])


def as_answered(given: Stream, answers: list[Answer]) -> Stream:
    """The stream for voice activity: what the noise suppressor made of it, as in the bridge. What
    is the same twice is so still."""
    if len(answers) < len(given.steps):
        return given
    steps = [
        Step(step.kind, answer.payload, step.place) for step, answer in zip(given.steps, answers)
    ]
    steps[given.again : given.again + given.length] = steps[: given.length]
    return given._replace(steps=steps)


def finish(done: Trials) -> None:
    """What is only told, and the lines of one engine."""
    with tempfile.TemporaryDirectory(prefix="tolvanev-") as folder:
        done.wrong_settings("settings file that is not there", Path(folder, "none.ini"))
        nonsense = Path(folder, "nonsense.ini")
        nonsense.write_text("no settings\n")
        done.wrong_settings("settings file of nonsense", nonsense)
    for rule in done.findings.rules():
        print(done.findings.line(rule))
    for text in done.findings.told:
        print(f"  told       {text}")
    print(flush=True)


def conclude(findings: list[Findings]) -> bool:
    rules = sum(len(each.rules()) for each in findings)
    broken = sum(len(each.broken) for each in findings)
    unjudged = sum(len(each.unjudged()) for each in findings)
    print(f"{rules - broken - unjudged} rules hold, {broken} broken, {unjudged} not judged")
    return all(each.good() for each in findings)


def main() -> int:
    options = parse_arguments()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        recorded = list(frames.cut(audio.load(options.speech))) if options.speech else voice(SPEECH)
        speech = recorded[: 3 * SPEECH]
        return 0 if check(options.engine, options.mmse, options.vad, speech) else 1
    except audio.AudioError as error:
        say(str(error))
    except OSError as error:
        say(f"{options.engine}: {error.strerror}")
    except KeyboardInterrupt:
        say("interrupted")
    return 2


if __name__ == "__main__":
    sys.exit(main())
