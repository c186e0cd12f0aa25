#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Does the bridge keep its promises for long? Two soaks of the real program, run by hand:

real time   the default engines at the pace of audio, with a sound client that never keeps quiet
flood       as fast as frames are answered, every sample checked

Status 0 only if neither found anything. The table is also written to soak.txt in the build folder.
"""
import argparse
import datetime
import os
import platform
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE.parent.parent / "peers"))

from flood import Flood  # noqa: E402
from process import SoakError  # noqa: E402
from real_time import RealTime  # noqa: E402


def machine() -> str:
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / (1 << 30)
    return f"{os.cpu_count()} cores, {memory:.0f} GiB, Linux {platform.release()}"


def main() -> int:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--minutes", type=float, default=10, help="of real time; 0: none")
    parser.add_argument("--frames", type=int, default=1_000_000, help="of the flood; 0: none")
    parser.add_argument("--build", type=Path, default=HERE.parent.parent / "build" / "release")
    options = parser.parse_args()
    build = options.build.resolve()
    lines = [f"{datetime.date.today()}, {machine()}, {build.name} build"]
    failed = False
    with tempfile.TemporaryDirectory(prefix="tolvanev-soak-") as folder:
        soaks = []
        if options.minutes > 0:
            soaks.append(("real time", RealTime(build, options.minutes, Path(folder))))
        if options.frames > 0:
            soaks.append(("flood", Flood(build, options.frames, Path(folder))))
        for name, soak in soaks:
            print(f"{name} ...", flush=True)
            lines += ["", name]
            try:
                lines += [f"  {label:<22}{text}" for label, text in soak.run()]
            except SoakError as error:
                failed = True
                lines.append(f"  FAILED: {error}")
    print("\n".join(lines))
    (build / "soak.txt").write_text("\n".join(lines) + "\n")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
