#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Runs dbus-broker as a private session bus, with the options of dbus-daemon.

Usage: private_broker.py --config-file=FILE --print-address[=FD] [OPTION-OF-DBUS-DAEMON]...

The process becomes the broker. Its child process is the controller that a broker needs; it ends with the broker. Only
<listen> in the configuration is used. The policy allows everything, like that of a stock session bus. No service can be
activated. The quotas are those of dbus-broker-launch 33 with the stock session.conf.
"""

import argparse
import os
import socket
import urllib.parse
import uuid
import xml.etree.ElementTree

from gi.repository import Gio, GLib

QUOTAS = ["--max-bytes=276447232", "--max-fds=3290337280", "--max-matches=705032704", "--max-objects=16777216"]
EVERY_MESSAGE = (True, 1, "", "", "", "", 0, 0, 0, 2**64 - 1)
EVERYTHING = (True, 1, [(True, 1, True, "")], [EVERY_MESSAGE], [EVERY_MESSAGE])
EVERYBODY = 2**32 - 1
RULES = "bta(btbs)a(btssssuutt)a(btssssuutt)"
POLICY = GLib.Variant(f"(a(u({RULES}))a(buu({RULES}))a(ss)bs)", ([(EVERYBODY, EVERYTHING)], [], [], False, "session"))


def listen(escaped_path):
    listener = socket.socket(socket.AF_UNIX)
    listener.setblocking(False)
    listener.bind(urllib.parse.unquote(escaped_path))
    listener.listen(socket.SOMAXCONN)
    return listener


def control(broker, listener):
    """Passes the listening socket to the broker. Returns the connection to the broker."""
    stream = Gio.Socket.new_from_fd(broker.detach()).connection_factory_create_connection()
    connection = Gio.DBusConnection.new_sync(stream, None, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT, None, None)
    descriptors = Gio.UnixFDList.new()
    descriptors.append(listener.fileno())
    arguments = GLib.Variant("(ohv)", ("/org/bus1/DBus/Listener/0", 0, POLICY))
    connection.call_with_unix_fd_list_sync(None, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker", "AddListener",
                                           arguments, None, Gio.DBusCallFlags.NONE, -1, descriptors, None)
    return connection


def serve(broker, print_to):
    path = f"{directory}/dbus-{uuid.uuid4().hex[:12]}"
    try:
        connection = control(broker, listen(path))
        os.write(print_to, f"unix:path={path}\n".encode())
        os.close(print_to)
        loop = GLib.MainLoop()
        connection.connect("closed", lambda *_: loop.quit())
        loop.run()
    finally:
        os.unlink(urllib.parse.unquote(path))


parser = argparse.ArgumentParser()
parser.add_argument("--config-file", required=True)
parser.add_argument("--print-address", type=int, nargs="?", const=1, required=True)
options, _ = parser.parse_known_args()
listen_to = xml.etree.ElementTree.parse(options.config_file).findtext("listen")
directory = listen_to.partition("=")[2]  # of "unix:tmpdir=..." or "unix:dir=...", escaped
ours, theirs = socket.socketpair()
if os.fork() == 0:
    theirs.close()
    serve(ours, options.print_address)
else:
    ours.close()
    theirs.setblocking(False)
    theirs.set_inheritable(True)
    os.dup2(os.open(os.devnull, os.O_WRONLY), options.print_address)
    os.execlp("dbus-broker", "dbus-broker", f"--controller={theirs.fileno()}", f"--machine-id={uuid.uuid4().hex}",
              *QUOTAS)
