# SPDX-License-Identifier: MIT
"""The voice server's connection to the bridge: pacing on the way in, records on the way out.

The bridge makes a frame of whatever one read gives it, so none may be cut on the way: each goes out
in one write and at once, no more than a second of them is under way, what comes back is read as it
comes, and what the system packs together has room for whole frames only (docs/protocols.md).
"""
import select
import socket
import threading
import time
from typing import Callable, NamedTuple

import frames
import renewal
from waiting import say

# Frames on the way in fast mode. Must exceed the 9 frames of the bridge's delay line and what the
# engines hold, or nothing comes back; more only lengthens the delay and what a renewal drops.
WINDOW = 24
WINDOW_MOST = 64  # a third of what the pipe to an engine holds before the bridge blocks in it
# Frames under way at most, a second of them: far fewer than fill the buffers of a connection, at
# whose end a frame would be cut. A bridge that is held up is waited for.
UNDER_WAY_MOST = frames.PER_SECOND
# Four frames and the 12 bytes of TCP's time stamps: what has to wait for the network is sent in
# full segments, and those of the usual size hold four and a half.
SEGMENT = 4 * frames.SIZE + 12
# Fast mode: seconds without an answer after which one more frame goes out anyway, as the bridge
# moves only when it gets one. Below its read time-out of 0.1 s, after which it adds silence.
STALL = 0.05
GIVE_UP = 10.0  # seconds without any frame back after which the bridge counts as dead
# A piped microphone sets the pace itself; we only must not be slower than its clock.
LIVE_SPEED = 1.01
# Seconds of lateness that are caught up; after longer ones the clock starts anew. Live audio that
# has waited is not sent faster than it came: only what sleeping too long has cost is caught up.
LATEST, LATEST_LIVE = 0.5, 0.1


class LinkError(Exception):
    """The connection failed; the text names address and port."""


class Returned(NamedTuple):
    """A frame that came back, and how many frames had been sent by then."""

    kind: int
    payload: bytes
    sent: int


class VoiceLink:
    """One connection to the bridge. One thread sends; a thread of our own receives."""

    def __init__(
        self,
        host: str,
        port: int,
        fast: bool = False,
        live: bool = False,
        on_frame: Callable[[int], None] | None = None,
    ) -> None:
        self.host, self.port = host, port
        self.fast = fast
        self.on_frame = on_frame  # called before each frame with the number sent before it
        self._interval = 1 / frames.PER_SECOND / (LIVE_SPEED if live else 1)
        self._latest = LATEST_LIVE if live else LATEST
        self._socket: socket.socket | None = None
        self._changed = threading.Condition()  # guards what follows
        self._returned: list[Returned] = []
        self._sent_kinds: list[int] = []
        self._window = WINDOW
        self._flying = 0  # frames on their way, as far as can be known
        self._failure = ""  # why the connection ended
        self._answered = 0.0  # when something last came back, or the connection was made
        self._closing = False
        self._receiver = threading.Thread(target=self._receive, name="voice link", daemon=True)
        self._due = 0.0  # when the next frame may go out, in real time mode

    def address(self) -> str:
        return f"{self.host} port {self.port}"

    def connect(self, seconds: float) -> None:
        """Connects; retries as long as the bridge does not listen, which may take 5 s a round."""
        begun = time.monotonic()
        told = False
        while self._socket is None:
            try:
                self._socket = self._dial()
            except OSError as error:
                reason = error.strerror or str(error)
                waited = time.monotonic() - begun
                if waited > seconds:
                    text = f"bridge at {self.address()}: no connection in {seconds:g} s: {reason}"
                    raise LinkError(text) from error
                if waited > 0.5 and not told:  # when all start together, it is there by then
                    say(f"waiting for the bridge at {self.address()}: {reason}")
                    told = True
                time.sleep(0.05)
        self._socket.settimeout(GIVE_UP)
        self._answered = time.monotonic()
        self._receiver.start()

    def _dial(self) -> socket.socket:
        peer = socket.socket()
        try:
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, SEGMENT)  # before connecting
            peer.settimeout(1)
            peer.connect((self.host, self.port))
        except OSError:
            peer.close()
            raise
        return peer

    def was_connected(self) -> bool:
        return self._socket is not None

    def failure(self) -> str:
        """Why the connection ended; "" while it stands."""
        with self._changed:
            return self._failure

    def send(self, kind: int, payload: bytes = b"") -> None:
        """Sends one frame when its time has come."""
        assert self._socket is not None, "connect() first"
        if self.on_frame:
            self.on_frame(len(self._sent_kinds))
        if self.fast:
            self._wait_for_window()
        else:
            self._wait_for_time()
        with self._changed:
            while self._flying >= UNDER_WAY_MOST and not self._failure:
                self._check()
                self._changed.wait(STALL)
            self._check()
            self._flying += 1
            self._sent_kinds.append(kind)
        try:
            self._socket.sendall(frames.make(kind, payload))
        except OSError as error:
            reason = "took nothing" if isinstance(error, TimeoutError) else error.strerror
            text = f"bridge at {self.address()}: {reason} after {len(self._sent_kinds)} frames"
            raise LinkError(self._failure or text) from error

    def _wait_for_time(self) -> None:
        now = time.monotonic()
        if now - self._due > self._latest:
            self._due = now
        elif self._due > now:
            time.sleep(self._due - now)
        self._due += self._interval

    def _wait_for_window(self) -> None:
        with self._changed:
            answered = self._changed.wait_for(
                lambda: self._flying < self._window or self._failure, STALL
            )
            if not answered:
                self._window = min(self._window + 1, WINDOW_MOST)

    def _check(self) -> None:
        if self._failure:
            raise LinkError(self._failure)
        if time.monotonic() - self._answered > GIVE_UP:
            number = len(self._sent_kinds)
            text = f"no frame back in {GIVE_UP:g} s, after {number} frames sent"
            raise LinkError(f"bridge at {self.address()}: {text}")

    def _receive(self) -> None:
        cutter = frames.Cutter(big=True)
        while not self._closing:
            try:
                if not select.select([self._socket], [], [], 0.2)[0]:
                    continue
                data = self._socket.recv(65536)
                # Linux forgets this now and then. Without it the bridge's next frame may wait up
                # to 40 ms for our confirmation of the one before.
                self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
                reason = "" if data else "closed the connection"
            except OSError as error:
                data, reason = b"", error.strerror or str(error)
            with self._changed:
                self._answered = time.monotonic()
                for frame in cutter.feed(data):
                    self._note(Returned(*frame, len(self._sent_kinds)))
                if reason and not self._closing:
                    number = len(self._sent_kinds)
                    self._failure = f"bridge at {self.address()}: {reason} after {number} frames"
                self._changed.notify_all()
            if reason:
                return

    def _note(self, frame: Returned) -> None:
        """Takes a returned frame into the books; the lock is held."""
        last = self._returned[-2:]
        self._returned.append(frame)
        if frame.kind not in (frames.START, frames.END):
            self._flying = max(self._flying - 1, 0)  # frames of the bridge's own come back as well
        if frame.kind == frames.TOF and len(last) == 2 and last[1].kind == frames.EOF:
            # It dropped all that had been sent when the last frame before it came; its noise is
            # still to come.
            self._flying = frame.sent - last[0].sent + renewal.BLOCK
            self._window = WINDOW

    def returned(self) -> list[Returned]:
        """All frames that came back so far, oldest first."""
        with self._changed:
            return list(self._returned)

    def sent_counts(self) -> dict[str, int]:
        """Frames sent so far by type name."""
        with self._changed:
            return frames.count(self._sent_kinds)

    def progress(self) -> tuple[int, int]:
        """Numbers of frames sent and returned so far."""
        with self._changed:
            return len(self._sent_kinds), len(self._returned)

    def final_eof_returned(self) -> bool:
        """Whether the last EOF sent has come back. One of a renewal is followed by a TOF."""
        with self._changed:
            kinds = [r.kind for r in self._returned[-100:]]  # a second is more than enough
        pairs = zip(kinds, kinds[1:])
        return any(kind == frames.EOF and follower != frames.TOF for kind, follower in pairs)

    def wait_closed(self) -> None:
        """Keeps receiving until the bridge closes the connection."""
        self._receiver.join()

    def close(self) -> None:
        """Closes the connection; the bridge ends when it next writes to it."""
        self._closing = True
        if self._socket is not None:
            self._receiver.join()  # it looks at the flag every 0.2 s
            self._socket.close()
