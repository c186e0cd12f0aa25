#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A sound client: waits for the bridge, sends it commands, shows what the bridge answers.

By hand:  peers/sound_client.py                     commands are read from standard input
          peers/sound_client.py epd_off wait 3 epd_on
"""
import argparse
import os
import signal
import socket
import struct
import sys
import threading
import time
from typing import Iterable

import audio
import frames
from waiting import say, until

KEYWORDS = {
    "begin": b"BEGIN",
    "end": b"END",
    "cancel": b"CANCEL",
    "epd_on": b"EPD_ON",
    "epd_off": b"EPD_OFF",
}
RESET = struct.pack("ii", 1, 0)  # SO_LINGER: closing resets the connection
# The bridge skips four bytes behind a keyword; two line ends are consumed exactly.
TERMINATOR = b"\r\n\r\n"
DATA_BLOCK = 3200  # bytes of audio in one DATA block, 0.1 s; the bridge reads 1 KiB each round
HELP = (
    "commands, capitals or not: begin, end, cancel, epd_on, epd_off, data FILE, wait SECONDS, quit"
)


class CommandError(Exception):
    """A command that cannot be sent; the text says why."""


def encode(words: list[str]) -> list[bytes]:
    """The blocks to send for one command; each must go out in one piece."""
    name = words[0].lower()
    if name == "data" and len(words) == 2:
        pcm = audio.load(words[1])
        pieces = [pcm[at : at + DATA_BLOCK] for at in range(0, len(pcm), DATA_BLOCK)]
        return [b"DATA %d\n\n" % len(piece) + piece for piece in pieces]
    if name in KEYWORDS and len(words) == 1:
        return [KEYWORDS[name] + TERMINATOR]
    raise CommandError(f"not a command: {' '.join(words)} ({HELP})")


def describe(words: list[str], blocks: list[bytes]) -> str:
    """What the blocks of one command are on the wire; for most the bridge shows no effect."""
    size = sum(len(block) for block in blocks)
    if words[0].lower() != "data":
        return f"sent {words[0].upper()}, {size} bytes"
    audio_size = sum(len(block) - block.index(b"\n\n") - 2 for block in blocks)
    seconds = audio_size / 2 / frames.RATE
    return f"sent DATA, {seconds:.2f} s of audio in {len(blocks)} blocks, {size} bytes"


def _hang_up(peer: socket.socket) -> None:
    """Ends a connection; the thread that reads from it wakes up and closes the socket."""
    try:
        peer.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass  # the other side was faster


class SoundClient:
    """Listens from construction on; a newer connection takes the place of an older one."""

    def __init__(self, host: str = "127.0.0.1", port: int = 0, verbose: bool = False) -> None:
        self.told: list[str] = []  # "epdon" and "epdoff" as they arrive
        self.connections = 0  # bridges accepted so far, the present one included
        self.verbose = verbose
        self._peer: socket.socket | None = None
        self._lock = threading.Lock()  # guards _peer against being replaced while sending
        self._listener = socket.create_server((host, port))
        self.host, self.port = self._listener.getsockname()[:2]
        threading.Thread(target=self._accept, name="sound client", daemon=True).start()

    def address(self) -> str:
        return f"{self.host} port {self.port}"

    def connected(self) -> bool:
        return self._peer is not None

    def wait_connected(self, seconds: float) -> None:
        """Waits for the bridge; raises CommandError when it does not come."""
        if not self.connected():
            say(f"waiting for the bridge to connect to {self.address()}")
        if not until(self.connected, seconds):
            raise CommandError(f"no bridge connected to {self.address()} in {seconds:g} s")

    def send(self, *words: str) -> None:
        """Sends one command, e.g. send("epd_off") or send("data", "speech.wav")."""
        for block in encode(list(words)):
            self.send_bytes(block, words[0])

    def send_bytes(self, block: bytes, name: str) -> None:
        """Sends bytes in one piece; the name tells what they are when that fails."""
        with self._lock:
            if self._peer is None:
                raise CommandError(f"{name}: no bridge connected to {self.address()}")
            try:
                self._peer.sendall(block)
            except OSError as error:
                text = f"{name}: bridge at {self.address()}: {error.strerror}"
                raise CommandError(text) from error

    def reset(self) -> None:
        """Ends the connection as a program does that is killed with something unread."""
        with self._lock:
            if self._peer is not None:
                self._peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
                self._peer.shutdown(socket.SHUT_RD)  # its thread wakes up and closes it

    def _accept(self) -> None:
        while True:
            try:
                peer, _ = self._listener.accept()
            except OSError:
                return  # close() closed the listener
            # Each command is one segment: the bridge acts on half a command and drops the rest.
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            with self._lock:
                old, self._peer = self._peer, peer
                self.connections += 1
            if old is not None:
                _hang_up(old)
            if self.verbose:
                say(f"bridge connected to {self.address()}")
            threading.Thread(target=self._receive, args=(peer,), daemon=True).start()

    def _receive(self, peer: socket.socket) -> None:
        rest = b""
        try:
            while data := peer.recv(1024):
                *texts, rest = (rest + data).split(b"\n\n")
                for text in texts:
                    self._note(text.decode(errors="replace"))
        except OSError as error:
            if self.verbose and self._peer is peer:
                say(f"bridge at {self.address()}: {error.strerror}")
        with self._lock:
            if self._peer is peer:
                self._peer = None
                if self.verbose:
                    say(f"bridge disconnected from {self.address()}")
        peer.close()

    def _note(self, text: str) -> None:
        self.told.append(text)
        if self.verbose:
            print(f"{time.strftime('%H:%M:%S')} {text}", flush=True)

    def close(self) -> None:
        """Closes listener and connection. The bridge does not notice until it writes."""
        # Closing alone does not wake the thread that waits in accept.
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        with self._lock:
            if self._peer is not None:
                _hang_up(self._peer)
                self._peer = None


def commands(words: list[str]) -> Iterable[list[str]]:
    """Commands of the command line, or of standard input when there are none."""
    if not words:
        yield from (line.split() for line in sys.stdin if line.strip())
        return
    rest = iter(words)
    for word in rest:
        takes_one = word.lower() in ("data", "wait")
        yield [word, next(rest, "")] if takes_one else [word]


def pause(words: list[str]) -> None:
    """The command wait SECONDS."""
    try:
        time.sleep(float(words[-1]))
    except (ValueError, OverflowError) as error:
        raise CommandError(f"{' '.join(words)}: not a number of seconds") from error


def run(client: SoundClient, options: argparse.Namespace) -> None:
    for words in commands(options.command):
        if words[0].lower() == "quit":
            return
        try:
            if words[0].lower() == "wait":
                pause(words)
                continue
            blocks = encode(words)  # a slip is told at once, not after the wait
            client.wait_connected(options.wait)
            client.send(*words)
            say(describe(words, blocks))
        except (CommandError, audio.AudioError) as error:
            if options.command:
                raise
            say(str(error))  # someone types; a slip is no reason to end
    # Not the end: the bridge may still tell something, and would fail when it finds us gone.
    say("no more commands, listening on; Ctrl-C ends")
    threading.Event().wait()


def main() -> int:
    parser = argparse.ArgumentParser(description="Stands in for the sound client.", epilog=HELP)
    parser.add_argument("command", nargs="*", help="commands; none: read from standard input")
    parser.add_argument("--host", default="127.0.0.1", help="address to listen on (%(default)s)")
    parser.add_argument("--port", type=int, default=5002, help="the bridge's -c (%(default)s)")
    parser.add_argument("--wait", type=float, default=60, help="seconds to wait (%(default)s)")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        client = SoundClient(options.host, options.port, verbose=True)
    except OSError as error:
        reason = os.strerror(error.errno) if error.errno else str(error)
        say(f"cannot listen on {options.host} port {options.port}: {reason}")
        return 1
    say(f"listening on {client.address()}")
    try:
        run(client, options)
    except (CommandError, audio.AudioError) as error:
        say(str(error))
        return 1
    except KeyboardInterrupt:
        say("interrupted")
    finally:
        client.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
