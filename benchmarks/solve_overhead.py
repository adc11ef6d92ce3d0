#!/usr/bin/env python3
"""What a solve costs above the engine alone, on models that take HiGHS about a second.

    python benchmarks/solve_overhead.py [--repeat 3]

The same model file is solved by HiGHS through its C interface and by nalora, alternating, each in
a process of its own; the table gives the best CPU time in s of the optimize call and its ratio.
"""

import argparse
import ctypes
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

MARK = "@@RESULT@@"


def write_lp(path, rows=1500, cols=1500, density=0.02, seed=1):
    """A sparse random packing LP: max c'x, A x <= b, 0 <= x <= 10."""
    rng = np.random.default_rng(seed)
    out = ["NAME lp", "ROWS", " N obj"] + [f" L r{i}" for i in range(rows)] + ["COLUMNS"]
    for j in range(cols):
        out.append(f" x{j} obj {-rng.uniform(0.5, 1.5):.6f}")
        for i in rng.choice(rows, max(1, int(density * rows)), replace=False):
            out.append(f" x{j} r{i} {rng.uniform(0.5, 2.0):.6f}")
    out.append("RHS")
    out += [f" rhs r{i} {rng.uniform(50, 100):.4f}" for i in range(rows)]
    out.append("BOUNDS")
    out += [f" UP bnd x{j} 10" for j in range(cols)]
    path.write_text("\n".join(out) + "\nENDATA\n")


def write_mip(path, rows=10, cols=45, seed=3):
    """A multidimensional knapsack with binary columns."""
    rng = np.random.default_rng(seed)
    weight = rng.integers(10, 100, (rows, cols))
    out = ["NAME mip", "ROWS", " N obj"] + [f" L r{i}" for i in range(rows)] + ["COLUMNS"]
    out.append(" M1 'MARKER' 'INTORG'")
    for j in range(cols):
        out.append(f" x{j} obj {-int(weight[:, j].mean() + rng.integers(0, 30))}")
        out += [f" x{j} r{i} {int(weight[i, j])}" for i in range(rows)]
    out.append(" M2 'MARKER' 'INTEND'")
    out.append("RHS")
    out += [f" rhs r{i} {int(weight[i].sum() // 3)}" for i in range(rows)]
    out.append("BOUNDS")
    out += [f" BV bnd x{j}" for j in range(cols)]
    path.write_text("\n".join(out) + "\nENDATA\n")


def run_highs(path):
    import highsbox

    lib = ctypes.CDLL(str(Path(highsbox.highs_dist_dir()) / "lib" / "libhighs.so"))
    lib.Highs_create.restype = ctypes.c_void_p
    lib.Highs_getObjectiveValue.restype = ctypes.c_double
    handle = ctypes.c_void_p(lib.Highs_create())
    lib.Highs_setBoolOptionValue(handle, b"output_flag", 0)
    lib.Highs_readModel(handle, str(path).encode())
    begin = time.process_time()
    lib.Highs_run(handle)
    return time.process_time() - begin, lib.Highs_getObjectiveValue(handle)


def run_nalora(path):
    import nalora

    nalora.setOutputEnabled(False)
    problem = nalora.problem()
    problem.read(str(path))
    begin = time.process_time()
    problem.solve()
    return time.process_time() - begin, problem.getObjVal()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--child", nargs=2)
    args = parser.parse_args()
    if args.child:
        run = {"HiGHS": run_highs, "nalora": run_nalora}[args.child[0]]
        print(MARK + json.dumps(run(Path(args.child[1]))), flush=True)
        os._exit(0)
    print(f"{'model':8}{'HiGHS s':>10}{'nalora s':>10}{'ratio':>8}   objectives")
    with tempfile.TemporaryDirectory() as folder:
        for name, write in (("lp", write_lp), ("mip", write_mip)):
            path = Path(folder) / f"{name}.mps"
            write(path)
            best, value = {}, {}
            for _ in range(args.repeat):
                for peer in ("HiGHS", "nalora"):
                    command = [sys.executable, __file__, "--child", peer, str(path)]
                    done = subprocess.run(command, capture_output=True, text=True, check=True)
                    line = next(t for t in done.stdout.splitlines() if t.startswith(MARK))
                    cpu, value[peer] = json.loads(line[len(MARK) :])
                    best[peer] = min(cpu, best.get(peer, cpu))
            ratio = best["nalora"] / best["HiGHS"]
            print(
                f"{name:8}{best['HiGHS']:10.3f}{best['nalora']:10.3f}{ratio:8.3f}"
                f"   {value['HiGHS']:.6f} {value['nalora']:.6f}"
            )
    return 0


if __name__ == "__main__":
    sys.exit(main())
