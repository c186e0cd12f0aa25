# SPDX-License-Identifier: MIT
"""Human speech from Debian packages, as samples at 16 kHz with the places where somebody speaks.

Nothing of it is stored with the project; licences as their packages state them:

  set      package                         voice                        licence
  tuning   pocketsphinx-testdata           several, men and women       BSD-2-Clause
  tuning   asterisk-core-sounds-ru-g722    a woman, Russian             CC-BY-3.0
  tuning   alsa-utils (channel names)      one                          GPL-2
  tuning   asterisk-core-sounds-en-g722    a woman, English             CC-BY-SA-3.0
  tuning   asterisk-core-sounds-it-g722    a man, Italian               CC-BY-3.0
  judging  asterisk-core-sounds-fr-g722    a woman, Canadian French     CC-BY-SA-3.0
  judging  asterisk-core-sounds-es-g722    a woman, Mexican Spanish     CC-BY-SA-3.0
"""
import ctypes
import glob
import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np

import speech
import transcripts
from frames import RATE
from frames import SAMPLES as FRAME

LABEL_RANGE = 30.0  # dB below the loudest frames that still are speech: softer is hardly heard
NOISY_RANGE = 22.0  # the same for recordings with noise of their own 35 dB below their speech
PAUSE = 30  # frames; a shorter gap (stop consonant, breath) is part of the utterance
MARGIN = 10  # frames kept around the speech of a recording
QUIET = 14.0  # dB that a recording's own noise lies below its softest speech, at least

ALSA = "/usr/share/sounds/alsa"
ASTERISK = "/usr/share/asterisk/sounds"


@dataclass
class Recording:
    """One recording, float samples, without silence at both ends, at the usual level."""

    name: str
    samples: np.ndarray
    utterances: list[tuple[int, int]]  # first frame of speech, first frame after it


def frame_levels(samples: np.ndarray) -> np.ndarray:
    """Level of each whole frame in dB re 1."""
    return 10 * np.log10(np.square(speech.frame_levels(samples)) + 1e-9)


def find_utterances(samples: np.ndarray, label_range: float) -> list[tuple[int, int]]:
    """Where it is loud, short pauses bridged: what a person would call utterances."""
    # The median of five frames leaves edges where they are and takes clicks away.
    around = np.lib.stride_tricks.sliding_window_view(np.pad(frame_levels(samples), 2), 5)
    levels = np.median(around, axis=1)
    return speech.find(levels, speech.loudest(levels) - label_range, PAUSE)


def own_noise(samples: np.ndarray) -> float:
    """How far the quietest frames lie below the loudest, in dB."""
    levels = frame_levels(samples)
    return speech.loudest(levels) - float(np.percentile(levels, 2))


def trim(name: str, samples: np.ndarray, label_range: float) -> Recording | None:
    """Cuts, fades and scales a recording; None if there is no speech in it."""
    found = find_utterances(samples, label_range)
    if not found:
        return None
    first = max(0, found[0][0] - MARGIN)
    samples = speech.faded(samples[first * FRAME : (found[-1][1] + MARGIN) * FRAME])
    utterances = [(start - first, end - first) for start, end in found]
    spoken = np.concatenate([samples[a * FRAME : b * FRAME] for a, b in utterances])
    return Recording(name, speech.at_level(samples, spoken), utterances)


def read_with_sox(path: str) -> np.ndarray:
    raw = ["-t", "raw", "-r", str(RATE), "-e", "signed", "-b", "16", "-c", "1"]
    kind = raw if path.endswith(".raw") else []
    command = ["sox", "-V1", "-D", *kind, path, *raw, "-"]
    pcm = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
    return np.frombuffer(pcm, dtype="<i2").astype(np.float64)


def read_g722(path: str) -> np.ndarray:
    """G.722 at 64 kbit/s, which sox cannot read, with the decoder of libspandsp."""
    library = ctypes.CDLL("libspandsp.so.2")
    library.g722_decode_init.restype = ctypes.c_void_p
    library.g722_decode.argtypes = [ctypes.c_void_p] * 2 + [ctypes.c_char_p, ctypes.c_int]
    library.g722_decode_free.argtypes = [ctypes.c_void_p]
    code = Path(path).read_bytes()
    samples = np.zeros(2 * len(code), dtype="<i2")  # two samples a byte
    decoder = library.g722_decode_init(None, 64000, 0)
    count = library.g722_decode(decoder, samples.ctypes.data, code, len(code))
    library.g722_decode_free(decoder)
    return samples[:count].astype(np.float64)


def load(paths: list[str], label_range: float = LABEL_RANGE) -> list[Recording]:
    """All recordings with speech in them whose own noise is low enough for such labels."""
    result = []
    for path in paths:
        samples = (read_g722 if path.endswith(".g722") else read_with_sox)(path)
        if len(samples) < speech.SHORTEST * FRAME or own_noise(samples) < label_range + QUIET:
            continue
        recording = trim(path, samples, label_range)
        if recording:
            result.append(recording)
    return result


def prompts(voice: str) -> list[Recording]:
    """One Asterisk voice: everything of 1 to 6 s, from a word to a long sentence."""
    paths = sorted(glob.glob(f"{ASTERISK}/{voice}/**/*.g722", recursive=True))
    return load([path for path in paths if 8000 <= Path(path).stat().st_size <= 48000])  # 8 kB/s


def spread(items: list, count: int) -> list:
    """`count` of the items, evenly spread; the same on each run."""
    return [items[index * len(items) // count] for index in range(count)]


def split(voice: str, count: int, spare: bool = False) -> tuple[list[Recording], list[Recording]]:
    """`count` prompts of a voice, and others of the same voice for babble."""
    every = prompts(voice)
    chosen = spread(every, 2 * count)[1 if spare else 0 :: 2]
    taken = {recording.name for recording in chosen}
    return chosen, spread([one for one in every if one.name not in taken], 40)


def tuning() -> tuple[list[Recording], list[Recording]]:
    """Speech, and the recordings of which babble is made: others."""
    paths = sorted(glob.glob(f"{transcripts.RECORDINGS}/**/*.wav", recursive=True))
    paths += sorted(glob.glob(f"{transcripts.RECORDINGS}/**/*.raw", recursive=True))
    several = load(paths, NOISY_RANGE)
    names = load(sorted(glob.glob(f"{ALSA}/[FRS]*_*.wav")))
    russian, russian_babble = split("ru_RU_f_*", 30)
    english, english_babble = split("en_US_f_*", 24)
    italian, italian_babble = split("it_IT_m_*", 24)
    babble = russian_babble + english_babble + italian_babble
    return several + names + russian + english + italian, babble


def judging(spare: bool = False) -> tuple[list[Recording], list[Recording]]:
    """The same, of voices that nothing was chosen on.

    The spare set has other prompts of both. It is there to be looked at rarely.
    """
    french, french_babble = split("fr_CA_f_*", 48, spare)
    spanish, spanish_babble = split("es_MX_f_*", 48, spare)
    return french + spanish, french_babble + spanish_babble
