"""Compares the daemon's planning of movie requests with the independent model, item by item.

differential_test.py DRIVER [--count N] [--seed N] [--same COMMAND]... DRIVER reads one JSON line per
request and answers one JSON line each. First come fixed requests with their worked-out answers, which
the model must give as well; then random ones. Each COMMAND runs the driver of another machine, by an
emulator, and must answer the same bytes. Exits non-zero on any difference or too thin a coverage.
"""

import argparse
import collections
import json
import os
import shlex
import subprocess
import sys
import tempfile

from extended_arithmetic import roundToFloat32
from planning_model import ERROR_TEXTS, Probe, plan
from request_rows import Row, fixedRows, randomRow

MAX_DIFFERENCES_SHOWN = 10
BATCH = 2000
OPTIONS = "-s -b -r -pass -an -acodec -ab -ar -ac -fs -ss -t -f /dev/null".split()
Answer = dict[str, object]


def makeInput(row: Row, directory: str) -> None:
    """Makes the input a request names in the directory itself. The driver makes the others."""
    inFile = json.loads(row.requestText).get("inFile")
    if isinstance(inFile, str) and os.path.dirname(inFile) == directory:
        with open(inFile, "wb") as sparse:
            sparse.truncate(row.inputFileSize)


def modelAnswer(row: Row) -> Answer:
    request = {"inFile": "INPUT", "outFile": "out.mp4", **json.loads(row.requestText)}
    probe = None
    if row.probe is not None:
        length, frameRate, tbr = row.probe
        probe = Probe(length, roundToFloat32(frameRate), roundToFloat32(tbr))
    inFile = request["inFile"]
    size: int | None = row.inputFileSize
    if inFile != "INPUT":
        isThere = isinstance(inFile, str) and "\0" not in inFile and os.path.exists(inFile)
        size = os.path.getsize(inFile) if isThere else None
    return plan(request, probe, size)


def lineOf(row: Row) -> str:
    facts: dict[str, object] = {"inputFileSize": row.inputFileSize}
    if row.probe is not None:
        facts["probe"] = dict(zip(("clipLength", "frameRate", "tbr"), row.probe))
    return f'{{"request":{row.requestText},{json.dumps(facts)[1:]}\n'


def driverLines(command: list[str], rows: list[Row], directory: str) -> list[str]:
    text = "".join(lineOf(row) for row in rows)
    run = subprocess.run(
        command, input=text.encode(), capture_output=True, cwd=directory, timeout=300
    )
    lines = run.stdout.decode().splitlines()
    if run.returncode != 0 or len(lines) != len(rows):
        print(run.stderr.decode(errors="replace")[-3000:], file=sys.stderr)
        sys.exit(f"{command} exited {run.returncode} after {len(lines)} of {len(rows)} answers")
    return lines


def describe(expected: Answer, actual: Answer) -> str:
    """The first item that differs, or both answers whole when they are of different kinds."""
    expectedPasses, actualPasses = expected.get("argv"), actual.get("argv")
    if isinstance(expectedPasses, list) and isinstance(actualPasses, list):
        for number, (want, got) in enumerate(zip(expectedPasses, actualPasses)):
            for place, (wanted, given) in enumerate(zip(want, got)):
                if wanted != given:
                    return (
                        f"vector {number}, item {place}: {wanted!r} != {given!r}\n  {want}\n  {got}"
                    )
    return f"{expected}\n  {actual}"


def compare(title: str, rows: list[Row], expected: list[Answer], actual: list[Answer]) -> int:
    differences = 0
    for row, want, got in zip(rows, expected, actual, strict=True):
        if want == got:
            continue
        differences += 1
        if differences <= MAX_DIFFERENCES_SHOWN:
            print(f"{title}: {lineOf(row)}  {describe(want, got)}")
    return differences


def coverageGaps(answers: list[Answer], enoughForEach: int) -> list[str]:
    """What the random requests reached too seldom. Prints the counts."""
    counts: collections.Counter[str] = collections.Counter()
    for answer in answers:
        if "argv" in answer:
            vectors = answer["argv"]
            assert isinstance(vectors, list)
            counts["planned"] += 1
            counts[f"passes {len(vectors)}"] += 1
            counts.update({item for vector in vectors for item in vector} & set(OPTIONS))
        else:
            counts[str(answer["errorText"])] += 1
    wanted = [*ERROR_TEXTS, *OPTIONS, "passes 1", "passes 2"]
    for name in ["planned", *wanted]:
        print(f"{counts[name]:6} {name.strip()}")
    gaps = [f"only {counts[name]} of {name!r}" for name in wanted if counts[name] < enoughForEach]
    if counts["planned"] < 0.4 * len(answers):
        gaps.append(f"only {counts['planned']} of {len(answers)} requests planned")
    return gaps


class Comparison:
    """The driver against the others and the model, some rows at a time, and what was found."""

    def __init__(self, driver: str, others: list[list[str]]) -> None:
        self.driver = [os.path.abspath(driver)]
        self.others = others
        self.differences = 0

    def answers(self, rows: list[Row], directory: str) -> list[Answer]:
        """The driver's, after the others have answered too."""
        lines = driverLines(self.driver, rows, directory)
        for other in self.others:
            for row, line, otherLine in zip(rows, lines, driverLines(other, rows, directory)):
                if line == otherLine:
                    continue
                self.differences += 1
                if self.differences <= MAX_DIFFERENCES_SHOWN:
                    print(f"{other[0]}: {lineOf(row)}  {line}\n  {otherLine}")
        return [json.loads(line) for line in lines]

    def fixed(self) -> int:
        with tempfile.TemporaryDirectory(prefix="planning-") as directory:
            rows = fixedRows(directory)
            literal = [row.expected for row in rows if row.expected is not None]
            actual = self.answers(rows, directory)
            model = [modelAnswer(row) for row in rows]
        self.differences += compare("model against worked answer", rows, literal, model)
        self.differences += compare("driver against worked answer", rows, literal, actual)
        return len(rows)

    def random(self, seed: int, numbers: range) -> list[Answer]:
        with tempfile.TemporaryDirectory(prefix="planning-") as directory:
            rows = [randomRow(seed, number, directory) for number in numbers]
            for row in rows:
                makeInput(row, directory)
            actual = self.answers(rows, directory)
            model = [modelAnswer(row) for row in rows]
        self.differences += compare("driver against model", rows, model, actual)
        return model


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("driver")
    parser.add_argument("--count", type=int, default=2000, help="random requests")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--same", action="append", default=[], help="another machine's driver")
    options = parser.parse_args()

    comparison = Comparison(options.driver, [shlex.split(command) for command in options.same])
    fixed = comparison.fixed()
    model: list[Answer] = []
    for begin in range(0, options.count, BATCH):
        numbers = range(begin, min(begin + BATCH, options.count))
        model += comparison.random(options.seed, numbers)
    gaps = coverageGaps(model, max(1, options.count // 200))
    print(f"{fixed} fixed and {len(model)} random requests, seed {options.seed}:")
    print("\n".join([f"{comparison.differences} differences", *gaps]))
    return 1 if comparison.differences or gaps else 0


if __name__ == "__main__":
    sys.exit(main())
