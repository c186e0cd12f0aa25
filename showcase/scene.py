# SPDX-License-Identifier: MIT
"""The demo's recording: passages of human speech with pauses, and noise over all of it."""
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

import audio
import frames
import speech
import transcripts

# Real recordings of several speakers, 16 kHz, whose words are known.
RECORDINGS = transcripts.RECORDINGS
SPOKEN = [
    "goforward.raw",
    "tidigits/dhd.2934z.raw",
    "librivox/sense_and_sensibility_01_austen_64kb-0930.wav",
    "cards/005.wav",
    "librivox/sense_and_sensibility_01_austen_64kb-0880.wav",
    "librivox/sense_and_sensibility_01_austen_64kb-0870.wav",
    "cards/001.wav",
    "librivox/sense_and_sensibility_01_austen_64kb-0890.wav",
]
EPD_PASSAGE, SOUND_PASSAGE = 2, 4  # said while end-point detection is off, while a sound plays

LEAD = 120  # frames of noise before the first word, so that the engines can settle
PAUSE = 80  # frames between passages, at least
RENEWAL = 500  # the bridge looks every so many frames whether it may renew its noise model
# It does so only outside utterances. These frames around each multiple stay free of speech; the
# count drifts by a few frames each time because markers count too and renewals drop frames.
QUIET_BEFORE, QUIET_AFTER = 60, 40
SPEECH_RANGE = 30  # dB below the loudest frames that still are speech
QUIETEST = 10  # RMS of loud frames; below it there is little but rounding noise
SHORTEST, LONGEST = 40, 60  # seconds of recording: several renewals, yet done within two minutes
SEED = 1  # every run gets the same noise


@dataclass
class Passage:
    """Uninterrupted speech; start and end in frames of the recording."""

    start: int
    end: int


@dataclass
class Scene:
    """Recording and plan of the demo; sample arrays are int16, times in frames."""

    clean: np.ndarray | None  # None: no noise was added
    noisy: np.ndarray
    passages: list[Passage]
    epd_off: tuple[int, int] | None  # None: never
    sound: tuple[int, int] | None
    source: str
    made: str  # what was done to the source: cut, repeated, mixed
    # The words of each passage, in the order of `passages`; nothing if they are not known.
    said: list[list[str]] = field(default_factory=list)

    def length(self) -> int:
        return len(self.noisy) // frames.SAMPLES


def decibel(ratio: float) -> float:
    return 20 * np.log10(max(ratio, 1e-9))


def find_speech(samples: np.ndarray, gap: int) -> list[Passage]:
    """Where it is loud enough for speech, gaps below `gap` frames bridged."""
    levels = speech.frame_levels(samples)
    if not len(levels) or levels.max() <= 0:
        return []
    floor = speech.loudest(levels) * 10 ** (-SPEECH_RANGE / 20)
    return [Passage(*span) for span in speech.find(levels, floor, gap)]


def load_samples(path: str | Path) -> np.ndarray:
    samples = speech.whole_frames(np.frombuffer(audio.load(path), dtype="<i2").astype(np.float64))
    if not len(samples) or speech.loudest(speech.frame_levels(samples)) < QUIETEST:
        raise audio.AudioError(f"{path}: no sound in it, or hardly any")
    return samples


def load_clip(path: str | Path) -> np.ndarray:
    """Samples of one recording, without silence at both ends, at the usual level."""
    samples = load_samples(path)
    spoken = find_speech(samples, gap=len(samples))
    if not spoken:
        raise audio.AudioError(f"{path}: no sound in it, or hardly any")
    margin = 5  # frames kept at both ends, for soft consonants
    start, end = max(0, spoken[0].start - margin), spoken[0].end + margin
    clip = speech.faded(samples[start * frames.SAMPLES : end * frames.SAMPLES])
    return speech.at_level(clip, clip)


def lay_out(lengths: list[int]) -> list[Passage]:
    """Places passages one after the other, away from the frames at which renewals happen."""
    result: list[Passage] = []
    at = LEAD
    for length in lengths:
        mark = (at // RENEWAL + 1) * RENEWAL
        if at % RENEWAL < QUIET_AFTER and at > LEAD:
            at += QUIET_AFTER - at % RENEWAL
        elif at + length > mark - QUIET_BEFORE:
            at = mark + QUIET_AFTER
        result.append(Passage(at, at + length))
        at += length + PAUSE
    return result


def pink_noise(count: int, level: float) -> np.ndarray:
    """Noise whose power falls by 3 dB an octave, as that of fans and rooms roughly does."""
    spectrum = np.fft.rfft(np.random.default_rng(SEED).standard_normal(count))
    frequency = np.fft.rfftfreq(count, 1 / frames.RATE)
    noise = np.fft.irfft(spectrum / np.sqrt(np.maximum(frequency, 50)), count)  # flat below 50 Hz
    return noise * (level / speech.rms(noise))


def speech_of_package() -> tuple[np.ndarray, list[Passage], str]:
    clips = [load_clip(RECORDINGS / name) for name in SPOKEN]
    passages = lay_out([len(clip) // frames.SAMPLES for clip in clips])
    clean = np.zeros((passages[-1].end + LEAD) * frames.SAMPLES)
    for clip, passage in zip(clips, passages):
        clean[passage.start * frames.SAMPLES :][: len(clip)] = clip
    return clean, passages, "all brought to one level, with pauses between them"


def words_of_package() -> list[list[str]]:
    known = transcripts.read()
    return [known[str(RECORDINGS / name)] for name in SPOKEN]


def speech_of_user(path: str) -> tuple[np.ndarray, list[Passage], str]:
    """The file's speech, repeated when it is short, cut when it is long."""
    clip = load_clip(path)
    made = f"silence at its ends cut off ({len(clip) / frames.RATE:.1f} s are left), level set"
    clip = np.concatenate([clip, np.zeros(PAUSE * frames.SAMPLES)])
    times = -(-SHORTEST * frames.RATE // len(clip))
    spoken = np.tile(clip, times)[: LONGEST * frames.RATE]
    if times > 1:
        made += f", repeated: {times} times in all"
    if len(spoken) < times * len(clip):
        made += f", shortened to {LONGEST} s"
    lead = np.zeros(LEAD * frames.SAMPLES)
    clean = np.concatenate([lead, spoken, lead])
    return clean, find_speech(clean, gap=30), made  # shorter pauses belong to the passage


def plan(passages: list[Passage], number: int, length: int, fraction: float) -> tuple[int, int]:
    """From when until when something is switched: around a passage, if there are enough.

    What is held back is not counted toward renewals; a whole period keeps them where they were.
    """
    start = passages[number].start - 20 if number < len(passages) else int(length * fraction)
    return start, start + RENEWAL


def build(snr: float, path: str | None = None) -> Scene:
    """The whole scene; `snr` in dB is speech in passages over noise. Raises AudioError."""
    clean, passages, made = speech_of_user(path) if path else speech_of_package()
    clean = clean[: len(clean) // frames.SAMPLES * frames.SAMPLES]
    length = len(clean) // frames.SAMPLES
    noisy = clean + pink_noise(len(clean), 32768 * 10 ** ((speech.LEVEL - snr) / 20))
    return Scene(
        clean=to_samples(clean),
        noisy=to_samples(noisy),
        passages=passages,
        epd_off=plan(passages, EPD_PASSAGE, length, 0.3),
        sound=plan(passages, SOUND_PASSAGE, length, 0.6),
        source=path or f"{len(SPOKEN)} recordings of {RECORDINGS}",
        made=f"{made}, mixed with noise {snr:g} dB below the speech",
        said=[] if path else words_of_package(),
    )


def as_it_is(path: str) -> Scene:
    """The recording whole, and nothing that would hold a part of it back. Raises AudioError."""
    samples = load_samples(path)
    return Scene(
        clean=None,
        noisy=to_samples(samples),
        passages=find_speech(samples, gap=30),
        epd_off=None,
        sound=None,
        source=path,
        made="nothing, it is whole and as it is; EPD stays on and no sound plays",
    )


def to_samples(values: np.ndarray) -> np.ndarray:
    return np.clip(np.round(values), -32768, 32767).astype("<i2")
