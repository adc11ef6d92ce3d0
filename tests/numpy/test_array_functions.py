"""NumPy's functions on arrays of modeling objects, each for every element type."""

import copy
import operator
import pickle
import sys

import numpy as np
import pytest
from conftest import allocated
from numpy.lib.stride_tricks import sliding_window_view

import nalora

N = 6
VARIABLES = nalora.vars(N, name="x")
POINT = dict(zip(VARIABLES, [2.0, 0.75, 1.25, 4.0, 3.0, -1.0]))
ARRAYS = {
    "npvar": VARIABLES,
    "npexpr": 2 * VARIABLES - 1,
    "npconstraint": VARIABLES <= 3,
    "object": np.array(list(VARIABLES)),
}


def put(target, indices, values):
    target.put(indices, values)
    return target


def grown(array):
    array.resize(9, refcheck=False)
    return array[:6]


def copied(array):
    target = np.empty(N, array.dtype)
    np.copyto(target, array)
    return target


def unaligned(array):
    records = np.zeros(N, dtype=[("n", "i1"), ("a", array.dtype)])
    records["a"] = array
    return records["a"].copy()


# Functions that move elements about. Where they go the same functions tell of their positions.
MOVES = {
    "copy": lambda a: a.copy(),
    "slices": lambda a: np.concatenate([a[::2], a[::-1], a[[0, 0, 5]], a[np.arange(N) > 3]]),
    "transposed": lambda a: a.reshape(2, 3).T.copy(),
    "fortran": lambda a: a.reshape(2, 3).flatten("F"),
    "rot90": lambda a: np.rot90(np.flip(a.reshape(2, 3))),
    "windows": lambda a: sliding_window_view(a, 3),
    "windows of a view": lambda a: sliding_window_view(a.reshape(3, 2).T[:, ::-1], (2, 2)),
    "strided": lambda a: np.lib.stride_tricks.as_strided(a, (4, 3), (8, 8)).copy(),
    "stack": lambda a: np.stack([a[:2], a[2:4]], axis=1),
    "block": lambda a: np.block([[a], [np.column_stack([a, a]).ravel()[:N]]]),
    "where": lambda a: np.where(np.arange(N) < 2, a, a[::-1]),
    "select": lambda a: np.select([np.arange(N) > 2], [a], a[::-1]),
    "choose": lambda a: np.choose([0, 1], [a[:2], a[2:4]]),
    "take": lambda a: np.take(a, [5, 7], mode="wrap"),
    "compress": lambda a: np.compress([True, False, True], a),
    "repeat": lambda a: np.repeat(a[:2], 2),
    "tile": lambda a: np.tile(a[:2], (2, 2)),
    "resize": lambda a: np.resize(a, 8),
    "split": lambda a: np.array_split(a, 4)[1],
    "pad": lambda a: np.pad(a, 2, mode="reflect"),
    "append": lambda a: np.append(a, a[:1]),
    "insert": lambda a: np.insert(a, 1, a[5]),
    "delete": lambda a: np.delete(a, [1, 2]),
    "roll": lambda a: np.roll(a, 1),
    "diagonal": lambda a: np.diag(a.reshape(2, 3)),
    "einsum": lambda a: np.einsum("ii->i", a[:4].reshape(2, 2)),
    "broadcast": lambda a: np.broadcast_to(a[:1], 3).copy(),
    "meshgrid": lambda a: np.meshgrid(a, a[:2])[1],
    "full": lambda a: np.full(2, a[1], dtype=a.dtype),
    "copyto": copied,
    "put": lambda a: put(a.copy(), [0, 5], a[[5, 0]]),
    "shallow": copy.copy,
    "deep": copy.deepcopy,
    "object": lambda a: a.astype(object),
    "object and back": lambda a: a.astype(object).astype(a.dtype),
    "field": lambda a: a[a.dtype.names[0]].copy() if a.dtype.names else a.copy(),
    "record": unaligned,
    "iterator": lambda a: np.array(list(a.flat), dtype=a.dtype),
    "in place": lambda a: grown(a.copy()),
}

# Functions whose results have the values that they have over numbers.
COMPUTED = {
    "negative": operator.neg,
    "positive": operator.pos,
    "abs": abs,
    "fabs": np.fabs,
    "square": np.square,
    "reciprocal": np.reciprocal,
    "conjugate": np.conjugate,
    "maximum": lambda a: np.maximum(a, 2.0) + np.minimum(1.0, a[::-1]),
    "maxima": lambda a: np.maximum(a, a[::-1]),
    "fmax": lambda a: np.fmax(a, 2.0) - np.fmin(a, 2.0),
    "sum": np.sum,
    "sums": lambda a: a.reshape(2, 3).sum(axis=0, keepdims=True) + a[:1].sum(),
    "sum of none": lambda a: a[:0].sum(),
    "sum from": lambda a: a.sum(initial=5.0),
    "sum of windows": lambda a: sliding_window_view(a, 3).sum(axis=1),
    "sum of some": lambda a: a.sum(initial=0.0, where=np.arange(N) % 2 == 0),
    "product": np.prod,
    "products": lambda a: a.reshape(3, 2).prod(axis=0),
    "max": lambda a: np.max(a) - a.min(),
    "maxima of rows": lambda a: a.reshape(2, 3).max(axis=1),
    "ptp": np.ptp,
    "mean": lambda a: a.reshape(2, 3).mean(axis=1),
    "variance": np.var,
    "cumsum": lambda a: np.cumsum(a, dtype=object),
    "cumprod": lambda a: a.reshape(2, 3).cumprod(axis=1, dtype=object),
    "reduceat": lambda a: np.add.reduceat(a, [0, 2, 4], dtype=object),
    "outer": lambda a: np.outer(a, a) - np.add.outer(a, np.arange(6.0)),
    "diff": lambda a: np.diff(a, 2),
    "ediff1d": np.ediff1d,
    "trapezoid": lambda a: getattr(np, "trapezoid", getattr(np, "trapz", None))(a),
    "trace": lambda a: np.trace(a.reshape(2, 3)),
    "triangle": lambda a: np.tril(a[:4].reshape(2, 2)),
    "kron": lambda a: np.kron(np.eye(2), a),
    "tensordot": lambda a: np.tensordot(a.reshape(2, 3), np.ones((3, 2)), 1),
    "dot": lambda a: np.dot(a, a),
    "inner": lambda a: np.inner(a, np.arange(6.0)),
    "matmul": lambda a: np.ones((2, 6)) @ a,
    "matrix power": lambda a: np.linalg.matrix_power(a[:4].reshape(2, 2), 2),
    "polyval": lambda a: np.polyval(a, 2.0),
    "convolve": lambda a: np.convolve(a, [1.0, 2.0]),
    "correlate": lambda a: np.correlate(a, [1.0, 2.0]),
    "at": lambda a: added_at(0.0 + a),
}

# These NumPy does to objects by methods and truth values of theirs.
OF_OWN_TYPES = {
    *("positive", "fabs", "reciprocal", "conjugate", "variance", "maximum", "maxima", "fmax"),
    *("max", "maxima of rows", "ptp"),
}

REFUSED = {
    "sort": np.sort,
    "argsort": np.argsort,
    "unique": np.unique,
    "argmax": np.argmax,
    "searchsorted": lambda a: np.searchsorted(a, a[0]),
    "median": np.median,
    "einsum": lambda a: np.einsum("i,i->", a, a),
    "clip": lambda a: np.clip(a, 0, 1),
    "rint": np.rint,
    "isnan": np.isnan,
    "less": lambda a: a < 3,
    "greater": lambda a: a[0:2] > a[2:4],
    "float": lambda a: a.astype(float),
    "text": lambda a: a.astype("U5"),
    "view": lambda a: a.view("u8"),
    "viewed": lambda a: np.frombuffer(b"x" * 8, "u8").view(a.dtype),
    "buffer": lambda a: np.frombuffer(b"12345678", a.dtype),
    "pickle": pickle.dumps,
}


def added_at(array):
    np.add.at(array, [0, 0, 3], 2.0)
    return array


def counts(objects):
    return [sys.getrefcount(o) for o in objects]


def by_name(table):
    return pytest.mark.parametrize("name", table)


@pytest.mark.parametrize("kind", ["npvar", "npexpr", "npconstraint"])
@by_name(MOVES)
def test_elements_that_move_stay_the_objects_they_are(name, kind):
    move, array = MOVES[name], ARRAYS[kind]
    if kind == "npconstraint" and name == "deep":
        return  # new constraints
    if kind == "npconstraint" and name in ("windows", "windows of a view", "strided"):
        with pytest.raises(TypeError):  # their way is that of objects
            move(array)
        array = array.astype(object)
    objects = array.tolist()
    before = counts(objects)
    result, positions = move(array), move(np.arange(N))
    assert result.shape == positions.shape
    assert result.dtype == (object if name in ("object", "field") else array.dtype)
    assert all(o is objects[i] for o, i in zip(result.ravel(), positions.ravel().tolist()))
    del result
    assert counts(objects) == before


@pytest.mark.parametrize("kind", ["npvar", "npexpr", "object"])
@by_name(COMPUTED)
def test_results_have_the_values_of_the_same_function_of_numbers(name, kind):
    if kind == "object" and name in OF_OWN_TYPES:
        return
    function, array = COMPUTED[name], ARRAYS[kind]

    def work():
        values = np.array(nalora.evaluate(list(array), solution=POINT))
        result, expected = np.asarray(function(array)), np.asarray(function(values))
        assert result.shape == expected.shape
        found = nalora.evaluate(result.ravel().tolist(), solution=POINT)
        np.testing.assert_allclose(found, expected.astype(float).ravel())

    for _ in range(2):
        work()
    before = allocated()
    work()
    assert allocated() - before < 20


@pytest.mark.parametrize("kind", ["npvar", "npexpr", "npconstraint"])
@by_name(REFUSED)
def test_what_has_no_meaning_or_no_way_is_refused(name, kind):
    array = ARRAYS[kind]
    objects = array.tolist()
    before = counts(objects)
    with pytest.raises((TypeError, ValueError, nalora.ModelError, pickle.PicklingError)):
        REFUSED[name](array)
    assert counts(objects) == before and all(p is q for p, q in zip(array, objects))


def test_reductions_make_one_level():
    x = nalora.vars(200)
    point = {v: 1.0 + i % 3 for i, v in enumerate(x)}
    p = nalora.problem(x)
    for reduced, value in [
        (x.prod(), 2.0**67 * 3.0**66),
        (x.reshape(100, 2).prod(axis=0)[1], 2.0**34 * 3.0**33),
        (x.max(), 3.0),
        (np.minimum.reduce(x + 1), 2.0),
        (np.bitwise_and.reduce(x), 1.0),
        (np.bitwise_or.reduce(x - 1), 1.0),
        (np.bitwise_or.reduce(x - 3), 0.0),
    ]:
        assert nalora.evaluate(reduced, solution=point) == pytest.approx(value)
        p.addConstraint(reduced <= 1)


def test_where_types_meet_the_wider_one_holds_both():
    wider = {"npvar": 0, "npexpr": 1, "object": 2}
    for left, a in ARRAYS.items():
        for right, b in ARRAYS.items():
            if "npconstraint" in (left, right):
                continue
            dtype = (a if wider[left] >= wider[right] else b).dtype
            mixed = [np.concatenate([a, b]), np.stack([a, b]).ravel(), np.append(a, b)]
            mixed.append(np.where([[True], [False]], a, b).ravel())
            for result in mixed:
                assert result.dtype == dtype
                assert all(p is q for p, q in zip(result, [*a, *b]))
            kept = a.copy()
            if left != "npvar":
                kept += b
                assert kept.dtype == a.dtype
                continue
            with pytest.raises(TypeError, match="expression"):
                kept += b  # a sum is no variable
            assert all(p is q for p, q in zip(kept, a))
    for other in (ARRAYS["npconstraint"], np.ones(N)):
        with pytest.raises(TypeError):
            np.concatenate([VARIABLES, other])
