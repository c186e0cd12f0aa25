# SPDX-License-Identifier: MIT
"""The programs under measurement, and one run of the driver with one of them."""
import json
import os
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
RUN_LIMIT_S = 300  # of one run of the driver; the longest takes about a minute


class Failed(Exception):
    """A run that did not come to a good end; the text says which."""


class Programs:
    def __init__(self, build):
        self.build = os.path.abspath(build)
        self.driver = self.path("bench/driver")
        self.engine = self.path("bench/null_engine")
        self.micro = self.path("bench/micro")
        self.malloc_count = self.path("bench/libmalloc_count.so")
        self.bridge = [self.path("Tolvanev")]
        self.static = [self.path("bench/static_bridge")]
        self.limit = [self.path("bench/limit")]
        self.socat = [os.path.join(HERE, "alternatives", "socat_relay")]
        self.asyncio = [os.path.join(HERE, "alternatives", "asyncio_relay")]

    def path(self, name):
        return os.path.join(self.build, name)

    def options(self, program):
        """The driver's options for a program that is not the bridge."""
        if program in (self.bridge, self.static):
            return []
        return ["--plain", "--no-sound"] if program == self.socat else ["--plain"]

    def run(self, program, *options, prefix=()):
        """One run; prefix is put in front of the program. Returns the driver's report."""
        command = [
            self.driver,
            "--engine",
            self.engine,
            *self.options(program),
            *options,
            "--",
            *prefix,
            *program,
        ]
        done = subprocess.run(
            command, capture_output=True, text=True, timeout=RUN_LIMIT_S, check=False
        )
        if done.returncode != 0:
            raise Failed(f"{' '.join(command)}:\n{done.stdout}{done.stderr}")
        return json.loads(done.stdout)

    def alternatives(self):
        """Name and program of those that can run here."""
        found = [("asyncio relay", self.asyncio)] if os.access("/usr/bin/python3", os.X_OK) else []
        return found + ([("socat pipeline", self.socat)] if shutil.which("socat") else [])


def cpu_per_frame(report):
    """In microseconds, of the program alone."""
    return report["cpu_us"] / report["measured"]
