"""Constraints from comparisons and from keywords, their attributes and copies."""

import copy
import operator
import pickle
import sys

import numpy as np
import pytest

import nalora

INF = 1e20
x, y = nalora.var("x"), nalora.var("y")
f = x / y


def form(c):
    assert type(c) is nalora.constraint
    return str(c.body), c.lb, c.ub


@pytest.mark.parametrize(
    ("make", "expected"),
    [
        (lambda: x <= 5, ("x", -INF, 5)),
        (lambda: 5 <= x, ("x", 5, INF)),
        (lambda: x <= 0, ("x", -INF, 0)),
        (lambda: x == np.float64(2), ("x", 2, 2)),
        (lambda: x == y, ("x - y", 0, 0)),
        (lambda: x == x, ("0.0", 0, 0)),
        (lambda: 2 * x >= 3, ("2 x", 3, INF)),
        (lambda: 2 * x >= 0, ("2*x", 0, INF)),
        (lambda: 2 * x >= x, ("x", 0, INF)),
        (lambda: 2 * x + 3 <= 10, ("2 x", -INF, 7)),
        (lambda: 2 * x + 3 <= y - 1, ("2 x - y", -INF, -4)),
        (lambda: x + y <= 1e20, ("x + y", -INF, INF)),
        (lambda: x * y == 1, ("x*y", 1, 1)),
        (lambda: x * y == 0, ("x*y", 0, 0)),
        (lambda: 1 >= x * y + x, ("x + x*y", -INF, 1)),
        (lambda: f <= 5, ("(x / y)", -INF, 5)),
        (lambda: f >= 0, ("(x / y)", 0, INF)),
        (lambda: f + 3 <= 5, ("(x / y)", -INF, 2)),
        (lambda: 3 + f <= 5, ("(x / y)", -INF, 2)),
        (lambda: 3 + f + x >= 5, ("((x / y) + x)", 2, INF)),
        (lambda: 5 - f <= 0, ("(x / y)", 5, INF)),
        (lambda: 5 - f >= 0, ("(x / y)", -INF, 5)),
        (lambda: f - 3 == 0, ("(x / y)", 3, 3)),
        (lambda: f <= x, ("((x / y) - x)", -INF, 0)),
        (lambda: f == x + 1, ("((x / y) - 1 + x)", 0, 0)),
    ],
)
def test_comparisons(make, expected):
    assert form(make()) == expected


def test_nan_bounds_are_kept():
    c = x + y <= float("nan")
    assert c.lb == -INF and c.ub != c.ub


@pytest.mark.parametrize("comparison", [operator.lt, operator.gt, operator.ne])
@pytest.mark.parametrize("left", [x, 2 * x, x * y, x + y, f])
def test_strict_comparisons_are_refused(left, comparison):
    with pytest.raises(nalora.ModelError) as info:
        comparison(left, 5)
    assert str(info.value) == (
        "Invalid constraint: cannot enforce f(x) != 0, f(x) > 0, or f(x) < 0"
    )


def test_comparisons_with_other_objects_are_refused():
    for other in ("text", None, [], object()):
        for left in (x, 2 * x, x + y, f):
            with pytest.raises(nalora.ModelError):
                left == other
            with pytest.raises(nalora.ModelError):
                other <= left


def test_constraints_are_neither_true_nor_false():
    with pytest.raises(nalora.ModelError, match="a <= x <= b"):
        0 <= x <= 1
    with pytest.raises(nalora.ModelError, match="membership"):
        x in [y]
    for make in (lambda a: a <= 3, lambda a: 3 >= a):
        with pytest.raises(nalora.ModelError, match="astype"):
            make(np.array([x, y]))


@pytest.mark.filterwarnings("ignore:elementwise comparison failed:DeprecationWarning")
def test_arrays_that_numpy_cannot_compare():
    for make in (lambda a: x == a, lambda a: x + y == a):
        with pytest.raises(nalora.ModelError):
            make(np.array([x, None, 2 * x]))


def test_arrays_on_the_right_are_compared_by_numpy():
    class Recorder(np.ndarray):
        def __ge__(self, other):
            return "ge", other

        def __eq__(self, other):
            return "eq", other

    array = np.zeros(2).view(Recorder)
    result = operator.le(x, array)
    assert result[0] == "ge" and result[1] is x
    for compare, instead in ((operator.lt, "<="), (operator.gt, ">="), (operator.ne, "==")):
        for left in (x, 2 * x, x + y, x * y, x / y):
            with pytest.warns(UserWarning, match=f"Write {instead} ") as caught:
                assert compare(left, array) == ("eq", left)
            assert caught[0].filename == __file__
        before = sys.getrefcount(x), sys.getrefcount(array)
        with pytest.raises(UserWarning):  # where warnings are errors
            compare(x, array)
        assert (sys.getrefcount(x), sys.getrefcount(array)) == before


def test_names_serials_and_attributes():
    a, b = x <= 1, x <= 1
    assert int(b.name[1:]) == int(a.name[1:]) + 1
    assert str(a) == repr(a) == a.name
    assert str(a)[0] == "R"
    a.name = "limit"
    assert str(a) == "limit"
    a.lb, a.ub = -5e20, 2.5
    assert (a.lb, a.ub) == (-INF, 2.5)
    a.ub = 1
    assert a.ub == 1.0
    for name in ("body", "copy", "__dict__", "sense"):
        with pytest.raises(nalora.InterfaceError) as info:
            setattr(a, name, 1)
        assert str(info.value) == "Incorrect member name of type nalora.constraint"
    with pytest.raises(TypeError):
        a.lb = "1"
    with pytest.raises(AttributeError):
        a.sense
    assert a.__class__ is nalora.constraint
    assert a.__dict__ == dict.fromkeys(["lb", "ub", "name", "body", "copy"])


EMPTY = (
    "Arguments required for nalora.constraint(): constraint OR {body, lb and/or ub} OR "
    "{body,sense,rhs}."
)
ATTEMPT = (
    "Attempt to generate an empty constraint failed. Consider using "
    "nalora.constraint(body=..., sense=..., rhs=...) instead."
)


@pytest.mark.parametrize(
    ("keywords", "expected"),
    [
        ({"body": x, "lb": 1}, ("x", 1, INF)),
        ({"body": x, "ub": 2.5, "lb": -1e21}, ("x", -INF, 2.5)),
        ({"body": x, "lb": 1, "ub": 1 - 1e-7}, ("x", 1, 1 - 1e-7)),
        ({"body": 2 * x + 1, "sense": nalora.leq, "rhs": 3}, ("1 +2 x", -INF, 3)),
        ({"body": f, "sense": nalora.geq, "rhs": 0}, ("(x / y)", 0, INF)),
        ({"body": x * y, "sense": nalora.eq, "rhs": 4}, ("x*y", 4, 4)),
        ({"body": x, "sense": nalora.range, "rhs": 4}, ("x", -INF, INF)),
        ({"body": x, "sense": nalora.leq}, ("x", -INF, INF)),
        ({"body": 7, "ub": 8}, ("7", -INF, 8)),
        ({"body": np.array([[y, x]]), "ub": 8}, ("y", -INF, 8)),
        ({"body": np.array(2.5), "ub": 8}, ("2.5", -INF, 8)),
        ({"constraint": x + y == 3}, ("x + y", 3, 3)),
        ({"constraint": x + y == 3, "lb": 1, "ub": 9}, ("x + y", 3, 3)),
    ],
)
def test_keywords(keywords, expected):
    assert form(nalora.constraint(**keywords)) == expected


@pytest.mark.parametrize(
    ("keywords", "text"),
    [
        ({}, EMPTY),
        ({"lb": 1}, EMPTY),
        ({"body": x}, EMPTY),
        ({"body": x, "rhs": 3}, EMPTY),
        (
            {"body": x, "lb": 1, "rhs": 2},
            "Cannot create constraint by specifying both rhs AND lb/ub.",
        ),
        (
            {"body": x, "ub": 1, "sense": 1, "rhs": float("nan")},
            "Cannot create constraint by specifying both rhs AND lb/ub.",
        ),
        ({"body": x, "lb": 3, "ub": 2}, "Constraint defined infeasible: lower bound > upper bound"),
        ({"body": "x", "lb": 3}, "Invalid expression passed as body of constraint"),
        ({"body": None, "lb": 3}, "Invalid expression passed as body of constraint"),
        ({"body": np.array([]), "lb": 3}, "Invalid expression passed as body of constraint"),
        ({"body": np.array(["a"]), "lb": 3}, "Invalid expression passed as body of constraint"),
        ({"constraint": x}, ATTEMPT),
        ({"constraint": None}, ATTEMPT),
        ({"constraint": nalora.constraint.__new__(nalora.constraint)}, ATTEMPT),
    ],
)
def test_refused_keywords(keywords, text):
    with pytest.raises(nalora.ModelError) as info:
        nalora.constraint(**keywords)
    assert str(info.value) == text


def test_arguments_of_wrong_types():
    for arguments in ({"lb": "1"}, {"sense": 1.5}, {"sense": 2**40}, {"bodi": x}):
        with pytest.raises((TypeError, OverflowError)):
            nalora.constraint(body=x, **arguments)


def test_shared_and_positional_construction():
    source = x + y <= 3
    source.name = "source"
    c = nalora.constraint(source)
    assert c.body is source.body
    assert c.name[0] == "R"
    named = nalora.constraint(source, name="own")
    assert named.name == "own"


def test_copies():
    c = x + 2 * y <= 3.5
    for made in (c.copy(), copy.copy(c), copy.deepcopy(c)):
        assert made is not c
        assert made.name == f"{c.name}_copy_{c.name}"
        assert form(made) == form(c)
    c.name = "named"
    assert c.copy().name.endswith("_copy_named")
    assert (x <= 0).copy().body is x
    assert str((f <= 1).copy().body) == "(x / y)"
    with pytest.raises(TypeError, match="cannot pickle"):
        pickle.dumps(c)


def test_repeated_initialisation():
    c = nalora.constraint(body=x + y, lb=1.5, ub=2.5, name="c")
    name = object()
    before = sys.getrefcount(name)
    c.name = name
    c.__init__(body=x, ub=7)
    assert c.name is name
    assert (c.body is x, c.lb, c.ub) == (True, -INF, 7)
    with pytest.raises(nalora.ModelError) as info:
        c.__init__(constraint=c)
    assert str(info.value) == ATTEMPT
    with pytest.raises(nalora.InterfaceError):
        c.body
    del c
    assert sys.getrefcount(name) == before


def test_constraints_without_initialisation():
    c = nalora.constraint.__new__(nalora.constraint)
    with pytest.raises(nalora.InterfaceError) as info:
        c.body
    assert str(info.value) == "Incorrect member name of type nalora.constraint"
    with pytest.raises(nalora.ModelError):
        c.copy()
    c.ub = 2.5
    other = nalora.constraint.__new__(nalora.constraint)
    other.ub = 3.5
    assert (c.ub, other.ub) == (2.5, 3.5)


class Capacity(nalora.constraint):
    def slack(self, value):
        return self.ub - value


def test_subclasses():
    c = Capacity(body=x + y, ub=3, name="capacity")
    assert c.slack(1) == 2.0
    assert isinstance(c, Capacity)
    assert type(c.copy()) is nalora.constraint
    with pytest.raises(nalora.ModelError) as info:
        nalora.constraint(c)
    assert str(info.value) == ATTEMPT


SETS = [
    ({"indices": [x, y], "weights": [1, 2]}, 1),
    ({"indices": [x, y], "weights": [1, 2], "type": 2}, 2),
    ({"indices": [], "weights": [1], "type": 257}, 1),
]


@pytest.mark.parametrize(("keywords", "kind"), SETS)
def test_sets(keywords, kind):
    s, t = nalora.sos(**keywords), nalora.sos(**keywords)
    number = int(s.name[3:])
    assert (s.name, t.name) == (f"sos{number}", f"sos{number + 1}")
    assert str(s) == s.name
    for made in (s.copy(), copy.copy(s), copy.deepcopy(s)):
        assert made.name == f"sos{number}_copy_sos{number}"
        assert type(made) is nalora.sos
    named = nalora.sos(name="special", **keywords)
    assert named.name == str(named) == "special"


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        (([x], (1,)), nalora.ModelError, "SOS weights must be passed as a list"),
        (((x,), (1,)), nalora.ModelError, "SOS weights must be passed as a list"),
        (((x,), [1]), nalora.ModelError, "SOS indices must be passed as a list"),
        (([x], [1], 3), nalora.ModelError, "SOS type must be 1 or 2"),
        (([x], [1], 0), nalora.ModelError, "SOS type must be 1 or 2"),
        (([x], [1], 2**70), nalora.ModelError, "SOS type must be 1 or 2"),
        (([x], [1], 1.0), TypeError, None),
        (([x],), TypeError, None),
    ],
)
def test_refused_sets(arguments, error, text):
    with pytest.raises(error) as info:
        nalora.sos(*arguments)
    if text is not None:
        assert str(info.value) == text


def test_sets_keep_lists_and_release_them():
    x = nalora.var()
    indices, weights = [x], [1]
    before = sys.getrefcount(indices), sys.getrefcount(weights), sys.getrefcount(x)
    s = nalora.sos(indices, weights)
    c = s.copy()
    s.__init__([y], [2], name="other")
    with pytest.raises(nalora.ModelError):
        s.__init__([x], None)
    assert s.name == "other"
    empty = nalora.sos.__new__(nalora.sos)
    assert str(empty) == "sos0"
    with pytest.raises(nalora.ModelError):
        empty.copy()
    del s, c
    assert before == (sys.getrefcount(indices), sys.getrefcount(weights), sys.getrefcount(x))
