#!/usr/bin/env python3
"""What single edits of a large model cost: deletions, and look-ups and changes between them.

    python benchmarks/edits.py [size ...]

A model of n columns and n rows of two coefficients; CPU us per step, over 200 steps in one go, so
that what is put off until later is paid within the measurement: it ends with reading the model.
"""

import random
import sys
import time

import nalora

nalora.setOutputEnabled(False)
STEPS = 200


def model(n):
    x = nalora.vars(n, name="")
    named = nalora.vars(n // 10, name="x").tolist()
    p = nalora.problem(x, named)
    p.addConstraint(x[:-1] + x[1:] <= 1)
    p.getIndexFromName(2, named[0].name)  # the first look-up makes the index of names
    return p, x.tolist(), named, p.getConstraint()


def delete_variables(p, x, named, rows):
    for v in x:
        p.delVariable(v)


def delete_constraints(p, x, named, rows):
    for c in rows:
        p.delConstraint(c)


def delete_by_index(p, x, named, rows):
    for _ in x:
        p.delVariable(len(x))


def delete_and_ask_for_indices(p, x, named, rows):
    for v in x:
        p.delVariable(v)
        p.getIndex(named[0])


def delete_and_look_up_names(p, x, named, rows):
    for v, other in zip(x, named):
        p.delVariable(v)
        p.getIndexFromName(2, other.name)


def delete_by_name(p, x, named, rows):
    for v in named:
        p.delVariable(p.getIndexFromName(2, v.name))


def exchange_constraints(p, x, named, rows):
    """As a model with a moving horizon does."""
    new = [named[0] + named[i] <= 2 for i in range(STEPS)]
    for c, other in zip(rows, new):
        p.delConstraint(c)
        p.addConstraint(other)


def delete_and_change_bounds(p, x, named, rows):
    for v in x:
        p.delVariable(v)
        p.chgbounds([named[0]], ["U"], [2.0])


CASES = [
    delete_variables,
    delete_constraints,
    delete_by_index,
    delete_and_ask_for_indices,
    delete_and_look_up_names,
    delete_by_name,
    exchange_constraints,
    delete_and_change_bounds,
]


def measure(case, n):
    p, *objects = model(n)
    chosen = [random.Random(1).sample(o, STEPS) for o in objects]
    start = time.process_time()
    case(p, *chosen)
    p.getVariable(first=0, last=int(p.attributes.elems > 0))
    return (time.process_time() - start) / STEPS * 1e6


def main():
    sizes = [int(size) for size in sys.argv[1:]] or [30_000, 300_000]
    print(f"{'us a step':28}" + "".join(f"{size:>12,}" for size in sizes))
    for case in CASES:
        best = [min(measure(case, n) for _ in range(2)) for n in sizes]
        print(f"{case.__name__:28}" + "".join(f"{us:12.1f}" for us in best))


if __name__ == "__main__":
    main()
