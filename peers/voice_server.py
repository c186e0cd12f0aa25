#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A voice server: plays audio to the bridge and records the cleaned audio that comes back.

By hand:  peers/voice_server.py speech.wav --out cleaned.wav
Live:     arecord -t raw -r 16000 -f S16_LE -c 1 | peers/voice_server.py - --out cleaned.wav
"""
import argparse
import signal
import sys
import time
from typing import Iterable

import audio
import frames
from live_input import LATEST, LiveInput, is_live
from voice_link import LinkError, VoiceLink
from waiting import say


class VoiceServer:
    """Sends one recording and collects what returns. The connection stays until close()."""

    def __init__(self, link: VoiceLink) -> None:
        self.link = link

    def play(self, payloads: Iterable[bytes]) -> None:
        """Sends TOF, the payloads and EOF, then silence until all of it has come back."""
        self.link.send(frames.TOF)
        for payload in payloads:
            self.link.send(frames.DATA, payload)
        self.link.send(frames.EOF)
        self._drain()

    def _drain(self) -> None:
        """Pushes the rest through the bridge's delay line, which only new frames move.

        Ends when our EOF has come back. A renewal may have swallowed it, hence the limit of three
        seconds; delay line and engines hold about a fifth of one.
        """
        for _ in range(3 * frames.PER_SECOND):
            if self.link.final_eof_returned():
                return
            self.link.send(frames.DATA, frames.SILENCE)

    def cleaned(self) -> bytes:
        """The audio that came back so far, markers left out."""
        return b"".join(r.payload for r in self.link.returned() if r.kind == frames.DATA)

    def summary(self) -> str:
        """Frames sent and returned by type, one line each."""
        sent = frames.describe(self.link.sent_counts())
        back = frames.describe(frames.count(r.kind for r in self.link.returned()))
        return f"sent     {sent}\nreturned {back}"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description="Plays audio to the bridge as a voice server and records what comes back.",
        epilog="A pipe or a terminal on standard input is live: what comes before the bridge is "
        f"there is thrown away, and later what has to wait for more than {LATEST:g} s. A regular "
        "file, named or on standard input, is played whole, and so is a pipe with --whole. "
        "When the connection closes, the bridge ends with its next write; --stay keeps it.",
    )
    parser.add_argument("input", help="audio file, or - for raw 16 kHz mono 16 bit on stdin")
    parser.add_argument("--host", default="127.0.0.1", help="where the bridge runs (%(default)s)")
    parser.add_argument("--port", type=int, default=16001, help="its -s port (%(default)s)")
    parser.add_argument("--out", metavar="WAV", help="file for the returned audio")
    parser.add_argument("--whole", action="store_true", help="a pipe is no microphone: play it all")
    parser.add_argument("--fast", action="store_true", help="as fast as answered, not real time")
    parser.add_argument("--stay", action="store_true", help="stay connected afterwards")
    parser.add_argument("--wait", type=float, default=60, help="seconds to connect (%(default)s)")
    return parser.parse_args()


def open_live(options: argparse.Namespace) -> LiveInput | None:
    """The input if it is live, being read already."""
    stdin = sys.stdin.buffer
    live = options.input == "-" and not options.whole and is_live(stdin)
    return LiveInput(stdin) if live else None


def waiting_audio(options: argparse.Namespace) -> Iterable[bytes]:
    """The payloads of an input that is not live."""
    if options.input == "-":
        return frames.read_payloads(sys.stdin.buffer)
    return frames.cut(audio.load(options.input))


def begin(live: LiveInput) -> Iterable[bytes]:
    """The payloads of a live input from now on."""
    live.begin()
    if live.early() >= 0.1:
        say(f"threw away {live.early():.1f} s that came before the bridge was there")
    if live.ended():
        say("the input has ended already; --whole plays all of a pipe")
    return live.payloads()


class Source:
    """The audio, from its beginning again for a connection that the bridge has not come to read."""

    def __init__(self, options: argparse.Namespace, live: LiveInput | None) -> None:
        self._live = live
        self._rest = iter([] if live else waiting_audio(options))
        self._sent: list[bytes] = []  # while nothing has come back

    def payloads(self, link: VoiceLink) -> Iterable[bytes]:
        return begin(self._live) if self._live else self._once_more(link)

    def _once_more(self, link: VoiceLink) -> Iterable[bytes]:
        yield from list(self._sent)
        for payload in self._rest:
            if link.progress()[1] == 0:
                self._sent.append(payload)
            yield payload


def play(options: argparse.Namespace, live: LiveInput | None) -> None:
    """Plays to the first connection that the bridge reads. One that is made while it pauses between
    two attempts is reset at the next of them, which takes up to five seconds."""
    source = Source(options, live)
    recording = audio.Recording(options.out) if options.out else None
    last = time.monotonic() + options.wait
    while True:
        link = VoiceLink(options.host, options.port, fast=options.fast, live=live is not None)
        server = VoiceServer(link)
        try:
            play_once(server, source, options)
            break
        except KeyboardInterrupt:
            say("interrupted")
            break
        except LinkError:
            if not link.was_connected() or link.progress()[1] > 0 or time.monotonic() > last:
                report(server, live, recording)
                raise
            say("the bridge did not come to read; once more")
        finally:
            link.close()
    report(server, live, recording)


def play_once(server: VoiceServer, source: Source, options: argparse.Namespace) -> None:
    server.link.connect(options.wait)
    server.play(source.payloads(server.link))
    if options.stay:
        say("all sent, staying connected until the bridge ends or Ctrl-C")
        server.link.wait_closed()


def report(server: VoiceServer, live: LiveInput | None, recording: audio.Recording | None) -> None:
    """What has become of the audio, once there is no more to come."""
    if live and live.late() > 0:
        say(f"threw away {live.late():.1f} s that came faster than the bridge took it; "
            "--whole plays all of a pipe")  # fmt: skip
    if server.link.was_connected():
        print(server.summary(), flush=True)
    if recording:
        recording.save(server.cleaned())


def main() -> int:
    options = parse_arguments()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    live = open_live(options)
    try:
        play(options, live)
    except (audio.AudioError, LinkError) as error:
        say(str(error))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
