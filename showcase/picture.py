# SPDX-License-Identifier: MIT
"""Draws a run as an SVG: waveforms before and after, speech, utterances, switches and words."""
from html import escape

import numpy as np

import frames
from measure import Comparison, Heard
from scene import Scene
from words import Words

WIDTH, LEFT = 1200, 110  # pixels: drawing area and room for the labels
WAVE, BAR, GAP = 130, 18, 12  # heights of a waveform and a bar, distance between rows
TEXT, INDENT = 16, 60  # height of a line of words, room for what it is
COLOURS = {"before": "#b0562c", "after": "#2c6fb0", "speech": "#999", "heard": "#3a9a4c"}
WORD_COLOURS = {"said": "#444", "noisy": COLOURS["before"], "cleaned": COLOURS["after"]}
SWITCHED = "#e8d48a"


def x(frame: float, length: int) -> float:
    return LEFT + WIDTH * frame / length


def wave(samples: np.ndarray, top: int, colour: str) -> str:
    """An outline through the highest and lowest sample of each pixel column."""
    columns = np.array_split(samples.astype(np.float64) / 32768, WIDTH)
    scale, middle = WAVE / 2 / 0.6, top + WAVE / 2  # speech peaks at 0.4 to 0.6 of full scale
    upper = [(LEFT + i, middle - min(0.6, c.max()) * scale) for i, c in enumerate(columns)]
    lower = [(LEFT + i, middle - max(-0.6, c.min()) * scale) for i, c in enumerate(columns)]
    points = " ".join(f"{px:.0f},{py:.1f}" for px, py in upper + lower[::-1])
    return f'<polygon points="{points}" fill="{colour}" stroke="{colour}" stroke-width="0.5"/>'


def label(text: str, middle: float) -> str:
    return f'<text x="{LEFT - 8}" y="{middle + 4:.0f}" text-anchor="end">{text}</text>'


def bars(spans: list[tuple[int, int]], length: int, top: int, colour: str) -> list[str]:
    return [
        f'<rect x="{x(start, length):.1f}" y="{top}" height="{BAR}" fill="{colour}" '
        f'width="{max(1.0, WIDTH * (end - start) / length):.1f}"/>'
        for start, end in spans
    ]


def switch(name: str, span: tuple[int, int] | None, length: int, bottom: int) -> list[str]:
    """A band over all rows with its name on top."""
    if not span:
        return []
    start, end = x(span[0], length), x(span[1], length)
    middle = (start + end) / 2
    return [
        f'<rect x="{start:.1f}" y="24" width="{end - start:.1f}" height="{bottom - 24}" '
        f'fill="{SWITCHED}" opacity="0.5"/>',
        f'<text x="{middle:.0f}" y="18" text-anchor="middle">{name}</text>',
    ]


def axis(length: int, top: int) -> list[str]:
    """Seconds of the recording, a tick every five."""
    result = []
    for second in range(0, length // frames.PER_SECOND + 1, 5):
        at = x(second * frames.PER_SECOND, length)
        result.append(f'<path d="M{at:.1f} {top}v5" stroke="#444"/>')
        result.append(f'<text x="{at:.1f}" y="{top + 18}" text-anchor="middle">{second} s</text>')
    return result


def understood(words: Words, top: int) -> list[str]:
    """What was understood of each utterance, one below the other."""
    result = []
    for part in words.parts:
        result.append(label(f"{part.start / frames.PER_SECOND:.1f} s", top))
        for name, text in part.rows():
            result.append(
                f'<text x="{LEFT}" y="{top + 4}" fill="{WORD_COLOURS[name]}">{name}</text>'
            )
            result.append(f'<text x="{LEFT + INDENT}" y="{top + 4}">{escape(text)}</text>')
            top += TEXT
        top += TEXT // 2
    return result


def draw(scene: Scene, comparison: Comparison, heard: Heard, words: Words) -> str:
    """The whole picture."""
    length = scene.length()
    before, after = 28, 28 + WAVE + GAP
    spoken, found = after + WAVE + GAP, after + WAVE + BAR + 2 * GAP
    bottom = found + BAR + GAP
    first_words = bottom + 26 + TEXT
    lines = sum(len(part.rows()) * TEXT + TEXT // 2 for part in words.parts)
    height = bottom + 26 + (lines + TEXT // 2 if lines else 0)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 20}" height="{height}" '
        'font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
        *switch("EPD off", scene.epd_off, length, bottom),
        *switch("sound plays", scene.sound, length, bottom),
        wave(scene.noisy, before, COLOURS["before"]),
        label("before", before + WAVE / 2),
        wave(comparison.cleaned, after, COLOURS["after"]),
        label("after", after + WAVE / 2),
        *bars([(p.start, p.end) for p in scene.passages], length, spoken, COLOURS["speech"]),
        label("spoken", spoken + BAR / 2),
        *bars([(u.start, u.end) for u in heard.utterances], length, found, COLOURS["heard"]),
        label("found", found + BAR / 2),
        *axis(length, bottom),
        *understood(words, first_words),
        "</svg>",
    ]
    return "\n".join(parts) + "\n"
