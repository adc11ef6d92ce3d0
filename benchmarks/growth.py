#!/usr/bin/env python3
"""How the time of array operations grows with their size: n, 2n, 4n.

    python benchmarks/growth.py [name ...]

CPU ms, the best of some runs in this process, and the time per element in ns, which stays the same
where growth is linear.
"""

import gc
import sys
import time

import numpy as np

import nalora

nalora.setOutputEnabled(False)


def variables(n, **bounds):
    return nalora.vars(n, name="", **bounds)


def problem(x):
    p = nalora.problem()
    p.addVariable(x)
    return p


# Each case: what is counted, the size n, how to prepare data of size n, and what is timed.
CASES = {}


def case(counted, n, prepare):
    def add(function):
        CASES[function.__name__] = (counted, n, prepare, function)
        return function

    return add


@case("variables", 1_000_000, lambda n: (n,))
def vars_without_names(n):
    return variables(n)


@case("variables", 250_000, lambda n: (n,))
def vars_with_names(n):
    return nalora.vars(n, name="x")


@case("terms", 1_000_000, lambda n: (np.random.rand(n), variables(n)))
def dot_of_vectors(c, x):
    return nalora.Dot(c, x)


@case("terms", 1_000_000, lambda n: (np.random.rand(n).tolist(), variables(n).tolist()))
def sum_of_generator(c, x):
    return nalora.Sum(c[i] * x[i] for i in range(len(x)))


@case("terms", 1_000_000, lambda n: (variables(n),))
def sum_of_array(x):
    return nalora.Sum(x)


@case("coefficients", 1_000_000, lambda n: (np.random.rand(n // 1000, 1000), variables(1000)))
def dense_rows(a, x):
    p = problem(x)
    p.addConstraint(nalora.Dot(a, x) <= 1)


@case("coefficients", 1_000_000, lambda n: (np.random.rand(n // 1000, 1000), variables(1000)))
def dense_rows_by_matmul(a, x):
    p = problem(x)
    p.addConstraint(a @ x <= 1)


@case("pairs", 90_000, lambda n: (np.random.rand(r := round(n**0.5), r), variables(r)))
def quadratic_form(q, x):
    p = problem(x)
    p.setObjective(nalora.Dot(x, q, x))


def lists(n):
    size = round(n**0.5)
    return np.random.rand(size, size).tolist(), variables(size).tolist()


@case("pairs", 90_000, lists)
def quadratic_form_by_generator(q, x):
    p = problem(x)
    indices = range(len(x))
    p.setObjective(nalora.Sum(q[i][j] * x[i] * x[j] for i in indices for j in indices))


@case("variables", 40_000, lambda n: (round(n**0.5),))
def facility_location(n):
    x, y = nalora.vars(n, n, name="", ub=1), variables(n, ub=1)
    p = problem([x, y])
    demand, capacity = np.random.rand(n), 4 + np.random.rand(n)
    p.addConstraint(x.sum(axis=0) == 1, nalora.Dot(x, demand) <= capacity * y, x <= y[:, None])
    p.setObjective(nalora.Dot(np.random.rand(n), y) + nalora.Sum(np.random.rand(n, n) * x))


@case("rows", 200_000, lambda n: (n,))
def rows_by_slices(n):
    x = variables(n + 2, ub=1)
    p = problem(x)
    p.addConstraint(x[:-2] + 2 * x[1:-1] - x[2:] <= 1)


def three_term_rows(n):
    x = variables(n + 2)
    return problem(x), x[:-2] + 2 * x[1:-1] - x[2:] <= 1


@case("rows", 100_000, three_term_rows)
def add_constraint_array(p, rows):
    p.addConstraint(rows)


def solved(n):
    x = variables(n)
    p = problem(x)
    p.setObjective(nalora.Sum(x))
    p.solve()
    return p, x


@case("values", 100_000, solved)
def get_solution(p, x):
    return p.getSolution(x)


def measure(prepare, function, n):
    best = float("inf")
    for _ in range(5):
        data = prepare(n)
        gc.collect()
        start = time.process_time()
        result = function(*data)
        best = min(best, time.process_time() - start)
        del data, result
    return best


def main():
    chosen = sys.argv[1:] or list(CASES)
    print(f"{'':30}{'n':>10}{'n':>12}{'2n':>10}{'4n':>10}   ns per element")
    for name in chosen:
        counted, n, prepare, function = CASES[name]
        times = [measure(prepare, function, factor * n) for factor in (1, 2, 4)]
        columns = "".join(f"{1000 * t:10.2f}" for t in times)
        each = ", ".join(f"{1e9 * t / (f * n):.0f}" for t, f in zip(times, (1, 2, 4)))
        print(f"{name:30}{n:>10}  {columns}   {each} ({counted})")


if __name__ == "__main__":
    main()
