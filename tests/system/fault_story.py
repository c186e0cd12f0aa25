# SPDX-License-Identifier: MIT
"""What the stories of faults share: peers that are plain sockets, so that they can do everything a
well-behaved stand-in does not, and one way to look at how the bridge ended and what it left.

Orphans become children of the test, so that an engine that outlives the bridge is seen to end, and
a child that the bridge should have collected shows as a zombie whatever the system's first process
does with those.
"""
import array
import ctypes
import fcntl
import os
import signal
import socket
import struct
import termios
import threading
import time
from pathlib import Path
from typing import Callable

import frames
import processes
from processes import members, zombies
from story import BOUND, BUILD, EMULATED, Story
from waiting import until

PR_SET_CHILD_SUBREAPER = 36
SIOCOUTQ = termios.TIOCOUTQ  # of a TCP socket: bytes sent and not yet received over there
STANDSTILL = 1.5  # seconds without a frame for an engine; a bridge that waits moves ten a second
# The system's numbers of the calls that hold a bridge up: write, and wait4 for an engine's end.
WRITE, WAIT = {"x86_64": ("1", "61"), "aarch64": ("64", "260")}[os.uname().machine]
FEED = 2000  # frames that are sent at most between two looks
FEED_FRAMES = frames.make(frames.DATA) * 50
TERMINATE = "ERROR: Terminate application.\n"
CONNECTED = "[Connected]\n"
# A reset is met by a read, or by a write if the bridge was on its way from one to the other.
LOST = r"\[VoiceServerError\] Data connector (read|write) failed\.\n$"

MEBI = 1 << 20
# Bytes by which a bridge may grow that gives back what it takes; under an emulator, which keeps the
# code that it has translated, some more.
GROWTH = 5 * MEBI if EMULATED else MEBI

# AddressSanitizer sets freed memory aside, 256 MB of it if nothing is said.
SANITIZED = b"__asan_init" in (BUILD / "Tolvanev").read_bytes()
os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"

if ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
    raise OSError("cannot become the parent of orphans")


def reset(connection: socket.socket) -> None:
    """Closes so that the other side gets a reset instead of an orderly end."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def waiting_in(descriptor, request: int) -> int:
    """Bytes that the system says wait in a pipe (FIONREAD) or an output queue (SIOCOUTQ)."""
    answer = array.array("i", [0])
    fcntl.ioctl(descriptor, request, answer)
    return answer[0]


def taken(connection: socket.socket) -> bool:
    """Whether the other side, on this machine, has read every byte that we sent."""
    if waiting_in(connection, SIOCOUTQ) > 0:
        return False
    theirs, ours = connection.getpeername()[1], connection.getsockname()[1]
    for line in Path("/proc/net/tcp").read_text().splitlines()[1:]:
        local, remote, _, queues = line.split()[1:5]
        if (int(local[-4:], 16), int(remote[-4:], 16)) == (theirs, ours):
            return int(queues.partition(":")[2], 16) == 0
    return False


class FaultStory(Story):
    """One bridge and whatever befalls it."""

    def setUp(self) -> None:
        super().setUp()
        self.cutter = frames.Cutter(big=True)
        self.back: list[frames.Frame] = []  # what came back to the plain voice server
        self.plain: socket.socket | None = None

    def leave_nothing_behind(self) -> None:
        super().leave_nothing_behind()
        self.collect_orphans()

    def collect_orphans(self) -> None:
        """Those that the bridge left when a signal ended it; the bridge itself is collected."""
        if self.node and self.node.bridge.pid():
            for pid in zombies(self.node.bridge.pid()):
                os.waitpid(pid, 0)

    # A voice server that is nothing but a socket.

    def connect_voice(self, receive_buffer: int | None = None) -> socket.socket:
        """Connects as soon as the bridge listens."""
        self.wait_for(lambda: self.try_voice(receive_buffer), "the bridge to listen")
        self.addCleanup(self.plain.close)
        self.plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.wait_for(lambda: CONNECTED in self.log(), "the bridge to be connected")
        return self.plain

    def try_voice(self, receive_buffer: int | None) -> bool:
        peer = socket.socket()
        if receive_buffer:
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        if peer.connect_ex(("127.0.0.1", self.server_port)) != 0:
            peer.close()
            return False
        self.plain = peer
        return True

    def connect_plainly(self, **arguments) -> socket.socket:
        """Everything, with a plain voice server."""
        self.start_client()
        self.start_bridge(**arguments)
        self.connect_voice()
        self.wait_for_client()
        return self.plain

    def send_piece(self, connection: socket.socket, piece: bytes) -> None:
        """Sends bytes and waits until the bridge has read them: no later byte joins them."""
        connection.sendall(piece)
        deadline = time.monotonic() + BOUND
        while not taken(connection):
            if time.monotonic() > deadline:
                self.fail(f"the bridge did not read {piece[:12]!r}...:\n{self.log()}")
            time.sleep(0.0005)

    def send_frames(self, first: int, last: int, kind: int = frames.DATA) -> None:
        """Data frames with these numbers in their first sample, as fast as they go out."""
        for number in range(first, last + 1):
            self.plain.sendall(frames.make(kind, struct.pack("<h", number)))

    def spin(self) -> None:
        """Silence as fast as the bridge can, for stories that are not about frames: the voice
        server sends no more and takes whatever comes back."""
        self.plain.shutdown(socket.SHUT_WR)
        threading.Thread(target=self.take_all, args=(self.plain,), daemon=True).start()

    @staticmethod
    def take_all(connection: socket.socket) -> None:
        try:
            while connection.recv(65536):
                pass
        except OSError:
            pass  # closed by the bridge, or by us at the end

    def renewals_off(self) -> None:
        """Frames that the ROS node does not get do not count toward a renewal."""
        self.wait_for(self.client.connected, "the sound client's connection")
        self.client.send("epd_off")
        self.wait_for(lambda: "packet : epd_off." in self.log(), "EPD off")

    def feed_until_ended(self) -> None:
        """Sends silence to a bridge that is about to end."""
        try:
            self.wait_for(lambda: self.feed() and not self.node.bridge.running(), "the end")
        except OSError:
            pass  # it has ended

    def receive(self) -> list[int]:
        """Takes what has come back; the first samples of all frames so far but silent ones."""
        while True:
            try:
                data = self.plain.recv(65536, socket.MSG_DONTWAIT)
            except (BlockingIOError, ConnectionResetError):
                break  # no more for now, or the bridge has ended
            if not data:
                break
            self.back += self.cutter.feed(data)
        numbers = [int.from_bytes(f.payload[:2], "little", signed=True) for f in self.back]
        return [number for number in numbers if number]

    # Stopping it, as a busy machine might.

    def pause_bridge(self) -> None:
        self.signal_bridge(signal.SIGSTOP)
        self.addCleanup(self.let_bridge_go)
        stat = Path(f"/proc/{self.node.bridge.pid()}/stat")
        self.wait_for(lambda: stat.read_text().rpartition(")")[2].split()[0] == "T", "the pause")

    def let_bridge_go(self) -> None:
        if self.node.bridge.running():
            self.signal_bridge(signal.SIGCONT)

    # Looking at the bridge.

    def descriptors(self) -> int:
        return len(processes.descriptors(self.node.bridge.pid()))

    def resident(self) -> int:
        """Its resident memory in bytes."""
        return processes.resident(self.node.bridge.pid())

    def engine_pid(self, role: str) -> int:
        """The process of the engine that was started last in this role."""
        self.wait_for(lambda: self.engine_events(role), f"the {role} engine to start")
        return int([words for words in self.engine_events(role) if words[1] == "start"][-1][0])

    def moves(self) -> int:
        """Grows with every frame that the MMSE engine is given."""
        log = self.engine_log["mmse"]
        return log.stat().st_size if log.exists() else 0

    def standing_in(self) -> list[str]:
        """The system call that the bridge stands in: its number and its arguments."""
        return Path(f"/proc/{self.node.bridge.pid()}/syscall").read_text().split()

    def stands_still(self, moving: Callable[[], bool]) -> bool:
        """Held up by somebody, and not by a machine that has no time for it."""
        return not until(moving, STANDSTILL) and self.standing_in()[0] in (WRITE, WAIT)

    def wait_for_standstill(self) -> None:
        """Until the bridge is held up by somebody."""
        self.wait_for(lambda: self.stands_still(self.moved_since()), "a standstill")

    def feed_to_standstill(self) -> None:
        """Sends silence until the bridge is held up by somebody and takes no more."""
        self.wait_for(lambda: self.stands_still(self.fed_or_moved()), "a standstill")

    def fed_or_moved(self) -> Callable[[], bool]:
        moved = self.moved_since()
        return lambda: self.feed() or moved()

    def feed(self) -> bool:
        """Sends silence while there is room. A frame that is cut then is silence as well."""
        sent = 0
        try:
            while sent < FEED * frames.SIZE:
                sent += self.plain.send(FEED_FRAMES, socket.MSG_DONTWAIT)
        except BlockingIOError:
            pass  # full; later, if at all
        return sent > 0

    def moved_since(self) -> Callable[[], bool]:
        before = self.moves()
        return lambda: self.moves() > before

    def expect_running(self) -> None:
        """It runs, with both engines, and still moves frames."""
        self.wait_for(self.moved_since(), "frames to move on")
        self.assertTrue(self.node.bridge.running())
        self.wait_for(lambda: len(members(self.node.bridge.pid())) == 3, "both engines")

    # How it ends.

    def signal_bridge(self, number: int) -> None:
        os.kill(self.node.bridge.pid(), number)

    def expect_end(self, ending: str, *texts: str) -> None:
        """It ends in this way by itself, has said these texts, and nothing of it is left."""
        self.assertEqual(self.wait_for_end(), ending, self.log())
        for text in texts:
            self.assertIn(text, self.log())
        self.expect_nothing_left()

    def expect_nothing_left(self) -> None:
        group = self.node.bridge.pid()
        self.wait_for(lambda: not members(group), "the engines to end")
        if self.node.bridge.ending() == "status 0":
            self.assertEqual(zombies(group), [], "engines that were not collected")
        self.collect_orphans()
        with socket.socket() as probe:
            probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            probe.bind(("127.0.0.1", self.server_port))
            probe.listen()

    def stop_by_input(self) -> None:
        """The usual way to stop it works."""
        self.node.bridge.close_input()
        self.expect_end("status 0", "[ROSConnectorError] ROS connector read failed.\n", TERMINATE)

    def kill_engine(self, role: str) -> None:
        os.kill(self.engine_pid(role), signal.SIGKILL)
