"""Sum and Prod: the same as folding with + and *, whatever the container and what runs inside."""

import functools
import operator
import random
import sys

import numpy as np
import pytest
from conftest import growth

import nalora


class Derived(nalora.var):
    pass


class OnlyItems:
    """A sequence by __getitem__ alone."""

    def __init__(self, items):
        self.items = items

    def __getitem__(self, index):
        return self.items[index]


class Negative(OnlyItems):
    def __len__(self):
        return -1


class Closed(OnlyItems):
    __iter__ = None


@pytest.fixture
def x():
    return [nalora.var(name=f"x{i}") for i in range(6)]


CONTAINERS = {
    "arguments": lambda items: items,
    "list": lambda items: [[None, *items, None]],
    "tuple": lambda items: [tuple(items)],
    "generator": lambda items: [(item for item in items)],
    "sequence": lambda items: [OnlyItems(items)],
    "dict": lambda items: [dict(enumerate(items))],
    "variables": lambda items: [np.array(items, dtype=nalora.npvar)],
    "columns": lambda items: [np.array(items, dtype=object).reshape(2, -1).T],
    "strided": lambda items: [np.array([items, items], dtype=object).T[::-1, 1]],
}


@pytest.mark.parametrize("contain", CONTAINERS.values(), ids=CONTAINERS)
def test_containers(x, contain):
    assert str(nalora.Sum(*contain(x))) == "x0 + x1 + x2 + x3 + x4 + x5"
    values = dict(zip(x, [1, 2, 3, 4, 5, 6]))
    assert nalora.evaluate(nalora.Prod(*contain(x)), solution=values) == 720


def test_results_of_few_elements(x):
    same = [nalora.Sum(x[0]), nalora.Sum([x[0]]), nalora.Sum(None, x[0], 0), nalora.Prod([x[0], 1])]
    assert all(result is x[0] for result in same)
    for numbers, value in [((), 0), ([[]], 0), ([None, None], 0), ((1, 2), 3), ([[2.5]], 2.5)]:
        result = nalora.Sum(*numbers)
        assert (type(result), str(result)) == (type(x[0] + 1), f"{value:g}")
    assert nalora.Sum([x[0], -1 * x[0]]).extractLinear() == ([], [])
    assert [nalora.Prod(), nalora.Prod(None, None), nalora.Prod(2, 3.0)] == [0.0, 0.0, 6.0]
    assert [type(nalora.Sum(x[0], x[0])), str(nalora.Sum(x[0], x[0]))] == [type(2 * x[0]), "2*x0"]


@pytest.mark.parametrize("seed", range(20))
def test_sum_equals_folding(x, seed):
    choose = random.Random(seed)
    x.append(Derived(name="d"))
    earlier = [x[0] + 2 * x[1] + 1, x[2] * x[3] - x[0], x[0] - x[0] + 3 * x[1]]
    kinds = [
        lambda: choose.choice(x),
        lambda: choose.randint(-3, 3) * choose.choice(x),
        lambda: choose.randint(1, 3) * choose.choice(x) * choose.choice(x),
        lambda: choose.choice(earlier),
        lambda: choose.choice([2, 0.5, np.float64(4), np.float32(2), np.int64(3), True]),
        lambda: choose.choice(x) ** 3,
    ]
    weights = [1] + [choose.choice([0, 1, 5]) for _ in kinds[:-2]] + [seed % 2]
    items = [make() for make in choose.choices(kinds, weights, k=60)]
    before = [str(e) for e in earlier]
    assert str(nalora.Sum(items)) == str(functools.reduce(operator.add, items))
    assert [str(e) for e in earlier] == before


UNALIGNED = np.array([(0, 1), (0, 2), (0, 3)], dtype=[("pad", "b"), ("value", "f8")])


@pytest.mark.parametrize(
    ("array", "total", "product"),
    [
        (np.array([[1.5, 2], [4, 5]])[:, ::2], 5.5, 6),
        (np.array([2, 3], dtype=np.intc), 5, 6),
        (np.array([True, False, True]), 2, 0),
        (np.array([1, 2, 3], dtype=">f8"), 6, 6),
        (UNALIGNED["value"], 6, 6),
        (np.array(7.0), 7, 7),
        (np.empty((0, 3)), 0, 0),
        (np.empty(3, dtype=nalora.npexpr), 0, 0),
    ],
    ids=["double", "int", "bool", "swapped", "unaligned", "scalar", "empty", "null"],
)
def test_arrays_without_objects(array, total, product):
    assert str(nalora.Sum(array)) == f"{total:g}"
    assert nalora.Prod(array) == product


def test_elements_that_are_arrays(x):
    rows = np.array(x, dtype=nalora.npvar).reshape(3, 2)
    for total in [nalora.Sum(rows[0], 1, rows[1], x[4]), nalora.Sum(1, x[4], rows[1], rows[0])]:
        assert [str(e) for e in total] == ["1 + x0 + x2 + x4", "1 + x1 + x3 + x4"]
    assert [str(e) for e in nalora.Prod(rows[0], 2, 1)] == ["2*x0", "2*x1"]


@pytest.mark.parametrize("fold", [nalora.Sum, nalora.Prod], ids=["Sum", "Prod"])
def test_refused(x, fold):
    single = "Invalid object in Sum or Prod operators"
    array = "Incorrect objects used in Sum, Dot, Prod, or aggregate functions"
    blank = nalora.var.__new__(nalora.var)
    for bad, message in [
        *[(bad, single) for bad in [None, {x[0], x[1]}, ["text"], x[0] <= 1, blank]],
        (np.array([1, 2], dtype=np.int64), array),
        (np.zeros(0, dtype=np.complex128), array),
        (Negative(x), "Invalid sequence of objects"),
        (Closed(x), "Cannot iterate over sequence"),
        ([x[0], "text"], "Invalid operands in"),
        ([x[0] + x[1], x[2], object()], "Invalid object in operation"),
        ([x[0] + x[1], x[2], blank], "Invalid object in operation"),
    ]:
        with pytest.raises(nalora.ModelError, match=message):
            fold(bad)
    with pytest.raises(OverflowError):
        fold(x[0], x[1], 10**400)


def test_user_code_inside(x):
    def raising():
        yield from [x[0], x[1], 2 * x[2], x[3] * x[4]]
        raise KeyError("half-way")

    def dropping(items):
        while items:
            yield items.pop(0) + nalora.Sum(v for v in x[:2])

    class Clearing(np.ndarray):
        def __add__(self, other):
            items.clear()
            return other

    before = [sys.getrefcount(v) for v in x]
    with pytest.raises(KeyError, match="half-way"):
        nalora.Sum(raising())
    assert str(nalora.Sum(dropping([v + 0.5 for v in x[:3]]))) == "1.5 +4 x0 +4 x1 + x2"
    items = [x[0], x[1] + 1.0, np.zeros(1).view(Clearing), x[2]]
    assert str(nalora.Sum(items)) == "1 + x0 + x1"
    assert [sys.getrefcount(v) for v in x] == before


def test_nothing_is_left_behind(x):
    array = np.array(x, dtype=nalora.npvar)

    def work():
        nalora.Sum(array[::2]), nalora.Prod(array), nalora.Sum(2 * v * v + 1 for v in x)
        for bad in [[*x, object()], [x[0] ** 3, x[1], "a"], np.array([1])]:
            with pytest.raises(nalora.ModelError):
                nalora.Sum(bad)

    assert growth(work, 300) < 50


def test_long_products_are_flat(x):
    values = dict(zip(x, [1.0, 0.5, 2.0, -1.0, 1.0, 3.0]))
    p = nalora.problem(x)
    start = nalora.sin(x[0])
    for ones in ([-1, 2, 0.5], [nalora.Sum(2), -0.5], [-1]):  # numbers, as they come between
        factors = [f for i in range(500) for f in (x[i % 4], x[2] - x[1], start + x[4], *ones)]
        result = nalora.Prod(factors)
        expected = 1.0
        for f in factors:
            expected *= nalora.evaluate(f, solution=values)
        assert nalora.evaluate(result, solution=values) == pytest.approx(expected, rel=1e-10)
        p.addConstraint(result <= 1)
        assert "MAX RECURS" not in str(result)
    assert str(nalora.Prod(start, x[1], 3, x[2], -1, x[3], 2)) == "(sin (x0) * x1 * x2 * x3 * -6.0)"
    assert str(nalora.Prod(start, x[1], 3, 0)) == "0.0"
    assert [str(e) for e in nalora.Prod(start, -1, np.array(x[:2]))] == [
        "(- (sin (x0)) * x0)", "(- (sin (x0)) * x1)"
    ]  # fmt: skip


@pytest.mark.parametrize("power", [1, 3], ids=["linear", "nonlinear"])
def test_long_folds(power):  # without end if an element took time that grows with those before
    terms = [v for _ in range(100_000) for v in [nalora.var() ** power, Derived()]]
    total, product = nalora.Sum(terms), nalora.Prod(terms)
    values = dict.fromkeys([v for i in range(2) for v in total.extractLinear()[0][i::2]], 1.0)
    assert len(values) == (200_000 if power == 1 else 100_000)
    assert type(product).__name__ == "nonlinear"
