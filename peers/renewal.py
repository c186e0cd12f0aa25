# SPDX-License-Identifier: MIT
"""What a renewal of the bridge's noise model does to its streams: the plain model, for whoever has
to expect it. docs/architecture.md tells why."""
from typing import Any, Sequence

EVERY = 500  # frames that the ROS node gets from one to the next, its own included
BLOCK, BLOCKS = 10, 4  # frames in a block of noise, blocks in an average
OWN = 2 + BLOCK  # frames that it writes: EOF, TOF and noise
DELAY_LINE = 9  # frames, dropped


def noise(quiet: Sequence) -> list[Any]:
    """The frames with which it primes the engines: frame i is the mean of the i-th frames of the
    newest four blocks, rounded down. quiet: all frames so far that were heard outside utterances,
    as numbers or arrays."""
    whole = len(quiet) // BLOCK * BLOCK
    blocks = [quiet[at : at + BLOCK] for at in range(0, whole, BLOCK)][-BLOCKS:]
    return [sum(block[i] for block in blocks) // len(blocks) for i in range(BLOCK)]
