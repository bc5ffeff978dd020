#!/usr/bin/env python3
"""Runs the test programs of a build and counts their cases.

  run_suites.py [options] BUILD [SUITE ...]

BUILD is a build folder (build/release). Its tests/suites.txt lists the programs.
A SUITE names some of them; without any, all run. With --windows HOST_BUILD,
BUILD is the Windows build: its unit suites run under wine, and the native
integration suites of HOST_BUILD are run against its programs.

Suites find in their environment:
  RUVO_SOURCE_DIR        the root of the source tree
  RUVO_BIN               folder of the host and its libraries
  RUVO_EMULATOR          empty, or the program that starts what is in RUVO_BIN
  RUVO_CLIENT_BIN        folder of the client
  RUVO_CLIENT_EMULATOR   likewise for RUVO_CLIENT_BIN

Every suite's output is kept in BUILD/tests/results/. A suite that crashes, runs
out of time, or ends without its report counts as one failure besides what its
output tells. The last line is "N passed, N failed" (", N skipped").

Exit status: 0 when some case passed and none failed, else 1; 70 when the suites
could not be run at all.
"""

import argparse
import atexit
import concurrent.futures
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time
import traceback
import uuid

SOURCE_DIR = pathlib.Path(__file__).resolve().parent.parent
WINE_RUN = SOURCE_DIR / "cmake" / "wine-run.sh"
SHOWN_LINES = 200
# A process is known to belong to a suite by this variable in its environment.
TOKEN = "RUVO_SUITE_TOKEN"

# What wine starts by itself and keeps, whoever was the first to need it.
WINE_OWN = re.compile(
    r"C:\\windows\\system32\\(services|winedevice|plugplay|svchost|rpcss|explorer)\.exe\b", re.I)

print_lock = threading.Lock()


class Counts:
    def __init__(self, passed=0, failed=0, skipped=0):
        self.passed, self.failed, self.skipped = passed, failed, skipped

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped

    def __str__(self):
        text = f"{self.passed} passed, {self.failed} failed"
        return text + f", {self.skipped} skipped" if self.skipped else text


class Suite:
    """One run of one test program."""

    def __init__(self, name, title, program, seconds, serial, environment, emulator=None):
        self.name, self.title, self.program = name, title, program
        self.seconds, self.serial = seconds, serial
        self.environment, self.emulator = environment, emulator


def read_list(build):
    path = build / "tests" / "suites.txt"
    if not path.exists():
        raise FileNotFoundError(f"{path} is missing: configure and build first")
    for line in path.read_text().splitlines():
        if line and not line.startswith("#"):
            name, kind, seconds, program = line.split()
            yield name, kind, int(seconds), build / "tests" / program


def environment_for(host, host_emulator, client, client_emulator):
    return {
        "RUVO_SOURCE_DIR": str(SOURCE_DIR),
        "RUVO_BIN": str(host / "bin"),
        "RUVO_EMULATOR": str(host_emulator),
        "RUVO_CLIENT_BIN": str(client / "bin"),
        "RUVO_CLIENT_EMULATOR": str(client_emulator),
    }


def native_suites(build):
    environment = environment_for(build, "", build, "")
    for name, kind, seconds, program in read_list(build):
        yield Suite(name, name, program, seconds, kind != "unit", environment)


def windows_suites(build, native):
    wine = environment_for(build, WINE_RUN, build, WINE_RUN)
    for name, kind, seconds, program in read_list(build):
        yield Suite(name, name + "-windows", program, seconds, kind != "unit", wine, WINE_RUN)
    windows_host = environment_for(build, WINE_RUN, native, "")
    windows_client = environment_for(native, "", build, WINE_RUN)
    for name, kind, seconds, program in read_list(native):
        if kind in ("integration", "interop"):
            yield Suite(name, name + "-windows-host", program, seconds, True, windows_host)
        if kind == "interop":
            yield Suite(name, name + "-windows-client", program, seconds, True, windows_client)


def processes_of(token):
    """The processes that carry a suite's token, by id, with their command."""
    wanted = f"{TOKEN}={token}".encode()
    found = {}
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if wanted in (entry / "environ").read_bytes().split(b"\0"):
                    command = (entry / "cmdline").read_bytes().replace(b"\0", b" ")
                    command = command.decode(errors="replace").strip()
                    if not WINE_OWN.match(command):
                        found[int(entry.name)] = command
            except OSError:
                pass
    return found


def kill_all(token):
    """Ends every process of a suite; returns the commands of those there were."""
    commands = []
    for _ in range(50):
        found = processes_of(token)
        if not found:
            break
        for pid, command in found.items():
            if command and command not in commands:
                commands.append(command)
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        time.sleep(0.02)
    return commands


def counts_of_report(path):
    """What a complete GoogleTest report tells; None where there is none."""
    try:
        report = json.loads(path.read_text(errors="replace"))
    except (OSError, ValueError):
        return None
    counts = Counts()
    for group in report.get("testsuites", []):
        for case in group.get("testsuite", []):
            if case.get("failures"):
                counts.failed += 1
            elif case.get("status") == "NOTRUN" or case.get("result") == "SKIPPED":
                counts.skipped += 1
            else:
                counts.passed += 1
    # A failure outside every case, in an environment or a fixture of all cases.
    if report.get("failures", 0) > counts.failed:
        counts.failed = report["failures"]
    return counts


def counts_of_output(text):
    """What the output of a program that did not live to report tells."""
    def number(label):
        return len(re.findall(rf"\[ *{label} *\] \S+.* \(\d+ ms\)", text))
    return Counts(number("OK"), number("FAILED"), number("SKIPPED"))


def failed_parts(text):
    """The output of the failed cases and whatever stands outside every case."""
    shown, case, body = [], None, []
    for line in text.splitlines():
        begun = re.match(r"\[ RUN      \] (\S+)", line)
        if begun:
            case, body = begun.group(1), [line]
        elif case is None:
            if not re.match(r"\[[-= ]+\]|\[  [A-Z]+ +\] |Note: |Running main| *\d+ FAILED|$", line):
                shown.append(line)
        else:
            body.append(line)
            if re.search(rf"\[  FAILED  \] {re.escape(case)}\b", line):
                shown += body
                case = None
            elif re.search(rf"\[ +(OK|SKIPPED) +\] {re.escape(case)}\b", line):
                case = None
    if case is not None:
        shown += body
    return shown


class Runner:
    def __init__(self, build, options):
        self.results = build / "tests" / "results"
        self.results.mkdir(parents=True, exist_ok=True)
        self.options = options
        self.totals = Counts()
        self.running = set()
        self.stopping = False
        self.prefix = []
        if build.name == "tsan":
            # The thread sanitizer has no place for itself where the system
            # spreads addresses widely.
            self.prefix = ["setarch", "-R"]

    def command(self, suite, report):
        program, report_path = str(suite.program), str(report)
        line = list(self.prefix)
        if suite.emulator:
            line.append(str(suite.emulator))
            report_path = "Z:" + report_path
        line += [program, "--gtest_output=json:" + report_path, "--gtest_color=no"]
        if self.options.filter:
            line.append("--gtest_filter=" + self.options.filter)
        if self.options.repeat > 1:
            line.append(f"--gtest_repeat={self.options.repeat}")
        return line

    def run(self, suite):
        if self.stopping:
            return
        report = self.results / (suite.title + ".json")
        log = self.results / (suite.title + ".log")
        report.unlink(missing_ok=True)
        token = uuid.uuid4().hex
        environment = {**os.environ, **suite.environment, TOKEN: token}
        seconds = self.options.timeout or suite.seconds
        begun = time.monotonic()
        trouble = None
        self.running.add(token)
        try:
            with open(log, "wb") as output:
                process = subprocess.Popen(
                    self.command(suite, report), stdin=subprocess.DEVNULL, stdout=output,
                    stderr=subprocess.STDOUT, env=environment, cwd=self.results,
                    start_new_session=True)
                try:
                    status = process.wait(seconds)
                except subprocess.TimeoutExpired:
                    trouble = f"was ended after {seconds} s"
                    kill_all(token)
                    status = process.wait()
        except OSError as error:
            log.write_text(str(error) + "\n")
            trouble, status = f"could not be started: {error}", 1
        left = kill_all(token)
        self.running.discard(token)
        self.judge(suite, report, log, status, trouble, left, time.monotonic() - begun)

    def judge(self, suite, report, log, status, trouble, left, elapsed):
        text = log.read_text(errors="replace")
        counts = None if trouble else counts_of_report(report)
        if counts is None:
            counts = counts_of_output(text)
            if not trouble:
                trouble = f"ended without a report, status {status}"
            counts.failed += 1
        elif status != 0 and counts.failed == 0:
            trouble = f"ended with status {status}"
            counts.failed = 1
        elif not (counts.passed or counts.failed or counts.skipped or self.options.filter):
            trouble = "holds no case"
            counts.failed = 1
        with print_lock:
            self.totals.add(counts)
            mark = "FAILED" if counts.failed else "ok"
            print(f"{mark:6} {suite.title:44} {elapsed:6.1f} s  {counts}"
                  + (f"  ({trouble})" if trouble else ""), flush=True)
            if left:
                print("       left running, ended now: " + "; ".join(left), flush=True)
            if counts.failed:
                self.show(text, log)

    @staticmethod
    def show(text, log):
        lines = failed_parts(text)
        if len(lines) > SHOWN_LINES:
            print(f"       ... {len(lines) - SHOWN_LINES} lines more in {log}")
            lines = lines[-SHOWN_LINES:]
        print("\n".join("       | " + line for line in lines), flush=True)

    def run_all(self, suites):
        together = [suite for suite in suites if not suite.serial]
        alone = [suite for suite in suites if suite.serial]
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as pool:
            for done in concurrent.futures.as_completed(
                    [pool.submit(self.run, suite) for suite in together]):
                done.result()
        for suite in alone:
            self.run(suite)

    def interrupt(self, *_):
        self.stopping = True
        for token in list(self.running):
            kill_all(token)
        # The exit handlers still run: they end what wine keeps alive.
        sys.exit(130)


def parse(arguments):
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("suites", nargs="*")
    parser.add_argument("--windows", metavar="HOST_BUILD", type=pathlib.Path)
    parser.add_argument("--filter", metavar="PATTERN", help="only these cases, as --gtest_filter")
    parser.add_argument("--repeat", metavar="N", type=int, default=1,
                        help="run each suite's cases N times; counts are those of the last round")
    parser.add_argument("--timeout", metavar="SECONDS", type=int, help="instead of each suite's own")
    parser.add_argument("--jobs", metavar="N", type=int, default=os.cpu_count() or 1,
                        help="unit suites at a time (default: processors); others run alone")
    parser.add_argument("--totals", metavar="FILE", type=pathlib.Path,
                        help="add the counts to those in FILE instead of printing them")
    parser.add_argument("--list", action="store_true", help="name the suites, run nothing")
    return parser.parse_intermixed_args(arguments)


def choose(suites, names):
    suites = list(suites)
    if not names:
        return suites
    known = {suite.name for suite in suites} | {suite.title for suite in suites}
    for name in names:
        if name not in known:
            print(f"       this build has no suite {name}", flush=True)
    return [suite for suite in suites if suite.name in names or suite.title in names]


def main():
    options = parse(sys.argv[1:])
    build = options.build.resolve()
    if options.windows:
        suites = windows_suites(build, options.windows.resolve())
    else:
        suites = native_suites(build)
    suites = choose(suites, options.suites)
    if options.list:
        for suite in suites:
            print(suite.title)
        return 0

    runner = Runner(build, options)
    signal.signal(signal.SIGINT, runner.interrupt)
    signal.signal(signal.SIGTERM, runner.interrupt)
    if options.windows and suites:
        atexit.register(subprocess.run, [str(WINE_RUN), "--stop"], check=False)
        subprocess.run([str(WINE_RUN), "--start"], check=True)
    runner.run_all(suites)

    totals = runner.totals
    if options.totals:
        earlier = options.totals.read_text().split() if options.totals.exists() else []
        sums = [int(text) for text in earlier] or [0, 0, 0]
        sums = [sums[0] + totals.passed, sums[1] + totals.failed, sums[2] + totals.skipped]
        options.totals.write_text(" ".join(map(str, sums)) + "\n")
    else:
        print(totals, flush=True)
    return 0 if totals.passed and not totals.failed else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Exception:  # Not to be taken for a suite that failed.
        traceback.print_exc()
        sys.exit(70)
