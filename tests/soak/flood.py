# SPDX-License-Identifier: MIT
"""The second soak: frames as fast as they are answered, through scripted engines, and every sample
that comes out is checked by the bench's flood. Only what a renewal drops may be missing."""
import time
from pathlib import Path

import frames
from process import Row, SoakError, Watch, judged, memory_row, slope
from processes import members
from renewal import DELAY_LINE
from trial import Failed, Report, Trial, delayed

WINDOW = 64  # frames on their way at first: fewer than the bench's, so that fewer are dropped
MEMORY_ALLOWED = 64 * 1024  # bytes a minute
SHORTEST_JUDGED = 60.0  # seconds; in less, one page more is a slope
CLEARED = f"clear bufffer size:{DELAY_LINE}\n"


class Flood:
    """One run; call run() once."""

    def __init__(self, build: Path, number: int, folder: Path) -> None:
        self.number = number
        self.log = folder / "flood.log"
        scripts = folder / "mmse.ini", folder / "vad.ini"
        for script in scripts:
            script.write_text(f"role {script.stem}\n")
        engine = build / "tests" / "scripted_engine"
        self.trial = Trial(build / "Tolvanev", engine, scripts, level="debug", log=str(self.log))
        # The scripted engine negates what it suppresses: its output cannot be taken for its input.
        self.command = [
            str(build / "tests" / "flood" / "flood"), "--negated", "--drain",
            "--frames", str(number), "--window", str(WINDOW),
        ]  # fmt: skip

    def run(self) -> list[Row]:
        """The figures; raises SoakError with the reason when the soak has failed."""
        begun = time.monotonic()
        try:
            report = self.trial.run(self.command, watching=self._watch)
        except Failed as error:
            raise SoakError(f"{error}\n{self.log.read_text(errors='replace')[-500:]}") from error
        return self._judge(report, time.monotonic() - begun)

    def _watch(self, pid: int) -> Watch:
        self.watch = Watch(pid)
        return self.watch

    def _judge(self, report: Report, taken: float) -> list[Row]:
        heard, back = report["results"], report["returned"]
        seen = self.watch.samples
        memory = slope(seen[len(seen) // 4 :], "memory")
        lost = [later - first for first, later in heard["lost"]]
        missing = self.number - heard["live"] - sum(lost)
        samples = (heard["live"] + back["live"]) * frames.SAMPLES
        table = [
            ("frames", f"{self.number} sent in {taken:.0f} s, {self.number / taken:.0f} a second"),
            ("checked", f"{heard['live']} frames at the ROS node, {back['live']} at the voice"
                        f" server, {samples} samples"),
            ("renewals", f"{heard['renewals']}, each with its 12 frames of priming"),
            ("dropped by renewals", f"{sum(lost)} frames, {min(lost, default=0)} to"
                                    f" {max(lost, default=0)} each"),
            ("lost otherwise", str(missing)),
            ("silence", f"{heard['silent']} frames: passes without data, and the end"),
            memory_row(seen, memory, MEMORY_ALLOWED),
            ("end", self.trial.process.ending()),
        ]  # fmt: skip
        cleared = self.log.read_text(errors="replace").count(CLEARED)
        few = any(len(numbers) < DELAY_LINE for numbers in delayed(report))
        return judged(table, {
            "frames were lost": missing,
            f"{cleared} renewals with nine frames in the delay line are logged":
                cleared != heard["renewals"],
            "a renewal dropped fewer than the delay line holds": few,
            "memory grows": taken > SHORTEST_JUDGED and memory > MEMORY_ALLOWED,
            self.watch.failure: self.watch.failure,
            "processes were left behind": members(self.trial.process.pid()),
        })  # fmt: skip
