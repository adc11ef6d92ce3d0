"""Values of objects: dictionaries, nested arguments, trees and their depth limit."""

import math

import numpy as np
import pytest
from conftest import growth

import nalora

x, y, z = (nalora.var(name) for name in "xyz")
VALUES = {x: 2.0, y: -0.5, z: 0.0}


def value(*objects, **keywords):
    return nalora.evaluate(*objects, solution=VALUES, **keywords)


@pytest.mark.parametrize(
    ("make", "expected"),
    [
        (lambda: x, 2.0),
        (lambda: 3 * x, 6.0),
        (lambda: x * y, -1.0),
        (lambda: 3 * x**2, 12.0),
        (lambda: x + 2 * y + 4 - x * y + y**2, 6.25),
        (lambda: 7, 7.0),
        (lambda: np.int8(7), 7.0),
        (lambda: np.float16(0.5), 0.5),
        (lambda: x / y, -4.0),
        (lambda: x / y - 1, -5.0),
        (lambda: x / y + x + 3, 1.0),
        (lambda: (x / y) * x * y, 4.0),
        (lambda: -(x / y), 4.0),
        (lambda: abs(y), 0.5),
        (lambda: x**0.5, math.sqrt(2)),
        (lambda: 2 ** (x + 1), 8.0),
        (lambda: z**-1.0, math.inf),
        (lambda: x & x, 1.0),
        (lambda: x & z, 0.0),
        (lambda: 0.000001 & x, 0.0),
        (lambda: z | 0.999999, 1.0),
        (lambda: z | 0.9, 0.0),
        (lambda: z | y, 0.0),
    ],
)
def test_values(make, expected):
    assert value(make()) == expected
    assert value([make(), ()]) == [expected, ()]


def test_nesting_is_kept():
    assert value(x, y) == (2.0, -0.5)
    assert value() == ()
    assert value((x, [y, {"a": z, 1: (x,)}]), {x: 2 * x}) == (
        (2.0, [-0.5, {"a": 0.0, 1: (2.0,)}]),
        {x: 4.0},
    )
    assert value(range(3)) == [0.0, 1.0, 2.0]


@pytest.mark.parametrize(
    ("call", "error", "text"),
    [
        (
            lambda: nalora.evaluate(x),
            nalora.InterfaceError,
            'nalora.evaluate() requires at least of the two arguments "solution" and "problem".\n'
            "See the documentation of nalora.evaluate for details.",
        ),
        (
            lambda: nalora.evaluate(x, problem=3),
            nalora.InterfaceError,
            'Argument "problem" must be an nalora.problem object',
        ),
        (
            lambda: nalora.evaluate(x, solution=(1.0,)),
            nalora.InterfaceError,
            'Argument "solution" must be a dictionary, a list, or a one-dimensional NumPy array.\n'
            "See the documentation for nalora.evaluate",
        ),
        (
            lambda: nalora.evaluate(x, solution=[1.0]),
            nalora.InterfaceError,
            'Argument "problem" is necessary when passing a list or NumPy array of variable values',
        ),
        (
            lambda: value(np.array([x])),
            nalora.InterfaceError,
            "nalora.evaluate() requires one or more Python objects;\nNumPy arrays must be of "
            "dtype nalora.npvar, nalora.npexpr, or nalora.npconstraint.",
        ),
        (
            lambda: nalora.evaluate(x + y, solution={x: 1}),
            nalora.ModelError,
            "Variable <y> not found in solution",
        ),
        (lambda: value(x <= 1), nalora.ModelError, "Evaluation of object of incorrect type"),
        (lambda: value(None), nalora.ModelError, "Evaluation of object of incorrect type"),
        (
            lambda: value(x / z),
            ZeroDivisionError,
            "Division by zero in evaluation of expression containing fraction",
        ),
        (lambda: value(x, foo=1), TypeError, "'foo' is an invalid keyword argument for evaluate()"),
        (lambda: nalora.evaluate(x, solution={x: "1"}), TypeError, None),
    ],
)
def test_refused(call, error, text):
    with pytest.raises(error) as info:
        call()
    if text is not None:
        assert str(info.value) == text


def test_values_from_a_problem():
    a, b, foreign = nalora.var(ub=3), nalora.var(ub=2), nalora.var()
    p = nalora.problem(a, b, a + b <= 4, 2 * a + b, sense=nalora.maximize)
    p.solve()
    assert nalora.evaluate([a, a * b], b / a, problem=p) == ([3.0, 3.0], 1 / 3)
    for solution in ([5, 7], np.array([5.0, 7.0]), np.array([5, 7])):
        assert nalora.evaluate(a - b + a * b, problem=p, solution=solution) == 33.0
    assert nalora.evaluate(foreign, problem=p, solution={foreign: 1}) == 1.0
    for solution in ([5], [1, 2, 3], ["a", "b"]):
        with pytest.raises((nalora.ModelError, nalora.InterfaceError, TypeError)):
            nalora.evaluate(a, problem=p, solution=solution)
    with pytest.raises(nalora.ModelError) as info:
        nalora.evaluate(a + foreign, problem=p)
    assert str(info.value) == (
        "Object does not belong to problem or cannot be identified within expression"
    )


def test_arrays_give_arrays_of_floats():
    v = np.array([[x, y, z], [z, y, x]], dtype=nalora.npvar)
    numbers = np.array([[2.0, -0.5, 0.0], [0.0, -0.5, 2.0]])
    for array, expected in [
        (v, numbers),
        (v.T[::-1], numbers.T[::-1]),
        (v * v - 2 * v + 1, (numbers - 1) ** 2),
        (abs(np.array([y / x, y], dtype=nalora.npexpr)[1]) + v, numbers + 0.5),
        (np.array([3.0, x, 2 * x, x * y], dtype=object).astype(nalora.npexpr), [3, 2, 4, -1]),
        (v[:, :0], numbers[:, :0]),
        (np.array(x, dtype=nalora.npvar), 2.0),
        (v[:0] <= 1, numbers[:0]),
    ]:
        result = value(array)
        assert type(result) is np.ndarray
        assert result.dtype == float
        assert result.shape == array.shape
        np.testing.assert_allclose(result, expected)
    nested = value([v[0], {"a": (v[1, :1],)}])
    np.testing.assert_array_equal(nested[1]["a"][0], [0.0])
    np.testing.assert_array_equal(nested[0], numbers[0])


def test_arrays_read_from_a_problem():
    v = np.array([nalora.var(ub=i) for i in range(5)], dtype=nalora.npvar)
    p = nalora.problem(v[::-1], sum(v), sense=nalora.maximize)
    p.solve()
    np.testing.assert_array_equal(nalora.evaluate(v[1:], problem=p), [1, 2, 3, 4])
    point = np.arange(5.0)
    np.testing.assert_array_equal(nalora.evaluate(v, problem=p, solution=point), point[::-1])
    with pytest.raises(nalora.ModelError, match="Object does not belong to problem"):
        nalora.evaluate(np.array([v[0], x], dtype=nalora.npvar), problem=p)


@pytest.mark.parametrize(
    ("make", "error"),
    [
        (lambda: np.array([x, y], dtype=nalora.npvar) <= 1, nalora.ModelError),
        (lambda: np.empty(2, dtype=nalora.npvar), nalora.ModelError),
        (lambda: np.array([[x], None], dtype=object).astype(nalora.npexpr), nalora.ModelError),
        (lambda: np.array([1.0, 2.0]), nalora.InterfaceError),
        (lambda: [np.array([[x]], dtype=object)], nalora.InterfaceError),
        (lambda: np.array([x / z], dtype=nalora.npexpr), ZeroDivisionError),
        (lambda: np.array([x, nalora.var()], dtype=nalora.npvar), nalora.ModelError),
    ],
)
def test_arrays_that_are_refused(make, error):
    array = make()
    with pytest.raises(error):
        value(array)


def test_arrays_without_memory_for_their_values():
    endless = np.broadcast_to(np.array([x], dtype=nalora.npvar), (2**46, 1))
    with pytest.raises(nalora.ModelError, match="Could not initialize result of the evaluation"):
        value(endless)


@pytest.mark.parametrize("shape", [(1,), (5000,)])
def test_arrays_that_the_evaluation_resizes(shape):
    class Value:
        def __float__(self):
            array[...] = z
            array.resize(shape, refcheck=False)
            return 1.0

    array = np.array([x, x, x], dtype=nalora.npvar)
    with pytest.raises((RuntimeError, nalora.ModelError)):
        nalora.evaluate(array, solution={x: Value(), z: 0.0})


def test_depth_limit():
    depth_error = "Evaluation of expression exceeded recursion depth limit"
    shallow, deep, tree = [x], [x], x / y
    for _ in range(60):
        shallow = [shallow]
    value(shallow)
    for _ in range(1000):
        deep, tree = [deep], abs(tree)
    for too_deep in (deep, tree, "endless"):
        with pytest.raises(RuntimeError) as info:
            value(too_deep)
        assert str(info.value) == depth_error


def test_a_key_of_equal_hash_is_not_the_variable():
    v = nalora.var()
    with pytest.raises(nalora.ModelError, match="not found in solution"):
        nalora.evaluate(2 * v, solution={hash(v): 5.0})


class Exploding:
    def __float__(self):
        raise KeyError("from the user")


class Shrinking:
    """Empties the list that it is evaluated from."""

    def __init__(self, items):
        self.items = items

    def __getitem__(self, index):
        if index > 0:
            raise IndexError
        self.items.clear()
        return 1

    def __len__(self):
        return 1


def test_errors_and_meddling_of_user_code():
    with pytest.raises(KeyError, match="from the user"):
        nalora.evaluate([1, x], solution={x: Exploding()})
    items = [1, 2, 3]
    items[1:1] = [Shrinking(items)]
    assert value(items) == [1.0, [1.0]]


def test_values_that_grow_the_expression_under_evaluation():
    variables = [nalora.var() for _ in range(200)]
    total = sum(variables)

    class Growing:
        def __float__(self):
            for v in variables:  # grows the terms that total shares
                self.longer = getattr(self, "longer", total) + v
            return 1.0

    assert nalora.evaluate(total, solution=dict.fromkeys(variables, Growing())) == 200.0


def test_nothing_is_leaked():
    def work():
        value(x, [y, (z, {"k": x * y + 1})])
        value(np.array([[x, y]], dtype=nalora.npvar).T * 2)
        nulls = np.empty(2, dtype=nalora.npvar)
        for bad in (
            lambda: value([x, None]),
            lambda: value(nulls),
            lambda: value(x / z),
            lambda: nalora.evaluate(x),
        ):
            with pytest.raises((nalora.ModelError, ZeroDivisionError, nalora.InterfaceError)):
                bad()

    assert growth(work, 200) < 50
