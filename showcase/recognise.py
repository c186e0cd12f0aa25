# SPDX-License-Identifier: MIT
"""What `recognise` does: the words of the utterance on standard input."""
import io
import sys
import wave

import frames
import recogniser

NOTHING = "(nothing)"  # so that whoever waits for a line gets one


def read() -> bytes:
    """The samples. Standard input may be a socket, which has no name to open it by."""
    with wave.open(io.BytesIO(sys.stdin.buffer.read())) as utterance:
        shape = utterance.getframerate(), utterance.getnchannels(), utterance.getsampwidth()
        if shape != (frames.RATE, 1, 2):
            raise wave.Error("not 16 kHz, mono, 16 bit")
        return utterance.readframes(utterance.getnframes())


def main() -> int:
    try:
        words = recogniser.understand([read()])[0]
    except (EOFError, wave.Error, recogniser.RecogniserError) as error:
        print(f"recognise: {str(error) or 'no WAV file'}", file=sys.stderr)
        return 1
    print(*(words or [NOTHING]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
