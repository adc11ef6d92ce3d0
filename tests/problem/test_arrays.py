"""Arrays of modeling objects as arguments of a problem's methods."""

import sys

import numpy as np
import pytest
from conftest import growth
from model_file import fails, is_same, read_back, sizes

import nalora

NOT_VARIABLES = "Incorrect objects added as variables to problem"
WRONG_TYPE = "Incorrect objects used in Sum, Dot, Prod, or aggregate functions"
LAYOUTS = {
    "C": lambda a: a,
    "Fortran": np.asfortranarray,
    "strided": lambda a: np.repeat(a, 2, axis=1)[:, ::2],
    "reversed": lambda a: a[::-1, ::-1][::-1, ::-1],
    "list": lambda a: a.tolist(),
    "object": lambda a: a.astype(object),
    "rows": lambda a: list(a),
    "in object array": lambda a: wrapped(a),
    "field": lambda a: in_field(a),
}


def wrapped(*items):
    array = np.empty(len(items), dtype=object)
    for i, item in enumerate(items):
        array[i] = item
    return array


def in_field(array):
    record = np.zeros(array.shape, dtype=[("flag", "i1"), ("item", object)])
    record["item"] = array
    return record["item"]


def unset(shape, element_type):
    """Elements that were never set: null, None or 0, as the NumPy version has it."""
    return np.empty(shape, dtype=element_type)


def variables(*shape, **keywords):
    items = [nalora.var(**keywords) for _ in range(int(np.prod(shape)))]
    return np.array(items, dtype=nalora.npvar).reshape(shape)


@pytest.fixture
def xp():
    x = variables(3, 4, ub=1)
    return x, nalora.problem(x)


# ---- building -----------------------------------------------------------------------------------


@pytest.mark.parametrize("layout", LAYOUTS.values(), ids=LAYOUTS)
def test_elements_arrive_in_the_order_of_the_array(layout):
    x, p = variables(3, 4), nalora.problem()
    p.addVariable(layout(x))
    assert is_same(p.getVariable(), x.ravel().tolist())
    rows = x <= 3 + np.arange(12.0).reshape(3, 4)
    assert rows.dtype == nalora.npconstraint
    if layout not in (LAYOUTS["object"], LAYOUTS["in object array"], LAYOUTS["field"]):
        p.addConstraint(layout(rows))
    else:
        p.addConstraint(rows)  # constraints take part in no cast
    assert [c.ub for c in p.getConstraint()] == list(range(3, 15))
    p.delConstraint(rows[1])
    p.delVariable(layout(x)[0] if layout is LAYOUTS["rows"] else x[0])
    assert is_same(p.getVariable(), x[1:].ravel().tolist())
    assert [c.ub for c in p.getConstraint()] == [3, 4, 5, 6, 11, 12, 13, 14]


def test_what_loads_from_arrays_is_the_model(tmp_path):
    x = variables(4, ub=2)
    names = np.array([c.name for c in x[:3]])
    rows = x[:-1] + 2 * x[1:] - 1 <= 1
    mixed = np.array([nalora.constraint(body=x[0], lb=1, name="given")], dtype=nalora.npconstraint)
    p = nalora.problem("arrays", x, rows, mixed, (x * x)[:1], sense=nalora.maximize)
    assert sizes(p) == (4, 4, 0)
    p.addConstraint(x[0] * x[1:3] <= 3, x[3] >= -1)
    model = read_back(p, tmp_path)
    row = [c.name for c in rows]
    assert [model["COLUMNS"][(names[0], row[0])], model["COLUMNS"][(names[1], row[0])]] == [1, 2]
    assert [model["RHS"][name] for name in row] == [2, 2, 2]
    assert model["ROWS"]["given"] == "G"
    assert len(model["QCMATRIX"]) == 2
    assert p.getIndex(rows[2]) == 2
    assert p.getIndex(mixed[0]) == 3


def test_default_names_are_found_and_written(tmp_path):
    x, named = variables(40), nalora.var("C3")
    p = nalora.problem(named, x)
    p.addConstraint(x <= 1)
    p.addConstraint(nalora.constraint(body=x[0], ub=1, name="last"))
    for column in (0, 17, 39):
        assert p.getVariable(column + 1) is x[column]
        assert nalora.evaluate(x[column], problem=p, solution=np.arange(41.0)) == column + 1
    p.solve()
    assert p.getSolution("C3") == 0
    p.chgbounds([x[39].name, x[5].name], ["U", "L"], [7.0, -2.0])
    p.delVariable([x[0], x[1]])
    p.chgbounds([x[38].name], ["U"], [8.0])
    bounds = read_back(p, tmp_path)["BOUNDS"]
    assert bounds[x[39].name] == [("UP", 7)]
    assert bounds[x[38].name] == [("UP", 8)]
    assert bounds[x[5].name] == [("LO", -2)]


def test_one_element_arrays_stand_for_their_element():
    x = variables(2)
    p = nalora.problem(x)
    p.setObjective(np.array([[2 * x[0] + x[1]]], dtype=nalora.npexpr))
    p.setObjective(wrapped(x[:1]))
    p.addConstraint(np.array(x[0] >= 3, dtype=nalora.npconstraint))
    p.addConstraint(nalora.constraint(body=x[1:], lb=4))
    p.addConstraint(nalora.constraint(body=x[:1] - 5, ub=0))
    p.solve()
    assert p.getObjVal() == 3
    assert p.getSolution(x[1]) >= 4
    q = nalora.problem(x[:1], x[1:], x[:1])
    assert sizes(q) == (2, 0, 0)
    with fails("Only one objective can be set, passed a sequence or NumPy array"):
        p.setObjective(x)
    with fails("Only one objective can be set, but a sequence or NumPy array"):
        nalora.problem(x, x + 1)


def test_sets_indicators_and_low_level_methods(xp):
    x, p = xp
    sets = np.array([nalora.sos(list(row), [1, 2, 3, 4]) for row in x], dtype=object)
    p.addSOS(sets.astype(nalora.npvar))  # an array of one element type may hold any object
    assert sizes(p)[2] == 3
    p.delSOS(sets[:2])
    assert is_same(p.getSOS(), [sets[2]])
    z = nalora.var(vartype=nalora.binary)
    p.addVariable(z)
    p.addIndicator(z == 1, (x[0] <= 0.5)[1])
    for column in (x[0], x[::2, 1], x[:, 3].astype(object)):
        p.chgbounds(column, ["U"] * len(column), np.full(len(column), 9.0))
    rows = x[0] + x[1] <= 1
    p.addConstraint(rows)
    p.chgrhs(rows, [5.0, 6.0, 7.0, 8.0])
    with fails("Mismatched lengths"):
        p.chgrhs(rows, [5.0])
    with fails("Invalid variable object None"):
        p.chgbounds(unset(1, nalora.npvar), ["U"], [1.0])


class Unscannable:
    __iter__ = None

    def __getitem__(self, _):
        raise AssertionError


def nested(item, levels, wrap):
    for _ in range(levels):
        item = wrap(item)
    return item


def list_ring():
    ring = []
    ring.append(ring)
    return ring


def array_ring():
    ring = np.empty(1, dtype=object)
    ring[0] = ring
    return ring


TOO_DEEP = "Maximum recursion (inclusion) level reached"


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x: unset(2, nalora.npvar), "Incorrect "),
        (lambda x: unset(1, nalora.npexpr), "Incorrect "),
        (lambda x: unset((), nalora.npconstraint), "Incorrect "),
        (lambda x: [np.concatenate([x[0], unset(1, nalora.npvar)])], "Incorrect "),
        (lambda x: [x[0, 0], np.array([1, 2])], NOT_VARIABLES),
        (lambda x: np.array(["a", "b"]), WRONG_TYPE),
        (lambda x: np.array([[1.0, 2.0]]), NOT_VARIABLES),
        (lambda x: np.array([True, False]), NOT_VARIABLES),
        (lambda x: x[0] + 1, NOT_VARIABLES),
        (lambda x: x <= 1, NOT_VARIABLES),
        (lambda x: [x, x[1, 1]], "Variable already added to problem"),
        (lambda x: np.broadcast_to(x[0, 0], 10**12), "Variable already added to problem"),
        (lambda x: wrapped([x[0, 0], [x[1]]], None), NOT_VARIABLES),
        (lambda x: [x, {x[0, 0]}], NOT_VARIABLES),
        (lambda x: [x, "x"], NOT_VARIABLES),
        (lambda x: [x, Unscannable()], "Cannot iterate over sequence"),
        (lambda x: nested(x, 33, lambda item: [item]), TOO_DEEP),
        (lambda x: nested(x, 33, lambda item: wrapped(item, ())), TOO_DEEP),
        (lambda x: list_ring(), TOO_DEEP),
        (lambda x: array_ring(), TOO_DEEP),
    ],
)
def test_what_is_refused_leaves_the_problem_as_it_was(make, text):
    x = variables(2, 3)
    p, bad = nalora.problem(), make(x)
    with fails(text):
        p.addVariable(bad)
    assert sizes(p) == (0, 0, 0)
    p.addVariable(nested(x, 32, lambda item: wrapped(item, ())))
    assert is_same(p.getVariable(), x.ravel().tolist())
    if isinstance(bad, np.ndarray) and bad.dtype == object and bad.shape == (1,):
        bad[0] = None  # holds itself


def test_constraints_that_are_refused_leave_the_problem_as_it_was(xp):
    x, p = xp
    rows = x[0] <= 1
    for bad, text in [
        (np.concatenate([rows, rows[:1]]), "Constraint already added to problem"),
        (np.concatenate([rows, variables(1) <= 1]), "has not been added to problem yet"),
        (x[0] + 1, "Invalid constraint"),
        (unset(3, nalora.npconstraint), "In"),
        ([rows, None], "Invalid constraint"),
    ]:
        with fails(text):
            p.addConstraint(bad)
        assert sizes(p) == (12, 0, 0)
    p.addConstraint(rows, np.zeros(0, dtype=nalora.npconstraint), x[:0] <= 1, np.zeros((0, 3)))
    assert sizes(p) == (12, 4, 0)


class Trap:
    """A sequence without items whose iteration does something."""

    def __init__(self, action):
        self.action = action

    def __len__(self):
        return 0

    def __getitem__(self, index):
        raise IndexError

    def __iter__(self):
        self.action()
        return iter(())


@pytest.mark.parametrize("order", ["C", "F"])
def test_arrays_that_their_own_elements_change(order):
    def added(action):
        array = np.empty((3, 2), dtype=object, order=order)
        array[0, 0], array[0, 1], array[1, 0] = nalora.var(), Trap(lambda: action(array)), ()
        array[1, 1], array[2, 0], array[2, 1] = nalora.var(), nalora.var(), ()
        p = nalora.problem()
        p.addVariable(array)
        return sizes(p)[0]

    assert added(lambda a: a[2].fill(())) == 2
    assert added(lambda a: a.fill(())) == 1
    if order == "C":
        assert added(lambda a: a.resize((1, 1), refcheck=False)) == 1
        with fails(NOT_VARIABLES):  # the new elements are zeros
            added(lambda a: a.resize((500, 100), refcheck=False))
    else:
        for shape in [(1, 1), (500, 100)]:
            with pytest.raises((RuntimeError, ValueError)):  # NumPy itself may refuse
                added(lambda a, shape=shape: a.resize(shape, refcheck=False))


def test_adding_to_the_problem_while_an_array_is_walked(xp):
    _, p = xp
    extra, fresh = nalora.var(), variables(2)
    with fails("The problem was changed while objects for it were being collected"):
        p.addVariable(fresh, wrapped(Trap(lambda: p.addVariable(extra)), ()))
    assert sizes(p) == (13, 0, 0)
    p.addVariable(fresh)
    assert is_same(p.getVariable()[12:], [extra, *fresh])


# ---- solutions ----------------------------------------------------------------------------------


def test_values_have_the_shape_of_the_array():
    x = variables(2, 3)
    rows = x >= np.arange(6.0).reshape(2, 3)
    p = nalora.problem(x, rows, nalora.Sum(x))
    p.solve()
    expected = np.arange(6.0).reshape(2, 3)
    for array, values in [
        (x, expected),
        (x.T, expected.T),
        (x[:, ::-2], expected[:, ::-2]),
        (2 * x + 1, 2 * expected + 1),
        (x * x - x, expected * expected - expected),
        (x[:0], expected[:0]),
        (np.array(x[1, 1], dtype=nalora.npvar), np.array(4.0)),
        (x.astype(object), expected),
        (np.array([[5, 0]]), np.array([[5.0, 0.0]])),
        (np.array(["a", 1], dtype=object)[1:], np.array([1.0])),
    ]:
        result = p.getSolution(array)
        assert type(result) is np.ndarray
        assert result.dtype == float
        assert result.shape == array.shape
        np.testing.assert_allclose(result, values)
    nested = p.getSolution({"a": [x[0], x[1, 2]]})
    np.testing.assert_allclose(nested["a"][0], [0, 1, 2])
    assert p.getSolution(x, flatten=True) == pytest.approx(list(range(6)))
    assert p.getSolution(x.T, x[0, 0], flatten=True) == pytest.approx([0, 3, 1, 4, 2, 5, 0])
    assert p.getSlack(rows) == pytest.approx([0] * 6)
    assert p.getDual(rows[:, 1:].T) == pytest.approx([1] * 4)
    assert p.getDual(rows[1:, 0]) == pytest.approx([1])
    assert p.getRCost(x[1]) == pytest.approx([0] * 3)
    for call, text in [
        (lambda: p.getSolution(variables(2)), "Object does not belong to problem"),
        (lambda: p.getSolution(unset(2, nalora.npvar)), "object of incorrect type"),
        (lambda: p.getSolution(rows), "Evaluation of object of incorrect type"),
        (lambda: p.getDual(x), "Invalid constraint object"),
        (lambda: p.getSlack(unset(2, nalora.npconstraint)), "In"),
    ]:
        with fails(text):
            call()
    with fails("out-of-range index", nalora.InterfaceError):
        p.getSolution(np.array([0, 6]))


# ---- cost ---------------------------------------------------------------------------------------


def test_nothing_is_leaked():
    x = variables(3, 4)
    refs = [sys.getrefcount(v) for v in x.ravel().tolist()]

    def work():
        rows = x[:, 1:] + 2 * x[:, :-1] <= 1
        p = nalora.problem(x, rows, x[:1, 0])
        p.addConstraint([x <= 3], x[::2] >= -1)
        p.solve()
        p.getSolution(x, x.T + 1, [x[0]])
        p.getSolution(x, flatten=True)
        p.getSlack(rows)
        p.chgbounds(x[0], ["U"] * 4, [1.0] * 4)
        p.delConstraint(rows[:, 0])
        p.delVariable(x[0])
        for bad in (x, unset(3, nalora.npvar), np.concatenate([x[0], x[2]]), rows):
            with fails(""):
                p.addVariable(bad)
            with fails(""):
                p.addConstraint(x + 1, bad)

    assert growth(work, before=3) < 50
    assert [sys.getrefcount(v) for v in x.ravel().tolist()] == refs
