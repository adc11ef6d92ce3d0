"""Arrays of modeling objects under the operations of NumPy that move elements about."""

import copy
import pickle
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


# What may be done to an array of six objects, and what the result holds, by position.
MOVES = {
    "copy": (lambda a: a.copy(), range(6)),
    "step": (lambda a: a[::2], (0, 2, 4)),
    "backwards": (lambda a: a[::-1], (5, 4, 3, 2, 1, 0)),
    "fancy": (lambda a: a[[0, 0, 5]], (0, 0, 5)),
    "mask": (lambda a: a[np.arange(6) > 3], (4, 5)),
    "transposed": (lambda a: a.reshape(2, 3).T.copy(), (0, 3, 1, 4, 2, 5)),
    "fortran": (lambda a: a.reshape(2, 3).flatten("F"), (0, 3, 1, 4, 2, 5)),
    "concatenate": (lambda a: np.concatenate([a[:2], a[4:]]), (0, 1, 4, 5)),
    "stack": (lambda a: np.stack([a[:2], a[2:4]], axis=1), (0, 2, 1, 3)),
    "where": (lambda a: np.where(np.arange(6) < 2, a, a[::-1]), (0, 1, 3, 2, 1, 0)),
    "take": (lambda a: np.take(a, [5, 0]), (5, 0)),
    "choose": (lambda a: np.choose([0, 1], [a[:2], a[2:4]]), (0, 3)),
    "repeat": (lambda a: np.repeat(a[:2], 2), (0, 0, 1, 1)),
    "tile": (lambda a: np.tile(a[:2], 2), (0, 1, 0, 1)),
    "resize": (lambda a: np.resize(a, 8), (0, 1, 2, 3, 4, 5, 0, 1)),
    "append": (lambda a: np.append(a, a[:1]), (0, 1, 2, 3, 4, 5, 0)),
    "insert": (lambda a: np.insert(a, 1, a[5]), (0, 5, 1, 2, 3, 4, 5)),
    "delete": (lambda a: np.delete(a, [1, 2]), (0, 3, 4, 5)),
    "roll": (lambda a: np.roll(a, 1), (5, 0, 1, 2, 3, 4)),
    "diagonal": (lambda a: np.diag(a.reshape(2, 3)), (0, 4)),
    "broadcast": (lambda a: np.broadcast_to(a[:1], 3).copy(), (0, 0, 0)),
    "full": (lambda a: np.full(2, a[1], dtype=a.dtype), (1, 1)),
    "copyto": (lambda a: copied_to(np.empty(6, a.dtype), a), range(6)),
    "put": (lambda a: put(a.copy(), [0, 5], a[[5, 0]]), (5, 1, 2, 3, 4, 0)),
    "fill": (lambda a: filled(a.copy(), a[2]), (2,) * 6),
    "shallow": (copy.copy, range(6)),
    "deep": (copy.deepcopy, range(6)),
    "object": (lambda a: a.astype(object), range(6)),
    "object and back": (lambda a: a.astype(object).astype(a.dtype), range(6)),
    "field": (lambda a: a[a.dtype.names[0]].copy(), range(6)),
    "record": (lambda a: in_record(a)["a"].copy(), range(6)),
    "iterator": (lambda a: np.array(list(a.flat), dtype=a.dtype), range(6)),
    "in place": (lambda a: grown(a.copy()), range(6)),
}


def copied_to(target, source):
    np.copyto(target, source)
    return target


def put(target, indices, values):
    target.put(indices, values)
    return target


def filled(array, item):
    array.fill(item)
    return array


def in_record(array):
    records = np.zeros(len(array), dtype=[("n", "i1"), ("a", array.dtype)])  # unaligned
    records["a"] = array
    return records


def grown(array):
    array.resize(9, refcheck=False)
    return array[:6]


@pytest.mark.parametrize("of_expressions", [False, True])
@pytest.mark.parametrize("move", MOVES)
def test_moving_elements_keeps_objects_and_references(xs, move, of_expressions):
    operation, expected = MOVES[move]
    array = variables(xs)
    if of_expressions:
        array = array + 1
    objects = array.tolist()
    before = [sys.getrefcount(item) for item in objects]
    result = operation(array)
    assert same_objects(result, [objects[i] for i in expected])
    del result
    assert [sys.getrefcount(item) for item in objects] == before


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


@pytest.mark.parametrize(
    "refused",
    [
        lambda a: a.sort(),
        np.argsort,
        np.unique,
        np.argmax,
        lambda a: np.frombuffer(b"x" * 8, "u8").view(a.dtype),
        lambda a: a.view("u8"),
        pickle.dumps,
        lambda a: np.frombuffer(b"12345678", a.dtype),
        lambda a: np.add.reduceat(a + 1, [0, 2]),
        lambda a: a.max(),
        lambda a: np.einsum("i->", a),
        lambda a: np.maximum(a, 1.0),
    ],
)
def test_what_makes_no_sense_is_refused(xs, refused):
    array = variables(xs)
    before = [sys.getrefcount(x) for x in xs]
    with pytest.raises((TypeError, ValueError)):
        refused(array)
    assert same_objects(array, xs)
    assert [sys.getrefcount(x) for x in xs] == before


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
