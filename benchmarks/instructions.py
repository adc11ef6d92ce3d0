#!/usr/bin/env python3
"""Instructions that the hot operators take, counted by callgrind: no noise of the machine in them.

    python benchmarks/instructions.py [operation ...]

Each operation runs 20,000 and 40,000 times under valgrind; the difference of the two counts is what
it takes, the interpreter's own loop (the row "pass") subtracted.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SETUP = """
import nalora
x, y, z = nalora.var(), nalora.var(), nalora.var()
e = x + y
def run(n):
    global e
    for _ in range(n):
        {}
"""
OPERATIONS = ["x + y", "2.0 * x", "e + z", "e += z", "x <= 3", "x <= y", "x + 2.0 * y - z <= 1.0"]
TIMES = 20_000  # many, as starting the interpreter does not always take the same


def count(operation, times):
    code = SETUP.format(operation) + f"run(100); run({times})"
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / "out"
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}"]
        done = subprocess.run(
            [*command, sys.executable, "-c", code],
            capture_output=True,
            text=True,
            env={**os.environ, "PYTHONHASHSEED": "0"},  # or the interpreter's tables differ
        )
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not found:
        sys.exit(f"valgrind failed:\n{done.stderr}")
    return int(found[1])


def each(operation):
    return (count(operation, 2 * TIMES) - count(operation, TIMES)) / TIMES


def main():
    if shutil.which("valgrind") is None:
        sys.exit("valgrind is needed, which counts the instructions")
    loop = each("pass")
    for operation in sys.argv[1:] or OPERATIONS:
        print(f"{operation:28}{each(operation) - loop:8.0f} instructions")


if __name__ == "__main__":
    main()
