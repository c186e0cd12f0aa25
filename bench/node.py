#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What the node costs: processor time a frame and memory at the pace of real audio, with outputs
and without, and how long it takes from a frame to its event.

By hand, after .ci/build release:  bench/node.py [--seconds 30]
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.dont_write_bytecode = True
sys.path[:0] = [str(ROOT / room) for room in ("peers", "bench")]

import figures  # noqa: E402
import frames  # noqa: E402
import processes  # noqa: E402

WARM_UP = 2.0  # seconds
SPEAKS, PAUSES = 150, 50  # frames: an utterance every two seconds
OUTPUTS = {
    "no output": [],
    "--events": ["--events", "events"],
    "--wav": ["--wav", "wav"],
    "--frames": ["--frames", "frames"],
    "--metrics": ["--metrics", "metrics"],
    "all of them": ["--events", "events", "--wav", "wav", "--frames", "frames", "--metrics", "m"],
}


def be_the_bridge(log: str) -> None:
    """In the place of the bridge: frames at the pace of audio, and utterances in them. Notes when
    each START was written."""
    sys.stderr.write("Connecting to Server ... [Connected]\n")
    began = time.monotonic()
    with open(log, "w", buffering=1) as starts:
        for number in range(1 << 30):
            time.sleep(max(0.0, began + number / frames.PER_SECOND - time.monotonic()))
            turn = number % (SPEAKS + PAUSES)
            if turn == 0:
                starts.write(f"{time.monotonic()}\n")
                os.write(1, frames.make(frames.START))
            elif turn == SPEAKS:
                os.write(1, frames.make(frames.END))
            os.write(1, frames.make(frames.DATA, b"\1\0" * frames.SAMPLES))


def start(build: Path, folder: Path, outputs: list[str]) -> subprocess.Popen:
    (folder / "settings").touch()
    bridge = [__file__, "--bridge", folder / "starts"]
    files = ["-b", "/bin/true", "-m", folder / "settings", "-v", folder / "settings"]
    words = [build / "tolvanev-node", "--watchdog", "0", *outputs, "--", *bridge, *files]
    return subprocess.Popen(
        [str(word) for word in words], cwd=folder, stderr=subprocess.DEVNULL, process_group=0
    )


def cost(build: Path, outputs: list[str], seconds: float) -> str:
    """Processor time a frame, and the most memory so far."""
    with tempfile.TemporaryDirectory(prefix="tolvanev-") as name:
        node = start(build, Path(name), outputs)
        time.sleep(WARM_UP)
        before, began = processes.cpu(node.pid), time.monotonic()
        time.sleep(seconds)
        used = processes.cpu(node.pid) - before
        passed = (time.monotonic() - began) * frames.PER_SECOND
        peak = processes.peak(node.pid)
        node.terminate()
        node.wait()
    return f"{1e6 * used / passed:.0f} us, {peak / 1000:.1f} MB"


def latency(build: Path, seconds: float) -> str:
    """From the moment ahead of a START's write until its event can be read from a FIFO."""
    seen: list[float] = []
    with tempfile.TemporaryDirectory(prefix="tolvanev-") as name:
        folder = Path(name)
        os.mkfifo(folder / "events")

        def read() -> None:
            with open(folder / "events") as events:
                for line in events:
                    if json.loads(line)["event"] == "speech_start":
                        seen.append(time.monotonic())

        reader = threading.Thread(target=read, daemon=True)
        reader.start()
        node = start(build, folder, ["--events", "events"])
        time.sleep(WARM_UP + seconds)
        node.terminate()
        node.wait()
        reader.join()
        starts = [float(line) for line in (folder / "starts").read_text().split()]
    took = []
    for at in seen:  # the first may have been missed, as the FIFO's reader is looked for
        took.append(at - max(one for one in starts if one <= at))
    took.sort()
    middle, high = took[len(took) // 2], took[int(len(took) * 0.99)]
    return f"{1e3 * middle:.2f} ms, {1e3 * high:.2f} ms ({len(took)} events)"


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=30, help="for each row")
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--bridge", metavar="LOG", help=argparse.SUPPRESS)
    options, _ = parser.parse_known_args()
    if options.bridge:
        be_the_bridge(options.bridge)
    build = options.build.resolve()
    rows = [(name, cost(build, outputs, options.seconds)) for name, outputs in OUTPUTS.items()]
    row = "from frame to event, median and 99th percentile"
    rows.append((row, latency(build, 4 * options.seconds)))
    print(figures.machine(build))
    print(figures.markdown(("", "CPU a frame, most memory"), rows))
    return 0


if __name__ == "__main__":
    sys.exit(main())
