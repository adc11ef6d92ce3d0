"""Deleting variables, constraints and sets, and everything that refers to them by index."""

import random

import numpy as np
import pytest
from model_file import fails, is_same, read_back, sizes

import nalora


def model(columns=6, rows=4):
    x = [nalora.var(f"x{i}") for i in range(columns)]
    c = [nalora.constraint(body=x[i] + x[i + 1], lb=i, name=f"c{i}") for i in range(rows)]
    s = [nalora.sos([x[i], x[i + 2]], [1, 2], name=f"s{i}") for i in range(3)]
    return nalora.problem(x, c, s), x, c, s


@pytest.mark.parametrize(
    ("how", "kept"),
    [
        (lambda x: ((x[2],), {}), [0, 1, 3, 4, 5]),
        (lambda x: ((0,), {}), [1, 2, 3, 4, 5]),
        (lambda x: (([x[4], 1, (x[1], 4)],), {}), [0, 2, 3, 5]),
        (lambda x: ((iter([5, x[0]]),), {}), [1, 2, 3, 4]),
        (lambda x: ((), {"first": 2, "last": 4}), [0, 1, 5]),
        (lambda x: ((), {"first": 3, "last": 3}), [0, 1, 2, 4, 5]),
        (lambda x: ((), {"first": 4}), [0, 1, 2, 3]),
        (lambda x: ((), {"last": 1}), [2, 3, 4, 5]),
        *[(lambda x, t=t: ((np.array([[1], [4]], t),), {}), [0, 2, 3, 5]) for t in "bBhHiIlLqQ"],
        (lambda x: (({"all": x},), {}), []),
        (lambda x: (([],), {}), [0, 1, 2, 3, 4, 5]),
    ],
)
def test_every_way_to_say_what_goes(tmp_path, how, kept):
    p, x, _, _ = model()
    args, kwargs = how(x)
    assert p.delVariable(*args, **kwargs) is None
    assert is_same(p.getVariable(), [x[i] for i in kept])
    assert [p.getIndex(x[i]) for i in kept] == list(range(len(kept)))
    columns = {key for key in read_back(p, tmp_path)["COLUMNS"] if key[1] != "OBJ"}
    expected = {(f"x{i}", f"c{j}") for j in range(4) for i in (j, j + 1) if i in kept}
    assert columns == expected
    for i in set(range(6)) - set(kept):
        with fails("not in problem"):
            p.getIndex(x[i])
        p.addVariable(x[i])


@pytest.mark.parametrize(
    ("args", "kwargs", "text"),
    [
        ([], {}, "At least one parameter must be specified"),
        ([0], {"first": 1}, "Parameters 'first' and 'last' cannot be specified if 'index' is also"),
        ([], {"last": -2}, "Parameters 'first' and 'last' must be both nonnegative when specified"),
        ([], {"first": -2, "last": 1}, "must be both nonnegative when specified"),
        ([], {"first": 6}, "Parameters 'first' or 'last' are out of range"),
        ([], {"first": 1, "last": 6}, "Parameters 'first' or 'last' are out of range"),
        ([], {"first": 2, "last": 1}, "Parameter 'first' must be less than, or equal to, 'last'"),
        ([6], {}, "Index out of bounds"),
        ([-1], {}, "Index out of bounds"),
        ([2**40], {}, "Index out of bounds"),
        ([[0, 6]], {}, "Index out of bounds"),
        (["x0"], {}, "Cannot delete object: must be variable, constraint, or SOS"),
        ([[0, 1.0]], {}, "Cannot delete object: must be variable, constraint, or SOS"),
        ([nalora.var()], {}, "not in problem"),
    ],
)
def test_refusals_change_nothing(args, kwargs, text):
    p, x, c, s = model()
    with fails(text):
        p.delVariable(*args, **kwargs)
    with fails("Cannot delete object: must be variable, constraint, or SOS"):
        p.delVariable(c[0])
    with fails("Cannot delete object: must be variable, constraint, or SOS"):
        p.delConstraint([c[0], s[0]])
    for got, had in ((p.getVariable(), x), (p.getConstraint(), c), (p.getSOS(), s)):
        assert is_same(got, had)
    assert sizes(p) == (6, 4, 3)


def test_a_column_that_an_indicator_needs_stays():
    x, z = nalora.var(), nalora.var(vartype=nalora.binary)
    p = nalora.problem(x, z)
    c = x >= 1
    p.addIndicator(z == 1, c)
    with pytest.raises(nalora.SolverError):
        p.delVariable([x, z])
    assert is_same(p.getVariable(), [x, z])
    p.delConstraint(c)
    p.delVariable(z)
    assert is_same(p.getVariable(), [x])


def test_objects_that_were_initialised_again_keep_their_place():
    p, x, c, _ = model()
    earlier = x[3] + x[0] >= 1
    x[3].__init__()
    c[2].__init__(body=x[0], lb=1)
    p.delVariable(1)
    p.delConstraint(0)
    assert p.getVariable(2) is x[3]
    assert p.getConstraint(1) is c[2]
    assert [p.getIndex(v) for v in (x[0], x[2], x[4], x[5])] == [0, 1, 3, 4]
    # The number it was added under still stands for the column.
    p.addConstraint(earlier)
    assert p.getIndex(earlier) == 3


def test_deleting_while_the_arguments_change_the_problem():
    p, x, _, _ = model()

    def items():
        yield x[4]
        p.delVariable(0)
        yield 0

    p.delVariable(items())
    assert is_same(p.getVariable(), [x[2], x[3], x[5]])
    assert [p.getIndex(v) for v in (x[2], x[3], x[5])] == [0, 1, 2]


def test_finalisers_see_a_consistent_problem():
    seen = []

    class Watched(nalora.var):
        def __del__(self):
            seen.append([p.getIndex(v) for v in p.getVariable()])

    p = nalora.problem()
    p.addVariable(nalora.var(), Watched(), nalora.var(), Watched(), nalora.var())
    p.delVariable([0, 1, 3])
    assert seen == [[0, 1], [0, 1]]


def test_thousands_of_single_deletions():
    x = nalora.vars(6000, name="").tolist()
    p = nalora.problem(x, [x[i] + x[i + 1] <= 1 for i in range(5999)])
    p.getIndexFromName(2, x[0].name)
    for v in x[1::2] + x[2::4] + [x[4]]:
        p.delVariable(v)
    left = [v for i, v in enumerate(x) if i % 4 == 0 and i != 4]
    assert [p.getIndexFromName(2, v.name) for v in left] == list(range(len(left)))
    assert p.attributes.cols == len(left) and is_same(p.getVariable(), left)
    assert p.attributes.elems == 2 * len(left) - 1


def test_random_edits_against_a_shadow(tmp_path):
    rng = random.Random(4)
    p = nalora.problem()
    columns, rows = [], []

    def add_columns():
        new = [nalora.var(f"v{rng.random()}") for _ in range(rng.randrange(1, 6))]
        p.addVariable(new)
        columns.extend(new)

    def add_rows():
        if not columns:
            return
        for _ in range(rng.randrange(1, 6)):
            terms = {v: rng.randrange(1, 9) for v in rng.sample(columns, min(3, len(columns)))}
            body = sum(k * v for v, k in terms.items())
            c = nalora.constraint(body=body, lb=1, name=f"r{rng.random()}")
            p.addConstraint(c)
            rows.append((c, terms))

    def delete_columns():
        gone = rng.sample(columns, rng.randrange(len(columns) + 1))
        p.delVariable([rng.choice([v, p.getIndex(v)]) for v in gone])
        for v in gone:
            columns[:] = [kept for kept in columns if kept is not v]
            for _, terms in rows:
                terms.pop(v, None)

    def delete_rows():
        gone = sorted(rng.sample(range(len(rows)), rng.randrange(len(rows) // 2 + 1)))
        p.delConstraint([rng.choice([rows[i][0], i]) for i in gone])
        for i in reversed(gone):
            del rows[i]

    def fail_to_add():
        with pytest.raises(nalora.ModelError):
            p.addVariable(nalora.var(), nalora.var(), 5)

    for step in range(150):
        actions = [add_columns, add_rows, add_rows, delete_columns, delete_rows, fail_to_add]
        rng.choice(actions)()
        if rng.random() < 0.3:
            assert is_same(p.getVariable(), columns)
            assert is_same(p.getConstraint(), [c for c, _ in rows])
        assert is_same([p.getVariable(i) for i in range(len(columns))], columns)
        assert [p.getIndex(v) for v in columns] == list(range(len(columns)))
        assert [p.getIndex(c) for c, _ in rows] == list(range(len(rows)))
        if step % 10 == 9:
            coefs = read_back(p, tmp_path)["COLUMNS"]
            expected = {(v.name, c.name): k for c, terms in rows for v, k in terms.items()}
            assert {key: k for key, k in coefs.items() if key[1] != "OBJ"} == expected
