#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""One end of the task channel for tests, on plain sockets.

Usage: channel.py connect|listen PATH send|receive COUNT SIZE

Sends COUNT frames, or receives and checks them. Each frame is a numbered compact JSON object {"n":1000,"x":"..."} of
SIZE bytes. Prints "listening" when clients can connect, and "done" at the end. Fails at the first wrong byte. Also
fails if the received data ends within a frame, because the library closes the connection then.
"""

import socket
import struct
import sys

MAX_PART = 1 << 20


def frame(number, size):
    payload = f'{{"n":{1000 + number % 9000}'.encode()
    if size > 10:
        payload += b',"x":"' + b"x" * (size - 17) + b'"'
    payload += b"}"
    return struct.pack(">I", len(payload)) + payload


def receive_frames(channel, count, size):
    number, rest = 0, b""
    while number < count:
        part = channel.recv(MAX_PART)
        if not part:
            sys.exit(f"the connection ended after {number} of {count} frames")
        rest += part
        at = 0
        while at < len(rest):
            expected = frame(number, size)
            if rest[at : at + len(expected)] != expected:
                break
            at += len(expected)
            number += 1
        rest = rest[at:]
        if rest and len(part) < MAX_PART:
            sys.exit(f"frame {number} is {rest[:60]!r}, of {len(rest)} bytes")


role, path, action, count, size = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
if role == "listen":
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen()
    print("listening", flush=True)
    channel, _ = listener.accept()
else:
    channel = socket.socket(socket.AF_UNIX)
    channel.connect(path)

if action == "send":
    for number in range(count):
        channel.sendall(frame(number, size))
else:
    receive_frames(channel, count, size)
print("done", flush=True)
sys.stdin.readline()  # the other end decides when the connection ends
