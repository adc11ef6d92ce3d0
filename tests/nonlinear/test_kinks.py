"""Functions with kinks beside smooth ones: exact where their position is convex."""

import itertools
import math

import pytest

import nalora

pytestmark = pytest.mark.usefixtures("silent")

GLOBAL = "nlp_globally_optimal"
LOCAL = "nlp_solution"
FREE = 1e20


def free(**kwargs):
    return nalora.var(lb=-FREE, **kwargs)


def optimum(p, status=GLOBAL):
    p.solve()
    assert p.getProbStatusString() == status
    return p.getObjVal()


def lowest(f, low, high):
    """The least value of a convex function between two points."""
    for _ in range(200):
        a, b = low + (high - low) / 3, high - (high - low) / 3
        low, high = (low, b) if f(a) < f(b) else (a, high)
    return f(low)


def test_kinks_in_the_objective_solved_again_and_again():
    x, y = free(), free()
    p = nalora.problem(x, y)
    curved = nalora.max(nalora.abs(x * x - 2 * x) - 1, 3 - x)  # and not convex
    for kink, best, place, status in [
        (nalora.abs(x - 1), 0, 1, GLOBAL),
        (nalora.max(x * x, nalora.exp(-x)), 0.49486641453, 0.70346742250, GLOBAL),
        (nalora.pwl({(-5, 0): -2 * x, (0, 5): x}) + nalora.exp(x), 1, 0, GLOBAL),
        (2 * curved, 5 - math.sqrt(17), (1 + math.sqrt(17)) / 2, LOCAL),
    ]:
        p.setObjective(kink + (y - 2) ** 4)
        for _ in range(2):
            assert optimum(p, status) == pytest.approx(best, abs=1e-6)
            assert p.getSolution(x) == pytest.approx(place, abs=1e-5)


def test_sums_of_maxima():
    n = 30
    x = [free() for _ in range(n)]
    p = nalora.problem(x)
    p.setObjective(
        nalora.Sum(
            nalora.max((x[i] - i / 7) ** 2, nalora.exp(-x[i]), nalora.abs(x[i]) - 1)
            for i in range(n)
        )
    )
    best = sum(
        lowest(lambda t, i=i: max((t - i / 7) ** 2, math.exp(-t), abs(t) - 1), -5, 5)
        for i in range(n)
    )
    assert optimum(p) == pytest.approx(best, rel=1e-7)


def test_minima_that_are_maximized():
    x, y = free(), free()
    p = nalora.problem(x, y)
    p.setObjective(
        nalora.min(nalora.log(x + 5), 3 - x * x) - nalora.abs(y - x), sense=nalora.maximize
    )
    best = -lowest(lambda t: -min(math.log(t + 5), 3 - t * t), -3, 3)
    assert optimum(p) == pytest.approx(best, abs=1e-6)
    assert p.getSolution(x) == pytest.approx(p.getSolution(y), abs=1e-5)


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
def test_duals_of_rows_with_kinks(sense):
    def solved(side, other, bound=4):
        x, y, z = free(), free(), nalora.var(ub=bound)
        p = nalora.problem(x, y, z)
        p.addConstraint(nalora.exp(x) + nalora.abs(y - x) <= side)
        p.addConstraint(nalora.min(nalora.sqrt(z + 1), 10 - z) - nalora.max(x, -y) >= other)
        p.addConstraint(x + y + z >= -20)
        p.setObjective(sense * (-x - y - nalora.min(z, 0.1 * z + 3)), sense=sense)
        return sense * optimum(p), p

    best, p = solved(3, 0)
    h = 1e-4
    slopes = [
        (solved(3 + h, 0)[0] - solved(3 - h, 0)[0]) / (2 * h),
        (solved(3, h)[0] - solved(3, -h)[0]) / (2 * h),
    ]
    assert [sense * d for d in p.getDual()] == pytest.approx([*slopes, 0], abs=1e-4)
    by_bound = (solved(3, 0, 4 + h)[0] - solved(3, 0, 4 - h)[0]) / (2 * h)
    assert [sense * d for d in p.getRCost()] == pytest.approx([0, 0, by_bound], abs=1e-4)
    x, y, z = p.getSolution()
    assert sense * p.getObjVal() == pytest.approx(best, abs=1e-9)
    assert p.getSlack() == pytest.approx(
        [
            3 - math.exp(x) - abs(y - x),
            -min(math.sqrt(z + 1), 10 - z) + max(x, -y),
            -20 - x - y - z,
        ],
        abs=1e-9,
    )


def test_smallest_circle_around_points():
    points = [(0, 0), (4, 0), (0, 3), (1, 1), (2, 2.9)]
    x, y = free(), free()
    p = nalora.problem(x, y)
    p.setObjective(nalora.max(*[(x - a) ** 2 + (y - b) ** 2 for a, b in points]))
    assert optimum(p) == pytest.approx(2.5**2)
    assert p.getSolution() == pytest.approx([2, 1.5], abs=1e-3)


def test_chebyshev_fit_of_an_exponential():
    # The errors alternate more often than the curve has parameters: no other curve fits better.
    data = [(0.25 * i, 2 * math.exp(0.125 * i) + 0.1 * (-1) ** i) for i in range(9)]
    a, b = free(), nalora.var(lb=-2, ub=2)
    p = nalora.problem(a, b)
    p.setObjective(nalora.max(*[nalora.abs(a * nalora.exp(b * t) - v) for t, v in data]))
    assert optimum(p, LOCAL) == pytest.approx(0.1, abs=1e-7)
    assert p.getSolution() == pytest.approx([2, 0.5], abs=1e-5)


def test_where_no_position_is_convex_the_optimum_is_local(capfd):
    x, y = free(), free()
    p = nalora.problem(x, y, y == nalora.abs(x) + 0 * y)
    p.setObjective((x - 1) ** 2 + nalora.exp(y) - y / 2)
    nalora.setOutputEnabled(True)
    best = lowest(lambda t: (t - 1) ** 2 + math.exp(abs(t)) - abs(t) / 2, 0, 1)
    assert optimum(p, LOCAL) == pytest.approx(best, abs=1e-6)
    assert "subgradients are used" in capfd.readouterr().out


@pytest.mark.parametrize("n", [6, 20])
def test_points_at_kinks_are_optima_in_all_directions(n):
    a, b = free(), free()
    errors = [a * t + b - 3 * t - (-1) ** t * (t * t % 7) for t in range(n)]
    smooth = 0.01 * nalora.exp(0.1 * a)
    best = optimum(nalora.problem(a, b, nalora.Sum(nalora.abs(e) for e in errors) + smooth))
    r = [nalora.var() for _ in errors]
    p = nalora.problem(a, b, r, [v == nalora.abs(e) for v, e in zip(r, errors)])
    p.setObjective(nalora.Sum(r) + smooth)
    p.solve()
    assert p.getProbStatusString() in (LOCAL, GLOBAL)
    assert p.getObjVal() == pytest.approx(best, abs=1e-5)


def test_problems_without_an_optimum():
    x, y = free(), free()
    p = nalora.problem(x, y, nalora.exp(x) + nalora.abs(y) <= 0.5, x + y >= 1, x)
    p.solve()
    assert p.getProbStatusString() == "nlp_infeasible"
    p = nalora.problem(x, y, nalora.max(x, nalora.exp(-y)) - 2 * nalora.abs(x) - x)
    p.solve()
    assert p.getProbStatusString() == "nlp_unbounded"


def test_integer_columns():
    def value(i, t):
        return max((i - 2.6) ** 2, math.exp(-t)) + abs(i - 3.3) + 0.1 * t

    x, y = nalora.var(ub=10, vartype=nalora.integer), free()
    p = nalora.problem(x, y, nalora.exp(y) + nalora.abs(x - 2 * y) <= 5)
    p.setObjective(nalora.max((x - 2.6) ** 2, nalora.exp(-y)) + nalora.abs(x - 3.3) + 0.1 * y)
    grid = [k / 2000 for k in range(-4000, 4000)]
    best = min(
        value(i, t)
        for i, t in itertools.product(range(11), grid)
        if math.exp(t) + abs(i - 2 * t) <= 5
    )
    assert optimum(p) == pytest.approx(best, abs=1e-3)


def test_user_functions_beside_kinks():
    calls = []

    def quartic(t):
        calls.append(t)
        return t**4

    def failing(t):
        raise ValueError("no value")

    x, y = free(), free()
    p = nalora.problem(x, y)
    p.setObjective(nalora.max(nalora.user(quartic, x), 1 - x) + nalora.abs(y - nalora.exp(x)))
    assert optimum(p, LOCAL) == pytest.approx(lowest(lambda t: max(t**4, 1 - t), 0, 1), abs=1e-6)
    assert calls
    p.setObjective(nalora.max(nalora.user(failing, x), 1 - x) + nalora.abs(y - nalora.exp(x)))
    with pytest.raises(ValueError, match="no value"):
        p.solve()
