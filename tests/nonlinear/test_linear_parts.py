"""What is linear, quadratic or constant in nonlinear rows and objectives is coefficients of the
problem, which can be changed there."""

import math
import random

import pytest

import nalora

N = 3


def tree(r, x, level):
    """An expression, its polynomial {column indices: coefficient}, and the rest as a function."""
    i, j, c = r.randrange(N), r.randrange(N), r.choice([-1, 1, 2.5])
    if level == 0:
        return r.choice(
            [
                lambda: (c, {(): c}, lambda v: 0.0),
                lambda: (c * x[i], {(i,): c}, lambda v: 0.0),
                lambda: (c * x[i] * x[j], {tuple(sorted((i, j))): c}, lambda v: 0.0),
                lambda: (nalora.exp(c * x[i]), {}, lambda v: math.exp(c * v[i])),
                lambda: (x[i] * nalora.sin(x[j]), {}, lambda v: v[i] * math.sin(v[j])),
                lambda: (nalora.max(x[i], c + x[j]), {}, lambda v: max(v[i], c + v[j])),
            ]
        )()
    a, p, f = tree(r, x, level - 1)
    b, q, g = tree(r, x, level - 1)
    made, s, t = r.choice(
        [(a + b, 1, 1), (a - b, 1, -1), (c * a, c, 0), (a / 4, 0.25, 0), (-a, -1, 0)]
    )
    poly = {key: s * p.get(key, 0) + t * q.get(key, 0) for key in {**p, **q}}
    return made, poly, lambda v: s * f(v) + t * g(v)


def value(poly, rest, point):
    return rest(point) + sum(c * math.prod(point[i] for i in key) for key, c in poly.items())


@pytest.mark.parametrize("seed", range(60))
def test_changed_coefficients_replace_those_of_the_expression(seed, tmp_path):
    r = random.Random(seed)
    x = [nalora.var(f"x{i}", lb=-9, ub=9) for i in range(N)]
    body, poly, rest = tree(r, x, r.randrange(1, 5))
    goal, goal_poly, goal_rest = tree(r, x, r.randrange(1, 5))
    body, goal = body + nalora.cos(x[0]), goal - nalora.cos(x[1])
    p = nalora.problem(x)
    row = nalora.constraint(body=body, lb=0, ub=0, name="row")
    p.addConstraint(row)
    p.setObjective(3 * x[0] * x[0] + x[1] + nalora.exp(x[2]))
    p.setObjective(goal)
    if seed % 3 == 0:  # the same after a visit to a file
        p.write(tmp_path / "m.nlm")
        p.read(tmp_path / "m.nlm")

    def check():
        point = [r.uniform(-1, 1) for _ in range(N)]
        _, violation, objective = p.validatevector(point)
        assert violation == pytest.approx(abs(value(poly, rest, point) + math.cos(point[0])))
        assert objective == pytest.approx(value(goal_poly, goal_rest, point) - math.cos(point[1]))

    check()
    for i in range(N):
        c, d = r.uniform(-3, 3), r.choice([0.0, 1.5])
        p.chgcoef("row", f"x{i}", c)
        p.chgobj([f"x{i}"], [d])
        poly[(i,)], goal_poly[(i,)] = c, d
        check()
    p.chgobj([-1], [-7.0])
    p.chgrhs(["row"], [2.0])
    # The constant of the body has gone to the right-hand side, which is replaced.
    goal_poly[()], poly[()] = 7.0, -2.0
    check()


def test_what_no_matrix_can_hold_stays_in_the_formula():
    x, y = nalora.var("x", ub=4), nalora.var("y", ub=4)
    p = nalora.problem(x, y)
    p.setObjective(nalora.exp(x) + 1e30 * y)
    assert p.validatevector([0, 1])[2] == pytest.approx(1e30)
