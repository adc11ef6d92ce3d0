#!/usr/bin/env python3
"""Model building, editing, re-solving and reading, next to two floors.

    python benchmarks/run.py [--works w1,w4] [--peers floor,opfloor,nalora] [--repeat 5]

Every run is a process of its own. `floor` hands the same models to HiGHS as flat arrays in C++,
`opfloor` is a bare C++ extension type with operators: what the interpreter itself charges for
operator-style code. The table gives the CPU time in ms (median of the repeats) and its ratio to
the two floors; only ratios within one run on one machine mean anything. The adapters are of the
form that larger comparisons with other modeling layers use as well.
"""

import argparse
import importlib
import json
import os
import statistics
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
MARK = "@@RESULT@@"

# The phases whose sum is compared; other works: build + load.
PHASES = {"w6": ("bounds", "coefs", "rows", "flush"), "w7": ("resolve",), "w9": ("read",)}


def child(peer, work, style, size):
    import works

    module = importlib.import_module("adapters." + peer)
    run = getattr(module, work)
    run(works.data(work, works.VERIFY_SIZES[work]), style, works.Clock())  # warm-up
    data = works.data(work, size)
    works.reset_peak()
    base = works.rss_kb()
    result = run(data, style, works.Clock())
    phases = PHASES.get(work, ("build", "load"))
    cpu = sum(result.get(f"{phase}_cpu", 0.0) for phase in phases)
    memory = max(0.0, (works.peak_kb() - base) / 1024)
    print(MARK + json.dumps({"cpu": cpu, "mib": memory}), flush=True)
    os._exit(0)  # releasing huge models is not measured


def measure(peer, work, style, size, timeout):
    command = [sys.executable, __file__, "--child", peer, work, style, str(size)]
    env = dict(os.environ, PYTHONHASHSEED="0", OMP_NUM_THREADS="1", OPENBLAS_NUM_THREADS="1")
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=timeout, env=env)
    except subprocess.TimeoutExpired:
        return {"error": f"more than {timeout:g} s"}
    for line in done.stdout.splitlines():
        if line.startswith(MARK):
            return json.loads(line[len(MARK) :])
    return {"error": (done.stderr.strip().splitlines() or ["no output"])[-1]}


def styles_of(peer):
    code = f"import json, sys; sys.path.insert(0, {str(HERE)!r}); import importlib; "
    code += f"print({MARK!r} + json.dumps(importlib.import_module('adapters.{peer}').STYLES))"
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    for line in done.stdout.splitlines():
        if line.startswith(MARK):
            return json.loads(line[len(MARK) :])
    print(f"{peer}: left out: {(done.stderr.strip().splitlines() or ['?'])[-1]}")
    return {}


def main():
    import works

    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--peers", default="floor,opfloor,nalora")
    parser.add_argument("--works", default="w1,w2,w3,w4,w5,w6,w7,w8,w9")
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--timeout", type=float, default=120)
    parser.add_argument("--child", nargs=4)
    args = parser.parse_args()
    if args.child:
        return child(*args.child[:3], int(args.child[3]))

    styles = {peer: styles_of(peer) for peer in args.peers.split(",")}
    for work in args.works.split(","):
        for size in works.SIZES[work]:
            print(f"\n{work}: {works.TITLES[work]}, n = {size}")
            print(f"  {'':24}{'CPU ms':>10}{'x floor':>10}{'x opfloor':>11}{'MiB':>8}")
            reference = {}
            for peer in styles:
                for style in styles[peer].get(work, []):
                    runs = [
                        measure(peer, work, style, size, args.timeout) for _ in range(args.repeat)
                    ]
                    label = f"{peer} {style}"
                    failed = [run["error"] for run in runs if "error" in run]
                    if failed:
                        print(f"  {label:24}  {failed[0]}")
                        continue
                    cpu = statistics.median(run["cpu"] for run in runs) * 1000
                    memory = statistics.median(run["mib"] for run in runs)
                    reference.setdefault(peer, cpu)
                    if (peer, style) == ("opfloor", "terms"):
                        reference["opfloor"] = cpu
                    ratios = [
                        f"{cpu / reference[name]:.2f}" if reference.get(name) else ""
                        for name in ("floor", "opfloor")
                    ]
                    print(f"  {label:24}{cpu:10.2f}{ratios[0]:>10}{ratios[1]:>11}{memory:8.0f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
