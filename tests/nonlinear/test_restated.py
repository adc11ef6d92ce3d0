"""Models whose convexity is hidden by defining equalities, cones and logarithms of sums."""

from random import Random

import pytest

import nalora
from nalora import exp, log, sqrt, var

GLOBAL = "nlp_globally_optimal"
pytestmark = pytest.mark.usefixtures("silent")


def free():
    return var(lb=-nalora.infinity)


# Of a column x between -3 and 3, columns a, b, c without bounds, and r, s that are not negative:
# rows, objective, and the optimum with x continuous and integer.
CONVEX = {
    "objective column": (lambda m: [exp(m.x) + (m.x - 1) ** 2 - m.a == 0], "a", 1.8394843, 2),
    "chain": (
        lambda m: [m.a == exp(m.x), m.b == m.a + (m.c - 1) ** 2, m.s == 2 * m.b - 4 * m.x + 3],
        "s",
        4.2274113,
        4.4365637,
    ),
    "squared": (lambda m: [m.a == exp(m.x), m.b == m.a * m.a - 3 * m.x], "b", 0.8918023, 1),
    "quadratic": (lambda m: [m.a == m.x**2 + m.b**2 - 3 * m.x + m.b], "a", -2.5, -2.25),
    "kinks": (
        lambda m: [m.r == nalora.abs(m.x - 1.3), m.s == nalora.abs(m.x + 2 * m.r - 0.4)],
        "2*r + s",
        0.9,
        1.8,
    ),
    "used nowhere": (lambda m: [m.a == nalora.sin(m.x)], "(x-1)**2 + exp(x)", 1.8394843, 2),
    "cone": (lambda m: [m.a**2 + m.b**2 <= m.x**2, m.a + m.b >= 3, m.x >= 0], "x", 2.1213203, 3),
    "cone's boundary": (
        lambda m: [m.s**2 == m.x**2 + m.a**2 + 1, m.a + m.x >= 2.7],
        "s + x/10",
        2.2848314,
        2.3113344,
    ),
    "cone and formula": (
        lambda m: [m.a**2 + 1 <= m.r**2, m.x <= m.r],
        "r - x + exp(a)",
        0.0591057,
        0.0591057,
    ),
    "rotated": (lambda m: [m.a**2 <= m.x * m.r, m.a >= 2, m.x >= 0], "x + 2*r", 5.6568542, 17 / 3),
    "hyperbola": (lambda m: [m.x * m.r >= 7, m.x >= 0.5], "x + r", 5.2915026, 16 / 3),
    "apex": (lambda m: [m.a**2 + m.b**2 <= m.r**2], "r + a/2 + x", -3, -3),
    "sign by a row": (
        lambda m: [(m.a - 1) ** 2 + (m.b - m.x) ** 2 <= (m.b + m.x) ** 2, m.b + m.x >= 1],
        "3*b + 2*x + a",
        2.3819660,
        8 / 3,
    ),
    "log-sum-exp": (
        lambda m: [log(exp(m.x) + 2 * exp(m.a) + 1) <= 2],
        "-x - a",
        -1.6297315,
        -1.6072555,
    ),
    "norm": (lambda m: [m.x + m.a >= 2.5], "sqrt(x*x + 2*a*a + 1) + x/10", 2.4359054, 2.5452079),
}
LOOK_ALIKES = {
    "bound that holds": (lambda m: [m.r == exp(m.x) - 2], "r"),
    "pulled both ways": (lambda m: [m.a == exp(m.x), m.a + m.b >= 2, m.a - m.b <= 5], "x"),
    "pulled up": (lambda m: [m.a == exp(m.x) - 2 * m.x], "-a"),
    "double cone": (lambda m: [m.x**2 + 1 <= m.a**2], "x + exp(a)"),
    "half a rotated cone": (lambda m: [m.x**2 <= m.r * m.a], "x + r + exp(a)"),
    "two negative squares": (lambda m: [m.x**2 + 1 <= m.r**2 + m.s**2], "exp(r) + s - x"),
    "outside of a cone": (lambda m: [m.x**2 + m.a**2 >= m.r**2, m.r >= 1], "exp(x) + a - r"),
    "difference": (lambda m: [log(9 * exp(m.x) - exp(m.a)) <= 1, m.a <= 1], "-x - a"),
}


class Columns:
    def __init__(self, vartype):
        self.x = var(lb=-3, ub=3, vartype=vartype)
        self.a, self.b, self.c, self.r, self.s = free(), free(), free(), var(), var()


def problem(build, objective, vartype, sense=nalora.minimize):
    m = Columns(vartype)
    p = nalora.problem(list(vars(m).values()), sense=sense)
    p.addConstraint(build(m))
    p.setObjective(sense * eval(objective, dict(vars(m), exp=exp, sqrt=sqrt)))
    return p


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
@pytest.mark.parametrize("name", CONVEX)
def test_hidden_convexity_is_seen(name, sense):
    build, objective, *optima = CONVEX[name]
    for vartype, optimum in zip([nalora.continuous, nalora.integer], optima):
        p = problem(build, objective, vartype, sense)
        p.solve()
        assert p.getProbStatusString() in (GLOBAL, "lp_optimal", "mip_optimal")
        assert p.getObjVal() == pytest.approx(sense * optimum, abs=1e-6)
        for row in p.getConstraint():
            assert row.lb < row.ub or p.getSlack(row) == pytest.approx(0, abs=1e-6)


@pytest.mark.parametrize("name", LOOK_ALIKES)
def test_what_only_looks_convex_is_not_claimed(name):
    build, objective = LOOK_ALIKES[name]
    p = problem(build, objective, nalora.continuous)
    p.solve()
    assert p.getProbStatusString() != GLOBAL
    with pytest.raises(nalora.SolverError, match="not convex"):
        problem(build, objective, nalora.integer).solve()


def test_duals_are_those_of_the_rows_as_they_stand():
    a, b, t = free(), free(), var()
    cone, line = 2 * t * t >= 2 * a * a + 2 * b * b, a + b >= 3
    p = nalora.problem(a, b, t, cone, line)
    p.setObjective(t)
    p.solve()
    assert p.getDual(cone, line) == pytest.approx([0.5 / 18**0.5, 0.5**0.5], abs=1e-6)
    x, t = var(ub=3), free()
    row = exp(x) - 2 * x - t == 1

    p = nalora.problem(x, t, row)
    p.setObjective(t)
    p.solve()
    assert p.getDual(row) == pytest.approx(-1, abs=1e-6)
    p.setObjective(3 * t)
    p.solve()
    assert p.getDual(row) == pytest.approx(-3, abs=1e-6)


def random_model(random, vartype, rewritten):
    """A convex model with all that is nonlinear in place, or by columns that equalities define."""
    x = [var(lb=-2, ub=3, vartype=vartype if i == 0 else nalora.continuous) for i in range(3)]
    p = nalora.problem(x)

    def column(value):
        factor = random.choice([-2, 1, 3])
        if not rewritten:
            return value
        defined = free()
        p.addVariable(defined)
        p.addConstraint(factor * value + 1 == factor * defined + 1)
        return defined

    def line():
        weights = [random.randint(-2, 2) for _ in x]
        return nalora.Sum(w * v for w, v in zip(weights, x)) + random.choice([0.5, 1.5])

    def convex():
        kinds = [
            lambda: exp(column(line() / 2)),
            lambda: line() ** 2 + line() ** 2,
            lambda: nalora.abs(column(line())),
            lambda: log(column(column(exp(line())) + 2 * exp(line()))),
            lambda: sqrt(column(line() ** 2 + column(line()) ** 2 + 1)),
            lambda: -3 * log(column(x[1] + 3)),
            lambda: column(column(exp(x[2])) ** 2) / 9,
        ]
        return column(random.choice(kinds)())

    terms = [random.choice([0.5, 1, 2]) * convex() for _ in range(3)]
    p.setObjective(column(nalora.Sum(terms) + line()))
    p.addConstraint(column(convex() + convex()) <= 25, x[0] + x[1] + x[2] >= 1)
    return p


@pytest.mark.parametrize("vartype", [nalora.continuous, nalora.integer])
def test_defining_equalities_change_no_optimum(vartype):
    for seed in range(6):
        random = Random(seed), Random(seed)
        plain, rewritten = (random_model(r, vartype, w) for r, w in zip(random, (False, True)))
        plain.solve()
        rewritten.solve()
        assert plain.getProbStatusString() == rewritten.getProbStatusString() == GLOBAL
        assert rewritten.getObjVal() == pytest.approx(plain.getObjVal(), rel=1e-6, abs=1e-6)
