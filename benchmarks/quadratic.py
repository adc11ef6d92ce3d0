#!/usr/bin/env python3
"""Convex quadratic models solved again and again: a portfolio with a dense covariance.

    python benchmarks/quadratic.py [--repeat 3] [--columns 100 300 1000]

CPU ms a solve, the mean over a series of re-solves and of that the best of some runs, each in a
process of its own: HiGHS through its C interface, changed in place, and nalora. Before each
re-solve all linear costs change, or the required return, or the bounds of a tenth of the columns,
or nothing. Both must find the same objective values.
"""

import argparse
import ctypes
import json
import os
import subprocess
import sys
import time
from pathlib import Path

import numpy as np

MARK = "@@RESULT@@"
CHANGES = ("objective", "rhs", "bounds", "nothing")


def portfolio(n):
    """Covariance by factors, expected returns, and the generator for what changes."""
    rng = np.random.default_rng(n)
    factors = 0.1 * rng.normal(size=(n, max(10, n // 5)))
    covariance = factors @ factors.T / factors.shape[1] + np.diag(rng.uniform(0.01, 0.05, n))
    return (covariance + covariance.T) / 2, rng.uniform(0.02, 0.2, n), rng


class HighsPeer:
    def __init__(self, covariance, returns):
        import highsbox

        self.lib = ctypes.CDLL(str(Path(highsbox.highs_dist_dir()) / "lib" / "libhighs.so"))
        self.lib.Highs_create.restype = ctypes.c_void_p
        self.lib.Highs_getObjectiveValue.restype = ctypes.c_double
        self.handle = ctypes.c_void_p(self.lib.Highs_create())
        self.lib.Highs_setBoolOptionValue(self.handle, b"output_flag", 0)
        n = self.n = len(returns)
        rows = np.vstack([np.ones(n), returns])
        lower, upper = np.array([1.0, 0.1]), np.array([1.0, np.inf])
        counts = np.arange(n, 0, -1)
        hessian = [2 * covariance[j:, j] for j in range(n)]
        self.lib.Highs_passModel(
            self.handle, n, 2, 2 * n, int(counts.sum()), 2, 1, 1, ctypes.c_double(0),
            *map(self.reals, (np.zeros(n), np.zeros(n), np.full(n, 0.2), lower, upper)),
            self.integers([0, n]), self.integers([*range(n)] * 2), self.reals(rows),
            self.integers(np.concatenate([[0], np.cumsum(counts)[:-1]])),
            self.integers(np.concatenate([np.arange(j, n) for j in range(n)])),
            self.reals(np.concatenate(hessian)), None,
        )  # fmt: skip

    def reals(self, values):
        self.kept = [*getattr(self, "kept", []), np.ascontiguousarray(values, dtype=float)]
        return self.kept[-1].ctypes.data_as(ctypes.c_void_p)

    def integers(self, values):
        self.kept = [*getattr(self, "kept", []), np.ascontiguousarray(values, dtype=np.int32)]
        return self.kept[-1].ctypes.data_as(ctypes.c_void_p)

    def change(self, what, value):
        if what == "objective":
            self.lib.Highs_changeColsCostByRange(self.handle, 0, self.n - 1, self.reals(value))
        elif what == "rhs":
            sides = ctypes.c_double(value), ctypes.c_double(np.inf)
            self.lib.Highs_changeRowBounds(self.handle, 1, *sides)
        elif what == "bounds":
            bounds = self.reals(np.zeros(self.n)), self.reals(value)
            self.lib.Highs_changeColsBoundsByRange(self.handle, 0, self.n - 1, *bounds)

    def solve(self):
        self.lib.Highs_run(self.handle)
        return self.lib.Highs_getObjectiveValue(self.handle)


class NaloraPeer:
    def __init__(self, covariance, returns):
        import nalora

        nalora.setOutputEnabled(False)
        self.problem = p = nalora.problem()
        self.x = nalora.vars(len(returns), name="", ub=0.2)
        p.addVariable(self.x)
        self.returns = nalora.Dot(returns, self.x) >= 0.1
        p.addConstraint(nalora.Sum(self.x) == 1, self.returns)
        p.setObjective(nalora.Dot(self.x, covariance, self.x))

    def change(self, what, value):
        if what == "objective":
            self.problem.chgobj(self.x.tolist(), value.tolist())
        elif what == "rhs":
            self.problem.chgrhs([self.returns], [value])
        elif what == "bounds":
            n = len(value)
            self.problem.chgbounds(self.x.tolist(), ["U"] * n, value.tolist())

    def solve(self):
        self.problem.solve()
        return self.problem.getObjVal()


PEERS = {"HiGHS": HighsPeer, "nalora": NaloraPeer}


def series(peer, what, n):
    """CPU seconds of the first solve and of each re-solve, and all objective values."""
    covariance, returns, rng = portfolio(n)
    solver = PEERS[peer](covariance, returns)
    begin = time.process_time()
    values = [solver.solve()]
    first = time.process_time() - begin
    count = 50 if n < 1000 else 10
    begin = time.process_time()
    for _ in range(count):
        value = {
            "objective": -0.05 * returns * (1 + 0.1 * rng.normal(size=n)),
            "rhs": rng.uniform(0.08, 0.16),
            "bounds": np.where(rng.random(n) < 0.1, rng.uniform(0.01, 0.2, n), 0.2),
            "nothing": None,
        }[what]
        solver.change(what, value)
        values.append(solver.solve())
    return first, (time.process_time() - begin) / count, values


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--columns", type=int, nargs="+", default=[100, 300, 1000])
    parser.add_argument("--child", nargs=3)
    args = parser.parse_args()
    if args.child:
        peer, what, n = args.child
        print(MARK + json.dumps(series(peer, what, int(n))), flush=True)
        os._exit(0)
    heads = ("HiGHS first", "again", "nalora first", "again", "ratio")
    print(f"{'columns':>7} {'changed':10}" + "".join(f"{head:>13}" for head in heads))
    for n in args.columns:
        for what in CHANGES:
            first, again, values = {}, {}, {}
            for _ in range(args.repeat):
                for peer in PEERS:
                    command = [sys.executable, __file__, "--child", peer, what, str(n)]
                    done = subprocess.run(command, capture_output=True, text=True, check=True)
                    line = next(t for t in done.stdout.splitlines() if t.startswith(MARK))
                    one, mean, values[peer] = json.loads(line[len(MARK) :])
                    first[peer] = min(1000 * one, first.get(peer, np.inf))
                    again[peer] = min(1000 * mean, again.get(peer, np.inf))
            if not np.allclose(values["HiGHS"], values["nalora"], rtol=1e-6, atol=1e-9):
                sys.exit(f"{n} columns, {what}: the objective values differ")
            times = (first["HiGHS"], again["HiGHS"], first["nalora"], again["nalora"])
            ratio = again["nalora"] / again["HiGHS"]
            print(f"{n:7} {what:10}" + "".join(f"{t:13.2f}" for t in times) + f"{ratio:13.3f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
