"""Arrays of modeling objects under the operations of NumPy that move elements about."""

import sys

import numpy as np
import pytest

import nalora


@pytest.fixture
def xs():
    return [nalora.var(name=f"x{i}") for i in range(6)]


def variables(xs, shape=-1):
    return np.array(xs, dtype=nalora.npvar).reshape(shape)


def same_objects(array, objects):
    return [id(item) for item in array.ravel().tolist()] == [id(item) for item in objects]


def test_the_three_types_are_element_types(xs):
    for dtype, scalar, field in (
        (nalora.npvar, nalora.var, "variable"),
        (nalora.npexpr, type(xs[0] + 1), "expression"),
        (nalora.npconstraint, nalora.constraint, "constraint"),
    ):
        assert isinstance(dtype, np.dtype)
        assert dtype.type is scalar and dtype.kind == scalar.__name__[0]
        assert dtype.names == (field,) and dtype.fields[field] == (np.dtype(object), 0)
        assert dtype.itemsize == 8 and dtype.hasobject
        assert np.empty(3, dtype).tolist() == [None] * 3


def test_arrays_own_what_only_they_hold(xs):
    x = xs[0]
    before = sys.getrefcount(x)
    array = variables(xs) * 2
    view = array[:1].reshape(1, 1)
    del array
    assert str(view[0, 0]) == "2*x0"
    assert sys.getrefcount(x) == before + 1
    view[0, 0] = None
    assert sys.getrefcount(x) == before
    cycle = np.empty(1, nalora.npexpr)
    cycle[0] = [cycle, x]  # may be stored, is refused where it is used
    with pytest.raises(nalora.ModelError):
        cycle + 1
    cycle[0] = 0
    assert sys.getrefcount(x) == before


def test_copies_of_many_elements_count_their_references():
    x = nalora.var()
    before = sys.getrefcount(x)
    table = np.full((200, 200), x, dtype=nalora.npvar)
    table[:, 1:] = table[:, :1]  # NumPy copies large strided blocks without the interpreter lock
    plain = table.T.astype(object).astype(nalora.npexpr)[::2]
    assert sys.getrefcount(x) == before + 40000 + 40000
    del table, plain
    assert sys.getrefcount(x) == before


def test_casts(xs):
    array = variables(xs)
    assert same_objects(array.astype(nalora.npexpr), xs)
    assert same_objects(np.array(xs).astype(nalora.npexpr), xs)
    assert same_objects(array.astype(nalora.npexpr).astype(nalora.npvar), xs)
    constraints = array <= 1
    for dtype in (nalora.npvar, nalora.npexpr, float):
        with pytest.raises(TypeError):
            constraints.astype(dtype)
    for dtype in (nalora.npconstraint, float, int, bool, "U5"):
        with pytest.raises((TypeError, ValueError)):
            array.astype(dtype)
    numbers = np.array([True, False]).astype(nalora.npexpr)
    assert numbers.tolist() == [1.0, 0.0]


def test_byte_swapping_is_refused(xs):
    array = variables(xs)
    for inplace in (False, True):
        with pytest.raises((SystemError, TypeError)) as caught:
            array.byteswap(inplace)
        error = caught.value
        assert "cannot be swapped" in str(
            error if isinstance(error, TypeError) else error.__cause__
        )
    assert same_objects(array, xs)


def test_truth_of_elements(xs):
    x = xs[0]
    expressions = np.array([x - x + 0, x + 0, nalora.Sum(), x * 0, x + x - x * 2], nalora.npexpr)
    expressions[0] = nalora.Sum(0.0)
    expressions[4] = (x + xs[1]) - x - xs[1]  # had terms
    assert [bool(expressions[i : i + 1]) for i in (0, 1, 2, 4)] == [False, True, False, True]
    assert np.nonzero(expressions[[0, 1, 2, 4]])[0].tolist() == [1, 3]
    assert all(bool(array[:1]) for array in (variables(xs), variables(xs) <= 0))
