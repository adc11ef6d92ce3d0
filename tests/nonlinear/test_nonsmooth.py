"""Models of abs, min, max, sign, And, Or and pwl, which are solved exactly."""

import itertools

import pytest

import nalora

pytestmark = pytest.mark.usefixtures("silent")

GLOBAL = "nlp_globally_optimal"
FREE = 1e20


def optimum(p):
    p.solve()
    assert p.getProbStatusString() == GLOBAL
    return p.getObjVal()


def value(p, expression):
    return nalora.evaluate(expression, problem=p)


def median(points):
    return sorted(points)[len(points) // 2]


def test_location_by_absolute_distances():
    places = [(1, 5), (2, -3), (7, 4), (3, 0), (-4, 2)]
    x, y = nalora.var(lb=-FREE), nalora.var(lb=-FREE)
    p = nalora.problem(x, y)
    p.setObjective(nalora.Sum(nalora.abs(x - a) + nalora.abs(y - b) for a, b in places))
    middle = [median(list(axis)) for axis in zip(*places)]
    best = sum(abs(middle[0] - a) + abs(middle[1] - b) for a, b in places)
    assert optimum(p) == pytest.approx(best)
    assert p.getSolution() == pytest.approx(middle)


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
def test_minimax_with_duals(sense):
    def solved(rhs):
        x, y = nalora.var(lb=-FREE), nalora.var(lb=-FREE)
        worst = nalora.max(x + 2 * y, 3 - x, nalora.abs(y) - 1)
        p = nalora.problem(x, y, x + y >= rhs, nalora.max(x, y) <= 10, sense=sense)
        p.setObjective(sense * worst, sense=sense)
        best = optimum(p)
        assert sense * value(p, worst) == pytest.approx(best)
        return best, p

    best, p = solved(6)
    assert (solved(6.001)[0] - best) / 0.001 == pytest.approx(p.getDual()[0], abs=1e-6)
    assert p.getSlack()[0] == pytest.approx(0, abs=1e-7)
    assert p.getRCost() == pytest.approx([0, 0], abs=1e-7)


@pytest.mark.parametrize("vartype", [nalora.continuous, nalora.integer])
def test_piecewise_costs_of_all_shapes(vartype):
    shapes = {
        "convex": {(0, 4): lambda x: x, (4, 10): lambda x: 3 * x - 8},
        "concave": {(0, 4): lambda x: 3 * x, (4, 10): lambda x: x + 8},
        "stepped": {(0, 4): lambda x: x, (4, 8): lambda x: x + 5, (8, 10): lambda x: 0.5 * x + 2},
    }
    for (_, first), (_, second) in itertools.product(shapes.items(), repeat=2):
        x, y = nalora.var(ub=10, vartype=vartype), nalora.var(ub=10, vartype=vartype)
        cost = nalora.pwl({k: f(x) for k, f in first.items()})
        other = nalora.pwl({k: f(y) for k, f in second.items()})
        p = nalora.problem(x, y, x + y == 11, cost + other)
        best = optimum(p)
        assert value(p, cost + other) == pytest.approx(best)

        def at(pieces, point):
            last = max(k for k in pieces if k[0] <= point)
            return pieces[last](point)

        grid = [k / 100 for k in range(100, 1001)]
        if vartype == nalora.integer:
            grid = range(1, 11)
        brute = min(at(first, k) + at(second, 11 - k) for k in grid)
        assert best == pytest.approx(brute, abs=0.05 if vartype == nalora.continuous else 1e-6)


def test_logic_over_binaries():
    b = [nalora.var(vartype=nalora.binary) for _ in range(4)]
    both = nalora.And(b[0], nalora.Or(b[1], b[2]), 1 - b[3])
    gain = 3 * both - 2 * b[0] - 0.5 * b[1] - b[2] + b[3]
    rules = [
        (None, lambda a: True),
        (nalora.Or(b[1], b[3]) == 0, lambda a: a[1] == a[3] == 0),
        (nalora.And(b[0], b[3]) >= 1, lambda a: a[0] == a[3] == 1),
    ]
    for rule, allowed in rules:
        p = nalora.problem(b, gain, sense=nalora.maximize)
        if rule is not None:
            p.addConstraint(rule)
        best = max(
            3 * min(a[0], max(a[1], a[2]), 1 - a[3]) - 2 * a[0] - a[1] / 2 - a[2] + a[3]
            for a in itertools.product((0, 1), repeat=4)
            if allowed(a)
        )
        assert optimum(p) == pytest.approx(best)
        assert value(p, gain) == pytest.approx(best)


def test_sign():
    n = nalora.var(lb=-5, ub=5, vartype=nalora.integer)
    p = nalora.problem(n, nalora.sign(n - 2) >= 1, n)
    assert optimum(p) == 3
    p = nalora.problem(n, nalora.sign(n) + nalora.abs(n + 3))
    assert optimum(p) == -1
    x = nalora.var(lb=-5, ub=5)
    p = nalora.problem(x, nalora.sign(x - 2) >= 1, x)
    assert optimum(p) == pytest.approx(2, abs=1e-4)
    assert value(p, nalora.sign(x - 2)) == 1
    p = nalora.problem(x, nalora.sign(x - 2) == 0, x)
    assert optimum(p) == pytest.approx(2)


def test_statuses():
    x, y = nalora.var(lb=-FREE), nalora.var(lb=-FREE)

    def status(*parts, **keywords):
        p = nalora.problem(x, y, *parts, **keywords)
        p.solve()
        return p.getProbStatusString()

    assert status(nalora.abs(x) + nalora.abs(y) <= -1, x) == "nlp_infeasible"
    assert status(nalora.abs(x) >= 2, nalora.max(x, y) <= 1, nalora.min(x, y) >= -1) == (
        "nlp_infeasible"
    )
    assert status(nalora.abs(x) - y) == "nlp_unbounded"
    assert status(nalora.max(x, y) - x - y) == "nlp_unbounded"
    assert status(y >= 0, y - nalora.abs(x)) == "nlp_unbounded"
    assert status(nalora.abs(x) >= 2, nalora.abs(x + y) + nalora.abs(y) <= 1) == "nlp_infeasible"


def least_absolute_deviations(vartype):
    points = [(t, 3 * t - 2 + (-1) ** t * t % 7) for t in range(1, 60)]
    a, b = (nalora.var(lb=-FREE, vartype=vartype) for _ in "ab")
    error = [nalora.var() for _ in points]
    rows = [e == nalora.abs(a * t + b - v) for e, (t, v) in zip(error, points)]
    best = nalora.problem(a, b, nalora.Sum(nalora.abs(a * t + b - v) for t, v in points))
    return optimum(best), a, b, *error, *rows, nalora.Sum(error)


def test_arguments_without_finite_bounds():
    x, y = nalora.var(lb=-FREE), nalora.var(lb=-FREE)
    u, v, b = nalora.var(), nalora.var(), nalora.var(vartype=nalora.binary)
    w = {(-FREE, -2): -2 * x - 2, (-2, 0): x + 4, (0, 1): 4 - 5 * x, (1, FREE): 3 * x - 4}
    cost = [nalora.pwl({(0, 4): 3 * t, (4, FREE): t + 8}) for t in (u, v)]
    flat = nalora.pwl({(-FREE, 0): 0 * x, (0, 1): -x, (1, FREE): 0 * x - 1})
    for best, *parts in [
        (1, x, y, nalora.abs(x) + nalora.abs(y) >= 1, nalora.abs(x) + 2 * nalora.abs(y)),
        (-1, x, nalora.pwl(w)),
        (18, u, v, u + v >= 10, cost[0] + cost[1]),
        (2, u, v, nalora.min(u, v) == 0, u + 2 * v >= 4, 2 * u + v),
        (-1, x, x >= -20, flat),
        (8, x, b, b * nalora.max(x, -5) >= 3, x + 5 * b),
        (0, x, nalora.sign(x) == 1, x >= -5, 3 * x),
        least_absolute_deviations(nalora.continuous),
        least_absolute_deviations(nalora.integer),
    ]:
        assert optimum(nalora.problem(*parts)) == pytest.approx(best, abs=1e-4)


def test_convex_quadratic_beside_kinks():
    x, y = nalora.var(lb=-FREE), nalora.var(lb=-FREE)
    p = nalora.problem(x, y, nalora.abs(x - y) <= 1, x * x + y * y - 4 * x + nalora.abs(x))
    # The gradient of (x - 1.5)^2 + y^2 along x = y + 1 is zero at x = 1.25.
    assert optimum(p) == pytest.approx(1.25**2 + 0.25**2 - 5 + 1.25, abs=1e-6)


def test_limits_and_changes():
    x = [nalora.var(ub=20, vartype=nalora.integer) for _ in range(12)]
    steps = [nalora.pwl({(0, 5): 3 * v, (5, 20): v + 10 + k % 3}) for k, v in enumerate(x)]
    p = nalora.problem(x, nalora.Sum(x) >= 100)
    p.setObjective(nalora.Sum(steps))
    p.controls.timelimit = 0
    p.solve()
    assert p.getProbStatusString() == "nlp_unfinished"
    assert p.attributes.nslp_stopstatus == nalora.stop_timelimit
    p.controls.timelimit = 1e20
    best = optimum(p)
    assert best == pytest.approx(151)
    p.chgrhs([0], [0])
    assert optimum(p) == pytest.approx(0)
