"""The low-level methods and the conversions that they share."""

import re

import numpy as np
import pytest
from conftest import growth

import nalora


def fails(text, error=nalora.ModelError):
    return pytest.raises(error, match=re.escape(text) if text else None)


@pytest.fixture
def lp():
    """max x + y + z, x + y <= 4, y + z <= 6, all at most 5: 4 + 5 = 9."""
    x, y, z = (nalora.var(name, ub=5) for name in "xyz")
    first = nalora.constraint(body=x + y, ub=4, name="first")
    second = nalora.constraint(body=y + z, ub=6, name="second")
    p = nalora.problem(x, y, z, first, second, x + y + z, sense=nalora.maximize)
    return p, x, y, z, first, second


def value(p):
    p.solve()
    return p.getObjVal()


# ---- every method with good, missing, wrong and unknown arguments --------------------------------

REQUIRED = {
    "chgbounds": ("Must provide arguments mindex, qbtype, bnd", [[], [], []]),
    "chgrhs": ("Must provide arguments mindex, rhs", [[], []]),
    "chgobj": ("Must provide arguments mindex, obj", [[], []]),
    "addmipsol": ("Must provide argument mipsolval", [[0.0, 0.0, 0.0]]),
}
PARSER = {
    "chgcoef": [0, 0, 1.0],
    "getIndexFromName": [2, "x"],
    "interrupt": [9],
    "lpoptimize": [],
    "mipoptimize": [],
    "getlpsol": [],
    "getmipsol": [],
}


@pytest.mark.parametrize("name", [*REQUIRED, *PARSER])
def test_argument_lists(lp, name):
    p = lp[0]
    method = getattr(p, name)
    text, good = REQUIRED[name] if name in REQUIRED else ("", PARSER[name])
    error = nalora.InterfaceError if name in REQUIRED else TypeError
    if name != "getIndexFromName":
        assert method(*good) is None
    calls = [lambda: method(*[*good, None, None, None, None, None]), lambda: method(*good, no=1)]
    if good:
        calls += [method, lambda: method(*good[:-1])]
    for call in calls:
        with fails(text, error) as caught:
            call()
        if name in REQUIRED:
            assert isinstance(caught.value.__cause__, TypeError)


def test_methods_of_a_problem_that_was_never_initialised():
    p = nalora.problem.__new__(nalora.problem)
    for name in [*REQUIRED, *PARSER, "addVariable", "delVariable", "solve", "getSolution", "read"]:
        with pytest.raises(nalora.InterfaceError):
            getattr(p, name)()


def test_keywords_have_the_documented_names(lp):
    p, x, *_ = lp
    p.chgbounds(mindex=[x], qbtype=["U"], bnd=[1])
    p.chgbounds([x], bnd=[2], qbtype=["U"])
    with fails("Must provide arguments mindex, qbtype, bnd", nalora.InterfaceError):
        p.chgbounds([x], mindex=[x], qbtype=["U"])
    p.chgcoef(irow="first", icol=x, dval=2)
    assert value(p) == pytest.approx(1.5 + 6)
    assert p.getIndexFromName(type=1, name="second") == 1
    assert p.chgcoef.__text_signature__ == "($self, /, irow, icol, dval)"


# ---- inputs --------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "indices",
    [
        lambda x, z: [x, z],
        lambda x, z: (0, "z"),
        lambda x, z: np.array([x, z], dtype=object),
        lambda x, z: np.array([0, 9, 2], dtype=np.intc)[::2],
        lambda x, z: np.array([0, 2]),
        lambda x, z: [np.intc(0), np.int_(2)],
        lambda x, z: iter([x, b"z"]),
        lambda x, z: range(0, 3, 2),
    ],
)
def test_columns_are_given_in_many_ways(lp, indices):
    p, x, _, z, *_ = lp
    p.chgbounds(indices(x, z), "UU", np.array([1.0, 2.0]))
    assert value(p) == pytest.approx(6)
    p.chgbounds(indices(x, z), iter(["U", "B"]), (v for v in [2, 3]))
    assert value(p) == pytest.approx(7)


def test_an_iterator_of_any_length_arrives_whole():
    x = [nalora.var(ub=0) for _ in range(3000)]
    p = nalora.problem(x, sum(x), sense=nalora.maximize)
    p.chgbounds(iter(x), ("U" for _ in x), (1.0 for _ in x))
    assert value(p) == pytest.approx(3000)


class Odd:
    def __init__(self, action):
        self.action = action

    def __float__(self):
        self.action()
        return 1.0


def explode():
    raise ZeroDivisionError("boom")


class NoLength:
    def __getitem__(self, i):
        return [0][i]


class NoIterator:
    __iter__ = None

    def __len__(self):
        return 1

    def __getitem__(self, i):
        raise AssertionError


@pytest.mark.parametrize(
    ("args", "text", "error"),
    [
        ([[0, 1], ["U"], [1, 2]], "expected 2, found 1", None),
        ([[0], ["U"], [1, 2]], "expected 1, found 2", None),
        (
            [[0, 1], "UU", np.array([1.0])],
            "Mismatched lengths in arguments: expected 2, found 1",
            None,
        ),
        # An iterator's length is not compared, unless the library would read more items.
        ([[0, 1], "UU", iter([1.0])], "expected 2, found 1", None),
        ([0, ["U"], [1]], "Invalid sequence of objects", None),
        ([{0: 1}, ["U"], [1]], "Invalid sequence of objects", None),
        ([NoLength(), ["U"], [1]], "Invalid sequence of objects", None),
        ([[0], NoIterator(), [1]], "Unable to scan sequence", None),
        ([[nalora.var("v")], "U", [1]], "Variable v not in problem", None),
        ([[1.0], "U", [1]], "Invalid variable object 1.0", None),
        ([[np.longlong(0)], "U", [1]], "Invalid variable object", None),
        ([[np.uint8(0)], "U", [1]], "Invalid variable object 0", None),
        ([["first"], "U", [1]], "first", nalora.SolverError),
        ([[3], "U", [1]], "colind[0] = 3", nalora.SolverError),
        ([[-1], "U", [1]], "colind[0] = -1", nalora.SolverError),
        ([[2**31], "U", [1]], "32 bits", OverflowError),
        ([[2**70], "U", [1]], "64 bits", OverflowError),
        ([np.array([2**31]), "U", [1]], "32 bits", OverflowError),
        ([[0], [85], [1]], "Invalid character 85", None),
        ([[0], [""], [1]], "Invalid character ''", None),
        ([[0], "?", [1]], "bndtype", nalora.SolverError),
        ([[0], "U", ["1"]], "", TypeError),
        ([[0], "U", [Odd(explode)]], "boom", ZeroDivisionError),
        ([[0], "U", [float("nan")]], "bound", nalora.SolverError),
        ([None, "U", [1]], "", nalora.SolverError),
        ([[0], None, [1]], "bndtype", nalora.SolverError),
        ([[0], "U", None], "bound", nalora.SolverError),
    ],
)
def test_inputs_that_are_refused(lp, args, text, error):
    p = lp[0]
    before = value(p)
    with fails(text, error or nalora.ModelError):
        p.chgbounds(*args)
    assert value(p) == before


def test_a_list_that_shrinks_while_it_is_converted(lp):
    p = lp[0]
    bounds = [1.0, 2.0, 3.0]
    bounds[0] = Odd(bounds.clear)
    with fails("Mismatched lengths in arguments: expected 3, found 0"):
        p.chgbounds([0, 1, 2], "UUU", bounds)


def test_scalars(lp):
    p, x, y, _, first, second = lp
    for call, text, error in [
        (lambda: p.chgcoef(first, first, 1), "Invalid variable object first", nalora.ModelError),
        (lambda: p.chgcoef(x, x, 1), "Invalid constraint object x", nalora.ModelError),
        (lambda: p.chgcoef(2, 0, 1), "row = 2", nalora.SolverError),
        (lambda: p.chgcoef(0, -1, 1), "col = -1", nalora.SolverError),
        (lambda: p.chgcoef(0, 0, "1"), "", TypeError),
        (lambda: p.chgcoef(0, 0, float("nan")), "value", nalora.SolverError),
        (lambda: p.getIndexFromName(2, "first"), "first", nalora.SolverError),
        (lambda: p.getIndexFromName(4, "x"), "type", nalora.SolverError),
        (lambda: p.getIndexFromName(2, b"x"), "must be str", TypeError),
        (lambda: p.getIndexFromName(2, "x\0"), "null", ValueError),
        (lambda: p.getIndexFromName(1.5, "x"), "", TypeError),
        (lambda: p.interrupt(2**40), "32 bits", OverflowError),
        (lambda: p.lpoptimize(3), "must be str", TypeError),
    ]:
        with fails(text, error):
            call()
    p.chgcoef(np.intc(0), "y", True)
    p.chgcoef(second, y, 3)
    assert value(p) == pytest.approx(9)
    assert [p.getIndexFromName(1, "second"), p.getIndexFromName(2, "z")] == [1, 2]


# ---- outputs -------------------------------------------------------------------------------------


def test_solutions_fill_the_given_lists(lp):
    p, *_ = lp
    x, slack, dual, dj = [None] * 10, [], [1], list("abcd")
    same = x
    assert p.getlpsol() is None  # no solution is needed when nothing is wanted
    assert p.getmipsol(None) is None
    with pytest.raises(nalora.SolverError):
        p.getlpsol(x)
    assert len(x) == 10
    p.lpoptimize()
    assert p.getlpsol(x, slack, dual, dj) is None
    assert x is same
    assert [len(x), len(slack), len(dual), len(dj)] == [3, 2, 2, 3]
    assert sum(x) == pytest.approx(9)
    assert dual[0] == pytest.approx(1)
    assert x[0] + x[1] + slack[0] == pytest.approx(4)
    p.getlpsol(None, None, dual)
    for wrong in ((), "abc", 3, np.zeros(3)):
        with fails("Unexpected argument to conv_arr2obj"):
            p.getlpsol(x, wrong)


def test_old_items_are_released_after_the_list_is_complete(lp):
    p = lp[0]
    p.lpoptimize()
    seen = []

    class Watched:
        def __del__(self):
            seen.append(list(out))
            out.clear()

    out = [Watched(), Watched()]
    p.getlpsol(out)
    assert len(seen[0]) == 3
    assert all(type(item) is float for item in seen[0])


def test_starting_solutions(lp):
    p, x, *_ = lp
    p.chgbounds([x], "U", [3])
    with pytest.raises(nalora.SolverError):
        p.getmipsol([])
    for bad, text, error in [
        (([1, 2],), "Mismatched lengths in arguments: expected 3, found 2", nalora.ModelError),
        (([1, 2], [x]), "Mismatched lengths in arguments: expected 2, found 1", nalora.ModelError),
        (([1], [x], 3), "Must provide argument mipsolval", nalora.InterfaceError),
        (([1], [7]), "colind", nalora.SolverError),
    ]:
        with fails(text, error):
            p.addmipsol(*bad)
    w = nalora.var(vartype=nalora.integer, ub=3)
    p.addVariable(w)
    p.addmipsol([1.0, 2.0, 3.0, 1.0])
    p.addmipsol([2], [w], "partly")
    p.mipoptimize()
    values, slack = [], []
    p.getmipsol(values, slack)
    assert sum(values[:3]) == pytest.approx(9)
    assert len(slack) == 2


# ---- memory --------------------------------------------------------------------------------------


def test_calls_leak_nothing(lp):
    p, x, y, _, first, second = lp
    p.lpoptimize()
    out = []
    expected = (nalora.ModelError, nalora.SolverError, nalora.InterfaceError, ZeroDivisionError)

    def work():
        p.chgbounds([x, "y", 2], "UUU", iter([5.0, 5.0, 5.0]))
        p.chgrhs(np.array([first, second], dtype=object), [4, 6])
        p.chgobj(range(3), np.ones(3))
        p.getlpsol(out, [], [], [])
        for bad in (
            lambda: p.chgbounds([x, nalora.var()], "UU", [1, 2]),
            lambda: p.chgbounds([x, y], iter("U"), [1, 2]),
            lambda: p.chgbounds([x, y], "UU", [1, Odd(explode)]),
            lambda: p.chgbounds([x, "nowhere"], "UU", [1, 2]),
            lambda: p.chgrhs([first]),
            lambda: p.getIndexFromName(2, "nowhere"),
        ):
            with pytest.raises(expected):
                bad()
        p.lpoptimize()

    assert growth(work) < 50
