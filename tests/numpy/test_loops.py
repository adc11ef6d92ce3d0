"""Arithmetic and comparisons of arrays, element by element."""

import operator
import sys

import numpy as np
import pytest

import nalora

ops = operator
ARITHMETIC = [ops.add, ops.sub, ops.mul, ops.truediv, ops.pow, ops.and_, ops.or_]
COMPARISONS = [ops.le, ops.eq, ops.ge]


@pytest.fixture
def xs():
    return [nalora.var(name=f"x{i}") for i in range(4)]


@pytest.fixture
def a(xs):
    return np.array(xs, dtype=nalora.npvar)


def text(item):
    if isinstance(item, nalora.constraint):
        return f"{item.lb:g} <= {item.body} <= {item.ub:g}"
    return str(item)


def texts(array):
    return [text(item) for item in array.ravel().tolist()]


def operand(kind, xs):
    """The same four operands as an array and one by one."""
    doubles = [1.0, 2.5, 2.5, -3.0]
    if kind == "npvar":
        return np.array(xs, dtype=nalora.npvar), xs
    if kind == "npexpr":
        array = 2 * np.array(xs, dtype=nalora.npvar) + np.arange(4)
        return array, array.tolist()
    if kind == "object":
        return np.array(xs[::-1]), xs[::-1]
    if kind == "var":
        return xs[1], [xs[1]] * 4
    if kind == "expression":
        return xs[1] + xs[2], [xs[1] + xs[2]] * 4
    if kind == "linterm":
        return 3 * xs[1], [3 * xs[1]] * 4
    if kind == "nonlinear":
        return xs[1] ** 3, [xs[1] ** 3] * 4
    if kind == "number":
        return 2.5, [2.5] * 4
    if kind == "numpy scalar":
        return np.float64(2.5), [2.5] * 4
    array = np.array(doubles).astype(kind)
    return array, [float(item) for item in array]


ARRAYS = ["npvar", "npexpr"]
OTHERS = ["object", "var", "expression", "linterm", "nonlinear", "number", "numpy scalar"]
OTHERS += ["float64", "float32", "int64", "int32", "int8", "bool"]


@pytest.mark.parametrize("reflected", [False, True])
@pytest.mark.parametrize("kind", ARRAYS + OTHERS)
@pytest.mark.parametrize("array_kind", ARRAYS)
@pytest.mark.parametrize("operation", ARITHMETIC + COMPARISONS, ids=lambda o: o.__name__)
def test_every_loop_does_what_the_operator_does(xs, operation, array_kind, kind, reflected):
    left, lefts = operand(array_kind, xs)
    right, rights = operand(kind, xs)
    if reflected:
        left, lefts, right, rights = right, rights, left, lefts
    if operation is ops.truediv and any(isinstance(r, float) and r == 0 for r in rights):
        with pytest.raises(nalora.ModelError, match=r"[Dd]ivision"):
            operation(left, right)
        return
    if operation is ops.pow and reflected and kind in ("var", "expression", "linterm", "nonlinear"):
        with pytest.raises(nalora.ModelError, match="vector as an exponent"):
            operation(left, right)
        return
    result = operation(left, right)
    comparison = operation in COMPARISONS
    assert result.dtype == (nalora.npconstraint if comparison else nalora.npexpr)
    expected = [operation(p, q) for p, q in zip(lefts, rights)]
    point = {x: 0.7 + 0.1 * i for i, x in enumerate(xs)}
    for got, wanted in zip(result.tolist(), expected):
        if comparison:
            sides = [(c.lb, c.ub, value(c.body, point)) for c in (got, wanted)]
            assert sides[0] == pytest.approx(sides[1]) or mirrored(sides)
        else:
            assert value(got, point) == pytest.approx(value(wanted, point))


def value(item, point):
    return nalora.evaluate(item, solution=point)


def mirrored(sides):
    """a <= b may have become b >= a."""
    (lower, upper, body), (other_lower, other_upper, other_body) = sides
    return (lower, upper, body) == pytest.approx((-other_upper, -other_lower, -other_body))


def test_shapes_broadcast(xs, a):
    table = a.reshape(4, 1) + a.reshape(1, 4)
    assert table.shape == (4, 4) and str(table[1, 2]) == "x1 + x2"
    rows = table.T[::-1, ::2] <= np.arange(8).reshape(4, 2)
    assert rows.shape == (4, 2) and rows[1, 1].ub == 3
    with pytest.raises(ValueError, match="broadcast"):
        a + a[:3]
    assert (a[:0] + 1).shape == (0,) and (a[:0] <= 1).dtype == nalora.npconstraint


def test_single_objects_and_numpy_numbers(xs):
    x = xs[0]
    for number in (np.float64(2), np.float32(2), np.int64(2), np.int32(2)):
        assert str(number * x) == "2*x0" and str(number + x) == "2 + x0"
        row = number <= x
        assert isinstance(row, nalora.constraint) and (row.lb, row.ub) == (2.0, 1e20)
        assert (number == x).lb == 2 and (number >= x).ub == 2
    assert str(np.multiply(x, xs[1])) == "x0*x1"
    single = np.add(x, [1.0, 2.0])
    assert single.dtype == nalora.npexpr and texts(single) == ["1 + x0", "2 + x0"]


def test_arrays_of_objects_meet_modeling_objects(xs, a):
    plain = np.array(xs)
    assert plain.dtype == object
    for rows in (plain <= a, a <= plain[::-1], plain <= xs[1], xs[1] <= plain, plain == a):
        assert rows.dtype == nalora.npconstraint and isinstance(rows[0], nalora.constraint)
    assert texts(plain.astype(nalora.npvar) <= 3) == texts(a <= 3)
    with pytest.raises(nalora.ModelError, match=r"astype\(nalora.npvar\)"):
        plain <= 3


def test_results_in_place_and_into_given_arrays(xs, a):
    e = a + 1
    kept = e.tolist()
    e += a
    e -= xs[0]
    e *= 2
    assert texts(e)[0] == "2 +2 x0" and str(kept[0]) == "1 + x0"
    out = np.empty((2, 4), nalora.npexpr)
    np.add(a, 1.0, out=out[1])
    assert out[0].tolist() == [None] * 4 and texts(out[1]) == [str(x + 1) for x in xs]
    np.add(a, 5.0, out=out[1], where=[True, False, False, True])
    assert texts(out[1])[:2] == ["5 + x0", "1 + x1"]
    shifted = a + 0.0
    np.add(shifted[:-1], 1.0, out=shifted[1:])  # overlapping memory
    assert texts(shifted)[1:] == ["1 + x0", "1 + x1", "1 + x2"]
    with pytest.raises(TypeError):
        np.add(a, 1.0, out=np.empty(4))
    for operands in ((a, 1.0), (xs[0], 1.0), (1.0, 2.0)):
        with pytest.raises(TypeError):
            np.add(*operands, out=(xs[0],))
    zero = np.zeros(4, nalora.npexpr)
    zero += xs[1]
    assert texts(zero) == ["x1"] * 4


@pytest.mark.parametrize(
    ("array", "operation", "error"),
    [
        (lambda x: [x, None], lambda e: e + 1, nalora.ModelError),
        (lambda x: [x, "text"], lambda e: 2 * e, nalora.ModelError),
        (lambda x: [x, x <= 1], lambda e: e <= 3, nalora.ModelError),
        (lambda x: [x, 0.0], lambda e: 1 / e, nalora.ModelError),
        (lambda x: [x, 10**400], lambda e: e + 1, OverflowError),
        (lambda x: [x, 1j], lambda e: -e, nalora.ModelError),
    ],
)
def test_an_element_that_fails_ends_the_operation(xs, array, operation, error):
    x = xs[0]
    before = sys.getrefcount(x)
    elements = np.empty(2, nalora.npexpr)
    elements[:] = array(x)
    with pytest.raises(error):
        operation(elements)
    with pytest.raises(error):
        operation(elements[::-1].reshape(2, 1))
    del elements
    assert sys.getrefcount(x) == before


def test_operands_may_overwrite_the_array_they_come_from():
    class Trouble(float):
        """A number whose use in an operator changes the array."""

    array = np.empty(3, nalora.npexpr)

    class Meddler(nalora.var):
        def __del__(self):
            array[:] = 1.0

    array[:] = [Meddler(), Meddler(), Meddler()]
    result = array + Trouble(1.0)
    np.add(array, 1.0, out=array)
    assert len(result) == 3 and all(item is not None for item in array.tolist())


def test_values_of_doubles_are_told_apart():
    x = nalora.var()
    factors = np.array([0.0, -0.0, 1.0, 1.0, np.inf, 2.0])
    assert [value(item, {x: 1.0}) for item in factors * np.full(6, x, nalora.npvar)] == [
        0.0,
        0.0,
        1.0,
        1.0,
        np.inf,
        2.0,
    ]
