"""The operator @ and numpy.matmul on arrays of modeling objects."""

import operator
import sys

import numpy as np
import pytest

import nalora
from nalora import Dot, ModelError


def texts(a):
    return [str(e) for e in np.ravel(np.asarray(a))]


def stacked(a, b):
    """Matrix by matrix through Dot, in the order of the stacks."""
    stacks = np.broadcast_shapes(a.shape[:-2], b.shape[:-2])
    a = np.broadcast_to(a, stacks + a.shape[-2:])
    b = np.broadcast_to(b, stacks + b.shape[-2:])
    return np.array([Dot(a[i], b[i]) for i in np.ndindex(*stacks)], dtype=object)


@pytest.mark.parametrize(
    ("a", "b"), [((4,), (4,)), ((3, 4), (4,)), ((4,), (4, 3)), ((2, 4), (4, 3)), ((3, 4), (4, 0))]
)
@pytest.mark.parametrize("kinds", ["nx", "xn", "xx", "ne", "en", "xe", "ex", "ee", "ix", "eb"])
def test_products_of_matrices_and_vectors(a, b, kinds):
    def make(kind, shape):
        x = nalora.vars(*shape) if 0 not in shape else np.empty(shape, dtype=nalora.npvar)
        numbers = np.arange(float(x.size)).reshape(shape) - 2
        others = {"n": numbers, "i": numbers.astype("i4"), "b": numbers.astype(bool)}
        return {**others, "x": x, "e": x - numbers}[kind]

    left, right = make(kinds[0], a), make(kinds[1], b)
    result, expected = left @ right, Dot(left, right)
    assert texts(result) == texts(expected)
    if len(a) + len(b) > 2:
        assert result.dtype == nalora.npexpr and result.shape == expected.shape


def test_stacks_and_strides():
    x, y = nalora.vars(2, 3, 4, name="x"), nalora.vars(4, 5, name="y")
    c = np.arange(60.0).reshape(3, 20)[::-1, ::4]
    assert texts(x @ y) == texts(stacked(x, y))
    assert texts(x.swapaxes(1, 2) @ c) == texts(stacked(x.swapaxes(1, 2), c))
    assert texts(c.T[:, ::2] @ x[:, ::-2]) == texts(stacked(c.T[:, ::2], x[:, ::-2]))
    assert texts(y.T[::-1] @ y[:, 1]) == texts(Dot(y.T[::-1].copy(), y[:, 1].copy()))


def test_results_go_into_constraints_and_out():
    x = nalora.vars(3)
    a = np.arange(9.0).reshape(3, 3)
    p = nalora.problem(x, a @ x <= 1, x @ a @ x)
    assert p.attributes.elems == 8 and p.attributes.qelems > 0
    out = np.empty(3, dtype=nalora.npexpr)
    out[0] = x[0] + 1
    assert np.matmul(a, x, out=out) is out
    assert texts(out) == texts(Dot(a, x))
    y = x + 0.0 * x[::-1]
    expected = texts(Dot(a, y))
    np.matmul(a, y, out=y)
    assert texts(y) == expected


def test_errors_in_the_middle_leave_valid_arrays():
    x = np.array([*nalora.vars(2), None], dtype=nalora.npvar)
    e = x[:2].astype(nalora.npexpr)
    e[1] = object()
    out = np.empty(2, dtype=nalora.npexpr)
    before = sys.getrefcount(x.item(0))
    for a, b in [(np.ones((2, 3)), x), (x, x), (np.eye(2), e), (e, np.eye(2))]:
        with pytest.raises(ModelError, match="must be between long, double, and expressions"):
            a @ b
    with pytest.raises(ModelError, match="must be between"):
        np.matmul(np.ones((2, 3)), x, out=out)
    assert out.tolist() == [None, None]
    after = sys.getrefcount(x.item(0))
    assert after == before


@pytest.mark.parametrize(
    ("a", "b"),
    [
        (np.ones(3), nalora.vars(2)),
        (nalora.vars(2, 3), nalora.vars(2, 3)),
        (np.ones(2, dtype=complex), nalora.vars(2)),
        (nalora.vars(2), np.array(["a", "b"])),
        (nalora.vars(2) <= 1, nalora.vars(2)),
        (nalora.vars(2), np.float64(2)),
        (nalora.vars(2), nalora.var()),
    ],
)
def test_refused_operands(a, b):
    with pytest.raises((TypeError, ValueError, ModelError)):
        operator.matmul(a, b)
