# SPDX-License-Identifier: MIT
"""Audio files to and from raw 16 kHz mono 16-bit little-endian samples."""
import subprocess
import wave
from pathlib import Path

import frames


class AudioError(Exception):
    """An audio file that cannot be read; the text names the file."""


def load(path: str | Path) -> bytes:
    """The file's samples. `.raw` is taken as it is, other formats and rates go through sox."""
    path = Path(path)
    try:
        if path.suffix == ".raw":
            pcm = path.read_bytes()
        else:
            pcm = _load_plain_wav(path) or _convert(path)
    except OSError as error:
        raise AudioError(f"{path}: {error.strerror or error}") from error
    return pcm[: len(pcm) // 2 * 2]


def _load_plain_wav(path: Path) -> bytes | None:
    try:
        with wave.open(str(path), "rb") as source:
            shape = (source.getframerate(), source.getnchannels(), source.getsampwidth())
            if shape != (frames.RATE, 1, 2):
                return None
            return source.readframes(source.getnframes())
    except (wave.Error, EOFError):
        return None  # not a PCM WAV file; sox knows more formats and says what is wrong


def _convert(path: Path) -> bytes:
    raw = ["-t", "raw", "-r", str(frames.RATE), "-e", "signed", "-b", "16", "-L", "-c", "1"]
    try:
        run = subprocess.run(["sox", "-V1", str(path), *raw, "-"], capture_output=True)
    except FileNotFoundError as error:
        raise AudioError(f"{path}: needs conversion, but sox is not installed") from error
    if run.returncode != 0:
        raise AudioError(f"{path}: {run.stderr.decode(errors='replace').strip()}")
    return run.stdout


class Recording:
    """A WAV file that is opened at once, so that a bad path is told before there is audio to lose.

    Until save() it is empty."""

    def __init__(self, path: str | Path) -> None:
        self._path = path
        try:
            self._file = open(path, "wb")
        except OSError as error:
            raise AudioError(f"{path}: {error.strerror or error}") from error

    def save(self, pcm: bytes) -> None:
        """Writes 16 kHz mono 16-bit audio and closes the file."""
        try:
            with self._file, wave.open(self._file, "wb") as target:
                target.setnchannels(1)
                target.setsampwidth(2)
                target.setframerate(frames.RATE)
                target.writeframes(pcm)
        except OSError as error:
            raise AudioError(f"{self._path}: {error.strerror or error}") from error


def save(path: str | Path, pcm: bytes) -> None:
    """Writes a 16 kHz mono 16-bit WAV file."""
    Recording(path).save(pcm)
