#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The test double of an engine with one fault. Its settings file has two lines: its role, mmse or
vad, and the fault.

Without a fault ("none") it keeps all rules: audio goes back as it came, and what is loud is speech.
"""
import array
import os
import signal
import struct
import sys
import time

FRAME = 324
DATA, START, END, TOF, EOF = 0, 1, 2, 9, 10
LOUD = 1000  # RMS
HANGOVER = 25  # frames

AT = 100  # the frame, from 1, at which a fault shows that could show anywhere

role, fault = open(sys.argv[1]).read().splitlines()
number = 0  # of the frame in hand
streams = 0  # TOFs so far
kept = []  # what leaks
buffer = open(1, "wb", closefd=False)
speaking, quiet = False, 0


def frame_of(kind: int, payload: bytes = b"") -> bytes:
    size = 104 if role == "vad" else FRAME
    return (struct.pack("<i", kind) + payload).ljust(size, b"\0")[:size]


def put(frame: bytes) -> None:
    if fault == "buffered":
        buffer.write(frame)
    elif fault == "torn" and number == AT:
        os.write(1, frame[:4])
        os.write(1, frame[4:])
    elif fault == "short" and number == AT:
        os.write(1, frame[:-4])
    elif fault == "long" and number == AT:
        os.write(1, frame.ljust(FRAME, b"\0"))
    else:
        os.write(1, frame)


def markers(kind: int, payload: bytes) -> list[int]:
    """Those of this frame."""
    global speaking, quiet
    was = speaking
    if kind == TOF:
        speaking = fault == "remembering" and was
        return [END] if was and fault == "end at tof" else []
    if kind == EOF:
        speaking = False
        return [END] if was and fault != "open at eof" else []
    samples = array.array("h", payload)
    loud = sum(sample * sample for sample in samples) > LOUD * LOUD * len(samples)
    loud = loud and fault != "hearing nothing"
    quiet = 0 if loud else quiet + 1
    speaking = loud or was and quiet < HANGOVER
    if speaking and not was:
        return [START, START] if fault == "start twice" else [START]
    if was and not speaking:
        return [] if fault == "no end" else [END]
    return []


def answer(kind: int, payload: bytes) -> None:
    global streams
    if fault == "skipping" and number == AT:
        return
    if fault == "slow" and number == AT:
        time.sleep(0.2)
    if fault == "leaking":
        kept.append(payload + b"copy")
    if fault == "silence" and kind == DATA and not any(payload):
        raise ZeroDivisionError("a level of nothing")
    if fault == "clipping" and payload.count(b"\xff\x7f") > 10:
        return
    streams += kind == TOF
    if fault == "remembering" and role == "mmse" and streams > 1:
        payload = bytes(len(payload))
    twin = kind if kind in (DATA, TOF, EOF) else DATA
    if fault == "eof as data" and kind == EOF:
        twin = DATA
    if fault == "type 1 as it is" and kind == START:
        twin = START
    if fault == "primed in silence" and number < 3 and kind == EOF:
        return
    ahead = [frame_of(each) for each in markers(kind, payload)] if role == "vad" else []
    own = [frame_of(twin, payload)]
    if fault == "twice" and number == AT:
        own *= 2
    if fault == "late marker":
        put(b"".join(own + ahead))  # in one write: nothing comes in between
        return
    for each in ahead:
        put(each)
    put(b"".join(own))


def read() -> bytes:
    frame = b""
    while part := os.read(0, FRAME - len(frame)):
        frame += part
        if fault == "believing in whole reads" or len(frame) == FRAME:
            return frame.ljust(FRAME, b"\0")
    return b""


def finish(*_: object) -> None:
    """Says goodbye, even if nobody listens."""
    os.write(1, bytes(FRAME))
    sys.exit(0)


signal.signal(signal.SIGPIPE, signal.SIG_DFL)
if fault == "dropping":
    os.set_blocking(1, False)
if fault == "deaf to sigterm":
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
if fault == "goodbye at sigterm":
    signal.signal(signal.SIGTERM, finish)
if fault == "staying when nobody reads":
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
if fault == "greeting":
    print("engine ready", flush=True)
while frame := read():
    number += 1
    try:
        answer(struct.unpack_from("<i", frame)[0], frame[4:])
    except (BrokenPipeError, BlockingIOError):
        pass  # staying when nobody reads; dropping
if fault == "staying after the end":
    time.sleep(60)
