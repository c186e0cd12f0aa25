# SPDX-License-Identifier: MIT
"""What the node hands on: utterances as WAV files, the frames as they are, events and metrics, all
at once; outputs that nobody reads, and a full disk, cost records and neither frames nor the
bridge's time."""
import errno
import json
import os
import re
import struct
import subprocess
import tempfile
import threading
import unittest
import wave
from pathlib import Path

import frames
from node_story import BOUND, NODE, NodeStory

PREROLL = 20  # frames
SPEECH = ["start 100", "end 140"]  # a second utterance, with all of its preroll
SAMPLE = re.compile(r'([a-z_]+)(?:\{(?:[a-z_]+="(?:[^"\\]|\\.)*",?)+\})? (-?[0-9.e+-]+)')
FULL = "no space left on device"


def cut(data: bytes) -> list[frames.Frame]:
    return frames.Cutter().feed(data)


def utterances(stream: list[frames.Frame]) -> list[bytes]:
    """What is said between START and END, and the audio of PREROLL frames ahead of it."""
    before, said, found = b"", None, []
    for frame in stream:
        if frame.kind == frames.START:
            said = before[-PREROLL * frames.PAYLOAD_SIZE :]
            before = b""
        elif frame.kind == frames.END:
            found.append(said)
            said = None
        elif said is None:
            before += frame.payload
        else:
            said += frame.payload
    return found


def metrics(text: str) -> dict[str, float]:
    """Each sample by its name and labels. Every line has to be one, or a comment on those below."""
    found, described = {}, ""
    for line in text.splitlines():
        if line.startswith(("# HELP ", "# TYPE ")):
            described = line.split()[2]
            continue
        match = SAMPLE.fullmatch(line)
        assert match and match[1] == described and line not in found, line
        found[line.rpartition(" ")[0].removeprefix("tolvanev_")] = float(match[2])
    return found


class AllAtOnce(NodeStory):
    def test_agree_with_one_another(self) -> None:
        frames_file, folder, metrics_file = (self.folder / name for name in ("f", "wav", "metrics"))
        self.start(
            "--frames", frames_file, "--wav", folder, "--metrics", metrics_file, "--exec", "wc -c",
            command=self.bridge(vad=SPEECH),
        )  # fmt: skip
        texts = self.wait_for_events("text", 2)
        wavs = self.wait_for_events("wav", 2)
        self.wait_for(lambda: "utterances_total 2" in metrics_file.read_text(), "the metrics")
        self.stop()

        stream = cut(frames_file.read_bytes())
        numbers = [struct.unpack("<h", frame.payload[:2])[0] for frame in stream if not frame.kind]
        sent = [number for number in numbers if number]  # the bridge adds silence when we are late
        self.assertEqual(sent, list(range(1, len(sent) + 1)))
        said = utterances(stream)
        self.assertEqual([self.samples(Path(wav["path"])) for wav in wavs], said)
        self.assertEqual([int(text["text"]) for text in texts], [44 + len(pcm) for pcm in said])

        told = self.events("utterance")
        self.assertEqual([event["utterance"] for event in told], [1, 2])
        self.assertEqual(told[1]["preroll"], 0.2)
        self.assertEqual([event["cut"] for event in told], ["end", "end"])
        markers = [at for at, frame in enumerate(stream) if frame.kind == frames.START]
        data_ahead = [sum(not frame.kind for frame in stream[:at]) for at in markers]
        self.assertEqual([event["first_frame"] for event in told], data_ahead)
        self.assertEqual([event["frame"] for event in self.events("speech_start")], data_ahead)
        for event, wav in zip(told, wavs):
            digits = re.sub("[-:]", "", event["start"])
            self.assertEqual(Path(wav["path"]).name, f"{digits}-{event['utterance']:06}.wav")

        last = metrics(metrics_file.read_text())
        self.assertEqual(last['frames_total{type="start"}'], 2)
        self.assertEqual(last['frames_total{type="data"}'], len(numbers))
        self.assertEqual((last['state{state="stopping"}'], last["utterances_total"]), (1, 2))
        self.assertEqual(
            {path.name for path in folder.iterdir()}, {Path(w["path"]).name for w in wavs}
        )

    def samples(self, path: Path) -> bytes:
        with wave.open(str(path)) as file:
            self.assertEqual(file.getparams()[:3], (1, 2, frames.RATE))
            return file.readframes(file.getnframes())

    def test_metrics_name_the_processes(self) -> None:
        path = self.folder / "metrics"
        self.start("--metrics", path)
        self.wait_for(lambda: path.read_text().count('process="engine"') == 10, "both engines")
        found = metrics(path.read_text())
        memory = f'process_resident_memory_bytes{{process="bridge",pid="{self.bridge_pid()}"}}'
        self.assertGreater(found[memory], 100_000)
        self.assertGreater(found["frame_rate"], 0)


class Frames(NodeStory):
    """Byte for byte what a program that reads the bridge itself gets."""

    def expect_copy(self, output: str, reader: int, **popen) -> None:
        """What comes out of the reader is what the bridge wrote, which a tee behind it keeps."""
        kept = self.folder / "kept"
        tee = self.command("tee", f'"$@" | tee {kept}')
        got = bytearray()
        thread = threading.Thread(target=self.read_all, args=(reader, got), daemon=True)
        self.start_peers()
        self.start_node("--frames", output, command=[str(tee), *self.bridge()], **popen)
        for theirs in popen.values():
            os.close(theirs)
        thread.start()
        self.wait_for_events("utterance")
        self.microphone.stay_away()
        self.wait_for_events("run_end")
        self.stop()
        thread.join(BOUND)
        whole = kept.stat().st_size // frames.SIZE * frames.SIZE
        self.assertGreater(whole, 60 * frames.SIZE)
        self.assertEqual(bytes(got), kept.read_bytes()[:whole])

    @staticmethod
    def read_all(reader: int, got: bytearray) -> None:
        os.set_blocking(reader, True)
        with open(reader, "rb", buffering=0) as stream:
            while data := stream.read(65536):
                got += data

    def test_fifo(self) -> None:
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        self.expect_copy(str(fifo), os.open(fifo, os.O_RDONLY | os.O_NONBLOCK))

    def test_standard_output(self) -> None:
        reader, theirs = os.pipe()
        self.expect_copy("-", reader, stdout=theirs)


class NobodyReads(NodeStory):
    """The reader is there and reads nothing. A bridge whose voice server has closed one way brings
    frames by the thousand, so that this takes no minutes."""

    def expect_no_harm(self, output: str, **popen) -> None:
        self.start("--frames", output, "--max-rate", "0", **popen)
        self.microphone.half_close()
        self.wait_for(lambda: self.status()["dropped"]["frames"] > 1000, "frames to be dropped")
        self.wait_for_frames(1000)
        self.assertEqual(self.status()["run"], 1)
        self.wait_for_log("warning: frames: 1 frame dropped")
        self.stop()
        self.assertIn("the node ends before frames has finished", self.log())

    def expect_whole_frames(self, reader: int) -> None:
        data = os.read(reader, 1 << 20)
        self.assertGreater(len(data), 60000)
        self.assertLessEqual({frame.kind for frame in cut(data)}, set(frames.NAMES))

    def test_fifo(self) -> None:
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.expect_no_harm(str(fifo))
        self.expect_whole_frames(reader)

    def test_standard_output(self) -> None:
        reader, theirs = os.pipe()
        self.addCleanup(os.close, reader)
        self.addCleanup(os.close, theirs)
        self.expect_no_harm("-", stdout=theirs)
        self.expect_whole_frames(reader)

    def test_fifo_without_reader(self) -> None:
        """Nobody is there to miss anything."""
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        self.start("--frames", fifo)
        self.wait_for_frames(100)
        self.assertEqual(self.status()["dropped"]["frames"], 0)
        reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)  # now there is
        self.addCleanup(os.close, reader)
        self.wait_for(lambda: self.reads(reader), "frames for who came late")
        self.stop()

    @staticmethod
    def reads(reader: int) -> bool:
        try:
            return len(os.read(reader, frames.SIZE)) == frames.SIZE
        except BlockingIOError:
            return False


class FullDisk(NodeStory):
    def test_is_said_and_costs_records_only(self) -> None:
        """A file system of the node's own, which is filled and emptied again."""
        disk = self.folder / "disk"
        disk.mkdir()
        mount = f'mount -t tmpfs -o size=256k none {disk} && exec "$@"'
        private = ["unshare", "-m", "sh", "-c", mount, "sh"]
        if subprocess.run([*private, "true"], capture_output=True).returncode != 0:
            self.skipTest("no right to mount a file system")
        speech = [f"start {at}" for at in range(100, 1000, 40)]
        speech += [f"end {at + 20}" for at in range(100, 1000, 40)]
        self.start(
            "--events", disk / "events", "--wav", disk / "wav", "--metrics", disk / "metrics",
            command=self.bridge(vad=speech), events=False, through=private,
        )  # fmt: skip
        inside = Path(f"/proc/{self.node.pid}/root{disk}")
        self.events_file = inside / "events"
        self.fill(inside / "filler")
        for output in "wav", "metrics", "events":
            self.wait_for(lambda: self.says(output, FULL), f"the full disk for {output}")
        self.wait_for_frames(20)
        (inside / "filler").unlink()
        for output in "wav", "metrics", "events":
            self.wait_for(lambda: self.says(output, "works again"), f"{output} to work again")
        self.assertGreater(self.wait_for_events("dropped")[0]["count"], 0)  # and each line is whole
        self.wait_for(lambda: list((inside / "wav").glob("*.wav")), "a WAV file")
        metrics((inside / "metrics").read_text())
        self.assertEqual((self.status()["run"], list(inside.rglob(".*.part"))), (1, []))
        self.stop()

    def says(self, output: str, text: str) -> bool:
        return any(f"{output}: " in line and text in line for line in self.log().splitlines())

    @staticmethod
    def fill(path: Path) -> None:
        with path.open("wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError as error:
                assert error.errno == errno.ENOSPC, error

    def test_device_that_takes_nothing(self) -> None:
        self.start("--events", "/dev/full", events=False)
        self.wait_for_log(f"warning: events: {FULL}")
        self.assertGreater(self.status()["dropped"]["events"], 0)
        self.wait_for_frames(10)
        self.stop()


class Starting(NodeStory):
    """An output that cannot be is a mistake of who starts the node."""

    def test_is_refused(self) -> None:
        with tempfile.NamedTemporaryFile() as file:
            for option, value in (
                ("--wav", file.name),
                ("--wav", "/no/such/folder"),
                ("--metrics", "/no/such/folder/metrics"),
                ("--events", "/no/such/folder/events"),
                ("--frames", self.folder),
            ):
                words = [NODE, option, value, "--", *self.bridge()]
                told = subprocess.run(words, capture_output=True, text=True, timeout=BOUND)
                self.assertEqual((told.returncode, told.stdout), (1, ""), told.stderr)
                self.assertIn(f"tolvanev-node: {value}", told.stderr)

    def test_one_standard_output_for_two(self) -> None:
        words = [NODE, "--frames", "-", "--events", "-", "--", *self.bridge()]
        told = subprocess.run(words, capture_output=True, text=True, timeout=BOUND)
        self.assertEqual(told.returncode, 2)
        self.assertIn("cannot both have standard output", told.stderr)

    def test_events_on_standard_output(self) -> None:
        self.start("--events", "-", events=False, stdout=subprocess.PIPE)
        self.stop()
        with self.node.stdout:
            events = [json.loads(line) for line in self.node.stdout]
        self.assertEqual((events[0]["event"], events[-1]["event"]), ("state", "run_end"))


if __name__ == "__main__":
    unittest.main()
