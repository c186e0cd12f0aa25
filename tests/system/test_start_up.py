# SPDX-License-Identifier: MIT
"""What the program says and does before it runs. Every one of these ends with status 0."""
import os
import shutil
import subprocess
import tempfile
import unittest

from story import BOUND, BRIDGE, BUILD, EMULATED

looks_at_itself = unittest.skipIf(EMULATED, "/proc/self/exe is the emulator, not the bridge")

HELP = """usage: {} [options] ...\N{SPACE}
options:
  -h, --help           print help
  -i, --ipaddr         voice server ip addr (string [=172.0.0.1])
  -m, --mmse           mmse setting file (string [=./Tolvanev.mmse.ini])
  -v, --vad            vad setting file (string [=./Tolvanev.vad.ini])
  -b, --binary         Tolvane binary dir (string [=./Tolvanev])
  -l, --log_level      loglevel (err, warn, info, debug) (string [=info])
  -c, --client_port    voice server client port (unsigned short [=5002])
  -s, --server_port    voice server server port (unsigned short [=16001])
"""


# The bridge's own main, in front of an application that tells what it was given.
TELLING = BUILD / "tests" / "program_that_tells_its_options"


class StartUp(unittest.TestCase):
    def run_bridge(self, *arguments: str, cwd=None, program=BRIDGE) -> str:
        """Runs it to its end and returns its standard error."""
        done = subprocess.run(
            [str(program), *arguments], cwd=cwd, capture_output=True, timeout=BOUND, text=True
        )
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        return done.stderr

    def told(self, *arguments: str) -> str:
        """What the application is given for a command line."""
        done = subprocess.run(
            [str(TELLING), *arguments], capture_output=True, timeout=BOUND, text=True
        )
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_help_is_complete(self) -> None:
        self.assertEqual(self.run_bridge("-h"), HELP.format(BRIDGE))
        self.assertEqual(self.run_bridge("--help"), HELP.format(BRIDGE))

    def test_help_wins_over_valid_options(self) -> None:
        self.assertEqual(self.run_bridge("-c", "1", "-h"), HELP.format(BRIDGE))

    def test_errors_stand_before_the_help_text(self) -> None:
        said = self.run_bridge("--nope", "-x", "-c", "70000", "-b")
        errors = (
            "undefined option: --nope\n"
            "undefined short option: -x\n"
            "option value is invalid: --client_port=70000\n"
            "option needs value: --binary\n"
        )
        self.assertEqual(said, errors + HELP.format(BRIDGE))

    def test_defaults_reach_the_application(self) -> None:
        expected = (
            "engine ./Tolvanev, mmse ./Tolvanev.mmse.ini, vad ./Tolvanev.vad.ini, "
            "sound client 172.0.0.1:5002, voice server 16001, log INFO\n"
        )
        self.assertEqual(self.told(), expected)

    def test_options_reach_the_application(self) -> None:
        expected = "engine e, mmse m, vad v, sound client 10.0.0.1:1, voice server 2, log DEBUG\n"
        short = ["-b", "e", "-m", "m", "-v", "v", "-i", "10.0.0.1"]
        short += ["-c", "1", "-s", "2", "-l", "debug"]
        self.assertEqual(self.told(*short), expected)
        long = ["--binary=e", "--mmse=m", "--vad", "v", "--ipaddr", "10.0.0.1"]
        long += ["--client_port=1", "--server_port=2", "--log_level", "debug"]
        self.assertEqual(self.told(*long), expected)

    def test_log_level_is_a_lower_case_word(self) -> None:
        for word in ("DEBUG", "error", "", "info "):
            self.assertEqual(self.run_bridge("-l", word), "Invalid log level.\n")

    def test_no_start_without_its_signal_handler(self) -> None:
        program = BUILD / "tests" / "program_without_signals"
        said = self.run_bridge(program=program)
        self.assertRegex(said, r"^- [\d:.]{12} ERROR: Signal handler register failed\.\n$")
        self.assertEqual(self.run_bridge("-l", "none", program=program), "Invalid log level.\n")

    @looks_at_itself
    def test_bridge_refuses_to_be_its_own_engine(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            said = self.run_bridge("-b", str(BRIDGE))
            self.assertIn("is this program itself", said)
            self.assertEqual(said.count("\n"), 1)
            link = os.path.join(folder, "engine")
            os.symlink(BRIDGE, link)
            self.assertIn(link, self.run_bridge("-b", link))

    @looks_at_itself
    def test_bridge_started_with_defaults_in_its_own_folder_refuses(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(BRIDGE, folder)
            done = subprocess.run(
                ["./Tolvanev"], cwd=folder, capture_output=True, timeout=BOUND, text=True
            )
            self.assertEqual(done.returncode, 0)
            self.assertIn("is this program itself", done.stderr)


if __name__ == "__main__":
    unittest.main()
