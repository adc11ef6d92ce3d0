"""Variables, constraints, sets and objectives on their way into the library."""

import collections

import numpy as np
import pytest
from conftest import growth
from model_file import fails, is_same, read_back, sizes

import nalora

INF, NAN = nalora.infinity, float("nan")


def nested(item, levels):
    for _ in range(levels):
        item = [item]
    return item


def exploding(*items):
    yield from items
    raise ZeroDivisionError("boom")


class Half(nalora.constraint):
    def __init__(self):
        pass


# ---- collections --------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "collect",
    [
        lambda x, y, z: [[x, y, z]],
        lambda x, y, z: [x, (y, [z])],
        lambda x, y, z: [{"a": x, "b": {"c": y}}, z],
        lambda x, y, z: [iter([x, y]), (v for v in [z])],
        lambda x, y, z: [collections.deque([x, y]), collections.UserList([z])],
        lambda x, y, z: [np.array([[x, y]], dtype=object), np.array(z, dtype=object)],
        lambda x, y, z: [np.array([[x, z], [y, y]], dtype=object).T[0, :], [[], ()], z],
        lambda x, y, z: [[np.array([[nested(x, 3)]], dtype=object)], y, nested(z, 32)],
    ],
)
def test_objects_arrive_in_order_from_every_collection(collect):
    x, y, z = (nalora.var() for _ in range(3))
    p = nalora.problem()
    assert p.addVariable(*collect(x, y, z)) is None
    assert is_same(p.getVariable(), [x, y, z])
    assert [p.getIndex(v) for v in (x, y, z)] == [0, 1, 2]
    p.addConstraint(*collect(x >= 1, y >= 2, z >= 3))
    assert [c.lb for c in p.getConstraint()] == [1, 2, 3]


def test_exceptions_of_an_iterator_leave_nothing_behind():
    x, y, z = (nalora.var() for _ in range(3))
    p = nalora.problem(x)
    c, d = x >= 1, x >= 2
    with fails("boom", ZeroDivisionError):
        p.addVariable(y, exploding(z))
    with fails("boom", ZeroDivisionError):
        p.addConstraint([c], exploding(d))
    assert sizes(p) == (1, 0, 0)
    p.addVariable(z, y)
    p.addConstraint(d, c)
    assert is_same(p.getVariable(), [x, z, y])
    assert is_same(p.getConstraint(), [d, c])
    assert [p.getIndex(o) for o in (z, y, d, c)] == [1, 2, 0, 1]


def test_changing_the_problem_while_it_collects_is_noticed():
    x, y, z, w = (nalora.var() for _ in range(4))
    p = nalora.problem(x, y)

    def items(action, *objects):
        yield from objects
        action()

    with fails("The problem was changed"):
        p.addVariable(items(lambda: p.addVariable(w), z))
    assert is_same(p.getVariable(), [x, y, w])
    c = y >= 1
    # The row's column indices would be those from before the deletion.
    with fails("The problem was changed"):
        p.addConstraint(items(lambda: p.delVariable(x), c))
    assert sizes(p) == (2, 0, 0)
    with fails("The problem was changed"):
        p.addVariable(items(lambda: p.delVariable(0), z, x))
    p.addVariable(z)
    assert (p.getIndex(w), p.getIndex(z)) == (0, 1)
    for again in (p.reset, p.__init__, lambda: p.__init__(sense=3), lambda: p.__init__(None)):
        with pytest.raises((nalora.ModelError, nalora.InterfaceError)):
            p.addConstraint(items(again, c))
        p.__init__(y)
    p.addConstraint(c)
    assert (p.getIndex(y), p.getIndex(c)) == (0, 0)


# ---- variables and constraints -------------------------------------------------------------------


def test_columns_have_the_types_and_bounds_of_their_variables(tmp_path):
    lower = {"C": -2, "B": 0, "I": -2, "S": 0, "R": 0, "P": -2}
    variables = [
        nalora.var(kind, lb=lb, ub=8, threshold=3, vartype=i)
        for i, (kind, lb) in enumerate(lower.items())
    ]
    p = nalora.problem(variables, nalora.var("free", lb=-INF), nalora.var("fixed", lb=4, ub=4))
    model = read_back(p, tmp_path)
    assert dict(model["BOUNDS"]) == {
        "C": [("LO", -2), ("UP", 8)],
        "B": [("BV", None)],
        "I": [("LO", -2), ("UP", 8)],
        "S": [("LO", 3), ("SC", 8)],
        "R": [("LO", 3), ("SI", 8)],
        "P": [("LO", -2), ("UP", 8), ("PI", 3)],
        "free": [("FR", None)],
        "fixed": [("FX", 4)],
    }
    assert set(model["INTEGER"]) == {"B", "I"}


THRESHOLD = (
    "Incorrect semi-continuous, semi-integer, or partially integer variable; check that its "
    "threshold is between its lower and upper bounds"
)


@pytest.mark.parametrize(
    ("keywords", "text", "error"),
    [
        (None, "Incorrect objects added as variables to problem", nalora.ModelError),
        ({"ub": 5, "threshold": 6, "vartype": 3}, THRESHOLD, nalora.ModelError),
        ({"threshold": NAN, "vartype": 5}, THRESHOLD, nalora.ModelError),
        ({"vartype": 6}, "Incorrect variable type passed to addVariable()", nalora.ModelError),
        ({"name": 3}, "Invalid variable name (must be a string)", nalora.ModelError),
        ({"name": "a\0b"}, "Invalid variable name", nalora.ModelError),
        ({"name": "\udc80"}, "Invalid variable name", nalora.ModelError),
        ({"lb": NAN}, "lower[1]", nalora.SolverError),
        # Found only when its limit is set, after the columns are there.
        ({"lb": -5, "ub": 5, "threshold": -1, "vartype": 3}, "limit[0]", nalora.SolverError),
    ],
)
def test_a_refused_variable_takes_the_whole_call_back(keywords, text, error):
    x, y, p = nalora.var(), nalora.var(), nalora.problem()
    with fails(text, error):
        p.addVariable(x, 3 if keywords is None else nalora.var(**keywords))
    with fails("Variable already added to problem"):
        p.addVariable(x, x)
    assert sizes(p) == (0, 0, 0)
    with fails("not in problem"):
        p.getIndex(x)
    p.addVariable(y)
    p.addVariable(x)
    assert is_same(p.getVariable(), [y, x])
    with fails("Variable already added to problem"):
        p.addVariable(x)


def test_names_are_cut_between_characters():
    p = nalora.problem(nalora.var(name="é" * 100), nalora.var(name="a" + "é" * 100))
    assert p.getIndexFromName(2, "é" * 75) == 0
    assert p.getIndexFromName(2, "a" + "é" * 74) == 1


def test_rows_follow_from_bounds_and_bodies(tmp_path):
    x, y = nalora.var("x"), nalora.var("y")
    p = nalora.problem(y, x)
    cases = [
        # body, lower, upper, type, right-hand side, range
        (2 * x + 3 + y - y, -INF, INF, "N", -3, None),
        (2 * x + 3, -INF, 7, "L", 4, None),
        (2 * x + 3, 2, INF, "G", -1, None),
        (2 * x + 3, 5, 5, "E", 2, None),
        (x + y, 3, 5, "L", 5, 2),
        (x, 0, INF, "G", 0, None),
        (3 * x, 1, 2, "L", 2, 1),
        (x * y, 1, INF, "G", 1, None),
        (-2 * x * x, 1, INF, "G", 1, None),
        (x * y + 2 * x * x - y * y + 5 * x, 1, INF, "G", 1, None),
        (4.0, 1, INF, "G", -3, None),
    ]
    p.addConstraint(
        nalora.constraint(body=body, lb=lb, ub=ub, name=f"c{i}")
        for i, (body, lb, ub, *_) in enumerate(cases)
    )
    model = read_back(p, tmp_path)
    for i, (*_, row, rhs, spread) in enumerate(cases):
        assert model["ROWS"][f"c{i}"] == row
        assert model["RHS"].get(f"c{i}", 0) == rhs
        assert model["RANGES"].get(f"c{i}") == spread
    coefs = {(c, int(r[1:])): v for (c, r), v in model["COLUMNS"].items() if r != "OBJ"}
    doubles = {("x", i): 2 for i in range(4)}
    rest = {("x", 4): 1, ("y", 4): 1, ("x", 5): 1, ("x", 6): 3, ("x", 9): 5}
    assert coefs == {**doubles, **rest}
    assert dict(model["QCMATRIX"]) == {
        ("c7", "x", "y"): 0.5,
        ("c8", "x", "x"): -2,
        ("c9", "x", "y"): 0.5,
        ("c9", "x", "x"): 2,
        ("c9", "y", "y"): -1,
    }


def deep(x):
    for _ in range(70):
        x = abs(x)
    return x


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x, y: x, "Invalid constraint"),
        (lambda x, y: Half(), "Invalid constraint"),
        (lambda x, y: x + y >= 1, "Variable in linear part of constraint has not been added to pr"),
        (lambda x, y: x * y + x >= 1, "Variable in quadratic part of constraint has not been adde"),
        (
            lambda x, y: 2 * y,
            "Variable in linear term defining constraint has not been added to pr",
        ),
        (
            lambda x, y: x * y,
            "Variable in quadratic term defining constraint has not been added to",
        ),
        (lambda x, y: x + abs(y) <= 1, "Variable in nonlinear part of constraint has not been add"),
        (lambda x, y: deep(x) <= 1, "The expression tree depth reached the maximum limit"),
        (lambda x, y: x >= NAN, "Invalid constraint: a bound is not a number"),
        (lambda x, y: "contradiction", "Constraint defined infeasible: lower bound > upper bound"),
        (lambda x, y: "a\0b", "Invalid constraint name"),
        # Found by the library: the first before, the second after the rows are there.
        (lambda x, y: INF * x + x * x <= 1, "value[1]"),
        (lambda x, y: x * x * 1e300 <= 1, "value[0]"),
    ],
)
def test_a_refused_constraint_takes_the_whole_call_back(make, text):
    x, y, p = nalora.var(), nalora.var(), nalora.problem()
    p.addVariable(x)
    good, bad = x >= 1, make(x, y)
    if isinstance(bad, str):
        bad = nalora.constraint(body=x, lb=1, ub=3, name=bad)
        if bad.name == "contradiction":
            bad.ub = 0
    elif bad is not x and not isinstance(bad, nalora.constraint):
        bad = nalora.constraint(body=bad, lb=1)
    with fails(text, (nalora.ModelError, nalora.SolverError)):
        p.addConstraint(good, [bad])
    with fails("Constraint already added to problem"):
        p.addConstraint([good, good])
    assert sizes(p) == (1, 0, 0)
    p.addConstraint(x >= 2)
    p.addConstraint(good)
    assert p.getIndex(good) == 1
    with fails("Constraint already added to problem"):
        p.addConstraint(good)
    assert sizes(p) == (1, 2, 0)


# ---- sets and indicators ------------------------------------------------------------------------


def test_sets_take_variables_and_indices(tmp_path):
    x, y, z = (nalora.var(name) for name in "xyz")
    p = nalora.problem(x, y, z)
    p.addSOS(nalora.sos([x, z], [1, 2.5], name="one"), [nalora.sos([2, y], [5, 4], type=2)])
    model = read_back(p, tmp_path)
    assert model["SOS"].pop("one") == ("S1", {"x": 1, "z": 2.5})
    assert list(model["SOS"].values()) == [("S2", {"y": 4, "z": 5})]
    assert sizes(p) == (3, 0, 2)


class Shrinking:
    """A weight whose conversion empties the list it lies in."""

    def __init__(self, items):
        self.items = items

    def __float__(self):
        self.items.clear()
        return 1.0


def test_sets_that_are_refused():
    x, y, p = nalora.var(), nalora.var(), nalora.problem()
    p.addVariable(x)
    good = nalora.sos([x], [1])
    p.addSOS(good)
    shrinking = [1, 2]
    shrinking[0] = Shrinking(shrinking)
    for bad, text in [
        (good, "SOS already added to problem"),
        (x, "Object added is not a SOS"),
        (nalora.sos.__new__(nalora.sos), "Object added is not a SOS"),
        (nalora.sos([y], [1]), "SOS contains variable that was not added to the problem"),
        (nalora.sos(["x"], [1]), "SOS indices must be passed as a list"),
        (nalora.sos([x], []), "Mismatched lengths in arguments: expected 1, found 0"),
        (nalora.sos([x, 0], shrinking), "Mismatched lengths in arguments"),
        (nalora.sos([x], [1], name="a\0b"), "Invalid SOS name"),
        (nalora.sos([x], [[]]), "must be real number"),
        (nalora.sos([1], [1]), "colind[0] = 1"),
        (nalora.sos([2**31], [1]), "32 bits"),
    ]:
        with fails(text, (nalora.ModelError, nalora.SolverError, TypeError, OverflowError)):
            p.addSOS(bad)
        assert is_same(p.getSOS(), [good])
        assert sizes(p) == (1, 0, 1)


def test_indicators(tmp_path):
    x, z, w = nalora.var("x"), nalora.var("z", vartype=1), nalora.var("w", vartype=1)
    p = nalora.problem(x, z, w)
    assert p.addIndicator() is None
    first, second, third = (nalora.constraint(body=x, lb=i, name=f"c{i}") for i in (1, 2, 3))
    p.addIndicator(z == 1, first)
    p.addIndicator((z + w - w == 0, second), (w == 1, third))
    assert read_back(p, tmp_path)["INDICATORS"] == {"c1": ("z", 1), "c2": ("z", 0), "c3": ("w", 1)}
    assert is_same(p.getConstraint(), [first, second, third])


def test_indicators_that_are_refused():
    x, y, z = nalora.var(), nalora.var(vartype=nalora.binary), nalora.var(vartype=nalora.binary)
    p = nalora.problem(x, z)
    c = x >= 1
    must_be = "Invalid condition for indicator constraints: "
    for condition, implied, text in [
        (z == 1, 3, "Invalid declaration of indicator constraints."),
        (z == 1, Half(), "Invalid constraint assigned to indicator"),
        (z == 1, abs(x) <= 1, "Nonlinear indicator constraints are not allowed"),
        (x * z == 0, c, "Invalid indicator expression. Must be var==0 or var==1, where var is a"),
        (2 * z == 0, c, "Invalid indicator expression. Must be var==0 or var==1, where var is a"),
        (x * z + x * x == 0, c, must_be + "must be a variable"),
        (nalora.constraint(body=z + x - x + 1, lb=1, ub=1), c, must_be + "must be a variable"),
        (z + x == 0, c, must_be + "there must be exactly one variable"),
        (x * z + z == 0, c, must_be + "it cannot contain a quadratic expression"),
        (y == 1, c, "Indicator variable has not been added to problem yet"),
        (2 * z == 1, c, "Indicator variable must have coefficient 1"),
        (z <= 1, c, must_be + "must be <variable_name> == 0 or <variable_name> == 1"),
        (z == 2, c, must_be + "must be <variable_name> == 0 or <variable_name> == 1"),
        (z == 1, y >= 1, "Variable in linear part of constraint has not been added to problem yet"),
        (x == 1, c, "is not binary"),
    ]:
        with fails(text, (nalora.ModelError, nalora.SolverError)):
            p.addIndicator((z == 1, x >= 2), (condition, implied))
        assert sizes(p) == (2, 0, 0)
        assert p.getConstraint() == []
    for bad in ([z == 1], [(z == 1, c, x)], [z == 1, 3]):
        with fails(
            "Invalid declaration of indicator constraints.\nThe problem.addIndicator function "
            "accepts either two constraints or one or more TUPLES of constraints,"
        ):
            p.addIndicator(*bad)


# ---- objective ----------------------------------------------------------------------------------


def objective(p, tmp_path):
    model = read_back(p, tmp_path)
    linear = {k[0]: v for k, v in model["COLUMNS"].items() if k[1] == "OBJ" and v != 0}
    return linear, dict(model["QUADOBJ"]), -model["RHS"].get("OBJ", 0)


def test_objectives_replace_each_other_without_a_trace(tmp_path):
    x, y, z = (nalora.var(name) for name in "xyz")
    p = nalora.problem(x, y, z)
    square = {("x", "y"): 1, ("y", "y"): -4, ("z", "z"): 6}
    for new, expected in [
        (3 * x + 4 * y + 5, ({"x": 3, "y": 4}, {}, 5)),
        (x * y + 3 * z * z - 2 * y * y + y + 7, ({"y": 1}, square, 7)),
        (9 * z * z + y * z, ({}, {("y", "z"): 1, ("z", "z"): 18}, 0)),
        (-1 * x * z, ({}, {("x", "z"): -1}, 0)),
        (np.array([2 * z], dtype=object), ({"z": 2}, {}, 0)),
        (y, ({"y": 1}, {}, 0)),
        (x + y - x - y, ({}, {}, 0)),
    ]:
        p.setObjective(new)
        assert objective(p, tmp_path) == expected


def test_objectives_that_are_refused(tmp_path):
    x, y = nalora.var("x"), nalora.var("y")
    p = nalora.problem(x, 2 * x * x + x + 1)
    before = objective(p, tmp_path)
    for bad, text in [
        (3, "Invalid object set as objective"),
        ([x], "Invalid object set as objective"),
        (x >= 1, "Invalid object set as objective"),
        (np.array([x, x]), "Only one objective can be set, passed a sequence or NumPy array"),
        (abs(y), "Variable in nonlinear part of constraint has not been added to problem yet"),
        (y, "Variable in linear part of objective has not been added to problem yet"),
        (x + y * x, "Variable in quadratic part of objective has not been added to problem yet"),
        (x + NAN * x * x, "Invalid objective: a coefficient is not a finite number"),
        (x + float("inf"), "Invalid objective: a coefficient is not a finite number"),
        (x * x * 5 + 1e25 * x, "value[0]"),
    ]:
        with fails(text, (nalora.ModelError, nalora.SolverError)):
            p.setObjective(bad)
    for sense in (0, 2**40):
        with fails("Invalid optimization sense"):
            p.setObjective(x, sense=sense)
    with pytest.raises(TypeError):
        p.setObjective(x, sense="maximize")
    assert objective(p, tmp_path) == before


def test_the_sense_stays_until_it_is_changed():
    x = nalora.var(ub=4)
    p = nalora.problem(x)
    results = []
    for sense in ({"sense": nalora.maximize}, {}, {"sense": nalora.minimize}, {"sense": None}):
        p.setObjective(2 * x + 1, **sense)
        p.solve()
        results.append(p.getObjVal())
    assert results == pytest.approx([9, 9, 1, 1])


# ---- memory -------------------------------------------------------------------------------------


def test_building_and_failing_to_build_leak_nothing():
    x, y = nalora.var(name="x"), nalora.var(name="y")

    def work():
        p = nalora.problem(x)
        for attempt in (
            lambda: p.addVariable([y, "no"]),
            lambda: p.addVariable(exploding(y)),
            lambda: p.addConstraint(x >= 1, [x + x * x >= 2, y >= 3]),
            lambda: p.addSOS(nalora.sos([x, y], [1, 2])),
            lambda: p.addIndicator((x == 1, y >= 1)),
            lambda: p.setObjective(x + x * y + abs(x)),
            lambda: p.delVariable([x, 7]),
            lambda: p.addConstraint(NAN * x + x * x <= 1),
        ):
            with pytest.raises((nalora.ModelError, nalora.SolverError, ZeroDivisionError)):
                attempt()
        p.addVariable(y)
        p.addConstraint([x + y <= 1, x * x <= 4], iter([x - y >= -1]))
        p.addSOS(nalora.sos([x, y], [1, 2]))
        p.setObjective(x * x - y)
        p.delConstraint([0, 2])

    assert growth(work) < 50
