#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Measures the default engine on speech that it was not tuned on; status 0 if all floors hold."""
import argparse
import multiprocessing
import os
import sys
import time
from dataclasses import dataclass
from pathlib import Path

import numpy as np

import cold
import figures
import floors
import pauses
import pipes
import primed
import recordings
import scenes
import soak
import tables
import words
from activity import Activity
from suppression import Suppression

ROOT = Path(__file__).resolve().parent.parent.parent
CONDITIONS = [("clean", 0), *((kind, snr) for kind in scenes.NOISES for snr in scenes.SNRS)]
PRIMED = [(kind, snr) for kind in scenes.NOISES for snr in (5, 15)]


@dataclass
class Job:
    """What the worker processes share; they inherit it when they are forked."""

    engine: pipes.Engine
    speech: list[recordings.Recording]
    talkers: list[recordings.Recording]


@dataclass
class Result:
    suppression: Suppression
    activity: Activity
    microseconds: float  # CPU time a frame, both roles together


job: Job


def judge(condition: tuple[str, float]) -> Result:
    """One condition through both roles, the second fed by the first as in the bridge."""
    suppression, activity = Suppression(), Activity(job.engine.hangover())
    seconds, frames = 0.0, 0
    for scene in scenes.build(job.speech, job.talkers, *condition):
        audio = job.engine.suppress(pipes.stream(scene.noisy()))
        results = job.engine.detect(audio.frames)
        suppression.add(scene, pipes.samples_of(audio.frames))
        activity.add(scene, pipes.segments(results.frames))
        seconds += audio.seconds + results.seconds
        frames += len(audio.frames)
    return Result(suppression, activity, 1e6 * seconds / frames)


def judge_primed(condition: tuple[str, float]) -> primed.Primed:
    word = min(job.speech, key=lambda recording: len(recording.samples))
    return primed.measure(job.engine, *condition, job.talkers, word)


def judge_cold(condition: tuple[str, float]) -> cold.Cold:
    return cold.measure(job.engine, *condition, job.talkers, job.speech)


def judge_words(condition: tuple[str, float]) -> words.Words:
    return words.measure(job.engine, *condition, job.talkers, words.spoken())


def judge_soak(role: str) -> soak.Soak:
    scene = scenes.build(job.speech, job.talkers, "pink", 5)[0]
    minute = pipes.stream(np.resize(scene.noisy(), (soak.MINUTE - 2) * recordings.FRAME))
    answer = pipes.AUDIO if role == "mmse" else pipes.RESULT
    return soak.run(job.engine, role, minute, answer.itemsize)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="engine/judging/run", description=__doc__)
    parser.add_argument("--tune", action="store_true", help="tuning set, no floors, no soak")
    parser.add_argument("--spare", action="store_true", help="other recordings to judge by")
    parser.add_argument("--write", action="store_true", help="tables into docs/figures.md as well")
    parser.add_argument("--words", action="store_true", help="what a recogniser understands, only")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release", help="(%(default)s)")
    parser.add_argument("--mmse", type=Path, help="other settings for noise suppression")
    parser.add_argument("--vad", type=Path, help="other settings for voice activity")
    return parser.parse_args()


def print_words(options: argparse.Namespace) -> bool:
    """The recordings whose words are known; babble is that of the set that was asked for."""
    cores = len(os.sched_getaffinity(0))
    with multiprocessing.get_context("fork").Pool(cores) as pool:
        found = pool.map(judge_words, words.CONDITIONS, chunksize=1)
    results = dict(zip(words.CONDITIONS, found))
    text = tables.words(words.whole(words.spoken()), results)
    print(text, end="")
    if options.write:
        figures.write("words", f"{figures.machine(options.build)}:\n\n```\n{text.strip()}\n```")
    return options.tune or show(floors.check_words(results))


def show(verdicts: list[floors.Verdict]) -> bool:
    """Whether all floors hold."""
    print(tables.verdicts(verdicts))
    return all(verdict.holds or not verdict.binding for verdict in verdicts)


def main() -> int:
    global job
    options, began = parse_arguments(), time.monotonic()
    mmse, vad = options.mmse or options.build / "mmse.ini", options.vad or options.build / "vad.ini"
    engine = pipes.Engine(options.build / "tolvanev-engine", mmse, vad)
    load = recordings.tuning if options.tune else lambda: recordings.judging(options.spare)
    job = Job(engine, *load())
    if options.words:
        held = print_words(options)
        print(f"{time.monotonic() - began:.0f} s")
        return 0 if held else 1
    print(tables.heading(job.speech, options.tune), flush=True)
    # One process a core and at most as many engines at a time, so that CPU times mean something.
    with multiprocessing.get_context("fork").Pool() as pool:
        results = dict(zip(CONDITIONS, pool.map(judge, CONDITIONS, chunksize=1)))
        starts = dict(zip(PRIMED, pool.map(judge_primed, PRIMED, chunksize=1)))
        colds = dict(zip(PRIMED, pool.map(judge_cold, PRIMED, chunksize=1)))
        hours = [] if options.tune else pool.map(judge_soak, ["mmse", "vad"], chunksize=1)
    found = [tables.suppression(results), tables.activity(results), tables.primed(starts)]
    found += [tables.cold(colds), pauses.table(engine)]
    print(*found, tables.soak(hours), sep="\n", end="")
    if options.write:
        text = "\n".join([*found, tables.soak(hours)])
        figures.write("engine", f"{figures.machine(options.build)}:\n\n```\n{text.strip()}\n```")
    held = options.tune or show(floors.check(results, starts, colds, hours))
    print(f"{time.monotonic() - began:.0f} s")
    return 0 if held else 1


if __name__ == "__main__":
    sys.exit(main())
