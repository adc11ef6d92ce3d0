"""Nonlinear solves after others, and what problems without formulas tell after them."""

import math

import numpy as np
import pytest
import random_models

import nalora

pytestmark = pytest.mark.usefixtures("silent")


def test_an_unchanged_problem_is_only_checked():
    x = nalora.var(lb=0.1, ub=5)
    p = nalora.problem(x, nalora.exp(x) - 3 * nalora.log(x) + nalora.sin(x))
    p.solve()
    first = p.getObjVal(), p.getSolution(), p.getRCost(), p.getProbStatus()
    assert p.attributes.barriter == p.attributes.nslp_iterations > 0
    p.solve()
    assert (p.getObjVal(), p.getSolution(), p.getRCost(), p.getProbStatus()) == first
    assert p.attributes.barriter == p.attributes.nslp_iterations == 0
    for change in (
        lambda: p.chgvar(x, initvalue=3),
        lambda: p.chgbounds([x], ["L"], [0.2]),
        lambda: p.setControl("opttol", 1e-8),
    ):
        change()
        p.solve()
        assert p.getSolution() == pytest.approx(first[1])


def test_a_user_function_that_has_changed_is_noticed():
    x, goal = nalora.var(), [1]
    p = nalora.problem(x, nalora.user(lambda a: (a - goal[0]) ** 2, x))
    for goal[0] in (1, 2):
        p.solve()
        assert p.getSolution(x) == pytest.approx(goal[0], abs=1e-5)


def test_changed_problems_are_solved_as_new_ones_are():
    wrong = []
    for seed in range(25):
        model = random_models.feasible_model(seed)
        first, (low, high) = model.objective, model.bounds[1]
        if model.solve()[0] not in random_models.SOLVED:
            continue
        for step in range(1, 4):
            model.objective = lambda x, m, first=first, k=step: first(x, m) + 0.1 * k * x[0]
            model.bounds[1] = (low - step, high + step)
            model.p.setObjective(model.objective(model.x, nalora))
            model.p.chgbounds([1, 1], ["L", "U"], model.bounds[1])
            miss = model.judge(*model.again())
            wrong += [(seed, step, miss)] * bool(miss)
    assert wrong == []


def unsolved():
    x, y = nalora.var(), nalora.var()
    n = nalora.var(vartype=nalora.integer)
    return [
        nalora.problem(x, x <= -1, x),
        nalora.problem(n, n + 0.5 <= 0, n),
        nalora.problem(x, y, x + y <= -1, x * x + y * y),
        nalora.problem(x, y, nalora.exp(x) <= -1, y),
    ]


@pytest.mark.parametrize("kind", range(4))
@pytest.mark.parametrize("method", [None, "solve", "nlpoptimize"])
def test_without_a_solution_there_is_no_objective(kind, method):
    p = unsolved()[kind]
    if method:
        getattr(p, method)()
    assert math.isnan(p.getObjVal()) and p.attributes.mipgap == math.inf


@pytest.mark.parametrize(
    ("convex", "integer", "status"),
    [
        (True, False, "lp_optimal"),
        (False, False, "lp_unfinished"),
        (True, True, "mip_optimal"),
    ],
)
def test_a_problem_without_formulas_has_the_status_of_its_nonlinear_solve(convex, integer, status):
    x = nalora.var(ub=3, vartype=nalora.integer if integer else nalora.continuous)
    y = nalora.var(ub=3)
    p = nalora.problem(x, y, x + y <= 4, (x - 1.2) ** 2 + (1 if convex else -1) * y * y + y)
    p.nlpoptimize()
    assert p.getProbStatusString() == status
    a, b = p.getSolution()
    assert p.getObjVal() == pytest.approx((a - 1.2) ** 2 + (b * b if convex else -b * b) + b)
    assert not np.isnan(p.getSlack()).any()
