#!/usr/bin/env python3
"""Tells which lines of the product the tests of a build have run.

  coverage.py [options] BUILD

BUILD is a folder that the preset coverage has built, and whose tests have run
since. For each folder of the product: its lines that hold code, those that were
run, and their share. Sources that no test program links count too. A process that
is killed leaves no trace of the lines it ran.

Exit status: 0 when there are figures, 1 when there are none.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

SOURCE_DIR = pathlib.Path(__file__).resolve().parent.parent
NOT_PRODUCT = ("build", "tests", "benchmarks")
AT_ONCE = 20  # objects that one gcov is given


def reports_of(objects):
    """What gcov tells about each of the objects."""
    process = subprocess.run(
        [os.environ.get("GCOV", "gcov"), "--json-format", "--stdout", *map(str, objects)],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True, cwd=SOURCE_DIR)
    return [json.loads(line) for line in process.stdout.splitlines() if line.strip()]


def product_file(name, folder):
    """The file relative to the sources; None when it is no part of the product."""
    path = pathlib.Path(os.path.normpath(os.path.join(folder, name)))
    if not path.is_relative_to(SOURCE_DIR):
        return None
    path = path.relative_to(SOURCE_DIR)
    return None if path.parts[0] in NOT_PRODUCT else path


def runs_by_line(build):
    """For each file of the product how often each of its lines was run."""
    objects = sorted(build.rglob("*.gcno"))
    parts = [objects[at:at + AT_ONCE] for at in range(0, len(objects), AT_ONCE)]
    files = collections.defaultdict(collections.Counter)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 1) as pool:
        for reports in pool.map(reports_of, parts):
            for report in reports:
                for entry in report["files"]:
                    path = product_file(entry["file"], report["current_working_directory"])
                    if path is not None:
                        for line in entry["lines"]:
                            files[path][line["line_number"]] += line["count"]
    return files


def ranges(numbers):
    """[1, 2, 3, 7] as "1-3 7"."""
    found = []
    for number in sorted(numbers):
        if found and found[-1][1] == number - 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return " ".join(str(a) if a == b else f"{a}-{b}" for a, b in found)


def show(title, lines, run):
    print(f"{title:44} {lines:7} {run:7} {100 * run / lines:7.1f} %")


def parse(arguments):
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--files", action="store_true", help="each file, not each folder")
    parser.add_argument("--missed", action="store_true",
                        help="with --files: also the lines that were not run")
    return parser.parse_args(arguments)


def main():
    options = parse(sys.argv[1:])
    files = runs_by_line(options.build.resolve())
    if not any(sum(lines.values()) for lines in files.values()):
        print(f"{options.build}: no test of a build with the preset coverage has run here",
              file=sys.stderr)
        return 1
    groups = collections.defaultdict(lambda: [0, 0])
    for path, lines in files.items():
        group = groups[path if options.files else path.parent]
        group[0] += len(lines)
        group[1] += sum(1 for count in lines.values() if count)
    print(f"{'':44} {'lines':>7} {'run':>7} {'share':>9}")
    for name, (lines, run) in sorted(groups.items()):
        show(str(name), lines, run)
        if options.files and options.missed and run < lines:
            print("    " + ranges(line for line, count in files[name].items() if not count))
    show("all", *map(sum, zip(*groups.values())))
    return 0


if __name__ == "__main__":
    sys.exit(main())
