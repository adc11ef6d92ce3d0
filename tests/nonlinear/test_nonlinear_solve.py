"""Nonlinear models from formula to solution."""

import math

import hock_schittkowski
import numpy as np
import pytest

import nalora

pytestmark = pytest.mark.usefixtures("silent")

LOCAL, GLOBAL, INFEASIBLE = "nlp_solution", "nlp_globally_optimal", "nlp_locally_infeasible"


def pair(lower=-10, upper=10):
    return nalora.var("x", lb=lower, ub=upper), nalora.var("y", lb=lower, ub=upper)


def solved(p):
    p.solve()
    assert p.getProbStatusString() in (LOCAL, GLOBAL)
    return p.getObjVal()


@pytest.mark.parametrize("number", hock_schittkowski.PROBLEMS)
def test_hock_schittkowski(number):
    start, bounds, objective, equations, inequalities, best = hock_schittkowski.PROBLEMS[number]
    bounds = [bounds] * len(start) if isinstance(bounds, tuple) else bounds
    x = [nalora.var(lb=lower, ub=upper) for lower, upper in bounds]
    p = nalora.problem(x, [e == 0 for e in equations(x)], [g >= 0 for g in inequalities(x)])
    p.setObjective(objective(x))
    for xi, value in zip(x, start):
        p.chgvar(xi, initvalue=value)
    p.nlpoptimize()
    assert p.attributes.nslp_status in (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal)
    assert p.attributes.nslp_objval == pytest.approx(best, rel=1e-6, abs=1e-6)
    solution = []
    p.getslpsol(solution)
    point = dict(zip(x, solution))
    assert all(abs(nalora.evaluate(e, solution=point)) < 1e-6 for e in equations(x))
    assert all(nalora.evaluate(g, solution=point) > -1e-4 for g in inequalities(x))


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
def test_duals_are_derivatives_by_the_right_hand_side(sense):
    def optimum(rhs, bound):
        x, y = pair()
        row = nalora.exp(x) + y**2 <= rhs
        p = nalora.problem(x, y, row, x + y <= bound, sense=sense)
        p.setObjective(sense * ((x - 2) ** 2 + (y - 1) ** 2 + nalora.exp(-y)))
        value = solved(p)
        return value, p.getDual(), p.getSlack(), p

    value, duals, slacks, p = optimum(3.0, 1.2)
    step = 1e-4
    for i, moved in enumerate((optimum(3.0 + step, 1.2), optimum(3.0, 1.2 + step))):
        assert (moved[0] - value) / step == pytest.approx(duals[i], abs=1e-3)
    assert all(abs(d * s) < 1e-6 for d, s in zip(duals, slacks))
    assert p.getRCost() == pytest.approx([0, 0], abs=1e-6)


def test_reduced_costs_are_derivatives_by_the_bound():
    def optimum(bound):
        x, y = pair(lower=bound)
        p = nalora.problem(x, y, nalora.exp(x) + y * y)
        return solved(p), p.getRCost()

    value, costs = optimum(1.0)
    assert (optimum(1.0001)[0] - value) / 1e-4 == pytest.approx(sum(costs), rel=1e-3)


def test_formulas_follow_every_change_of_the_problem():
    x, y = pair()
    p = nalora.problem(x, y, nalora.exp(x) + y >= 2, x * x + y * y)
    first = solved(p)
    copy = p.copy()
    p.setObjective(x + y)
    assert solved(p) == pytest.approx(math.log(12) - 10)
    assert solved(copy) == pytest.approx(first)
    p.setObjective(nalora.sin(x) - y**2, sense=nalora.maximize)
    assert solved(p) == pytest.approx(1)
    p.setObjective(nalora.sin(x) + y**2, sense=nalora.minimize)
    for _ in range(3):
        z = nalora.var()
        p.addVariable(z)
        p.addConstraint(z >= nalora.exp(x) / 4)
        assert (p.attributes.cols, p.attributes.rows) == (3, 2)
        assert p.getIndex(z) == 2
        solved(p)
        p.delVariable(z)
        p.delConstraint(1)
    p.delConstraint(0)
    assert solved(p) == pytest.approx(-1)
    p.setObjective(2 * x + y)
    p.solve()
    assert p.getProbStatusString() == "lp_optimal" and p.getObjVal() == -30
    p.reset()
    assert p.attributes.nslp_nonlinearconstraints == 0
    assert solved(copy) == pytest.approx(first)


def test_a_refused_objective_leaves_the_old_formula():
    x, y = pair()
    p = nalora.problem(x, y, nalora.exp(x) + y * y)
    best = solved(p)
    for refused in (x * x * 5 + 1e25 * x, nalora.sin(nalora.var()), abs(x) + math.inf):
        with pytest.raises((nalora.SolverError, nalora.ModelError)):
            p.setObjective(refused)
        assert solved(p) == pytest.approx(best)


def test_rows_without_a_term():
    x = nalora.var(ub=3)
    empty = [nalora.constraint(body=nalora.Sum(0.0), lb=-1, ub=i) for i in range(500)]
    p = nalora.problem(x, empty, nalora.exp(x))
    assert solved(p) == pytest.approx(1)
    assert p.getSlack(empty[7]) == 7
    p.addConstraint(nalora.constraint(body=nalora.Sum(0.0), lb=1, ub=2))
    p.solve()
    assert p.getProbStatusString() == "nlp_infeasible"


def test_rows_without_bounds():
    x, y = pair(0.5)
    free = [nalora.constraint(body=b, lb=-math.inf) for b in (nalora.exp(x), nalora.log(x - 2))]
    p = nalora.problem(x, y, free, (x - 1) ** 2 + nalora.exp(y))
    solved(p)
    slack = p.getSlack()
    assert slack[0] == pytest.approx(-math.e, rel=1e-6) and math.isnan(slack[1])


def test_models_without_variables_that_can_move():
    p = nalora.problem(nalora.user(lambda a: a * a, nalora.Sum(2.0)) <= 5)
    p.setObjective(nalora.user(lambda a: a + 1, nalora.Sum(3.0)))
    assert solved(p) == 4
    assert p.getSlack() == [1]
    p.addConstraint(nalora.user(lambda a: a, nalora.Sum(2.0)) >= 3)
    p.solve()
    assert p.getProbStatusString() == "nlp_infeasible"
    x = nalora.var()
    p = nalora.problem(x, nalora.user(lambda a: a * a, nalora.Sum(2.0)) <= 5, nalora.exp(x))
    assert solved(p) == pytest.approx(1)
    fixed = nalora.var(lb=2, ub=2)
    p = nalora.problem(fixed, nalora.exp(fixed) <= 8, fixed**3)
    assert solved(p) == 8


def test_deleted_variables_count_as_zero():
    x, y = pair()
    p = nalora.problem(x, y, nalora.exp(x) + y**3 >= 9, x * x + y)
    p.delVariable(x)
    assert solved(p) == pytest.approx(2)
    assert p.getSolution(y) == pytest.approx(2)


def test_a_linear_solution_is_not_hidden_by_an_old_nonlinear_one():
    x, y = pair()
    p = nalora.problem(x, y, -x * x + y)
    p.nlpoptimize()
    assert p.attributes.nslp_status == nalora.nlp_locally_optimal
    p.setObjective(x)
    assert p.attributes.nslp_status == nalora.nlp_unstarted
    p.solve()
    assert p.getSolution() == [-10, pytest.approx(p.getSolution(y))]


def test_statuses():
    x, y = pair()
    unit = x**2 + y**2 <= 1
    assert solved_status(x, y, [unit, nalora.exp(x) * y >= 30], x) == INFEASIBLE
    assert solved_status(x, y, nalora.exp(x) + nalora.sin(y) <= -2, x) == "nlp_infeasible"
    assert solved_status(x, y, [x + y == 3, x + y == 4], nalora.sin(x)) == "nlp_infeasible"
    z = nalora.var(lb=-1e20)
    p = nalora.problem(z, z**3 + z)
    p.solve()
    assert p.getProbStatusString() in ("nlp_unbounded", "nlp_unfinished")
    convex = nalora.problem(x, y, x + y >= 1, x * x + y * y)
    convex.nlpoptimize()
    assert convex.attributes.nslp_status == nalora.nlp_globally_optimal
    exponential = nalora.problem(x, y, nalora.exp(x) - nalora.sqrt(y) <= 2, nalora.exp(-x) + y)
    exponential.solve()
    assert exponential.getProbStatusString() == GLOBAL
    assert solved_status(x, y, nalora.exp(x) <= -1, y) == "nlp_infeasible"
    limited = nalora.problem(x, nalora.exp(x) >= 2, x * x)
    limited.controls.iterlimit = 1
    limited.solve()
    assert limited.getProbStatusString() == "nlp_unfinished"
    assert limited.attributes.nslp_stopstatus == nalora.stop_iterlimit
    for discrete in (nalora.integer, nalora.binary):
        n = nalora.var(vartype=discrete, ub=5)
        with pytest.raises(nalora.SolverError, match="no search for such problems"):
            nalora.problem(n, nalora.exp(n) >= 2, n).solve()


def solved_status(x, y, row, objective):
    p = nalora.problem(x, y, row, objective)
    p.solve()
    return p.getProbStatusString()


def test_points_where_a_function_is_not_defined_are_avoided():
    x, y = pair(0, 1e20)
    p = nalora.problem(x, y, nalora.log(x) + y >= 1, x + y * y)
    assert solved(p) == pytest.approx(1.8394842898)
    p = nalora.problem(x, y, nalora.sqrt(x - 1) + 1 / y >= 1, x + y)
    p.chgvar(x, initvalue=0)
    p.solve()
    assert p.getProbStatusString() in (LOCAL, GLOBAL, "nlp_unfinished")


def test_more_equations_than_variables():
    x, y = pair()
    p = nalora.problem(x, y, x * x + y * y == 1, (x + y) ** 2 == 1, x - y == 1, nalora.exp(x))
    p.solve()
    assert sorted(map(abs, p.getSolution())) == pytest.approx([0, 1], abs=1e-4)


def test_arrays_of_formulas():
    x = nalora.vars(3, 4, lb=-1, ub=1)
    p = nalora.problem(x, nalora.exp(x) >= 0.5)
    p.setObjective(nalora.Sum(nalora.exp(x) + x**2))
    assert solved(p) == pytest.approx(12 * 0.8271840261)
    assert p.getSolution(x).shape == (3, 4)


# ---- user functions ------------------------------------------------------------------------------


def test_user_functions():
    calls = []

    def plain(a, b):
        calls.append((a, b))
        return (a - 1) ** 2 + math.exp(b)

    def with_derivatives(a, b):
        return (a - 1) ** 2 + math.exp(b), 2 * (a - 1), math.exp(b)

    for function, derivatives in ((plain, False), (with_derivatives, True)):
        x, y = pair()
        p = nalora.problem(x, y, x + y >= 0)
        p.setObjective(nalora.user(function, x, y, derivatives=derivatives))
        assert solved(p) == pytest.approx(0.3390770)
        copy = p.copy()
        del p
        assert solved(copy) == pytest.approx(0.3390770)
    assert 2 * len(set(calls)) >= len(calls)  # each point once a solve


@pytest.mark.parametrize(
    ("result", "error"),
    [
        (lambda a: "text", TypeError),
        (lambda a: None, TypeError),
        (lambda a: (), nalora.ModelError),
        (lambda a: {}["missing"], KeyError),
        (lambda a: 1 // 0, ZeroDivisionError),
        (lambda a, b: 1.0, TypeError),
    ],
)
def test_errors_of_user_functions_come_out(result, error):
    x, y = pair()
    p = nalora.problem(x, y, nalora.user(result, x))
    with pytest.raises(error):
        p.solve()
    assert p.getProbStatusString() == "nlp_unfinished"
    p.setObjective(nalora.exp(x))
    solved(p)


def test_wrong_derivatives_and_values_that_are_no_numbers():
    x, y = pair()
    p = nalora.problem(x, y, nalora.user(lambda a: (a * a,), x, derivatives=True))
    with pytest.raises(nalora.ModelError, match="1 numbers instead of 2"):
        p.solve()
    p.setObjective(nalora.user(lambda a: math.nan, x))
    p.solve()
    assert p.getProbStatusString() == "nlp_unfinished"


class Square:
    alive = 0

    def __init__(self):
        Square.alive += 1

    def __del__(self):
        Square.alive -= 1

    def __call__(self, value):
        return value * value


def with_user_functions():
    x, y = nalora.var(ub=3), nalora.var(lb=1, ub=3)
    p, f = nalora.problem(x, y), Square()
    p.addConstraint(nalora.user(f, x) + nalora.user(f, y) >= 5, nalora.user(f, y) <= 4)
    p.addConstraint(nalora.user(Square(), x) <= 8)
    p.setObjective(nalora.user(Square(), x) + y)
    return p


@pytest.mark.parametrize("way", ["reset", "__init__", "read", "del"])
def test_user_functions_go_with_the_model(way, tmp_path, silent):
    p, file = with_user_functions(), str(tmp_path / "model.lp")
    copy = p.copy()
    if way == "read":
        nalora.problem(nalora.var()).write(file)
        p.read(file)
    elif way != "del":
        getattr(p, way)()
    del p
    assert Square.alive == 3
    copy.solve()
    assert copy.getObjVal() == pytest.approx(3, abs=1e-5)
    del copy
    assert Square.alive == 0


def test_user_functions_go_with_the_last_formula_that_calls_them(silent):
    p = with_user_functions()
    x, y = p.getVariable()
    for edit, alive in [
        (lambda: p.addConstraint([nalora.user(Square(), x) <= 1, nalora.var() <= 1]), 3),  # refused
        (lambda: p.setObjective(nalora.user(Square(), x) + nalora.exp(nalora.var())), 3),
        (lambda: p.delConstraint(0), 3),  # its function is called in the next one
        (lambda: p.delVariable(0), 3),  # counts as zero
        (lambda: p.setObjective(nalora.user(Square(), 3 - y)), 3),
        (lambda: p.delConstraint([1]), 2),
        (lambda: p.addConstraint(nalora.user(Square(), y) >= 2), 3),
        (p.solve, 3),
        (lambda: p.setObjective(y), 2),
    ]:
        try:
            edit()
        except nalora.ModelError:
            assert p.getConstraint()  # drops those that could not be added
        assert Square.alive == alive
    p.solve()
    assert p.getObjVal() == pytest.approx(2**0.5)
    p.delConstraint(first=0)
    assert Square.alive == 0


def test_user_functions_may_solve_but_not_change_the_problem():
    x, y = pair()
    p = nalora.problem(x, y)

    def change(a):
        p.addVariable(nalora.var())
        return a

    p.setObjective(nalora.user(change, x))
    with pytest.raises(nalora.SolverError, match="being solved"):
        p.solve()
    assert p.attributes.cols == 2

    def inner(a):
        z = nalora.var()
        q = nalora.problem(z, z >= a * a, z)
        q.solve()
        return q.getObjVal()

    p.setObjective(nalora.user(inner, x))
    assert solved(p) == pytest.approx(0, abs=1e-5)


def test_initial_values_decide_about_the_local_optimum():
    x, y = pair()
    p = nalora.problem(x, y, nalora.cos(x) + y * y)
    for start, found in ((2.5, math.pi), (-2.5, -math.pi)):
        p.chgvar("x", initvalue=start)
        solved(p)
        assert p.getSolution(x) == pytest.approx(found, abs=1e-4)
    p.chgvar(x)
    for arguments in ({"initvalue": 1}, {"colindex": x, "penalty": 1.0}):
        with pytest.raises(nalora.InterfaceError):
            p.chgvar(**arguments)
    with pytest.raises(nalora.SolverError):
        p.chgvar(x, initvalue=np.nan)


@pytest.mark.parametrize(
    ("function", "best", "status"),
    [
        (lambda x, y: nalora.sqrt(x) + y, 0, LOCAL),
        (lambda x, y: -nalora.asin(y) + x**1.5, -math.pi / 2, LOCAL),
        (lambda x, y: x * nalora.log(x) + 5 * x, -math.exp(-6), GLOBAL),
        (lambda x, y: nalora.sqrt((x - 1) ** 2 + (y - 0.5) ** 2), 0, GLOBAL),
        (
            lambda x, y: (
                3 * nalora.sqrt((x - 1) ** 2 + (y - 0.2) ** 2)
                + nalora.sqrt((x - 3) ** 2 + (y - 0.2) ** 2)
                + nalora.sqrt((x - 1) ** 2 + (y - 0.7) ** 2)
            ),
            2.5,
            GLOBAL,
        ),
    ],
)
def test_optima_where_functions_have_no_derivatives(function, best, status):
    x, y = nalora.var(ub=10), nalora.var(ub=1)
    p = nalora.problem(x, y)
    p.setObjective(function(x, y))
    assert solved(p) == pytest.approx(best, abs=5e-6)
    assert p.getProbStatusString() == status
