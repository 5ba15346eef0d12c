// SPDX-License-Identifier: BSD-3-Clause
#include "table.h"

#include "commands.h"

namespace {

constexpr Argument IntentName{"NAME", Kind::Intent, "The name of the intent."};
constexpr Argument TaskId{"ID", Kind::Task, "The id of the task."};

constexpr Option ParamsFile{"params", "FILE", "Read an object with params from this file, or from standard input (-).",
                            Kind::File};
constexpr Option Hint{"hint", "KEY=VALUE",
                      "Add a hint for the service. KEY:=JSON adds a JSON value, such as 'readFiles:=[\"uri\"]'.",
                      Kind::Pair, true};
constexpr Option App{"app", "APP", "The application of the task (default: HALVIR_APP_ID).", Kind::Application};
constexpr Option Limit{"count", "N", "End after N lines.", Kind::Count};

constexpr Argument IntentWithParams[] = {
    IntentName,
    {"PARAM", Kind::Pair, "KEY=VALUE adds a string. KEY:=JSON adds any JSON value. Both replace a value of --params.",
     true, true},
};
constexpr Option InvokeOptions[] = {
    ParamsFile,
    Hint,
    {"timeout", "SECONDS", "End with an error after this time (default: 0, no limit).", Kind::Seconds},
};

constexpr Argument HandleArguments[] = {
    IntentName,
    {"COMMAND", Kind::CommandLine, "The program that answers an intent, and its arguments."},
};

constexpr Option EncodeOptions[] = {ParamsFile, Hint};
constexpr Argument DecodeArguments[] = {{"URI", Kind::Text, "The URI of an intent."}};
constexpr Option DecodeOptions[] = {
    {"keep-file-hints", nullptr, "Keep the hints readFiles and writeFiles. Do not use them if the URI is from outside.",
     Kind::None},
};

constexpr Argument TaskStartArguments[] = {
    TaskId,
    {"ARGUMENT", Kind::Arguments, "Arguments of the task's process.", true, true},
};
constexpr Option TaskStartOptions[] = {
    App,
    {"start-time", "DATE", "The time of the first run, in ISO 8601 format.", Kind::Date},
    {"ipc-socket", nullptr, "Create a socket for messages between the application and the task.", Kind::None},
    {"priority", "N", "The priority of the task.", Kind::Integer},
    {"autostart", nullptr, "Start the task with the service.", Kind::None},
    {"interval", "N", "The time from one run to the next.", Kind::Integer},
    {"running-time", "N", "The time after which the service ends a run.", Kind::Integer},
    {"start-delay", "N", "The delay before the first run.", Kind::Integer},
    {"months", "LIST", "Schedule: the months, 1 to 12, such as 1,4,7,10.", Kind::Integers},
    {"week-days", "LIST", "Schedule: the week days, 1 (Monday) to 7.", Kind::Integers},
    {"hours", "LIST", "Schedule: the hours, 0 to 23.", Kind::Integers},
    {"minutes", "LIST", "Schedule: the minutes, 0 to 59.", Kind::Integers},
    {"since", "DATE", "Schedule: the first date, in ISO 8601 format.", Kind::Date},
    {"till", "DATE", "Schedule: the last date, in ISO 8601 format.", Kind::Date},
};
constexpr Argument OneTask[] = {TaskId};
constexpr Option TaskStopOptions[] = {
    App,
    {"force", nullptr, "Do not wait until the task ends by itself.", Kind::None},
};
constexpr Option TaskStatusOptions[] = {
    {"timeout", "SECONDS", "The time to wait for the state (default: 1).", Kind::Seconds},
};
constexpr Option WatchOptions[] = {Limit};

constexpr Argument CheckArguments[] = {
    {"FILE", Kind::File, "The file with the params, or - for standard input (default: -).", true},
};
constexpr Option CheckOptions[] = {
    {"read-files", "PATH", "Count the files at this path, as the hint readFiles selects them.", Kind::Text, true},
    {"write-files", "PATH", "Count the files at this path, as the hint writeFiles selects them.", Kind::Text, true},
    {"uri", nullptr, "Report values that an intent URI cannot contain as problems, not as notes.", Kind::None},
};

constexpr Command AllCommands[] = {
    {"invoke", "Sends an intent and prints the reply as JSON.",
     "The reply is indented on a terminal, and one line otherwise. Ctrl-C cancels the request; the handler is not "
     "notified.",
     "corvane invoke OpenURI uri=file:///etc/os-release", IntentWithParams, InvokeOptions, invokeIntent},
    {"handle",
     "Answers intents with a command.",
     "Each intent runs COMMAND once. The standard input of COMMAND contains the params as a JSON object. Its standard "
     "output is the reply, a JSON object; no output is an empty reply. If COMMAND fails, the intent fails with the "
     "last line of its standard error. Several commands may run at once. The environment variable CORVANE_INTENT "
     "contains the name of the intent.\n\n"
     "The process needs the identity of an application: run it under \"corvane-standin run --as ID\" or "
     "\"corvane-standin exec --as ID\". Ctrl-C ends it after all running commands have ended; a second Ctrl-C ends the "
     "commands.",
     "corvane-standin run --manifests . --as greeter -- corvane handle Greet -- ./greet.sh",
     HandleArguments,
     {},
     handleIntent},
    {"uri encode", "Prints an intent as a URI.",
     "Fails if the URI would not read back as the same intent, and names the hint or parameter that prevents it.",
     "corvane uri encode Show page:=2", IntentWithParams, EncodeOptions, encodeUri},
    {"uri decode", "Prints the intent in a URI as JSON.",
     "The hints readFiles and writeFiles are removed unless --keep-file-hints is given.",
     "corvane uri decode 'intent://#Intent;name=Show;page=d.2;end'", DecodeArguments, DecodeOptions, decodeUri},
    {"task start", "Starts a background task.",
     "Sends only the properties that the options set. Numbers are sent unchanged: the service defines units and "
     "ranges. The schedule is checked.",
     "corvane task start fetch --app sync --interval 3600 -- --all", TaskStartArguments, TaskStartOptions, startTask},
    {"task stop", "Stops a background task.", "Returns when the service has accepted the request.",
     "corvane task stop fetch --app sync --force", OneTask, TaskStopOptions, stopTask},
    {"task status", "Prints the state and the properties of a task.",
     "The service announces both. Only the task id identifies the task in an announcement. Fails if the service "
     "announces no state within the time of --timeout.",
     "corvane task status fetch", OneTask, TaskStatusOptions, showTask},
    {"task watch", "Prints each state of a task.", "Prints the first announced state, then each change, until Ctrl-C.",
     "corvane task watch fetch", OneTask, WatchOptions, watchTask},
    {"lifecycle watch",
     "Prints the states of all application instances.",
     "Prints each change until Ctrl-C.",
     "corvane lifecycle watch --json",
     {},
     WatchOptions,
     watchLifecycle},
    {"memory watch",
     "Prints the memory pressure of the system.",
     "Prints each change until Ctrl-C. The first line is the current level, unless it is NormalLevel.",
     "corvane memory watch --count 1",
     {},
     WatchOptions,
     watchMemory},
    {"check", "Names the params that do not arrive unchanged.",
     "Reads an object with params as JSON, and prints the path of each value that is omitted, is changed, or makes the "
     "library refuse the message: nulls, arrays of arrays or of nulls, repeated keys, integers that need more than 53 "
     "bits, lone surrogates, more files than a message can carry, too many nested values, and U+0000. Values that an "
     "intent URI cannot contain are notes, or problems with --uri. The size of the message is not checked. Needs "
     "neither a bus nor the service.",
     "corvane check params.json --read-files 'files[*]'", CheckArguments, CheckOptions, checkParams},
    {"service status",
     "Prints whether the service is running.",
     "Fails if there is no session bus or no service.",
     "corvane service status --json",
     {},
     {},
     showService},
};

constexpr Option AllCommonOptions[] = {
    {"json", nullptr,
     "Print only JSON on standard output, one value per line, also for failures: "
     "{\"error\":{\"code\":2,\"name\":\"...\",\"message\":\"...\"}}.",
     Kind::None},
    {"help", nullptr, "Show this text.", Kind::None},
};

constexpr ExitCode AllExitCodes[] = {
    {0, "Success."},
    {1, "Failed: any failure without its own code, such as no bus, no service, or a time-out."},
    {2, "HandlerNotFound: no application handles the intent."},
    {3, "HandlerFailed: the application that handles the intent replied with an error, or has ended."},
    {4, "InvalidArgs: invalid values, such as params that do not arrive unchanged."},
    {5, "NotSupported."},
    {6, "AccessDenied."},
    {7, "ProcessNotHandled: the service does not know the calling process."},
    {8, "ApplicationNotRunning."},
    {9, "ApplicationAlreadyRunning."},
    {10, "ApplicationAlreadyLaunching."},
    {UsageError, "Usage: invalid command line."},
};

} // namespace

const View<Command> Commands(AllCommands);
const View<Option> CommonOptions(AllCommonOptions);
const View<ExitCode> ExitCodes(AllExitCodes);
