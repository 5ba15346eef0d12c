#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Tests of follow_guide: a correct guide passes, and a wrong one fails with its line and the reason."""

import functools
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path(__file__).with_name("follow_guide")


def console(text, terminal=""):
    return f"```console {terminal}\n{text}\n```\n"


def file(name, text=""):
    return f"`{name}`:\n```txt {name}\n{text}\n```\n"


CORRECT = {
    "exact output": console("$ echo a; echo b\na\nb"),
    "output without a newline": console("$ printf a\na"),
    "standard error": console("$ echo a >&2\na"),
    "any text in a line": console("$ echo /tmp/x/y.txt\n/.../y.txt"),
    "any lines": console("$ seq 9\n1\n...\n9"),
    "no lines at dots": console("$ echo a\n...\na\n..."),
    "special characters": console("$ echo '[a] (b)* $c'\n[a] (b)* $c"),
    "file": "```text\nnot a step\n```\n" + file("d/x.sh", "echo in $0") + console("$ sh d/x.sh\nin d/x.sh"),
    "replaced file": file("x", 1) + console("$ cat x\n1") + file("x", 2) + console("$ cat x\n2"),
    "the shell keeps its state": console("$ mkdir d; cd d; x=1\n$ echo ${PWD##*/} $x\nd 1"),
    "continued line": console("$ echo a \\\n>   b\na b"),
    "shown failure": console('$ false || echo "exit code: $?"\nexit code: 1'),
    "two terminals": console("$ mkfifo f; echo ready; cat f; echo end\nready")
    + console("$ echo hello > f", "other")
    + console("hello\nend"),
    "Ctrl-C": console("$ sh -c 'echo a; exec sleep 1000'\na\n^C\n$ echo b\nb"),
    "output after Ctrl-C": console("""$ sh -c 'trap "echo bye; exit 3" INT; echo a; while :; do read x; done'\na""")
    + console("^C\nbye\n$ echo b\nb"),
    "nested shell": console("$ sh\n$ echo a\na\n$ exit\n$ echo b\nb"),
    "a terminal without colours": console("$ test -t 1 && echo $TERM\ndumb"),
    "own directories": console('$ test -z "$(ls -A $HOME $TMPDIR $XDG_RUNTIME_DIR $PWD | grep -v :)" && echo empty\nempty'),
    "no session bus": console("$ echo x${DBUS_SESSION_BUS_ADDRESS}x$HALVIR_APP_ID\nxx"),
    "warnings are errors": console("$ echo $CXXFLAGS\n-Wall -Wextra -Werror"),
    "kept variables": console("$ echo $CMAKE_PREFIX_PATH\n/some/prefix"),
}

# The guide, the line of the error, and the reason.
WRONG = {
    "empty": ("", 1, "The guide contains no command"),
    "no command": ("# Title\n" + file("x"), 1, "The guide contains no command"),
    "only Ctrl-C": (console("^C"), 1, "The guide contains no command"),
    "empty block": ("```console\n```\n", 1, "The block is empty"),
    "block without a name": ("text\n```cpp\nint x;\n```\n", 2, "Expected a block with a file name"),
    "block without a language": ("```\nx\n```\n", 1, "Expected a block with a file name"),
    "block without an end": ("```console\n$ true\n", 1, "The block has no end"),
    "indented block": ("text\n\n    make\n", 3, "Expected a fenced block"),
    "indented fence": ("- text\n  ```console\n  $ true\n  ```\n", 2, "at the start of a line"),
    "fence of tildes": ("~~~console\n$ true\n~~~\n", 1, "at the start of a line"),
    "name that readers do not see": ("`y`:\n\n```txt x\n```\n", 3, 'Expected "`x`" in the line of text above'),
    "absolute file": (file("/x"), 2, "Expected a file in the work directory"),
    "file outside": (file("a/../../x"), 2, "Expected a file in the work directory"),
    "other output": ("text\n" + console("$ echo a\nb"), 3, "The command printed other output"),
    "other output in a later block": (console("$ true") + "\n" + console("$ echo a\nb"), 6, "printed other output"),
    "unexpected output": (console("$ echo a"), 2, "The command printed other output"),
    "missing output": (console("$ echo a\na\nb"), 2, "The command printed other output"),
    "other order": (console("$ echo a; echo b\nb\na"), 2, "The command printed other output"),
    "dots are no other characters": (console("$ echo a.b\na,b"), 2, "The command printed other output"),
    "failure": (console("$ echo a; (exit 3)\na"), 2, "The command failed with exit code 3"),
    "no such command": (console("$ no-such-command\n..."), 2, "The command failed with exit code 127"),
    "failure of a command in the background of the guide": (
        console("$ mkfifo f; echo a; cat f; (exit 4)\na") + console("$ echo > f", "other") + console("..."),
        9,
        "The command failed with exit code 4",
    ),
    "command that does not end": (console("$ echo a; sleep 1000\na"), 2, "The command does not end within 3 seconds"),
    "command that does not end before the next": (
        console("$ sleep 1000\n$ echo a\na"),
        2,
        "The command does not end within 3 seconds",
    ),
    "missing output of a running command": (
        console("$ echo a; sleep 1000\nb") + console("^C"),
        2,
        "The command does not print the expected output within 3 seconds",
    ),
    "output that the guide does not show": (
        console("$ sh -c 'echo a; echo b; touch done; exec sleep 1000'\na")
        + console("$ until test -e done; do :; done", "other")
        + console("^C"),
        9,
        "The command printed other output",
    ),
    "Ctrl-C after the end": (console("$ (exit 3)\na\n^C"), 4, "The command has ended before Ctrl-C, with exit code 3"),
    "Ctrl-C without an effect": (
        console("""$ python3 -c 'import signal, time; signal.signal(2, signal.SIG_IGN); print("a", flush=True); time.sleep(1000)'
a
^C"""),
        4,
        "The command does not end within 3 seconds",
    ),
    "output in an unused terminal": (
        console("$ true") + console("a", "other"),
        5,
        "No command has run in this terminal",
    ),
    "end of the shell": (console("$ exit"), 2, "The shell of this terminal has ended"),
}


class FollowGuide(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name)

    def follow(self, text, *options, prepare=None):
        guide = self.directory / "guide.md"
        guide.write_text(text, encoding="utf-8")
        environment = dict(
            os.environ,
            CMAKE_PREFIX_PATH="/some/prefix",
            DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent",
            HALVIR_APP_ID="demo",
        )
        return subprocess.run(
            [sys.executable, PROGRAM, guide, *options],
            capture_output=True,
            text=True,
            check=False,
            env=environment,
            preexec_fn=prepare,
        )

    def test_correctGuidePasses(self):
        for name, text in CORRECT.items():
            with self.subTest(name):
                result = self.follow(text)
                self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_ctrlCWorksBelowAScriptInTheBackground(self):
        ignore = functools.partial(signal.signal, signal.SIGINT, signal.SIG_IGN)
        result = self.follow(CORRECT["Ctrl-C"], "--timeout", "60", prepare=ignore)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_wrongGuideFailsWithLineAndReason(self):
        for name, (text, line, reason) in WRONG.items():
            with self.subTest(name):
                seconds = "3" if "within 3 seconds" in reason else "60"
                result = self.follow(text, "--timeout", seconds)
                first = result.stderr.splitlines()[0]
                self.assertEqual(result.returncode, 1)
                self.assertTrue(first.startswith(f"{self.directory}/guide.md:{line}: "), first)
                self.assertIn(reason, first)

    def test_failureShowsCommandAndBothOutputs(self):
        result = self.follow(console("$ echo a; echo b\na\nc"))
        self.assertEqual(
            result.stderr,
            f"{self.directory}/guide.md:2: The command printed other output\n"
            "  command:\n    echo a; echo b\n  expected:\n    a\n    c\n  actual:\n    a\n    b\n\n",
        )

    def test_guideStopsAtTheFirstFailure(self):
        self.follow(console("$ false\n$ touch later"), str(self.directory / "work"))
        self.assertFalse((self.directory / "work/later").exists())

    def test_workDirectoryIsKept(self):
        self.assertEqual(self.follow(file("d/x", 1) + console("$ true"), str(self.directory / "work")).returncode, 0)
        self.assertEqual((self.directory / "work/d/x").read_text(encoding="utf-8"), "1\n")

    def test_workDirectoryHasToBeEmpty(self):
        result = self.follow(console("$ true"), str(self.directory))
        self.assertIn("is not empty", result.stderr)
        self.assertEqual(result.returncode, 1)

    def test_noProcessSurvives(self):
        # One process is in its own session, and one ignores the end of its terminal.
        start = "(setsid -f sh -c 'echo $$; exec sleep 1000'; nohup sh -c 'echo $$; exec sleep 1000') > processes &"
        text = console(f"$ {start}\n...\n$ until test $(wc -l < processes) = 2; do :; done\n...")
        result = self.follow(text, str(self.directory / "work"))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        processes = (self.directory / "work/processes").read_text(encoding="utf-8").split()
        self.assertEqual(len(processes), 2)
        self.assertFalse([process for process in processes if pathlib.Path("/proc", process).exists()])

    def test_copyIsInTheWorkDirectory(self):
        checkout = self.directory / "checkout"
        for name in ("a/build", "build-x/file", "obj-x/file", ".git/file"):
            (checkout / name).parent.mkdir(parents=True)
            (checkout / name).touch()
        result = self.follow(console("$ find -type f\n./a/build"), "--copy", str(checkout))
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def follow_with_exceptions(self, exceptions):
        (self.directory / "exceptions").write_text(exceptions, encoding="utf-8")
        (self.directory / "checkout").mkdir(exist_ok=True)
        (self.directory / "checkout/script").touch(mode=0o755)
        return self.follow(
            console("$ ./script --all   # comment\n$ sudo false\n$ echo a\na"),
            "--copy",
            str(self.directory / "checkout"),
            "--except",
            str(self.directory / "exceptions"),
        )

    def test_exceptionsAreNotRun(self):
        result = self.follow_with_exceptions("# comment\n./script --all | slow\nsudo false | root\n")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("1 commands are correct", result.stdout)

    def test_wrongExceptionsAreRefused(self):
        for exceptions, reason in (
            ("./script --all | slow\n", "The command failed with exit code"),
            ("make | slow\n", 'The guide does not contain the exception "make"'),
            ("sudo false\n", 'Expected "command | reason"'),
            ("sudo false | \n", 'Expected "command | reason"'),
        ):
            with self.subTest(exceptions):
                result = self.follow_with_exceptions(exceptions)
                self.assertEqual(result.returncode, 1)
                self.assertIn(reason, result.stderr)

    def test_programOfAnExceptionHasToExist(self):
        (self.directory / "exceptions").write_text("./script | slow\n", encoding="utf-8")
        result = self.follow(console("$ ./script\n$ true"), "--except", str(self.directory / "exceptions"))
        self.assertEqual(result.returncode, 1)
        self.assertIn('The program of the exception "./script" does not exist', result.stderr)


if __name__ == "__main__":
    unittest.main()
