// SPDX-License-Identifier: BSD-3-Clause
#include "help.h"

const char Help[] = R"(Usage: corvane-standin run [OPTION]... [--] COMMAND [ARGUMENT]...
       corvane-standin exec [--name NAME] [--as ID] [--] COMMAND [ARGUMENT]...
       corvane-standin shell [--name NAME] [--as ID]
       corvane-standin status [--name NAME] [--json]
       corvane-standin list [--name NAME] applications|intents|tasks
       corvane-standin monitor [--name NAME] [--timestamps]
       corvane-standin set [--name NAME] memory normal|low|critical|NUMBER|auto
       corvane-standin set [--name NAME] clock +NUMBER(s|m|h|d)|TIME
       corvane-standin set [--name NAME] state ID foreground|background|suspended
       corvane-standin start [--name NAME] ID
       corvane-standin stop [--name NAME] ID
       corvane-standin reload [--name NAME]

Replaces the application-runtime service during the development of applications.

run starts a private session bus, offers the interfaces of the service there,
and runs COMMAND on it. When COMMAND ends, or on Ctrl-C, it ends all processes
that it has started. The normal session bus of the user is not used.

  --manifests DIR     Read the applications from DIR: each *.json file describes
                      one. May be given several times.
  --watch             Read the manifests again when one changes, appears or
                      disappears. An invalid manifest is reported; the earlier
                      manifests stay valid then.
  --name NAME         The name of the stand-in for commands in other terminals
                      (default: the name of COMMAND).
  --as ID             Run COMMAND as the application ID of the manifests.
  --start-timeout MS  The time in which an application must claim its bus name,
                      in milliseconds (default: 10000).
  --bus-program PATH  Run this program as the session bus, with the options of
                      dbus-daemon (default: dbus-daemon).
  --verbose           Print each routed message to standard error, one per line.
  --timestamps        Begin these lines with the time.
  --raw               Do not begin the lines of each application and task with
                      its id. Without labels they write to the terminal, not
                      to a pipe.

The other commands use a running stand-in: that of the session bus if it is the
bus of a stand-in, as for COMMAND and its children; else the one that is running
under this user, in any terminal. If several are running, choose one:

  --name NAME         Use the stand-in with this name.

exec runs COMMAND on the bus of the stand-in, and shell runs $SHELL there. With
--as ID, COMMAND becomes the running instance of the application ID. The stand-in
does not end COMMAND when it ends itself.
status shows the applications, their processes and states, and the tasks with
their next and last runs. With --json it prints the same as JSON.
list prints one id per line, and nothing if no stand-in is running.
monitor prints the lines of run --verbose until the stand-in ends or Ctrl-C.
With --timestamps it adds the time of each line.
set memory sets the memory pressure. With auto, the default, the level follows
the kernel: critical if all processes waited for memory in at least a tenth of
the last ten seconds, low if some did.
set clock advances the clock for tasks by seconds, minutes, hours or days, or to
a time of day (03:00, the next one) or a date and time (2030-12-24T18:00), and
prints the new time.
set state announces the state of a running application. suspended stops its
process group with SIGSTOP when the application has handled the announcement; the
other states continue it. An intent for a suspended application waits.
start starts an application, waits until it has claimed its bus name, and prints
its instance id. stop ends an application, and waits until it has ended.
reload reads the manifests again. Running processes go on. If a manifest is
invalid, its errors are printed and nothing is changed.

  --help              Show this text.
  --version           Show the version.

A manifest describes an application:
  {
      "id": "viewer",
      "name": "Viewer",
      "command": ["./viewer", "--quiet"],
      "intents": ["OpenURI"],
      "tasks": [{"id": "index", "command": ["./indexer"]}]
  }
"name", "intents" and "tasks" are optional. "properties" of a task are optional
too: with {"Autostart": true, "Interval": 60} the task starts with the stand-in.
A program name with a '/' is relative to the directory of the manifest; another
one is searched on the PATH. The program must stay in the foreground.

Exit codes of run: that of COMMAND, or
   64  invalid command line
   65  invalid manifest
   69  no private bus
  127  COMMAND cannot be started
  128+N  COMMAND, or corvane-standin itself, was ended by signal N
Exit codes of the others:
    0  done
    1  failed; the reason is on standard error
   64  invalid command line
   69  no stand-in, or several without --name
  127  COMMAND of exec cannot be started
)";
