#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""A task for tests of the stand-in.

Usage: task.py FILE [ARGUMENT]...

Writes to FILE, as JSON, how it has been started, and waits to be ended. If it has inherited a socket, it answers on
each connection with what it gets.
"""

import json
import os
import socket
import sys
import time

report = {
    "arguments": sys.argv[2:],
    "environment": {name: value for name, value in os.environ.items() if name.startswith("HALVIR_")},
    "niceness": os.nice(0),
    "descriptors": sorted(int(name) for name in os.listdir("/proc/self/fd") if os.path.exists(f"/proc/self/fd/{name}")),
}
with open(sys.argv[1] + ".new", "w") as file:
    json.dump(report, file)
os.rename(sys.argv[1] + ".new", sys.argv[1])

if "HALVIR_TASK_FD" in os.environ:
    listener = socket.socket(fileno=int(os.environ["HALVIR_TASK_FD"]))
    while True:
        connection, _ = listener.accept()
        connection.sendall(connection.recv(1000))
        connection.close()
while True:
    time.sleep(1000)
