"""Dot: products of arrays of numbers and modeling objects, against NumPy's own on values."""

import sys

import numpy as np
import pytest
from conftest import growth

import nalora
from nalora import Dot, ModelError

X = nalora.vars(6, name="x")
VALUES = {v: 0.5 * i - 1.25 for i, v in enumerate(X)}
ELEMENTS = "Dot product must be between long, double, and expressions/variables"
MATCH = "matching sizes in the multiplying dimension"
OUT_TYPE = "Output argument set with wrong type"


def value(result):
    """The values of an array's elements, None for the elements of no array."""
    if not isinstance(result, np.ndarray):
        return nalora.evaluate(result, solution=VALUES)
    values = [nalora.evaluate(e, solution=VALUES) for e in result.ravel().tolist()]
    return np.array(values, dtype=float).reshape(result.shape)


def quadratic(e):
    return sorted((str(u), str(v), c) for u, v, c in zip(*e.extractQuadratic()))


def linear(e):
    return {str(v): c for v, c in zip(*e.extractLinear())}


MAKERS = {
    "float": lambda i: 1.5 * (i % 5) - 3,
    "int": lambda i: i % 4 - 1,
    "np.float32": lambda i: np.float32(i),
    "var": lambda i: X[i % 6],
    "linterm": lambda i: (i % 3 + 1.5) * X[i % 6],
    "quadterm": lambda i: 2 * X[i % 6] * X[(i + 2) % 6],
    "expression": lambda i: X[i % 6] - 2 * X[(i * i) % 5] + i,
    "constant": lambda i: X[0] - X[0] + X[1] * X[1] - X[1] * X[1] + i,
    "quadratic": lambda i: X[i % 6] * X[0] - 2 * X[(i * i) % 5] + i,
    "nonlinear": lambda i: X[i % 6] ** 3,
}


def objects(shape, kinds, dtype=object):
    a = np.empty(shape, dtype=dtype)
    for i, index in enumerate(np.ndindex(*shape)):
        a[index] = MAKERS[kinds[i % len(kinds)]](i)
    return a


# ---- values and kinds ---------------------------------------------------------------------------

SHAPES = [
    ((5,), (5,)),
    ((3, 4), (4,)),
    ((4,), (4, 3)),
    ((2, 3), (3, 4)),
    ((2, 3, 4), (4,)),
    ((3,), (2, 3, 2)),
    ((2, 2, 3), (2, 3, 4)),
    ((1,), (1,)),
]


@pytest.mark.parametrize(("first", "second"), SHAPES)
@pytest.mark.parametrize("objects_first", [True, False])
def test_numbers_by_objects(first, second, objects_first):
    numbers = np.random.default_rng(1).integers(-2, 3, first if not objects_first else second)
    mixed = objects(second if not objects_first else first, ["var", *MAKERS])
    a, b = (mixed, numbers) if objects_first else (numbers, mixed)
    result = Dot(a, b)
    expected = np.dot(value(a) if objects_first else a, b if objects_first else value(b))
    np.testing.assert_allclose(value(result), expected, atol=1e-9)
    if expected.ndim:
        assert result.dtype == nalora.npexpr and type(result) is np.ndarray
        assert result.shape == expected.shape
        assert all(hasattr(e, "__le__") for e in result.ravel().tolist())


@pytest.mark.parametrize("a_kind", MAKERS)
@pytest.mark.parametrize("b_kind", MAKERS)
def test_objects_by_objects(a_kind, b_kind):
    a, b = objects((2, 3), [a_kind]), objects((3, 2), [b_kind, "var"])
    np.testing.assert_allclose(value(Dot(a, b)), value(a) @ value(b), atol=1e-9)
    np.testing.assert_allclose(value(Dot(b, a)), value(b) @ value(a), atol=1e-9)


def test_results_are_expressions_whatever_they_add_up_to():
    zero = Dot(np.zeros((2, 2)), X[:2])
    assert [type(e).__name__ for e in zero] == ["expression"] * 2
    assert str(Dot(np.ones(2), objects((2,), ["float"], nalora.npexpr))) == "-4.5"
    assert linear(Dot(np.ones(2), X[:2])) == {"x(0)": 1, "x(1)": 1}
    assert type(Dot(X[:2], X[2:4] ** 3)).__name__ == "nonlinear"
    # Linear sums stay linear when their terms and the rest cancel.
    assert quadratic(Dot(np.array([X[0], -X[0]]), X[1:3][[0, 0]])) == []


@pytest.mark.parametrize(
    "dtype", ["?", "b", "H", "i", "l", "q", "Q", "e", "f", "d", "g", ">f8", ">i4", "O"]
)
def test_numbers_of_any_type(dtype):
    a = np.array([[1, 0, 1], [0, 1, 1]]).astype(dtype)
    assert [linear(e) for e in Dot(a, X[:3])] == [
        {"x(0)": 1, "x(2)": 1},
        {"x(1)": 1, "x(2)": 1},
    ]
    product = Dot(a, a.T)
    assert product.dtype == float and product.tolist() == [[2, 1], [1, 2]]
    scalar = Dot(a[0], a[1])
    assert type(scalar) is float and scalar == 1


def test_elements_anywhere_in_memory():
    a = np.arange(60.0).reshape(5, 12)[::-2, ::3]
    x = nalora.vars(3, 8)[::2, ::-2].T
    record = np.zeros(4, dtype=[("pad", "i1"), ("v", "f8")])
    record["v"] = [1, 2, 3, 4]
    for left, right in [(a, x), (x, a[0, :2]), (x.T, record["v"]), (np.asfortranarray(a), x)]:
        result, same = Dot(left, right), Dot(left.copy("C"), right.copy("C"))
        assert [str(e) for e in result.ravel()] == [str(e) for e in same.ravel()]
    derived = np.ones((1, 2)).view(type("Derived", (np.ndarray,), {}))
    assert type(Dot(derived, X[:2])) is np.ndarray


def test_quadratic_forms():
    n = 40
    x = nalora.vars(n, name="")
    q = np.random.default_rng(2).integers(-3, 4, (n, n)).astype(float)
    e = Dot(x, q, x)
    us, vs, coefs = e.extractQuadratic()
    position = {v: i for i, v in enumerate(x.tolist())}
    found = np.zeros((n, n))
    for u, v, c in zip(us, vs, coefs):
        found[position[u], position[v]] += c
    symmetric = q + q.T - np.diag(np.diag(q))
    np.testing.assert_array_equal(found, np.triu(symmetric))
    assert (found[np.array([position[u] for u in us]), [position[v] for v in vs]] != 0).all()
    assert quadratic(Dot(x, Dot(q, x))) == quadratic(e)
    # Linear terms, and two vectors that differ.
    y = x * np.arange(n)
    assert quadratic(Dot(y, q, y)) == quadratic(Dot(y, Dot(q, y)))
    assert quadratic(Dot(x, q, x[::-1])) == quadratic(Dot(x, Dot(q, x[::-1])))
    out = np.empty((), dtype=nalora.npexpr)
    assert Dot(x, q, x, out=out) is out and quadratic(out.item()) == quadratic(e)


# ---- the fold -----------------------------------------------------------------------------------


def test_factors_in_any_collection():
    a, b = np.array([[1.0, 2.0]]), np.array([[0.0, 1.0], [1.0, 0.0]])
    expected = [{"x(0)": 2, "x(1)": 1}]
    factors = [a, None, b, X[:2], None]
    for collection in [factors, tuple(factors), iter(factors), dict(enumerate(factors))]:
        assert [linear(e) for e in Dot(collection)] == expected
    out = np.empty(1, dtype=nalora.npexpr)
    assert Dot(*factors, out=out) is out
    assert [linear(e) for e in out] == expected
    assert [linear(e) for e in Dot(np.ones((1, 1)), a, b, X[:2])] == expected
    assert Dot() == 0.0 and type(Dot([])) is float
    assert Dot([a]) is a and Dot(X[0]) is X[0]


@pytest.mark.parametrize(
    ("factors", "message"),
    [
        ((2.0, X), "incompatible objects: first one is a scalar"),
        ((np.array(2.0), X), "incompatible objects: first one is a scalar"),
        ((X, X, X), "incompatible objects: first one is a scalar"),
        ((X, X[0] + 1), "incompatible objects: second one is a scalar"),
        (([1] * 6, X), "Dot product can only occur between NumPy arrays"),
        ((X, [1] * 6), "Dot product should only be on NumPy arrays"),
        ((X[0], X[1]), "Dot product can only occur between NumPy arrays"),
        ((["ab"],), "Dot product can only occur between NumPy arrays"),
        ((X, X[:5]), MATCH),
        ((X, np.ones((6, 2, 3))), MATCH),
        ((X, np.ones(6, dtype=complex)), ELEMENTS),
        ((X, np.array(["a"] * 6)), ELEMENTS),
        ((X <= 1, X), ELEMENTS),
        ((np.zeros(6), np.array([*X[:5], None])), ELEMENTS),
        ((np.empty(6, dtype=nalora.npvar), X), ELEMENTS),
        ((np.ones(6), np.array([*X[:5], 1j], dtype=object)), ELEMENTS),
        ((np.ones((2**23, 0)), np.ones((0, 2**23))), "Could not initialize result"),
    ],
)
def test_refused_factors(factors, message):
    with pytest.raises(ModelError, match=message):
        Dot(*factors)


def test_numbers_beyond_doubles_and_unknown_keywords():
    with pytest.raises(OverflowError):
        Dot(np.array([10**400, X[0]]), X[:2])
    with pytest.raises(TypeError):
        Dot(X, X, axis=0)
    assert str(Dot(X, X, out=None)) == str(Dot(X, X))

    def generator():
        yield X
        yield X
        raise KeyError("boom")

    with pytest.raises(KeyError):
        Dot(generator())


@pytest.mark.parametrize("shapes", [((0,), (0,)), ((3, 0), (0,)), ((0,), (0, 2)), ((2, 0), (0, 3))])
def test_sums_of_nothing(shapes):
    a, b = np.empty(shapes[0], dtype=nalora.npvar), np.ones(shapes[1])
    result = np.asarray(Dot(a, b))
    assert result.shape == np.dot(np.ones(shapes[0]), b).shape
    assert all(str(e) == "0" for e in result.ravel().tolist())
    numbers = Dot(np.ones(shapes[0]), b)
    np.testing.assert_array_equal(numbers, np.zeros(result.shape))
    assert Dot(np.ones((0, 3)), X[:3]).shape == (0,)


# ---- out ----------------------------------------------------------------------------------------


def test_out_receives_the_result():
    a = np.arange(6.0).reshape(2, 3)
    x = nalora.vars(3, 2)
    out = np.empty((4, 4), dtype=nalora.npexpr)[::2, ::-2]
    out[0, 0] = X[0] + 5
    expected = [str(e) for e in Dot(a, x).ravel()]
    assert Dot(a, x, out=out) is out
    assert [str(e) for e in out.ravel()] == expected
    for dtype in ("f8", "f4", "i4", ">i8", "u2"):
        numbers = np.zeros((3, 3), dtype=dtype)
        assert Dot(a.T, a, out=numbers) is numbers
        assert numbers.tolist() == a.T.dot(a).tolist()
    # The output may be one of the factors.
    y = (np.eye(2) @ np.array(X[:2])).astype(nalora.npexpr)
    expected = [str(e) for e in Dot(a[:, :2], y)]
    Dot(a[:, :2], y, out=y)
    assert [str(e) for e in y] == expected
    # Single results have a single place.
    for shape in [(), (1,), (1, 1)]:
        single = np.empty(shape, dtype=nalora.npexpr)
        assert Dot(X, X, out=single) is single
        assert str(single.item()) == str(Dot(X, X))
        number = np.zeros(shape)
        assert Dot(a[0], a[1], out=number) is number
        assert number == 14


@pytest.mark.parametrize(
    ("factors", "out", "message"),
    [
        ((np.ones((2, 6)), X), np.zeros(2), OUT_TYPE),
        ((np.ones((2, 6)), X), np.empty(2, dtype=nalora.npvar), OUT_TYPE),
        ((np.ones((2, 6)), X), np.empty(2, dtype=object), OUT_TYPE),
        ((np.ones((2, 6)), np.ones(6)), np.empty(2, dtype=nalora.npexpr), OUT_TYPE),
        ((np.ones((2, 6)), np.ones(6)), np.zeros(2, dtype=bool), OUT_TYPE),
        ((np.ones((2, 6)), X), np.empty(3, dtype=nalora.npexpr), "wrong shape"),
        ((np.ones((2, 6)), np.ones(6)), np.ones((2, 2)), "wrong shape"),
        ((X, X), np.empty(2, dtype=nalora.npexpr), "contains more than one element"),
        ((X,), np.empty(6, dtype=nalora.npexpr), "at least two factors"),
    ],
)
def test_refused_out(factors, out, message):
    with pytest.raises(ModelError, match=message):
        Dot([*factors], out=out)


def test_out_is_untouched_by_failures():
    out = np.empty(2, dtype=nalora.npexpr)
    kept = out[0] = X[0] + X[1]
    with pytest.raises(ModelError, match="must be between"):
        Dot(np.ones((2, 2)), np.array([X[0], None]), out=out)
    out.flags.writeable = False
    with pytest.raises(ModelError, match="read-only"):
        Dot(np.ones((2, 6)), X, out=out)
    assert out[0] is kept and out[1] is None


class Witness:
    """A name whose end runs code."""

    def __init__(self, action):
        self.action = action

    def __del__(self):
        self.action()


def test_objects_that_out_drops_may_do_anything():
    out = np.empty(3, dtype=nalora.npexpr)
    seen = []
    for i in range(3):
        v = nalora.var()
        v.name = Witness(lambda: seen.append([str(e) for e in out]))
        out[i] = v + X[0]
    del v
    result = [str(e) for e in Dot(np.eye(3), X[:3])]
    Dot(np.eye(3), X[:3], out=out)
    assert seen == [result] * 3


# ---- what it costs ------------------------------------------------------------------------------


def test_nothing_is_kept():
    x = nalora.vars(3)
    e = x + 2 * x[0] * x[1]
    matrix, bad = np.arange(9.0).reshape(3, 3), np.array([x[0], x[1], None])
    out = np.empty(3, dtype=nalora.npexpr)

    def work():
        Dot(matrix, x, out=out)
        Dot(matrix, e, out=out)
        for factors in [(x, matrix, x), (e, x), (matrix, e), (x**3, e), (matrix, matrix)]:
            Dot(*factors)
        for factors in [(matrix, bad), (bad, x), (x, matrix, bad), (x, x, x)]:
            with pytest.raises(ModelError):
                Dot(*factors)

    objects = [*x.tolist(), *e.tolist(), x, e, matrix, out]
    assert growth(work) < 40
    counts = [sys.getrefcount(o) for o in objects]
    growth(work)
    assert [sys.getrefcount(o) for o in objects] == counts


def test_long_sums_that_repeat_take_no_more_room_than_their_terms():
    x = nalora.vars(100, name="")
    e = np.broadcast_to(np.sum(x), (100,)).copy()
    result = Dot(np.ones((20, 100)), e)
    assert all(set(row.extractLinear()[1]) == {100.0} for row in result)
    assert len(result[0].extractLinear()[0]) == 100
    form = Dot(e, e)
    assert len(form.extractQuadratic()[0]) == 5050


@pytest.mark.parametrize("spread", [1, 50, 500])
def test_many_terms_in_few_variables(spread):
    random = np.random.default_rng(3)
    x = nalora.vars(20 * spread, name="")[::spread]
    picked = random.integers(0, 19, 3000)
    factors = random.integers(-2, 3, (2, 3000)) + 0.1
    factors[:, picked == 4] = 0
    elements = x[picked].astype(object)
    elements[::3] *= 2
    by_rows, by_columns = Dot(factors, elements), Dot(elements, factors.T)
    for i, result in enumerate(by_rows):
        expected = {}
        for h in np.flatnonzero(factors[i]):
            v = id(x[picked[h]])
            expected[v] = expected.get(v, 0) + factors[i, h] * (1 if h % 3 else 2)
        variables, coefs = result.extractLinear()
        assert dict(zip(map(id, variables), coefs)) == expected
        assert str(by_columns[i]) == str(result)
    cancelled = Dot(np.array([1.0, -1.0] * 1000), x[[0] * 2000])
    assert str(cancelled) == "0"
