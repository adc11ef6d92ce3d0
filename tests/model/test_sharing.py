"""What expressions cost: sizes, linear time, and references that go when their holders go."""

import gc
import sys

import pytest
from conftest import allocated, growth

import nalora


def live_blocks():
    gc.collect()
    return allocated()


def test_sizes():
    x = nalora.var()
    assert sys.getsizeof(x) == 24
    assert sys.getsizeof(x <= 1) == 32
    assert sys.getsizeof(2 * x) <= 32
    assert sys.getsizeof(x * x) <= 48
    assert sys.getsizeof(x + 1) <= 64
    assert sys.getsizeof(abs(x)) <= 48


@pytest.mark.parametrize("bounds", [{}, {"lb": 1}, {"ub": 1, "lb": -1e20}, {"vartype": 1}])
def test_common_variables_are_one_block(bounds):
    nalora.var(**bounds)
    kept = [None] * 5000
    before = live_blocks()
    for i in range(5000):
        kept[i] = nalora.var(**bounds)
    assert live_blocks() - before < 5050
    del kept[:]
    assert live_blocks() - before < 350  # a few hundred are kept for reuse


@pytest.mark.parametrize(
    "make",
    [
        lambda e, v: e + v,
        lambda e, v: e + 2 * v - 3 * v + v * v,
        lambda e, v: (e - v) * 2 + (v + e) / 3,
        lambda e, v: sum([v] * 40, e),
        lambda e, v: e + v <= 3,
        lambda e, v: e * (v + 1),
        lambda e, v: e / v + v - e**3,
        lambda e, v: str(e + v) + str(e / v),
        lambda e, v: (e + v).extractLinear(),
    ],
)
def test_temporary_results_hold_nothing_afterwards(make):
    e = nalora.var() + 2 * nalora.var()
    v = nalora.var()
    before = sys.getrefcount(v)
    for _ in range(5):
        make(e, v)
    assert sys.getrefcount(v) == before
    assert len(e.extractLinear()[0]) == 2


def test_failing_operators_leak_nothing():
    x, y = nalora.var(), nalora.var()
    e = x + y

    def work():
        for bad in (
            lambda: e + "a",
            lambda: e / 0,
            lambda: x < y,
            lambda: e * 10**400,
            lambda: bool(x <= 1),
            lambda: nalora.constraint(body=e, lb=2, ub=1, name=["n"]),
            lambda: nalora.var(["n"]),
            lambda: nalora.sos([x], None),
            lambda: setattr(x, "lb", "a"),
        ):
            with pytest.raises((nalora.ModelError, OverflowError, TypeError)):
                bad()

    assert growth(work, 200) < 50
    before = sys.getrefcount(x), sys.getrefcount(e)
    growth(work)
    assert (sys.getrefcount(x), sys.getrefcount(e)) == before


class Witness:
    """A name whose end runs code that uses the module."""

    ended = 0

    def __init__(self, action):
        self.action = action

    def __del__(self):
        Witness.ended += 1
        self.action()


def test_names_whose_end_uses_the_expressions_that_hold_them():
    base = nalora.var() + nalora.var()
    made = []
    for extra in (1, 3, 20):
        temporary = base
        for _ in range(extra):
            v = nalora.var()
            v.name = Witness(lambda: made.append(base + nalora.var()))
            temporary = temporary + v
        del v, temporary
    assert Witness.ended == len(made) == 24
    assert len(base.extractLinear()[0]) == 2
    assert all(len(e.extractLinear()[0]) == 3 for e in made)


def test_errors_at_the_end_of_a_name_are_reported_not_raised(monkeypatch):
    reported = []
    monkeypatch.setattr(sys, "unraisablehook", lambda info: reported.append(info.exc_type))
    c = nalora.var() <= 2.5
    c.name = Witness(lambda: 1 / 0)

    def fail(constraint):
        held = [constraint]
        del constraint
        held.pop()
        raise KeyError

    kept = [c]
    del c
    with pytest.raises(KeyError):
        fail(kept.pop())
    assert reported == [ZeroDivisionError]
