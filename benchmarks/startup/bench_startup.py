#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Measures the cost of the library in a small program that starts, receives one reply and ends.

Usage: bench_startup.py quick|full FILE PROGRAMS LIBRARY

The variants of the program use the library, hand-written QtDBus code, and the same code with QtNetwork loaded (the
library needs it for the task channel). All variants have the same bus traffic, and run interleaved. PROGRAMS is the
directory of the benchmarks. LIBRARY is the file of the library, which is measured too. Writes the results to FILE, in
the format of support/results.h.
"""

import collections
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

VARIANTS = {
    "corvane": "bench_startup_corvane",
    "QtDBus": "bench_startup_qtdbus",
    "QtDBus, QtNetwork loaded too": "bench_startup_qtdbus_network",
}


def environment(instance_id):
    return os.environ | {"HALVIR_APP_INSTANCE_ID": instance_id}


@contextlib.contextmanager
def running(program, *arguments):
    """A process that prints a line when it is ready."""
    with subprocess.Popen([program, *arguments], stdout=subprocess.PIPE, env=environment("bench.echo")) as process:
        try:
            if not process.stdout.readline():
                sys.exit(f"{program} does not start")
            yield
        finally:
            process.kill()


def spawn(*command):
    return os.posix_spawnp(command[0], command, environment("bench.start"))


def wait_for_end(pid):
    """The resources that an ended process has used."""
    _, status, usage = os.wait4(pid, 0)
    if status:
        sys.exit(f"A program has failed: {status}")
    return usage


def nanoseconds(program):
    start = time.perf_counter_ns()
    wait_for_end(spawn(program))
    return time.perf_counter_ns() - start


def processor_time(program):
    usage = wait_for_end(spawn(program))
    return 1e9 * (usage.ru_utime + usage.ru_stime)


def private_memory(program, kinds="Clean|Dirty"):
    """The private memory at the first reply, in bytes."""
    pid = spawn(program, "stop")
    os.waitpid(pid, os.WUNTRACED)
    memory = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    kilobytes = re.findall(rf"^Private_(?:{kinds}): *(\d+) kB$", memory, re.M)
    os.kill(pid, signal.SIGCONT)
    wait_for_end(pid)
    return 1024 * sum(map(int, kilobytes))


def written_memory(program):
    """The part of it that does not depend on other users of the libraries."""
    return private_memory(program, "Dirty")


def instructions(program):
    with tempfile.NamedTemporaryFile("r") as file:
        wait_for_end(spawn("valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={file.name}", program))
        return int(re.search(r"^totals: (\d+)", file.read(), re.M).group(1))


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def file_figures(file):
    """The work of the loader for a program or library, as name, unit and number."""
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, file], check=True)
        yield "stripped file", "bytes", os.stat(stripped.name).st_size
    relocations = collections.Counter(re.findall(r" R_[A-Z0-9]+_(\w+)", output("readelf", "-rW", file)))
    yield "relocations", "", relocations.total()
    for kind, count in sorted(relocations.items()):
        yield f"relocations: {kind}", "", count
    address, size = re.search(r" \.init_array +\w+ +(\w+) \w+ (\w+)", output("readelf", "-SW", file)).groups()
    yield "initialisers", "", int(size, 16) // (len(address) // 2)
    yield "exported symbols", "", len(output("nm", "-D", "--defined-only", file).splitlines())


def main():
    if len(sys.argv) != 5 or sys.argv[1] not in ("quick", "full"):
        sys.exit(__doc__)
    mode, results, programs, library = sys.argv[1:]
    paths = {variant: os.path.join(programs, name) for variant, name in VARIANTS.items()}
    rows = []

    def add(topic, case, variant, unit, samples):
        rows.append({"topic": topic, "case": case, "variant": variant, "unit": unit, "samples": samples})

    def measure(case, unit, rounds, figure):
        samples = {variant: [] for variant in paths}
        for turn in range(rounds):
            for variant in sorted(paths, reverse=turn % 2):
                samples[variant].append(figure(paths[variant]))
        for variant in paths:
            add("Start-up", case, variant, unit, samples[variant])

    with running(os.path.join(programs, "bench_intents_router")), \
            running(os.path.join(programs, "bench_intents_sdbus"), "handler"):
        rounds = 100 if mode == "quick" else 500
        measure("start to first reply and end", "ns", rounds, nanoseconds)
        measure("processor time of that", "ns", rounds, processor_time)
        measure("instructions of that", "instructions", 1, instructions)
        measure("private memory at the first reply", "bytes", 5, private_memory)
        measure("of that, written to", "bytes", 5, written_memory)
    for variant, file in ("the library", library), ("program by hand", paths["QtDBus"]):
        for case, unit, figure in file_figures(file):
            add("Files", case, variant, unit, [figure])
    pathlib.Path(results).write_text(json.dumps(rows, indent=1))


main()
