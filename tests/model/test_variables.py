"""Variables: construction, attributes, names, identity."""

import copy
import pickle
import sys

import numpy as np
import pytest
from conftest import growth

import nalora

INF = 1e20


def serial(v):
    """The serial number of an unnamed variable."""
    assert v.name.startswith("C")
    return int(v.name[1:])


def values(v):
    return v.lb, v.ub, v.threshold, v.vartype


def test_defaults_and_consecutive_serials():
    x, y = nalora.var(), nalora.var()
    assert values(x) == (0.0, INF, -INF, 0)
    assert serial(y) == serial(x) + 1
    assert str(x) == repr(x) == x.name == f"C{serial(x)}"
    assert hash(x) == serial(x)
    assert x and y


@pytest.mark.parametrize(
    "make",
    [
        lambda: nalora.var("n", -1, 2.5, 0.5, nalora.semicontinuous),
        lambda: nalora.var(name="n", lb=-1, ub=2.5, threshold=0.5, vartype=3),
        lambda: nalora.var("n", -1, vartype=nalora.semicontinuous, ub=2.5, threshold=0.5),
        lambda: nalora.var("n", **{"l" + "b": -1.0, "u" + "b": 2.5}, threshold=0.5, vartype=3),
    ],
)
def test_arguments_by_position_and_keyword(make):
    x = make()
    assert (x.name, *values(x)) == ("n", -1.0, 2.5, 0.5, 3)


class Half:
    def __float__(self):
        return 0.5


def test_converted_arguments():
    x = nalora.var(lb=Half(), ub=np.float32(2), vartype=np.int64(2))
    assert values(x) == (0.5, 2.0, -INF, 2)
    x.ub = True
    x.lb = np.float64(-3)
    x.vartype = np.int32(1)
    assert values(x) == (-3.0, 1.0, -INF, 1)


@pytest.mark.parametrize(
    ("args", "keywords", "error"),
    [
        (("a", 0, 1, 2, 0, 5), {}, TypeError),
        (("a",), {"name": "b"}, TypeError),
        ((), {"nam": "b"}, TypeError),
        ((), {"lb": "1"}, TypeError),
        ((), {"vartype": "integer"}, TypeError),
        ((), {"vartype": 2**70}, OverflowError),
        ((), {"ub": 10**400}, OverflowError),
        ((None,), {}, nalora.ModelError),
        ((), {"name": 3}, nalora.ModelError),
        ((), {"lb": 5, "ub": 4}, nalora.ModelError),
        ((), {"lb": 1.1, "vartype": nalora.semicontinuous, "ub": 1}, nalora.ModelError),
    ],
)
def test_refused_arguments(args, keywords, error):
    with pytest.raises(error):
        nalora.var(*args, **keywords)


def test_messages():
    with pytest.raises(nalora.ModelError) as info:
        nalora.var(lb=5, ub=4)
    assert str(info.value) == "Variable has empty feasible set: lower bound > upper bound"
    with pytest.raises(nalora.ModelError) as info:
        nalora.var(name=None)
    assert str(info.value) == "Invalid variable name (must be a string)"
    with pytest.raises(nalora.InterfaceError) as info:
        nalora.var().colour = 1
    assert str(info.value) == "Incorrect member name of type nalora.var"


def test_bounds_within_the_tolerance_are_kept():
    x = nalora.var(lb=5, ub=4.9999995)
    assert (x.lb, x.ub) == (5.0, 4.9999995)


def test_binaries_are_clamped_at_construction_only():
    x = nalora.var(vartype=nalora.binary, lb=-3, ub=7)
    assert (x.lb, x.ub) == (0.0, 1.0)
    x.ub = 7
    assert x.ub == 7.0
    x.lb = 9  # not checked against ub
    assert x.lb == 9.0


@pytest.mark.parametrize(("infinite", "stored"), [(1e20, INF), (5e20, INF), (float("inf"), INF)])
def test_bounds_round_trip_in_any_order(infinite, stored):
    x = nalora.var()
    for ub in (3.5, 0, infinite, 1, -2.25, 1e19, infinite):
        for lb in (-infinite, 0.25, 1, 0, -infinite, -7.5):
            x.lb, x.ub = lb, ub
            assert x.lb == (-stored if lb == -infinite else lb)
            assert x.ub == (stored if ub == infinite else ub)
    x.lb = float("nan")
    assert x.lb != x.lb
    x.lb = infinite  # a lower bound of plus infinity is a value like any other
    assert x.lb == infinite


def test_threshold_is_not_undone_by_its_default():
    x = nalora.var()
    x.threshold = 3
    x.threshold = -1e20
    assert x.threshold == 3.0
    x.threshold = 0
    assert x.threshold == 0.0


@pytest.mark.parametrize("value", [*range(8), 11, -1, 2**64 + 5])
def test_vartype_keeps_three_bits(value):
    x = nalora.var(lb=-1)
    x.vartype = 7
    x.vartype = value
    assert x.vartype == value % 8
    assert x.lb == -1.0


def test_names_are_any_objects():
    x = nalora.var(b"bytes")
    assert x.name == b"bytes"
    assert str(x) == "b'bytes'"
    marker = ["list"]
    before = sys.getrefcount(marker)
    x.name = marker
    assert x.name is marker
    assert str(x) == "['list']"
    x.name = "é\x00\ud800"
    assert repr(x) == "é\x00\ud800"
    assert sys.getrefcount(marker) == before
    x.name = marker
    del x
    assert sys.getrefcount(marker) == before


def test_a_variable_named_after_itself():
    x = nalora.var()
    x.name = x
    with pytest.raises(RecursionError):
        str(x)
    x.name = "broken cycle"
    assert str(x) == "broken cycle"


@pytest.mark.parametrize("attribute", ["lb", "ub", "threshold", "vartype", "name"])
def test_attributes_cannot_be_deleted_or_take_nonsense(attribute):
    x = nalora.var("n", -1, 2, 0.5, 3)
    with pytest.raises(AttributeError, match="cannot be deleted"):
        delattr(x, attribute)
    if attribute != "name":
        with pytest.raises(TypeError):
            setattr(x, attribute, "text")
    assert (x.name, *values(x)) == ("n", -1.0, 2.0, 0.5, 3)


def test_unknown_attributes():
    x = nalora.var()
    for name in ("__array__", "__array_priority__", "__array_interface__", "nothing"):
        with pytest.raises(AttributeError):
            getattr(x, name)
    for name in ("__class__", "__dict__", "extractLinear"):
        with pytest.raises(nalora.InterfaceError):
            setattr(x, name, None)
    with pytest.raises(nalora.InterfaceError):
        del x.nothing
    assert x.__dict__ == dict.fromkeys(["lb", "ub", "threshold", "vartype", "name"])


def test_repeated_initialisation_renumbers_and_keeps_what_is_stored():
    x = nalora.var("n", -7.5, 3.5, 0.5)
    other = nalora.var("other", -1.5, 1.5, 0.25)
    old = hash(x)
    e = x + other
    x.__init__()
    assert hash(x) > old
    assert (x.name, *values(x)) == ("n", -7.5, 3.5, 0.5, 0)
    assert (other.name, *values(other)) == ("other", -1.5, 1.5, 0.25, 0)
    # Terms made before keep their place; the variable counts as another one from now on.
    assert e.extractLinear() == ([x, other], [1.0, 1.0])
    assert len((e + x).extractLinear()[0]) == 3
    with pytest.raises(nalora.ModelError):
        x.__init__(lb=2, ub=1)
    assert values(x) == (-7.5, 3.5, 0.5, 0)


def test_objects_without_initialisation():
    x = nalora.var.__new__(nalora.var)
    assert values(x) == (0.0, INF, -INF, 0)
    assert str(x) == "C0"
    for operation in (lambda: x + 1, lambda: 2 * x, lambda: -x, lambda: x <= 1, lambda: abs(x)):
        with pytest.raises(nalora.ModelError):
            operation()
    x.name = "named"  # takes a serial number
    assert x.name == "named"
    assert str(2 * x) == "2*named"


class Flow(nalora.var):
    def __init__(self, origin, target):
        super().__init__(name=f"{origin}->{target}", ub=4.5)

    def half(self):
        return 0.5 * self

    def __str__(self):
        return "flow " + self.name


class Lazy(nalora.var):
    def __init__(self):
        pass  # forgets the base class


class Slotted(nalora.var):
    __slots__ = ()


def test_subclasses():
    f = Flow("a", "b")
    assert type(f) is Flow
    assert isinstance(f, Flow)
    assert f.__class__ is nalora.var
    assert (f.name, f.ub, str(f)) == ("a->b", 4.5, "flow a->b")
    assert f.half().extractLinear() == ([f], [0.5])
    assert (f + 0) is f
    assert (f <= 3).body.extractLinear() == ([f], [1.0])
    with pytest.raises(nalora.InterfaceError):
        f.extra = 1
    with pytest.raises(nalora.ModelError, match="Invalid operands in addition"):
        Lazy() + 1
    with pytest.raises(nalora.ModelError):
        nalora.problem().addVariable(Lazy())
    assert str(2 * Slotted("s")) == "2*s"


@pytest.mark.parametrize("kind", [nalora.var, Slotted, lambda name: Flow(name, "")])
def test_objects_of_any_type_are_released(kind):
    def make():
        for i in range(1000):
            v = kind(f"name {i}")
            v.lb = i + 0.5
            2 * v + i

    assert growth(make, 1, 1) < 50


def test_variables_as_keys():
    x, y, z = nalora.var(), nalora.var(), nalora.var()
    values = {x: 1, y: 2}
    assert values[x] == 1 and values[y] == 2
    assert z not in values
    assert len({x, y, x}) == 2
    clashing = {hash(z): "an int of the same hash"}
    with pytest.raises(nalora.ModelError):
        clashing[z]


def test_copies_are_the_variable_itself_and_pickling_is_refused():
    x = nalora.var("x")
    assert copy.copy(x) is x
    assert copy.deepcopy([x])[0] is x
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        with pytest.raises(TypeError, match=r"cannot pickle 'nalora\.var' object"):
            pickle.dumps(x, protocol)


def test_a_long_chain_of_names_is_released():
    x = nalora.var()
    for _ in range(300_000):
        y = nalora.var()
        y.name = x
        x = y
    del x, y
