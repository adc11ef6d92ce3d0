#!/usr/bin/env python3
"""Nonlinear models: building, what a solve costs beside Ipopt, and calls of user functions.

    python benchmarks/nonlinear.py [--repeat 5]

CPU ms, medians of the repeats, every run a process of its own. A clock between the engine and
Ipopt (native/ipopt_clock.cpp) tells Ipopt's own time from that of the functions which it calls, so
"above" is all of a solve that is not Ipopt: values, derivatives, and the engine around them.
"""

import argparse
import ctypes
import json
import os
import statistics
import subprocess
import sys
import time

import run
from adapters.compiled import package, shared_library

TERMS = 50_000


def array(nalora, n, start, **bounds):
    x = nalora.vars(n, name="", **bounds)
    p = nalora.problem()
    p.addVariable(x)
    for xi in x.tolist():
        p.chgvar(xi, initvalue=start)
    return p, x


def four_variables(nalora):
    """Problem 71 of Hock and Schittkowski."""
    p, x = array(nalora, 4, 1.0, lb=1, ub=5)
    p.addConstraint(nalora.Sum(x**2) == 40, x[0] * x[1] * x[2] * x[3] >= 25)
    for xi, value in zip(x.tolist(), (1, 5, 5, 1)):
        p.chgvar(xi, initvalue=value)
    p.setObjective(x[0] * x[3] * (x[0] + x[1] + x[2]) + x[2])
    return p


def sum_of_terms(nalora):
    p, x = array(nalora, TERMS + 1, 0.5, lb=-1, ub=1)
    p.setObjective(nalora.Sum(nalora.exp(x[:-1]) * nalora.sin(x[1:]) + x[:-1] ** 3))
    return p


def tridiagonal(nalora):
    """Broyden's tridiagonal equations in 20,000 variables, by least squares."""
    p, x = array(nalora, 20_000, -1.0, lb=-10, ub=10)
    f = (3 - 2 * x) * x + 1
    inner = f[1:-1] - x[:-2] - 2 * x[2:]
    p.setObjective(nalora.Sum(inner**2) + (f[0] - 2 * x[1]) ** 2 + (f[-1] - x[-2]) ** 2)
    return p


def control(nalora):
    """A pendulum swung up and stopped, by the trapezoidal rule: 20,000 variables, 13,332 rows."""
    steps, end = 6_666, 8.0
    h = end / steps
    p, x = array(nalora, 3 * (steps + 1), 0.1, lb=-10, ub=10)
    angle, speed, torque = x.reshape(3, steps + 1)
    change = torque - nalora.sin(angle)
    p.addConstraint(angle[1:] - angle[:-1] == h / 2 * (speed[1:] + speed[:-1]))
    p.addConstraint(speed[1:] - speed[:-1] == h / 2 * (change[1:] + change[:-1]))
    p.addConstraint(angle[0] == 0, speed[0] == 0, angle[-1] == 3.14159, speed[-1] == 0)
    p.setObjective(h * nalora.Sum(torque**2))
    return p


MODELS = {f.__name__: f for f in (four_variables, sum_of_terms, tridiagonal, control)}


def new_clock():
    read = ctypes.CDLL(None).ipopt_clock_read
    seconds = (ctypes.c_double * 3)()

    def clock():
        read(seconds)
        return tuple(seconds)

    return clock


def solve(name, clock):
    import nalora

    nalora.setOutputEnabled(False)
    times = []
    for _ in range(20 if name == "four_variables" else 1):
        p = MODELS[name](nalora)
        clock()
        begin = time.process_time()
        p.nlpoptimize()
        times.append((time.process_time() - begin, *clock()))
        if p.attributes.nslp_status not in (
            nalora.nlp_locally_optimal,
            nalora.nlp_globally_optimal,
        ):
            sys.exit(f"not solved: {p.getProbStatusString()}")
    return [statistics.median(column) for column in zip(*times)]


def resolve(name, _):
    """Seconds of the first solve, of one without a change, and, after a change of a cost and a
    bound, of a solve from the last end and of a first one."""
    import nalora

    nalora.setOutputEnabled(False)

    def timed(p):
        begin = time.process_time()
        p.nlpoptimize()
        return time.process_time() - begin

    def change(p):
        p.chgobj([0], [0.01])
        p.chgbounds([1], ["U"], [4.9 if name == "four_variables" else 0.9])

    p, fresh = MODELS[name](nalora), MODELS[name](nalora)
    times = [timed(p), timed(p)]
    change(p), change(fresh)
    return [*times, timed(p), timed(fresh)]


def user_function(name, clock):
    """Seconds a call: bare, and within a solve with all that the engine does around it."""
    import nalora

    nalora.setOutputEnabled(False)
    calls = 0

    def function(a, b):
        nonlocal calls
        calls += 1
        return a * a + b * b, 2.0 * a, 2.0 * b

    points = [(0.1 * i, 0.2) for i in range(20_000)]
    begin = time.process_time()
    for point in points:
        function(*point)
    bare = (time.process_time() - begin) / calls

    p, x = array(nalora, 2000, 0.5, lb=-1, ub=1)
    v = x.tolist()
    terms = [nalora.user(function, a, b, derivatives=True) for a, b in zip(v, v[1:])]
    p.setObjective(nalora.Sum(terms))
    calls = 0
    clock()
    p.nlpoptimize()
    _, values, derivatives = clock()
    return bare, (values + derivatives) / calls


def child(task, name):
    result = {"solve": solve, "resolve": resolve, "user": user_function}[task](name, new_clock())
    print(run.MARK + json.dumps(result), flush=True)
    os._exit(0)


def measure(task, name, repeat):
    """Medians over some runs under the clock."""
    headers = package("casadi") / "include" / "coin-or"
    clock = shared_library("ipopt_clock.cpp", f"-I{headers}", "-ldl")
    env = dict(os.environ, LD_PRELOAD=str(clock), OPENBLAS_NUM_THREADS="1")
    runs = []
    for _ in range(repeat):
        command = [sys.executable, __file__, "--child", task, name]
        done = subprocess.run(command, capture_output=True, text=True, env=env)
        line = next((t for t in done.stdout.splitlines() if t.startswith(run.MARK)), None)
        if line is None:
            return None, (done.stderr.strip().splitlines() or ["no output"])[-1]
        runs.append(json.loads(line[len(run.MARK) :]))
    return [1000 * statistics.median(column) for column in zip(*runs)], None


def building(repeat):
    print(f"building and loading a sum of {TERMS:,} terms exp(x)*sin(y) + x**3")
    for peer, styles in (("floor", ["csc"]), ("nalora", ["plain", "quick", "vector"])):
        for style in styles:
            runs = [run.measure(peer, "w8", style, TERMS, 120) for _ in range(repeat)]
            failed = [one["error"] for one in runs if "error" in one]
            cpu = 0 if failed else 1000 * statistics.median(one["cpu"] for one in runs)
            print(f"  {peer + ' ' + style:20}" + (failed[0] if failed else f"{cpu:10.2f}"))


def solving(repeat):
    print("\nsolving")
    heads = ("solve", "Ipopt", "values", "derivat.", "above")
    print(f"  {'':20}" + "".join(f"{head:>10}" for head in heads) + f"{'share':>8}")
    for name in MODELS:
        times, error = measure("solve", name, repeat)
        if error:
            print(f"  {name:20}  {error}")
            continue
        whole, ipopt, values, derivatives = times
        own = ipopt - values - derivatives
        columns = "".join(f"{t:10.2f}" for t in (whole, own, values, derivatives, whole - own))
        print(f"  {name:20}{columns}{derivatives / whole:8.1%}")
    print("  share: the derivatives' share of the solve")


def resolving(repeat):
    print("\nsolving again")
    heads = ("first", "unchanged", "changed", "cold", "ratio")
    print(f"  {'':20}" + "".join(f"{head:>10}" for head in heads))
    for name in MODELS:
        times, error = measure("resolve", name, repeat)
        if error:
            print(f"  {name:20}  {error}")
            continue
        ratio = times[2] / times[3]
        print(f"  {name:20}" + "".join(f"{t:10.2f}" for t in times) + f"{ratio:10.2f}")
    print("  ratio: changed over cold, for the same change")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--child", nargs=2)
    args = parser.parse_args()
    if args.child:
        return child(*args.child)
    building(args.repeat)
    solving(args.repeat)
    resolving(args.repeat)
    print("\ncalls of a user function with derivatives, us a call")
    times, error = measure("user", "-", args.repeat)
    if error:
        print(f"  {error}")
    else:
        bare, inside = (1000 * t for t in times)
        print(f"  bare {bare:.3f}, in a solve {inside:.3f}, ratio {inside / bare:.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
