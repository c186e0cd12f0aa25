#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The demo's command line. Needs nothing that ../demo would first have to install; as a command it
only checks its arguments, so that help and slips are told before anything is installed or built."""
import argparse
import math
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SNR = 10.0  # dB
LOWEST, HIGHEST = -20.0, 100.0  # dB; beyond these there is nothing but noise, or no noise at all


def near(path: Path) -> Path:
    """The path as seen from the current folder, when it lies below."""
    here = Path.cwd()
    return path.relative_to(here) if path.is_relative_to(here) else path


def decibels(text: str) -> float:
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not LOWEST <= value <= HIGHEST:  # nan is in no range
        raise argparse.ArgumentTypeError(
            f"{text}: not a number of dB from {LOWEST:g} to {HIGHEST:g}"
        )
    return value


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="demo",
        description="Runs everything on real speech and measures what comes out.",
        epilog="A recording of your own loses the silence at its ends, is brought to the usual "
        "level, repeated up to 40 s or shortened to 60 s, and gets noise; for 5 s each EPD is "
        "off and a sound plays, so that the ROS node gets nothing. With --as-is nothing of all "
        "that is done.",
        allow_abbrev=False,
    )
    parser.add_argument("wav", nargs="?", help="your own speech, any format sox reads")
    parser.add_argument("--as-is", action="store_true", help="your recording whole, no noise added")
    parser.add_argument("--fast", action="store_true", help="as fast as answered, not real time")
    parser.add_argument("--snr", type=decibels, help=f"speech over noise ({SNR:g} dB)")
    parser.add_argument("--out", type=Path, default=near(ROOT / "demo-out"), help="(%(default)s)")
    build = near(ROOT / "build/release")
    parser.add_argument("--build", type=Path, default=build, help="programs (%(default)s)")
    options = parser.parse_args()
    if options.as_is and not options.wav:
        parser.error("--as-is needs a recording of yours")
    if options.as_is and options.snr is not None:
        parser.error("--as-is adds no noise, so --snr means nothing")
    if options.snr is None:
        options.snr = SNR
    return options


if __name__ == "__main__":
    parse()
