#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""An application for tests of the stand-in, on GLib's D-Bus implementation.

Usage: application.py SERVICE-ROOT BEHAVIOUR

BEHAVIOUR is the name of the method below that handles the intents.
"""

import os
import sys
import tempfile

from gi.repository import Gio, GLib

ROOT, BEHAVIOUR = sys.argv[1:]
PATH = "/" + ROOT.replace(".", "/")
NO_FILES = "{'readFiles': <@as []>, 'writeFiles': <@as []>}"
INTERFACE = Gio.DBusNodeInfo.new_for_xml(f"""
<node>
  <interface name="{ROOT}.IntentHandler1">
    <method name="HandleIntent">
      <arg type="s" direction="in"/> <arg type="a{{sv}}" direction="in"/>
      <arg type="a{{sv}}" direction="out"/> <arg type="a{{sv}}" direction="out"/>
    </method>
  </interface>
</node>""").interfaces[0]


class Application:
    def __init__(self):
        self.before = 0

    def echo(self, message):
        """Replies with the parameters."""
        params = message.get_body().get_child_value(1)
        self.reply(message, GLib.Variant.new_tuple(params, GLib.Variant.parse(None, NO_FILES, None, None)))

    def tell(self, message):
        """Returns the received files, the number of earlier descriptors, and the identity of the process."""
        arrived = GLib.Variant("s", message.get_body().print_(True))
        environment = {name: GLib.Variant("s", value) for name, value in os.environ.items()
                       if name.startswith("HALVIR_")}
        self.reply_with(message, {"arrived": arrived, "before": GLib.Variant("i", self.before),
                                  "environment": GLib.Variant("a{sv}", environment)})
        self.before += 1

    count = tell

    def once(self, message):
        """Replies, and exits."""
        self.reply_with(message, {"instance": GLib.Variant("s", os.environ["HALVIR_APP_INSTANCE_ID"])})
        connection.flush_sync(None)
        loop.quit()

    def files(self, message):
        """Replies with sixteen files."""
        fds = Gio.UnixFDList.new()
        with tempfile.TemporaryFile() as file:
            for _ in range(16):
                fds.append(file.fileno())
        handles = ", ".join(f"handle {i}" for i in range(16))
        body = GLib.Variant.parse(
            None, f"(@a{{sv}} {{}}, {{'readFiles': <['x']>, 'readFds': <[{handles}]>, 'writeFiles': <@as []>}})",
            None, None)
        self.reply(message, body, fds)

    def smuggle(self, message):
        """Replies with a descriptor in the result, which is not allowed."""
        fds = Gio.UnixFDList.new()
        with tempfile.TemporaryFile() as file:
            fds.append(file.fileno())
        self.reply(message, GLib.Variant.parse(None, f"({{'x': <@h 0>}}, {NO_FILES})", None, None), fds)

    def pretend(self, message):
        """Replies with the index of a missing file."""
        self.reply(message, GLib.Variant.parse(None, f"({{'x': <@h 0>}}, {NO_FILES})", None, None))

    def disguise(self, message):
        """Replies with numbers and structures instead of files."""
        self.reply(message, GLib.Variant.parse(
            None, "(@a{sv} {}, {'readFds': <[1, 2, 3, 4, 5, 6, 7]>, 'writeFds': <[(1, 2)]>})", None, None))

    def fail(self, message):
        """Replies with an error. The parameter "error" contains its name."""
        name = message.get_body().unpack()[1].get("error", "com.example.Error.Broken")
        reply = message.new_method_error_literal(name, "the reason")
        connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)

    def misspell(self, message):
        """Replies with another signature."""
        self.reply(message, GLib.Variant("(s)", ("text",)))

    def crash(self, message):
        """Kills the process."""
        os.kill(os.getpid(), 9)

    def release(self, message):
        """Never called: the process releases its name as soon as it has claimed it, see below."""

    def hide(self, message):
        """Never called: the process owns no name, see below."""

    def reply_with(self, message, result):
        files = GLib.Variant.parse(None, NO_FILES, None, None)
        self.reply(message, GLib.Variant.new_tuple(GLib.Variant("a{sv}", result), files))

    def reply(self, message, body, fds=None):
        reply = message.new_method_reply()
        reply.set_body(body)
        if fds is not None:
            reply.set_unix_fd_list(fds)
        connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)


def on_call(connection, sender, path, interface, member, body, invocation):
    handle(invocation.get_message())


handle = getattr(Application(), BEHAVIOUR)
loop = GLib.MainLoop()
connection = Gio.bus_get_sync(Gio.BusType.SESSION)
connection.register_object(f"{PATH}/IntentHandler1", INTERFACE, on_call, None, None)
if BEHAVIOUR != "hide":
    Gio.bus_own_name_on_connection(connection, os.environ["HALVIR_APP_INSTANCE_ID"], Gio.BusNameOwnerFlags.NONE,
                                   None, None)
if BEHAVIOUR == "release":
    connection.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReleaseName",
                         GLib.Variant("(s)", (os.environ["HALVIR_APP_INSTANCE_ID"],)), None,
                         Gio.DBusCallFlags.NONE, -1, None)
loop.run()
