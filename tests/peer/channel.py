#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""One end of the task channel for tests, on plain sockets.

Usage: channel.py connect|listen PATH send|receive COUNT SIZE

Sends so many frames, or receives and checks them: compact JSON objects {"n":1000,"x":"..."}, numbered, each of SIZE bytes.
Prints "listening" when it does, and "done" at the end; fails at the first byte that differs.
"""

import os
import socket
import struct
import sys


def frame(number, size):
    payload = f'{{"n":{1000 + number % 9000}'.encode()
    if size > 10:
        payload += b',"x":"' + b"x" * (size - 17) + b'"'
    payload += b"}"
    return struct.pack(">I", len(payload)) + payload


def receive_exactly(channel, size):
    data = bytearray()
    while len(data) < size:
        part = channel.recv(min(size - len(data), 1 << 20))
        if not part:
            sys.exit(f"the connection ended after {len(data)} of {size} bytes")
        data += part
    return bytes(data)


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

for number in range(count):
    expected = frame(number, size)
    if action == "send":
        channel.sendall(expected)
    else:
        received = receive_exactly(channel, len(expected))
        if received != expected:
            sys.exit(f"frame {number} is {received[:60]!r}")
print("done", flush=True)
sys.stdin.readline()  # the other end decides when the connection ends
