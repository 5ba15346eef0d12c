#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""The service's side of the bus for tests, on GLib's D-Bus implementation.

Usage: service.py SERVICE-ROOT

Reads requests from standard input, one JSON object per line, with the members "request" and "id". Writes a result
with the same "id" for each request. Reports each received call in a line with the member "call", before it sends the
reply. D-Bus values are in GLib's text form, with types. Method calls have no time-out unless the request sets one.
"""

import errno
import fcntl
import json
import os
import sys
import traceback

from gi.repository import Gio, GLib

ROOT = sys.argv[1]
PATH = "/" + ROOT.replace(".", "/")
INTERFACES = Gio.DBusNodeInfo.new_for_xml(f"""
<node>
  <interface name="{ROOT}.Intents1">
    <method name="InvokeIntent">
      <arg type="s" direction="in"/> <arg type="a{{sv}}" direction="in"/> <arg type="a{{sv}}" direction="in"/>
      <arg type="a{{sv}}" direction="out"/>
    </method>
  </interface>
  <interface name="{ROOT}.MemoryPressure1"> <method name="Subscribe"/> </interface>
  <interface name="{ROOT}.Tasks1">
    <method name="GetAll"> <arg type="a{{sv}}" direction="out"/> </method>
    <method name="Start">
      <arg type="s" direction="in"/> <arg type="as" direction="in"/> <arg type="a{{sv}}" direction="in"/>
    </method>
    <method name="Stop"> <arg type="s" direction="in"/> <arg type="b" direction="in"/> </method>
  </interface>
  <interface name="{ROOT}.Test">
    <method name="RoundTrip"/>
    <method name="Echo"> <arg type="v" direction="in"/> <arg type="v" direction="out"/> </method>
  </interface>
</node>""").interfaces
PROPERTIES = Gio.DBusNodeInfo.new_for_xml("""
<node>
  <interface name="org.freedesktop.DBus.Properties">
    <method name="GetAll"> <arg type="s" direction="in"/> <arg type="a{sv}" direction="out"/> </method>
  </interface>
</node>""").interfaces[0]

NO_TIMEOUT = GLib.MAXINT32


def parse(text):
    return GLib.Variant.parse(None, text, None, None)


def body_of(request):
    """Returns the body of a request. The number "fill" of letters replaces the word FILL."""
    return parse(request["body"].replace("FILL", "x" * request.get("fill", 0)))


def attach_descriptors(message, request):
    """Adds the requested number of descriptors to a message."""
    if request.get("descriptors"):
        fd_list = Gio.UnixFDList.new()
        with open(os.devnull, "rb") as null:
            for _ in range(request["descriptors"]):
                fd_list.append(null.fileno())
        message.set_unix_fd_list(fd_list)


def printed(body):
    if body is None:
        return "() ()"
    return f"{body.get_type_string()} {body.print_(True)}"


def describe_descriptor(fd):
    """Returns the mode and the content of a descriptor, or the error of reading it or of writing the same content."""
    flags = fcntl.fcntl(fd, fcntl.F_GETFL)
    mode = {os.O_RDONLY: "read", os.O_WRONLY: "write", os.O_RDWR: "read-write"}[flags & os.O_ACCMODE]
    if flags & os.O_NONBLOCK:
        mode += " non-blocking"
    try:
        content = os.pread(fd, 1000, 0)
        if flags & os.O_ACCMODE == os.O_RDWR:
            os.pwrite(fd, content, 0)
    except OSError as error:
        return f"{mode}: ({errno.errorcode[error.errno]})"
    return f"{mode}: {content.decode()}"


def take_descriptors(message):
    fd_list = message.get_unix_fd_list()
    if fd_list is None:
        return []
    fds = fd_list.steal_fds()
    described = [describe_descriptor(fd) for fd in fds]
    for fd in fds:
        os.close(fd)
    return described


def connect():
    address = os.environ["DBUS_SESSION_BUS_ADDRESS"]
    flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
    connection = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
    connection.set_exit_on_close(False)
    return connection


def call_bus(connection, member, body=None):
    return connection.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member, body,
                                None, Gio.DBusCallFlags.NONE, NO_TIMEOUT, None).unpack()[0]


def write(line):
    sys.stdout.write(json.dumps(line) + "\n")
    sys.stdout.flush()


class Service:
    def __init__(self):
        self.connection = connect()
        self.held = []
        self.early_releases = {}
        self.holding = False
        self.answer = {"body": "(@a{sv} {},)"}
        self.member_answers = {"Start": {}, "Stop": {}, "Subscribe": {}}
        self.stranger = None
        for interface in INTERFACES:
            member = interface.name.rsplit(".", 1)[1]
            self.connection.register_object(f"{PATH}/{member}", interface, self.on_call, None, None)
        self.connection.register_object(f"{PATH}/MemoryPressure1", PROPERTIES, self.on_call, None, None)
        self.own_name()

    def own_name(self):
        return call_bus(self.connection, "RequestName", GLib.Variant("(su)", (ROOT, 4)))

    # -- calls that arrive

    def on_call(self, connection, sender, path, interface, member, body, invocation):
        message = invocation.get_message()
        if member == "RoundTrip":
            self.send_answer(message, {})
        elif member == "Echo":
            self.send_answer(message, {"variant": body})
        else:
            write({"call": f"{member} {printed(body)}", "descriptors": take_descriptors(message)})
            if self.holding:
                self.held.append(message)
                early = self.early_releases.pop(len(self.held) - 1, None)
                if early:
                    write({"id": early["id"], "result": self.release(early)})
            else:
                self.send_answer(message, self.member_answers.get(member, self.answer))

    def send_answer(self, message, answer):
        if "error" in answer:
            reply = message.new_method_error_literal(answer["error"], "")
            reply.set_body(parse(answer.get("body", "('the reason',)")))
        else:
            reply = message.new_method_reply()
            if answer.get("body"):
                reply.set_body(body_of(answer))
            elif answer.get("echo"):
                reply.set_body(GLib.Variant.new_tuple(message.get_body().get_child_value(2)))
            elif "variant" in answer:
                reply.set_body(answer["variant"])
            attach_descriptors(reply, answer)
        self.connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)

    # -- requests

    def answers(self, request):
        """Sets the reply to later calls of one member or of all members.

        The reply is a body, an error with a body, or the params of an intent.
        """
        if request.get("member"):
            self.member_answers[request["member"]] = request["answer"]
        else:
            self.answer = request["answer"]

    def hold(self, request):
        """Sets whether calls stay unanswered until they are released. Forgets the calls that are still unanswered."""
        self.holding = request["on"]
        self.held = []

    def release(self, request):
        """Waits for the held call with an index, and replies to it."""
        if request["index"] >= len(self.held):
            self.early_releases[request["index"]] = request
            return NotImplemented
        self.send_answer(self.held[request["index"]], request["answer"])

    def own(self, request):
        """Requests or releases the service's name."""
        if request["on"]:
            return self.own_name()
        return call_bus(self.connection, "ReleaseName", GLib.Variant("(s)", (ROOT,)))

    def claim(self, request):
        """Requests another name."""
        return call_bus(self.connection, "RequestName", GLib.Variant("(su)", (request["name"], 4)))

    def owner(self, request):
        """Returns whether a name has an owner."""
        return call_bus(self.connection, "NameHasOwner", GLib.Variant("(s)", (request["name"],)))

    def invoke(self, request):
        """Calls a method "repeat" times, and returns the replies after "enough" replies have arrived."""
        repeat = request.get("repeat", 1)
        enough = request.get("enough", repeat)
        replies = []
        message_body = body_of(request) if request.get("body") else None

        def on_reply(connection, result):
            try:
                reply = connection.send_message_with_reply_finish(result)
            except GLib.Error as error:
                replies.append({"text": f"{error.domain}: {error.message}", "descriptors": []})
            else:
                text = printed(reply.get_body())
                if reply.get_message_type() == Gio.DBusMessageType.ERROR:
                    text = f"{reply.get_error_name()} {text}"
                replies.append({"text": text, "descriptors": take_descriptors(reply)})
            if len(replies) == enough:
                counts = {}
                for reply in replies:
                    counts[reply["text"]] = counts.get(reply["text"], 0) + 1
                write({"id": request["id"], "result": {**replies[0], "counts": counts}})

        for _ in range(repeat):
            message = Gio.DBusMessage.new_method_call(
                request["destination"], request["path"], request.get("interface"), request["member"])
            if message_body is not None:
                message.set_body(message_body)
            if request.get("files"):
                fd_list = Gio.UnixFDList.new()
                for name in request["files"]:
                    fd = os.open(name, os.O_RDONLY)
                    fd_list.append(fd)
                    os.close(fd)
                message.set_unix_fd_list(fd_list)
            attach_descriptors(message, request)
            self.connection.send_message_with_reply(
                message, Gio.DBusSendMessageFlags.NONE, request.get("timeout", NO_TIMEOUT), None, on_reply)
        return NotImplemented

    def signal(self, request):
        """Sends a signal, optionally from another connection, and returns after the bus has received it."""
        connection = self.connection
        if request.get("stranger"):
            connection = self.stranger = self.stranger or connect()
        message = Gio.DBusMessage.new_signal(request["path"], request["interface"], request["member"])
        if request.get("destination"):
            message.set_destination(request["destination"])
        message.set_body(body_of(request))
        attach_descriptors(message, request)
        connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
        call_bus(connection, "GetId")

    def watch(self, request):
        """Reports later signals: of an interface from any sender, or else of the service."""
        def on_signal(connection, sender, path, interface, member, body):
            write({"signal": f"{member} {printed(body)}"})

        interface = request.get("interface") or None
        self.connection.signal_subscribe(None if interface else ROOT, interface, None, None, None,
                                         Gio.DBusSignalFlags.NONE, on_signal)
        call_bus(self.connection, "GetId")  # GLib emits no signal before the bus has returned the owner of the name

    def survives(self, request):
        """Sends a body on a separate connection, and returns whether the bus keeps the connection."""
        connection = connect()
        message = Gio.DBusMessage.new_method_call("com.example.Nobody", "/", None, "Nothing")
        message.set_body(parse(request["body"]))
        try:
            connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
            call_bus(connection, "GetId")
        except GLib.Error:
            return False
        return True

    def reach(self, request):
        """Returns after a process has read all earlier messages.

        libdbus itself replies to this call, also while the event loop of the process is blocked.
        """
        self.connection.call_sync(request["destination"], "/", "org.freedesktop.DBus.Peer", "Ping", None, None,
                                  Gio.DBusCallFlags.NONE, NO_TIMEOUT, None)

    def ping(self, request):
        """Returns after all received messages have been reported.

        With "bus", also receives all messages that the bus has handled.
        """
        if request["bus"] and not self.connection.is_closed():
            call_bus(self.connection, "GetId")

        def answer():
            write({"id": request["id"]})

        GLib.idle_add(answer, priority=GLib.PRIORITY_DEFAULT)  # after all queued events of this priority
        return NotImplemented

    def on_request(self, stream, condition):
        line = stream.readline()
        if not line:
            loop.quit()
            return False
        request = json.loads(line)
        try:
            result = getattr(self, request["request"])(request)
        except Exception:
            traceback.print_exc()
            os._exit(1)
        if result is not NotImplemented:
            write({"id": request["id"], "result": result})
        return True


loop = GLib.MainLoop()
service = Service()
# Unbuffered: the loop watches the descriptor, not a buffer of Python.
GLib.io_add_watch(os.fdopen(os.dup(0), "rb", 0), GLib.PRIORITY_DEFAULT, GLib.IO_IN | GLib.IO_HUP, service.on_request)
write({"id": 0, "result": "ready"})
loop.run()
