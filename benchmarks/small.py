#!/usr/bin/env python3
"""Reading results one at a time, and models that are small.

    python benchmarks/small.py [--repeat 7]

The first table has the CPU time in us of one call that reads one value (or a small expression)
after solves of each class; it should not grow with the model. The second has the CPU time in us of
a model's whole life: made, built, solved, read and dropped. Best of several.
"""

import argparse
import gc
import time

import numpy as np

import nalora as N

CALLS = 2000
MODELS = 300
MATRIX = np.random.default_rng(1).integers(1, 9, (5, 5)).tolist()


def best(repeat, call, calls):
    """Least CPU time in us of a call, the garbage collector off."""
    times = []
    gc.disable()
    for _ in range(repeat):
        begin = time.process_time()
        for _ in range(calls):
            call()
        times.append(time.process_time() - begin)
    gc.enable()
    return min(times) / calls * 1e6


def over(getter, keys):
    """A call that reads all keys, one by one."""
    return lambda: [getter(key) for key in keys]


def chain(kind, n):
    """A solved problem of a class, its columns and its rows."""
    whole = N.integer if kind == "MIP" else N.continuous
    x = N.vars(n, name="x", ub=10, vartype=whole)
    rows = x[:-1] + x[1:] >= 1
    extra = {"QP": N.Sum(x[:50] * x[:50]), "NLP": N.exp(x[0])}.get(kind, 0)
    p = N.problem(x, rows, N.Sum(x) + extra)
    p.solve()
    return p, x.tolist(), rows.tolist()


def reading(kind, n, repeat):
    p, x, rows = chain(kind, n)
    columns = x[-CALLS:]
    a, b, c = x[0], x[n // 2], x[-1]
    cases = {
        "variable": (p.getSolution, columns),
        "index": (p.getSolution, range(n - CALLS, n)),
        "name": (p.getSolution, [v.name for v in columns]),
        "slack": (p.getSlack, rows[-CALLS:]),
        "linear": (p.getSolution, [2 * a + 3 * b - c] * CALLS),
        "square": (p.getSolution, [a * a + b * c] * CALLS),
        "formula": (p.getSolution, [N.exp(a) + N.sin(b)] * CALLS),
        "dual": (p.getDual, rows[-CALLS:]),
        "cost": (p.getRCost, columns),
    }
    if kind == "MIP":
        del cases["dual"], cases["cost"]
    return {name: best(repeat, over(*case), 1) / CALLS for name, case in cases.items()}


def small_model(kind):
    x = [N.var(ub=10, vartype=N.integer if kind == "MIP" else N.continuous) for _ in range(5)]
    rows = [N.Sum(a * v for a, v in zip(row, x)) <= 20 for row in MATRIX]
    return x, rows, N.problem(x, rows, N.Sum(x), sense=N.maximize)


def whole_life(kind):
    x, rows, p = small_model(kind)
    p.solve()
    return p.getSolution(x), p.getSlack(rows)


def again(x, p):
    p.chgbounds([x[0]], ["U"], [10.0])
    p.solve()
    return p.getSolution(x)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeat", type=int, default=7)
    args = parser.parse_args()
    N.setOutputEnabled(False)
    print("us a value")
    for kind in ("LP", "MIP", "QP", "NLP"):
        for n in (10_000, 100_000) if kind == "LP" else (10_000,):
            times = reading(kind, n, args.repeat)
            print(f"{kind:4}{n:7}  " + "  ".join(f"{k} {t:.2f}" for k, t in times.items()))
    x, _, p = small_model("LP")
    print("us a model")
    for name, call in {
        "problem made and dropped": N.problem,
        "5 x 5 LP, whole life": lambda: whole_life("LP"),
        "5 x 5 LP, solved again": lambda: again(x, p),
        "5 x 5 MIP, whole life": lambda: whole_life("MIP"),
    }.items():
        print(f"{name:28}{best(args.repeat, call, MODELS):8.1f}")


if __name__ == "__main__":
    main()
