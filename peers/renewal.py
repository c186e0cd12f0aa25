# SPDX-License-Identifier: MIT
"""What a renewal of the bridge's noise model writes into its streams and drops, in frames, for
whoever has to expect it. docs/architecture.md tells why."""

EVERY = 500  # that the ROS node gets from one to the next, its own included
BLOCK, BLOCKS = 10, 4  # in a block of noise; blocks in an average
OWN = 2 + BLOCK  # that it writes: EOF, TOF and noise, the average block, rounded down
DELAY_LINE = 9  # dropped
