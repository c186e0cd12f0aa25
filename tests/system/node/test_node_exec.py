# SPDX-License-Identifier: MIT
"""A command for each utterance: what a recogniser says becomes events, and one that hangs, babbles,
fails or is not there costs its own utterance and nothing else."""
import re
import shutil
import signal
import unittest
from itertools import chain, repeat
from pathlib import Path

import frames
from node_story import BUILD, Microphone, NodeStory

RECOGNISER = "pocketsphinx_continuous"  # in Debian 12; later releases have other programs
RECORDING = Path("/usr/share/pocketsphinx/test/data/goforward.raw")
MODEL = Path("/usr/share/pocketsphinx/model/en-us/en-us")
# Utterances of a tenth of a second each, a tenth apart.
SPEECH = [f"start {at}" for at in range(80, 480, 20)] + [f"end {at}" for at in range(90, 490, 20)]


class Recognition(NodeStory):
    @unittest.skipUnless(shutil.which(RECOGNISER), f"no {RECOGNISER} in this release")
    @unittest.skipUnless(RECORDING.exists() and MODEL.exists(), "no recording or no model for it")
    def test_words_of_a_recording(self) -> None:
        """With the default engine: it finds the speech, and the recogniser the words."""
        engine = BUILD / "tolvanev-engine"
        if not engine.exists():
            self.skipTest("built without the default engine")
        command = self.bridge(engine=engine)
        for option, name in ("-m", "mmse.ini"), ("-v", "vad.ini"):
            command[command.index(option) + 1] = str(BUILD / name)
        self.start_client()
        recording = frames.cut(bytes(2 * frames.RATE) + RECORDING.read_bytes())
        self.microphone = Microphone(self.server_port, chain(recording, repeat(b"")))
        self.start_node(
            "--exec", f"{RECOGNISER} -infile /dev/stdin -logfn /dev/null", command=command
        )
        (event, *_) = self.wait_for_events("text")
        # "go forward ten meters", unless we are late and the bridge puts silence in between.
        self.assertIn("forward", event["text"].split())
        self.assertEqual(event["utterance"], 1)

    def test_lines_and_what_the_command_is_told(self) -> None:
        """A recogniser of a few lines, whose answer has several."""
        stand_in = 'cat >/dev/null; echo "$TOLVANEV_UTTERANCE"; echo "$TOLVANEV_START"; echo; '
        stand_in += 'printf "%s\\r\\n" "$TOLVANEV_SECONDS"; printf "no line feed"'
        self.start("--exec", stand_in)
        texts = [event["text"] for event in self.wait_for_events("text", 4)]
        (utterance,) = self.events("utterance")
        self.assertEqual(texts[:2], ["1", utterance["start"]])
        self.assertEqual((float(texts[2]), texts[3]), (utterance["seconds"], "no line feed"))

    def test_words_that_are_no_text(self) -> None:
        self.start("--exec", r'printf "\377\000\001 \"quoted\" \303\244\n"')
        (event,) = self.wait_for_events("text")
        self.assertEqual(event["text"], '\N{REPLACEMENT CHARACTER}\0\1 "quoted" ä')


class Trouble(NodeStory):
    def expect(self, warning: str, *options: object) -> None:
        """It is said, and frames flow on; nothing of the command is left."""
        before = self.folder / "pids"
        self.start(*options)
        self.wait_for_log(f"warning: exec: {warning}")
        self.wait_for_frames(20)
        self.assertEqual(self.status()["run"], 1)
        for pid in before.read_text().split() if before.exists() else []:
            self.wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")

    def leaving_pid(self, command: str) -> str:
        return f"echo $$ >>{self.folder}/pids; {command}"

    def test_hangs(self) -> None:
        """With a child that ignores the signals of friends, and reads nothing."""
        hang = self.leaving_pid(f'(trap "" TERM INT; echo $$ >>{self.folder}/pids; sleep 60)')
        killed = "the command was killed, since it took longer than 0.5"
        self.expect(killed, "--exec", hang, "--exec-timeout", "0.5")

    def test_floods_its_output(self) -> None:
        self.expect(
            "the command was killed, since it took longer than 0.5",
            "--exec", self.leaving_pid("exec yes well"), "--exec-timeout", "0.5",
        )  # fmt: skip
        self.assertEqual(len(self.events("text")), 100)
        self.assertLess(self.status()["processes"][0]["memory"], 200_000_000)

    def test_floods_its_errors(self) -> None:
        self.expect(
            'the command ended with status 3: "last words"',
            "--exec", "seq 1 50000 >&2; echo last words >&2; exit 3",
        )  # fmt: skip

    def test_is_missing(self) -> None:
        self.expect('the command was not found: "', "--exec", "no-such-recogniser --fast")

    def test_dies(self) -> None:
        self.expect("the command ended with SIGKILL", "--exec", "kill -9 $$")

    def test_leaves_someone_behind(self) -> None:
        """Who starts a server for each utterance would have thousands."""
        self.start("--exec", f"sleep 60 & echo $! >{self.folder}/left; echo done")
        self.wait_for_events("text")
        pid = int((self.folder / "left").read_text())
        self.wait_for(lambda: not Path(f"/proc/{pid}").exists(), "the end of what was left")

    def test_is_slower_than_speech(self) -> None:
        """Four utterances wait; then the oldest are dropped, and that is said."""
        self.start("--exec", "sleep 60", command=self.bridge(vad=SPEECH))
        self.wait_for(lambda: self.status()["dropped"]["exec"] > 1, "dropped utterances")
        self.wait_for_log("warning: exec: 1 utterance dropped")

    def test_several_at_once(self) -> None:
        meet = f"echo $TOLVANEV_UTTERANCE >>{self.folder}/here; "
        meet += f"while [ $(wc -l <{self.folder}/here) -lt 2 ]; do sleep 0.05; done; echo met"
        self.start("--exec", meet, "--exec-jobs", "2", command=self.bridge(vad=SPEECH))
        self.wait_for_events("text", 2)

    def test_node_ends(self) -> None:
        """What hangs is killed after a moment, what waits is dropped."""
        hang = self.leaving_pid("exec sleep 60")
        self.start("--exec", hang, command=self.bridge(vad=SPEECH))
        self.wait_for_events("utterance", 2)
        self.assertLess(self.stop(signal.SIGINT), 5)
        (pid,) = (self.folder / "pids").read_text().split()
        self.assertFalse(self.lives(int(pid)))
        self.assertIn("exec: the command was killed, since the node ends", self.log())

    def test_node_is_killed(self) -> None:
        self.start("--exec", self.leaving_pid("exec sleep 60"))
        self.wait_for((self.folder / "pids").exists, "the command")
        self.look_for_bridges()
        self.node.kill()
        self.node.wait()
        self.wait_for(lambda: re.search(r"\d", (self.folder / "pids").read_text()), "its number")
        pid = int((self.folder / "pids").read_text())
        self.wait_for(lambda: not self.lives(pid), "the end of the command")

    @staticmethod
    def lives(pid: int) -> bool:
        try:
            return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
        except OSError:
            return False


if __name__ == "__main__":
    unittest.main()
