"""The nonlinear solver's low-level methods and controls."""

import gc
import math
import time

import numpy as np
import pytest
from conftest import allocated

import nalora

END, CONSTANT, COLUMN, FUNCTION, ARGUMENTS, OPERATOR = 0, 1, 10, 12, 21, 31
LOG, PLUS, TIMES = 15, 5, 3


@pytest.fixture
def model():
    """min (x - 3)^2 + exp(y), x + y >= 1 ("row"), x * y + sin(y) <= 4 ("curve")."""
    x, y = nalora.var("x", ub=2), nalora.var("y", lb=-1, ub=5)
    curve = nalora.constraint(body=x * y + nalora.sin(y), ub=4, name="curve")
    row = nalora.constraint(body=x + y, lb=1, name="row")
    p = nalora.problem(x, y, row, curve, (x - 3) ** 2 + nalora.exp(y))
    return p, x, y


PRODUCT = ([COLUMN, COLUMN, OPERATOR, END], [0, 1, TIMES, 0])


def test_formulas_are_evaluated_at_the_present_point(model):
    p, x, y = model
    assert p.evaluateformula(1, *PRODUCT) == 0
    p.chgvar(x, initvalue=2)
    p.chgvar(y, initvalue=0.5)
    assert p.evaluateformula(1, *PRODUCT) == 1
    assert p.evaluateformula(parsed=1, type=np.array(PRODUCT[0]), value=iter(PRODUCT[1])) == 1
    assert p.evaluatecoef("curve", -1) == pytest.approx(math.sin(0.5))
    p.nlpoptimize()
    solution = []
    p.getslpsol(solution)
    assert p.evaluateformula(1, *PRODUCT) == pytest.approx(solution[0] * solution[1])
    p.chgvar("x", value=10)
    assert p.evaluateformula(1, *PRODUCT) == pytest.approx(10 * solution[1])
    assert p.getSolution(x) == solution[0]
    p.chgcoef("row", y, 2)  # any change leads back to the initial values
    assert p.evaluateformula(1, *PRODUCT) == 1


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ((1, PRODUCT[0][:3], PRODUCT[1][:3]), nalora.InterfaceError, "no token of type 0"),
        ((1, [], []), nalora.InterfaceError, "no token of type 0"),
        ((1, None, None), nalora.InterfaceError, "no token of type 0"),
        ((1, *PRODUCT[:1], PRODUCT[1][:3]), nalora.ModelError, "expected 4, found 3"),
        ((1, *PRODUCT[:1], iter(PRODUCT[1][:3])), nalora.ModelError, "expected 4, found 3"),
        ((1, PRODUCT[0], None), nalora.SolverError, "value is null"),
        ((0, *PRODUCT), nalora.SolverError, "parsed = 0"),
        ((1, [END], [0]), nalora.SolverError, "no value"),
        ((1, [COLUMN, END], [7, 0]), nalora.SolverError, "7 is not a column"),
        ((1, [COLUMN, COLUMN, END], [0, 1, 0]), nalora.SolverError, "without an operator"),
        (
            (1, [ARGUMENTS, CONSTANT, FUNCTION, END], [0, -1, LOG, 0]),
            nalora.SolverError,
            "not defined",
        ),
        ((1, [COLUMN, END], ["x", 0]), TypeError, ""),
        ((1.5, *PRODUCT), TypeError, ""),
    ],
)
def test_what_is_no_formula(model, arguments, error, text):
    with pytest.raises(error, match=text):
        model[0].evaluateformula(*arguments)


def test_coefficients_that_are_not_there(model):
    p, x, _ = model
    for row, column in (("row", -1), ("curve", x), (9, -1), ("curve", 7)):
        with pytest.raises(nalora.SolverError):
            p.evaluatecoef(row, column)
    for row, column in ((None, -1), ("curve", None), (nalora.var(), -1), ("curve", nalora.var())):
        with pytest.raises(nalora.ModelError):
            p.evaluatecoef(row, column)


def test_user_functions_are_called_where_formulas_are_evaluated():
    calls = []

    def f(a):
        calls.append(a)
        if a == 3:
            raise ZeroDivisionError("three")
        return a * a

    x = nalora.var("x", ub=10)
    c = nalora.constraint(body=nalora.user(f, x), lb=1, name="c")
    p = nalora.problem(x, c, x)
    p.chgvar(x, value=2)
    assert p.evaluatecoef(c, -1) == 4 and calls == [2]
    before = allocated()
    for call in (lambda: p.evaluatecoef(c, -1), lambda: p.validatevector([3])):
        p.chgvar(x, value=3)
        for _ in range(5):
            with pytest.raises(ZeroDivisionError, match="three"):
                call()
    gc.collect()
    assert allocated() <= before + 1
    assert p.validatevector([4]) == (0, 0, 4)


def test_getvar_and_chgvar_go_together(model):
    p, x, y = model
    before = p.getvar(x)
    assert [type(v) for v in before] == [int] + [float] * 6 + [int] * 7 + [float]
    p.chgvar(x, *before[:11])  # all that getvar() tells is taken, and x has an initial value now
    assert p.getvar("x") == (*before[:11], 1, *before[12:])
    p.chgvar(1, None, None, None, None, None, 3, None, None, None, None, None)
    assert p.getvar(colindex=y)[5:7] == (3, 3)
    p.chgvar(y, value=-1)
    assert p.getvar(y)[5:7] == (3, -1) and p.getvar(y)[13] == -1
    p.nlpoptimize()
    told = p.getvar(x)
    assert told[6] == p.getSolution(x) and told[14] == p.getRCost(x) and told[9] == 1
    for name, wrong in (("detrow", 2), ("penalty", 1), ("damp", 0.5), ("vartype", 1)):
        with pytest.raises(nalora.InterfaceError, match=f"not its '{name}'"):
            p.chgvar(x, value=0, **{name: wrong})
    assert p.getvar(x) == told
    for wrong, error in ((9, nalora.SolverError), (nalora.var(), nalora.ModelError)):
        with pytest.raises(error):
            p.getvar(wrong)
        with pytest.raises(error):
            p.chgvar(wrong, initvalue=1)
    with pytest.raises(nalora.SolverError, match="not a finite number"):
        p.chgvar(x, initvalue=1, value=math.inf)
    assert p.getvar(x) == told


def test_validation(model, capsys):
    p, *_ = model
    with pytest.raises(nalora.SolverError, match="no solution"):
        p.validate()
    p.nlpoptimize()
    total, largest, objective = p.validatevector(p.getSolution())
    assert 0 <= largest <= total < 1e-6
    assert objective == pytest.approx(p.getObjVal())
    capsys.readouterr()
    p.validate()
    said = capsys.readouterr().out
    assert all(word in said for word in ("rows", "bounds", "integrality", "sets", "objective"))
    # x is above its bound by 1, y below by 1; the row misses 1 by 0; 3 * -2 + sin(-2) <= 4 holds.
    assert p.validatevector([3, -2]) == (pytest.approx(2), pytest.approx(1), math.exp(-2))
    # The row misses 1 by 1, the curve holds.
    assert p.validatevector(iter([0, 0])) == (pytest.approx(1), pytest.approx(1), 10)


class Grows:
    """A number that adds a column to the problem when it is asked for its value."""

    def __init__(self, p):
        self.p = p

    def __float__(self):
        self.p.addVariable(nalora.var())
        return 1.0


def test_vectors_that_are_no_points(model):
    p, *_ = model
    for wrong, error in (
        ([1], nalora.ModelError),
        ([1, 2, 3], nalora.ModelError),
        (iter([1]), nalora.ModelError),
        (None, nalora.SolverError),
        ([1, math.nan], nalora.SolverError),
        (["a", 1], (TypeError, ValueError)),
        ([1, Grows(p)], nalora.ModelError),
    ):
        with pytest.raises(error):
            p.validatevector(wrong)


# ---- controls ------------------------------------------------------------------------------------


def solve(**controls):
    """Rosenbrock's function in eight dimensions, within bounds."""
    x = [nalora.var(lb=-2, ub=2) for _ in range(8)]
    p = nalora.problem(x)
    p.setObjective(nalora.Sum(100 * (b - a**2) ** 2 + (1 - a) ** 2 for a, b in zip(x, x[1:])))
    for i, xi in enumerate(x):
        p.chgvar(xi, initvalue=1 if i % 2 else -1.2)
    for name, value in controls.items():
        p.setControl(name, value)
    p.nlpoptimize()
    return p.attributes.nslp_iterations, p.attributes.nslp_status, p.getObjVal()


@pytest.mark.parametrize(
    ("control", "value"),
    [
        ("interior_tolerance", 1e-3),
        ("interior_adaptivebarrier", 1),
        ("interior_barrier", 1e-6),
        ("interior_approximatehessian", 1),
        ("interior_scaling", 0),
        ("interior_boundpush", 0.5),
        ("interior_maxiterations", 2),
    ],
)
def test_controls_of_the_interior_point_method_act(control, value):
    usual, changed = solve(), solve(**{control: value})
    assert usual[1] == nalora.nlp_locally_optimal
    assert changed != usual


def test_pivot_orders_lead_to_the_same_solution():
    values = [solve(interior_pivotorder=order)[2] for order in range(4)]
    assert values == pytest.approx([values[0]] * 4)


def test_limits_end_a_nonlinear_solve():
    iterations, status, _ = solve(iterlimit=3)
    assert (iterations, status) == (3, nalora.nlp_unfinished)

    def slow(a):
        time.sleep(0.03)
        return (a - 1) ** 4

    x = nalora.var(ub=9)
    p = nalora.problem(x, nalora.user(slow, x))
    p.controls.timelimit = 0.05
    p.nlpoptimize()
    assert p.getProbStatus() == nalora.nlp_unfinished
    assert p.attributes.nslp_stopstatus == nalora.stop_timelimit


def test_interior_controls_are_ordinary_controls():
    p = nalora.problem()
    p.controls.interior_boundpush = 0.1
    assert p.copy().controls.interior_boundpush == 0.1
    assert p.getControl("interior_pivotorder") == 0
    with pytest.raises(nalora.SolverError, match="'interior_pivotorder': 4 is not in 0 to 3"):
        p.controls.interior_pivotorder = 4
    nalora.controls.interior_scaling = 0
    try:
        assert nalora.problem().controls.interior_scaling == 0
    finally:
        nalora.setdefaultcontrol("interior_scaling")
    assert nalora.problem().controls.interior_scaling == 1
