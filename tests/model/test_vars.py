"""vars: arrays and dicts of variables, their names and settings, and what is refused."""

import enum
import gc
import os
import subprocess
import sys
import textwrap

import numpy as np
import pytest
from conftest import allocated

import nalora


def names(collection):
    values = collection.values() if isinstance(collection, dict) else np.ravel(collection)
    return [v.name for v in values]


def test_integers_give_an_array():
    x = nalora.vars(2, np.int64(3), True)
    assert (type(x), x.dtype, x.shape) == (np.ndarray, np.empty(0, nalora.npvar).dtype, (2, 3, 1))
    assert names(x) == [f"x({i},{j},0)" for i in range(2) for j in range(3)]
    assert names(nalora.vars(3, name="y")) == ["y(0)", "y(1)", "y(2)"]
    assert [nalora.vars().shape, nalora.vars(indices=(2, 2)).shape] == [(), (2, 2)]
    serials = [int(name[1:]) for name in names(nalora.vars(20, 5, name=""))]
    assert serials == list(range(serials[0], serials[0] + 100))


def test_other_sets_give_a_dict():
    x = nalora.vars([0, 1], (c for c in "ab"), 2)
    keys = [(i, c, j) for i in [0, 1] for c in "ab" for j in [0, 1]]
    assert list(x) == keys
    assert names(x) == [f"x({i},{c},{j})" for i, c, j in keys]
    assert list(nalora.vars({"k": 1}, range(1, 3), name="")) == [("k", 1), ("k", 2)]
    keyed = nalora.vars(list(x.values()), name="")
    assert all(keyed[v] is not v for v in x.values())


@pytest.mark.parametrize(
    ("element", "text"),
    [
        (True, "1"),
        (2**100, str(2**100)),
        (enum.IntEnum("Level", "LOW").LOW, "1"),
        (0.1 + 0.2, "0.3"),
        (np.float64("1e-7"), "1e-07"),
        (np.int16(4), "4"),
        ("\u00e9\U0001f600\ud800", "\u00e9\U0001f600\ud800"),
        ((1, "a"), "(1, 'a')"),
    ],
    ids=ascii,
)
def test_names(element, text):
    x = nalora.vars([element, "z"], name="\u00fc" * 2501)
    assert list(x) == [element, "z"]
    assert names(x) == ["\u00fc" * 2500 + f"({text})", "\u00fc" * 2500 + "(z)"]


@pytest.mark.parametrize(
    "settings",
    [
        {"lb": -2, "ub": 5, "vartype": nalora.binary},
        {"ub": 9, "threshold": 2, "vartype": nalora.semicontinuous},
        {"lb": float("nan")},
        {"lb": 1 + 1e-7, "ub": 1},
        {"vartype": 11},
    ],
    ids=str,
)
def test_settings_are_those_of_var(settings):
    def of(v):
        return str([v.lb, v.ub, v.threshold, v.vartype])

    variables = [*nalora.vars(2, **settings), *nalora.vars("ab", name="", **settings).values()]
    assert [of(v) for v in variables] == [of(nalora.var(**settings))] * 4


class Textless:
    def __str__(self):
        raise KeyError("no text")


class Interrupting:
    def __iter__(self):
        raise KeyboardInterrupt


def failing():
    yield 1
    raise KeyError("half-way")


NOT_POSITIVE = (
    "Invalid index: integer argument to nalora.vars() must be positive (it is equivalent to "
    "range(k))"
)
UNUSABLE = (
    "Invalid index: a call to nalora.vars() must have a tuple of lists, sets, iterable objects, or "
    "integer numbers as its arguments"
)
NO_MEMORY = (
    "No memory to create variables. Consider restricting one or more index sets/lists/ranges in "
    "the index argument to nalora.vars()"
)
DUPLICATE = "Check arguments for duplicate entries in one or more of the lists"


@pytest.mark.parametrize(
    ("indices", "message", "cause"),
    [
        ([2, -(2**80)], NOT_POSITIVE, None),
        ([False], NOT_POSITIVE, None),
        ([2.0], UNUSABLE, TypeError),
        ([[1], []], "Invalid index: empty dimension in creation of variables", None),
        ([failing()], "No object available from set", KeyError),
        ([[Textless()]], "Element of index tuple in vars() cannot be represented", KeyError),
        ([[1], [[]]], "Bad index tuple in vars()", TypeError),
        (["aba"], f"Duplicate entry in vars: <a>. {DUPLICATE}", None),
        ([[1, 2, 1.0], "b"], f"Duplicate entry in vars: <(1.0, 'b')>. {DUPLICATE}", None),
        ([2**62], NO_MEMORY, None),
        ([10**9, 10**9], NO_MEMORY, None),
        ([range(2**62), 2], NO_MEMORY, None),
        ([range(2**70)], NO_MEMORY, OverflowError),
        ([1] * 70, "Could not initialize result of nalora.vars()", ValueError),
    ],
    ids=str,
)
def test_refused_indices(indices, message, cause):
    with pytest.raises(nalora.ModelError) as caught:
        nalora.vars(*indices)
    assert str(caught.value) == message
    assert type(caught.value.__cause__) is (cause or type(None))


def test_refused_arguments():
    with pytest.raises(nalora.ModelError, match=r"^Variables have empty feasible set: lower bound"):
        nalora.vars(0, lb=2, ub=1)
    for args, indices in [([], [2]), ([], None), ([2], (2,))]:
        with pytest.raises(nalora.ModelError, match=r"^nalora.vars must be invoked with zero or"):
            nalora.vars(*args, indices=indices)
    for wrong in [{"name": b"x"}, {"lb": "1"}, {"vartype": 1.5}, {"size": 3}]:
        with pytest.raises(TypeError):
            nalora.vars(2, **wrong)
    with pytest.raises(KeyboardInterrupt):
        nalora.vars(Interrupting())


def test_memory_limit_is_an_error():
    # AddressSanitizer itself needs all address space, but can refuse large pieces.
    limit = "resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))"
    environment = dict(os.environ)
    if "asan" in environment.get("LD_PRELOAD", ""):
        limit = "pass"
        environment["ASAN_OPTIONS"] += ":max_allocation_size_mb=512"
    code = f"""
        import resource, nalora
        {limit}
        for indices in [(2 * 10**8,), (range(2 * 10**8),), (["a", "b"], 10**8)]:
            try:
                nalora.vars(*indices, name="")
            except nalora.ModelError as error:
                print(str(error)[:29])
    """
    command = [sys.executable, "-c", textwrap.dedent(code)]
    result = subprocess.run(command, capture_output=True, text=True, timeout=60, env=environment)
    assert result.stdout == "No memory to create variables\n" * 3
    refusals = [line for line in result.stderr.splitlines() if "AddressSanitizer failed to" in line]
    assert result.stderr.splitlines() == refusals


def test_variables_die_one_by_one():
    gc.collect()
    before = allocated()
    x = nalora.vars(100, 100, name="")
    assert abs(allocated() - before - 10_000) < 300
    x[:, 1:] = x[:, :1]
    assert abs(allocated() - before - 100) < 600  # a few hundred are kept for reuse
    del x
    for _ in range(100):
        nalora.vars("abcdefghij", 20, lb=2, ub=7, threshold=3, vartype=3)
        for bad in ["abca", failing(), [object(), 1, 2, []]]:
            with pytest.raises(nalora.ModelError):
                nalora.vars(5, bad)
    gc.collect()
    assert allocated() - before < 600
