"""Variables, constraints, sets and objectives on their way into the library."""

import collections
import re
import sys

import numpy as np
import pytest
from model_file import read_back

import nalora

INF = nalora.infinity


@pytest.fixture(autouse=True)
def _silent():
    nalora.setOutputEnabled(False)


def is_same(left, right):
    return len(left) == len(right) and all(a is b for a, b in zip(left, right))


def sizes(p):
    return p.attributes.cols, p.attributes.rows, p.attributes.sets


def fails(text, error=nalora.ModelError):
    return pytest.raises(error, match=re.escape(text))


def nested(item, levels):
    for _ in range(levels):
        item = [item]
    return item


class Exploding:
    """Yields the given items, then raises."""

    def __init__(self, *items):
        self.items = items

    def __iter__(self):
        yield from self.items
        raise ZeroDivisionError("boom")


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


class Unscannable:
    __iter__ = None

    def __getitem__(self, _):
        raise AssertionError


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x: nested(x, 33), "Maximum recursion (inclusion) level reached"),
        (lambda x: [x, Unscannable()], "Cannot iterate over sequence"),
        (lambda x: [x, np.array([1, 2])], "Incorrect objects used in Sum, Dot, Prod, or aggregate"),
        (lambda x: [x, np.array([1.0, 2.0])], "Incorrect objects added as variables to problem"),
        (lambda x: [x, {x}], "Incorrect objects added as variables to problem"),
        (lambda x: [x, "x"], "Incorrect objects added as variables to problem"),
    ],
)
def test_collections_of_other_things_are_refused(make, text):
    x, p = nalora.var(), nalora.problem()
    with fails(text):
        p.addVariable(make(x))
    assert sizes(p) == (0, 0, 0)


def test_arrays_and_lists_that_hold_themselves_end():
    p = nalora.problem()
    array = np.empty(1, dtype=object)
    array[0] = array
    ring = []
    ring.append(ring)
    for endless in (array, ring):
        with fails("Maximum recursion (inclusion) level reached"):
            p.addVariable(endless)
    array[0] = None


def test_exceptions_of_an_iterator_leave_nothing_behind():
    x, y, z = (nalora.var() for _ in range(3))
    p = nalora.problem(x)
    with fails("boom", ZeroDivisionError):
        p.addVariable(y, Exploding(z).__iter__())
    c, d = x >= 1, x >= 2
    with fails("boom", ZeroDivisionError):
        p.addConstraint([c], iter(Exploding(d)))
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
        yield from ()

    with fails("The problem was changed"):
        p.addVariable(items(lambda: p.addVariable(w), z))
    assert is_same(p.getVariable(), [x, y, w])
    c = y >= 1
    # The row's column indices would be those from before the deletion.
    with fails("The problem was changed"):
        p.addConstraint(items(lambda: p.delVariable(x), c))
    assert sizes(p) == (2, 0, 0)
    for again in (p.reset, p.__init__, lambda: p.__init__(sense=3), lambda: p.__init__(None)):
        with pytest.raises((nalora.ModelError, nalora.InterfaceError)):
            p.addConstraint(items(again, c))
        p.__init__()
    assert sizes(p) == (0, 0, 0)
    p.addVariable(z, y)
    p.addConstraint(c)
    assert (p.getIndex(y), p.getIndex(c)) == (1, 0)


# ---- variables ----------------------------------------------------------------------------------


def test_columns_have_the_types_and_bounds_of_their_variables(tmp_path):
    kinds = ["continuous", "binary", "integer", "semicontinuous", "semiinteger", "partiallyinteger"]
    variables = [
        nalora.var(kind, lb=0 if i in (1, 3, 4) else -2, ub=8, threshold=3, vartype=i)
        for i, kind in enumerate(kinds)
    ]
    p = nalora.problem(variables, nalora.var("free", lb=-INF), nalora.var("fixed", lb=4, ub=4))
    model = read_back(p, tmp_path)
    assert dict(model["BOUNDS"]) == {
        "continuous": [("LO", -2), ("UP", 8)],
        "binary": [("BV", None)],
        "integer": [("LO", -2), ("UP", 8)],
        "semicontinuous": [("LO", 3), ("SC", 8)],
        "semiinteger": [("LO", 3), ("SI", 8)],
        "partiallyinteger": [("LO", -2), ("UP", 8), ("PI", 3)],
        "free": [("FR", None)],
        "fixed": [("FX", 4)],
    }
    assert set(model["INTEGER"]) == {"binary", "integer"}


@pytest.mark.parametrize(
    ("make", "text", "error"),
    [
        (lambda x: [x, 3], "Incorrect objects added as variables to problem", nalora.ModelError),
        (lambda x: [x, x], "Variable already added to problem", nalora.ModelError),
        (
            lambda x: [x, nalora.var(ub=5, threshold=6, vartype=nalora.semicontinuous)],
            "Incorrect semi-continuous, semi-integer, or partially integer variable; check that its"
            " threshold is between its lower and upper bounds",
            nalora.ModelError,
        ),
        (
            lambda x: [x, nalora.var(threshold=float("nan"), vartype=nalora.partiallyinteger)],
            "Incorrect semi-continuous",
            nalora.ModelError,
        ),
        (
            lambda x: [x, nalora.var(vartype=6)],
            "Incorrect variable type passed to addVariable()",
            nalora.ModelError,
        ),
        (
            lambda x: [x, nalora.var(name=3)],
            "Invalid variable name (must be a string)",
            nalora.ModelError,
        ),
        (lambda x: [x, nalora.var(name="a\0b")], "", nalora.ModelError),
        (lambda x: [x, nalora.var(name="\udc80")], "", nalora.ModelError),
        (lambda x: [x, nalora.var(lb=float("nan"))], "lower", nalora.SolverError),
        # Only found when its type is set, after the columns are there.
        (
            lambda x: [x, nalora.var(lb=-5, ub=5, threshold=-1, vartype=nalora.semicontinuous)],
            "limit",
            nalora.SolverError,
        ),
    ],
)
def test_a_refused_variable_takes_the_whole_call_back(make, text, error):
    x, p = nalora.var(), nalora.problem()
    with fails(text, error):
        p.addVariable(*make(x))
    assert sizes(p) == (0, 0, 0)
    with fails("not in problem"):
        p.getIndex(x)
    y = nalora.var()
    p.addVariable(y)
    p.addVariable(x)
    assert is_same(p.getVariable(), [y, x])
    with fails("Variable already added to problem"):
        p.addVariable(x)


def test_names_are_cut_between_characters():
    long = nalora.var(name="é" * 100)
    odd = nalora.var(name="a" + "é" * 100)
    p = nalora.problem(long, odd)
    assert p.getIndexFromName(2, "é" * 75) == 0
    assert p.getIndexFromName(2, "a" + "é" * 74) == 1


# ---- constraints --------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("lb", "ub", "row", "rhs", "spread"),
    [
        (-INF, INF, "N", 0, None),
        (-INF, 7, "L", 4, None),
        (2, INF, "G", -1, None),
        (5, 5, "E", 2, None),
        (3, 5, "L", 2, 2),
    ],
)
def test_rows_follow_from_the_bounds(tmp_path, lb, ub, row, rhs, spread):
    x = nalora.var("x")
    p = nalora.problem(x)
    c = nalora.constraint(body=2 * x + 3, lb=lb, ub=ub, name="c")
    p.addConstraint(c)
    model = read_back(p, tmp_path)
    assert model["ROWS"]["c"] == row
    assert model["COLUMNS"][("x", "c")] == 2
    if row != "N":
        assert model["RHS"].get("c", 0) == rhs
    assert model["RANGES"].get("c") == spread


def test_bodies_of_every_kind(tmp_path):
    x, y = nalora.var("x"), nalora.var("y")
    p = nalora.problem(y, x)
    bodies = [x, 3 * x, x * y, -2 * x * x, x + y, x * y + 2 * x * x - y * y + 5 * x, 4.0]
    p.addConstraint(
        nalora.constraint(body=body, lb=1, ub=10, name=f"c{i}") for i, body in enumerate(bodies)
    )
    model = read_back(p, tmp_path)
    coefs = {key: value for key, value in model["COLUMNS"].items() if key[1] != "OBJ"}
    assert coefs == {
        ("x", "c0"): 1,
        ("x", "c1"): 3,
        ("x", "c4"): 1,
        ("y", "c4"): 1,
        ("x", "c5"): 5,
    }
    quadratic = {(row, *sorted(pair)): v for (row, *pair), v in model["QCMATRIX"].items()}
    assert quadratic == {
        ("c2", "x", "y"): 0.5,
        ("c3", "x", "x"): -2,
        ("c5", "x", "y"): 0.5,
        ("c5", "x", "x"): 2,
        ("c5", "y", "y"): -1,
    }
    assert model["RHS"]["c6"] == 6


class Half(nalora.constraint):
    def __init__(self):
        pass


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x, y: x, "Invalid constraint"),
        (lambda x, y: Half(), "Invalid constraint"),
        (lambda x, y: None, "Invalid constraint"),
        (lambda x, y: y >= 1, "Variable in linear part of constraint has not been added to prob"),
        (lambda x, y: x + y >= 1, "Variable in linear part of constraint has not been added to"),
        (lambda x, y: x + x * y >= 1, "Variable in quadratic part of constraint has not been add"),
        (
            lambda x, y: nalora.constraint(body=2 * y, lb=1),
            "Variable in linear term defining constraint has not been added to problem yet",
        ),
        (
            lambda x, y: nalora.constraint(body=x * y, lb=1),
            "Variable in quadratic term defining constraint has not been added to problem yet",
        ),
        (lambda x, y: abs(x) <= 1, "Nonlinear constraints cannot be loaded by this version"),
        (lambda x, y: x + abs(x) * x <= 1, "Nonlinear constraints cannot be loaded"),
        (lambda x, y: x >= float("nan"), "Invalid constraint: a bound is not a number"),
        (lambda x, y: nalora.constraint(body=x, lb=1, name="a\0b"), ""),
    ],
)
def test_a_refused_constraint_takes_the_whole_call_back(make, text):
    x, y, p = nalora.var(), nalora.var(), nalora.problem()
    p.addVariable(x)
    good, bad = x >= 1, make(x, y)
    with fails(text):
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


def test_contradicting_bounds_do_not_become_a_range():
    x = nalora.var()
    p = nalora.problem(x)
    c = nalora.constraint(body=x, lb=1, ub=3)
    c.ub = 0
    with fails("Constraint defined infeasible: lower bound > upper bound"):
        p.addConstraint(c)


def test_a_row_that_the_library_refuses_is_taken_back():
    x, y = nalora.var(), nalora.var()
    p = nalora.problem(x, y)
    bad = x * y * 1e300 * 1e300 + x <= 1
    for constraints in ([x >= 1, bad], [float("inf") * x >= 1]):
        with pytest.raises(nalora.SolverError):
            p.addConstraint(constraints)
        assert sizes(p) == (2, 0, 0)
        assert p.getConstraint() == []


def test_adding_one_by_one_is_the_same_as_adding_all(tmp_path):
    variables = [nalora.var(f"x{i}") for i in range(300)]
    rows = [
        nalora.constraint(body=variables[i] + 2 * variables[-i - 1], lb=i, name=f"c{i}")
        for i in range(300)
    ]
    at_once = nalora.problem(variables, rows)
    one_by_one = nalora.problem()
    for v in variables:
        one_by_one.addVariable(v)
    for c in rows:
        one_by_one.addConstraint(c)
    assert read_back(one_by_one, tmp_path) == read_back(at_once, tmp_path)


# ---- sets and indicators ------------------------------------------------------------------------


def test_sets_take_variables_and_indices(tmp_path):
    x, y, z = (nalora.var(name) for name in "xyz")
    p = nalora.problem(x, y, z)
    p.addSOS(nalora.sos([x, z], [1, 2.5], name="one"), [nalora.sos([2, y], [5, 4], type=2)])
    model = read_back(p, tmp_path)
    assert model["SOS"]["one"] == ("S1", {"x": 1, "z": 2.5})
    assert [s[1] for s in model["SOS"].values() if s[0] == "S2"] == [{"y": 4, "z": 5}]
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
    for bad, text, error in [
        (good, "SOS already added to problem", nalora.ModelError),
        (x, "Object added is not a SOS", nalora.ModelError),
        (nalora.sos.__new__(nalora.sos), "Object added is not a SOS", nalora.ModelError),
        (nalora.sos([y], [1]), "SOS contains variable that was not added", nalora.ModelError),
        (nalora.sos(["x"], [1]), "SOS indices must be passed as a list", nalora.ModelError),
        (nalora.sos([x], []), "Mismatched lengths in arguments: expected 1, found 0", None),
        (nalora.sos([x, 0], shrinking), "Mismatched lengths in arguments", None),
        (nalora.sos([x], ["a"]), "", (TypeError, ValueError)),
        (nalora.sos([1], [1]), "colind", nalora.SolverError),
        (nalora.sos([2**31], [1]), "", OverflowError),
        (nalora.sos([x], [1], name="a\0b"), "null characters", nalora.ModelError),
    ]:
        with fails(text, error or nalora.ModelError):
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


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x, z, y: [z == 1], "The problem.addIndicator function accepts either two constr"),
        (lambda x, z, y: [(z == 1, x >= 1, x)], "Invalid declaration of indicator constraints.\nT"),
        (lambda x, z, y: [(z == 1, 3)], "Invalid declaration of indicator constraints."),
        (lambda x, z, y: [z == 1, Half()], "Invalid constraint assigned to indicator"),
        (lambda x, z, y: [z == 1, abs(x) <= 1], "Nonlinear indicator constraints are not allowed"),
        (lambda x, z, y: [2 * z == 0, x >= 1], "Invalid indicator expression. Must be var==0 or"),
        (lambda x, z, y: [x * z == 0, x >= 1], "Invalid indicator expression. Must be var==0 or"),
        (lambda x, z, y: [z + x == 0, x >= 1], "there must be exactly one variable"),
        (lambda x, z, y: [x * z + z == 0, x >= 1], "it cannot contain a quadratic expression"),
        (
            lambda x, z, y: [nalora.constraint(body=z + x - x + 1, lb=1, ub=1), x >= 1],
            "Invalid condition for indicator constraints: must be a variable",
        ),
        (lambda x, z, y: [y == 1, x >= 1], "Indicator variable has not been added to problem yet"),
        (
            lambda x, z, y: [z + z + x - x == 1, x >= 1],
            "Indicator variable must have coefficient 1",
        ),
        (lambda x, z, y: [z <= 1, x >= 1], "must be <variable_name> == 0 or <variable_name> == 1"),
        (lambda x, z, y: [z == 2, x >= 1], "must be <variable_name> == 0 or <variable_name> == 1"),
        (lambda x, z, y: [z == 1, y >= 1], "Variable in linear part of constraint has not been"),
    ],
)
def test_indicators_that_are_refused(make, text):
    x, z, y = nalora.var(), nalora.var(vartype=nalora.binary), nalora.var(vartype=nalora.binary)
    p = nalora.problem(x, z)
    args = make(x, z, y)
    with fails(text):
        p.addIndicator(*args)
    # A pair before the bad one is not added either.
    if isinstance(args[0], tuple):
        with fails(text):
            p.addIndicator((z == 1, x >= 1), *args)
    assert sizes(p) == (2, 0, 0)
    assert p.getConstraint() == []


def test_an_indicator_that_the_library_refuses_leaves_no_row():
    x = nalora.var(ub=5)
    p = nalora.problem(x)
    with pytest.raises(nalora.SolverError):
        p.addIndicator(x == 1, x >= 1)  # x is not binary
    assert sizes(p) == (1, 0, 0)


# ---- objective ----------------------------------------------------------------------------------


def objective(p, tmp_path):
    model = read_back(p, tmp_path)
    linear = {k[0]: v for k, v in model["COLUMNS"].items() if k[1] == "OBJ" and v != 0}
    return linear, dict(model["QUADOBJ"]), -model["RHS"].get("OBJ", 0)


def test_objectives_replace_each_other_without_a_trace(tmp_path):
    x, y, z = (nalora.var(name) for name in "xyz")
    p = nalora.problem(x, y, z, 3 * x + 4 * y + 5)
    assert objective(p, tmp_path) == ({"x": 3, "y": 4}, {}, 5)
    p.setObjective(x * y + 3 * z * z - 2 * y * y + y + 7)
    assert objective(p, tmp_path) == (
        {"y": 1},
        {("x", "y"): 1, ("y", "y"): -4, ("z", "z"): 6},
        7,
    )
    p.setObjective(2 * x * x + 9 * z * z + y * z)
    expected = {("x", "x"): 4, ("y", "z"): 1, ("z", "z"): 18}
    assert objective(p, tmp_path) == ({}, expected, 0)
    p.setObjective(-1 * x * z)
    assert objective(p, tmp_path) == ({}, {("x", "z"): -1}, 0)
    p.setObjective(np.array([2 * z], dtype=object))
    assert objective(p, tmp_path) == ({"z": 2}, {}, 0)
    p.setObjective(y)
    assert objective(p, tmp_path) == ({"y": 1}, {}, 0)
    p.setObjective(x + y - x - y)
    assert objective(p, tmp_path) == ({}, {}, 0)


def test_objectives_that_are_refused(tmp_path):
    x, y = nalora.var("x"), nalora.var("y")
    p = nalora.problem(x, 2 * x * x + x + 1)
    before = objective(p, tmp_path)
    inf, nan = float("inf"), float("nan")
    for bad, kwargs, text in [
        (3, {}, "Invalid object set as objective"),
        ([x], {}, "Invalid object set as objective"),
        (x >= 1, {}, "Invalid object set as objective"),
        (np.array([x, x]), {}, "Only one objective can be set, passed a sequence or NumPy array"),
        (x, {"sense": 0}, "Invalid optimization sense"),
        (x, {"sense": 2**40}, "Invalid optimization sense"),
        (abs(x), {}, "Nonlinear objectives cannot be loaded by this version"),
        (y, {}, "Variable in linear part of objective has not been added to problem yet"),
        (x + y * x, {}, "Variable in quadratic part of objective has not been added to problem"),
        (x + nan * x * x, {}, "Invalid objective: a coefficient is not a finite number"),
        (x + inf, {}, "Invalid objective: a coefficient is not a finite number"),
    ]:
        with fails(text):
            p.setObjective(bad, **kwargs)
    with pytest.raises(TypeError):
        p.setObjective(x, sense="maximize")
    with pytest.raises(TypeError):
        p.setObjective()
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
            lambda: p.addVariable(iter(Exploding(y))),
            lambda: p.addConstraint(x >= 1, [x + x * x >= 2, y >= 3]),
            lambda: p.addSOS(nalora.sos([x, y], [1, 2])),
            lambda: p.addIndicator((x == 1, y >= 1)),
            lambda: p.setObjective(x + x * y + abs(x)),
            lambda: p.delVariable([x, 7]),
            lambda: p.addConstraint(float("nan") * x + x * x <= 1),
        ):
            with pytest.raises((nalora.ModelError, nalora.SolverError, ZeroDivisionError)):
                attempt()
        p.addVariable(y)
        p.addConstraint([x + y <= 1, x * x <= 4], iter([x - y >= -1]))
        p.addSOS(nalora.sos([x, y], [1, 2]))
        p.setObjective(x * x - y)
        p.delConstraint([0, 2])

    for _ in range(20):
        work()
    before = sys.getallocatedblocks()
    for _ in range(100):
        work()
    assert sys.getallocatedblocks() - before < 100
