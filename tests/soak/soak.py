#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Does the bridge keep its promises for long? Three soaks of the real program, run by hand:

real time   the default engines at the pace of audio, with a sound client that never keeps quiet
flood       as fast as frames are answered, every sample checked
node        the node with the default engines at the pace of audio, and a fault every 20 s

Status 0 only if neither found anything.
"""
import argparse
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path[:0] = [str(ROOT / room) for room in ("peers", "bench", "tests/flood", "tests/system/node")]

import figures  # noqa: E402
from flood import Flood  # noqa: E402
from node_faults import NodeFaults  # noqa: E402
from process import SoakError  # noqa: E402
from real_time import RealTime  # noqa: E402


def main() -> int:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--minutes", type=float, default=10, help="of real time; 0: none")
    parser.add_argument("--frames", type=int, default=1_000_000, help="of the flood; 0: none")
    parser.add_argument("--node-minutes", type=float, default=10, help="of faults; 0: none")
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "soak")
    parser.add_argument("--write", action="store_true", help="tables into docs/figures.md")
    options = parser.parse_args()
    build = options.build.resolve()
    failed = False
    with tempfile.TemporaryDirectory(prefix="tolvanev-soak-") as folder:
        soaks: list[tuple[str, RealTime | Flood | NodeFaults]] = []
        if options.minutes > 0:
            soaks.append(("soak", RealTime(build, options.minutes, Path(folder))))
        if options.frames > 0:
            soaks.append(("flood", Flood(build, options.frames, Path(folder))))
        if options.node_minutes > 0:
            soaks.append(("node", NodeFaults(build, options.node_minutes, Path(folder))))
        for name, soak in soaks:
            heading = figures.machine(build)
            print(f"{name}: {heading}", flush=True)
            try:
                table = figures.markdown(("", ""), soak.run())
                print(table, flush=True)
                if options.write:
                    figures.write(name, f"{heading}:\n\n{table}")
            except SoakError as error:
                failed = True
                print(f"FAILED: {error}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
