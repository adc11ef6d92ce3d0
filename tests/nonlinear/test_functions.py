"""The module's mathematical functions: on numbers, on objects, on arrays, and their values."""

import math
import sys

import numpy as np
import pytest
from conftest import growth

import nalora

x, y, z = (nalora.var(name) for name in "xyz")
VALUES = {x: 0.5, y: -2.0, z: 4.0}
WORDS = "sin cos tan asin acos atan exp log log10 sqrt erf erfc"
MATH = {name: getattr(math, name) for name in WORDS.split()}
MATH["abs"] = math.fabs
MATH["sign"] = lambda v: (v > 0) - (v < 0)


def value(expression, values=VALUES):
    return nalora.evaluate(expression, solution=values)


@pytest.mark.parametrize("name", MATH)
def test_unary(name):
    function, expected = getattr(nalora, name), MATH[name](0.5)
    for number in [0.5, np.float32(0.5), np.float64(0.5), np.float16(0.5)]:
        assert function(number) == expected and type(function(number)) is float
    for argument in [x, 1 * x, x + 0 * y, -y * x / 2, x + y + 2, x * 1.0 * x / x]:
        node = function(argument)
        assert str(node).startswith(f"{name} (")
        assert math.isclose(value(node), expected, rel_tol=1e-15)
    for array in [np.array([[x, 0.5]]), np.array([[x, 2 * x]], dtype=nalora.npexpr)]:
        result = function(array)
        assert result.dtype == nalora.npexpr and result.shape == (1, 2)
        np.testing.assert_allclose(value(result), [[expected, MATH[name](value(array[0, 1]))]])


def test_numbers():
    assert nalora.sign(-2.5) == -1.0 and nalora.sign(0) == 0.0 and nalora.sign(True) == 1.0
    assert nalora.sqrt(4) == 2.0 and nalora.sqrt(np.uint8(4)) == 2.0
    assert math.copysign(1, nalora.abs(-0.0)) == 1.0
    assert math.isnan(nalora.sin(math.nan)) and nalora.exp(-math.inf) == 0.0
    assert nalora.log(math.inf) == nalora.exp(math.inf) == math.inf


@pytest.mark.parametrize(
    ("call", "error", "text"),
    [
        (lambda: nalora.log(-1), ValueError, r"log\(-1.0\) is not defined"),
        (lambda: nalora.log10(0), ValueError, r"log10\(0.0\) is not defined"),
        (lambda: nalora.sqrt(-4), ValueError, r"sqrt\(-4.0\) is not defined"),
        (lambda: nalora.asin(1.5), ValueError, r"asin\(1.5\) is not defined"),
        (lambda: nalora.cos(math.inf), ValueError, r"cos\(inf\) is not defined"),
        (lambda: nalora.exp(1000), OverflowError, r"exp\(1000.0\) is too large for a float"),
        (lambda: nalora.sqrt(np.array([1, -1])), ValueError, r"sqrt\(-1.0\) is not defined"),
        (lambda: nalora.log(np.array([x, 0])), ValueError, r"log\(0.0\) is not defined"),
        (lambda: nalora.abs(10**400), OverflowError, "too large"),
    ],
)
def test_undefined_values(call, error, text):
    with pytest.raises(error, match=text):
        call()


def test_arrays_of_numbers():
    for dtype in [bool, np.int8, np.uint64, np.float16, np.longdouble, ">f8"]:
        result = nalora.sqrt(np.array([[0, 1], [1, 1]], dtype=dtype))
        assert result.dtype == float and result.tolist() == [[0, 1], [1, 1]]
    square = np.arange(6.0).reshape(2, 3) ** 2
    for array in [square.T, square[:, ::-2], np.asfortranarray(square), square[0, 2], square[:0]]:
        np.testing.assert_array_equal(nalora.sqrt(array), np.sqrt(array))
    assert nalora.sqrt(np.array(9)).shape == ()
    fields = np.zeros(3, dtype=[("skip", "u1"), ("value", "f8")])
    assert nalora.exp(fields["value"]).tolist() == [1.0] * 3


def test_arrays_of_objects():
    v = nalora.vars(2, 3, name="v")
    assert str(nalora.sin(v.T)[2, 1]) == "sin (v(1,2))"
    assert str(nalora.sin(v[:, ::-1])[0, 0]) == "sin (v(0,2))"
    assert nalora.sin(v[:0]).shape == (0, 3)
    single = nalora.sin(np.array(x, dtype=nalora.npvar))
    assert single.shape == () and single.dtype == nalora.npexpr
    mixed = nalora.exp(np.array([x, 0, np.int8(0)], dtype=object))
    assert mixed[1] == mixed[2] == 1.0 and value(mixed)[0] == math.exp(0.5)
    own = np.empty(1, dtype=object)
    own[0] = own
    bad = [own, np.array([x, "a"]), np.empty(1, nalora.npvar), np.array([x <= 1]), np.array(["a"])]
    bad += [np.array([1j]), np.array([[1, 2], None], dtype=object)]
    for array in bad:
        with pytest.raises(nalora.ModelError, match=r"unary (operation|nonlinear)"):
            nalora.sin(array)


def test_functions_of_numpy():
    v = nalora.vars(2, name="v")
    own = {"arcsin": "asin", "arccos": "acos", "arctan": "atan"}
    words = "sin cos tan arcsin arccos arctan exp log log10 sqrt sign"
    for name in words.split():
        function, word = getattr(np, name), own.get(name, name)
        assert str(function(x)) == f"{word} (x)"
        assert [str(node) for node in function(v)] == [f"{word} (v(0))", f"{word} (v(1))"]
        assert function(v + x - x).dtype == nalora.npexpr
        np.testing.assert_array_equal(function(np.array([0.5, 1])), function([0.5, 1.0]))
    assert str(np.exp(2 * v)[1]) == "exp (2*v(1))"
    with pytest.raises(ValueError, match="is not defined"):
        np.log(np.array([x, -1], dtype=nalora.npexpr))


@pytest.mark.parametrize(
    "bad", [None, "x", x <= 1, (x,), [x], 1j, sum, {}, nalora.problem()], ids=str
)
def test_bad_arguments(bad):
    with pytest.raises(nalora.ModelError, match=r"unary (operation|nonlinear)"):
        nalora.sin(bad)
    for name in ["min", "max", "And", "Or"]:
        with pytest.raises(nalora.ModelError, match="Invalid object in n-ary operation"):
            getattr(nalora, name)(x, bad)
    with pytest.raises(nalora.ModelError, match="Invalid object in n-ary operation"):
        nalora.user(math.sin, bad)


class Sized:
    """A sequence whose length is what a function says."""

    def __init__(self, size):
        self.size = size

    def __len__(self):
        return self.size() if callable(self.size) else self.size

    def __getitem__(self, index):
        return [x, y][index]


def test_extrema():
    assert (
        str(nalora.min(x, y)) == "min (x, y)" and str(nalora.max(x, 3, 2 * y)) == "max (x, 3, 2*y)"
    )
    assert value(nalora.min(x, y, 3)) == -2.0 and value(nalora.max(x, y, 3)) == 3.0
    for function in [nalora.min, nalora.max, nalora.And, nalora.Or]:
        for only in [x, [x], (x,), np.array([[x]]), np.array(x, dtype=nalora.npvar), Sized(1)]:
            assert function(only) is x
        for number in [np.int64(3), np.array([3]), np.array(3.0), [np.float32(3)], [np.bool_(1)]]:
            assert function(number) in (1, 3) and type(function(number)) in (int, float)
        for several in [[x, y], (x, y), np.array([x, y]), "ab", Sized(2)]:
            with pytest.raises(nalora.ModelError, match="Invalid object in n-ary operation"):
                function(several)
    for name in ["min", "max"]:
        for none in [(), ([],), (np.empty((2, 0)),), (Sized(0),)]:
            text = f"The function nalora.{name} must have at least one argument"
            with pytest.raises(nalora.ModelError, match=text):
                getattr(nalora, name)(*none)
    assert nalora.Or() == nalora.And() == nalora.And([]) == 0.0


def test_arguments_that_cannot_be_counted():
    for name in ["min", "max", "And", "Or"]:
        text = f"Incorrect argument for nalora.{name} function"
        for bad in [lambda: 1 / 0, lambda: -1]:
            with pytest.raises(nalora.ModelError, match=text) as caught:
                getattr(nalora, name)(Sized(bad))
            assert isinstance(caught.value.__cause__, (ZeroDivisionError, ValueError))
        for bad in [None, {x: 1}, {x}, (v for v in [x]), ["a"], [[x]], "a", x <= 1]:
            with pytest.raises(nalora.ModelError, match=text):
                getattr(nalora, name)(bad)


def test_logic():
    one, zero = {x: 1.0, y: 1.0, z: 1.0}, {x: 1.0, y: 0.0, z: 1.0}
    conjunction, disjunction = nalora.And(x, y, z), nalora.Or(x - 1, y, z - 1)
    assert str(conjunction) == "and (x, y, z)"
    assert (value(conjunction, one), value(conjunction, zero)) == (1.0, 0.0)
    assert (value(disjunction, one), value(disjunction, zero)) == (1.0, 0.0)
    assert value(nalora.And(x, y), {x: 1.0, y: 1e-6}) == 0.0
    assert value(nalora.Or(x, y), {x: 0.0, y: 0.999999}) == 1.0


# ---- piecewise linear functions -----------------------------------------------------------------


def values_at(f, points):
    return [value(f, {x: point}) for point in points]


def test_pwl_values():
    f = nalora.pwl({(1, 4): 2 * x + 1, (6, 8): 25, (4, 6): 4 * x + y - y + 1})
    assert str(f) == "pwl (x, 1.0, 3.0, 4.0, 9.0, 4.0, 17.0, 6.0, 25.0, 8.0, 25.0)"
    # before, inside, at a jump, after
    assert values_at(f, [-1, 1, 2, 4, 5, 6, 7, 8, 9]) == [-1, 3, 5, 17, 21, 25, 25, 25, 25]
    assert value(2 * f + x, {x: 2.0}) == 12.0
    # without a jump, whatever the rounding, a breakpoint is there once
    assert str(nalora.pwl({(0, 1): 0.3 * x, (1, 2): 0.1 * x + 0.1 + 0.1})).count("1.0, 0.3") == 1
    constants = nalora.pwl({None: x, (0, 1): 5, (1, 2): -5})
    assert values_at(constants, [0, 0.5, 1, 3]) == [5, 5, -5, -5]
    assert str(nalora.pwl({(0, 1): (x + y) * 2 - 2 * y}))[:8] == "pwl (x, "
    assert str(nalora.pwl({(0, 1): x, (1, 2): x + 0 * (y + z)}))[:8] == "pwl (x, "


def test_pwl_without_ends():
    f = nalora.pwl({(-math.inf, -3): -x, (-3, 1): 3, (1, nalora.infinity): 2 * x + 1})
    assert values_at(f, [-100, -3, 0, 1, 50]) == [100, 3, 3, 3, 101]
    assert values_at(nalora.pwl({(-1e20, 1e30): 3 * x + 1}), [-7, 0.25, 9]) == [-20, 1.75, 28]


INTERVAL = "All keys in the dictionary argument of nalora.pwl must be two-tuples"
UNSUITABLE = "not suitable for a piecewise linear function; it must "


@pytest.mark.parametrize(
    ("pieces", "text"),
    [
        ([(0, 1)], "Function nalora.pwl only accepts a dictionary"),
        ({1: x}, f"{INTERVAL}; <1> is not"),
        ({(0, 1, 2): x}, rf"{INTERVAL}; <\(0, 1, 2\)> is not"),
        ({(0, "a"): x}, rf"{INTERVAL} with two constant numbers: \[a,b\] such that a<b; <\(0, 'a'"),
        ({(2, 1): x}, r"a<b; <\(2, 1\)> is not"),
        ({(0, math.nan): x}, r"a<b; <\(0, nan\)> is not"),
        ({(1e20, math.inf): x}, "a<b"),
        ({(3, 6): x, (1, 4): x}, r"Interval \[1,4\] overlaps with \[3,6\] in piecewise linear"),
        ({(0, 1): x, (2, 3): x}, r"Intervals \[0,1\] and \[2,3\] leave a gap"),
        ({(0, 1): x * x}, f"{UNSUITABLE}be a constant or a linear function"),
        ({(0, 1): x / y}, f"{UNSUITABLE}be a constant or a linear function"),
        ({(0, 1): "x"}, f"Expression x {UNSUITABLE}be a constant or a linear function"),
        ({(0, 1): math.nan, None: x}, f"{UNSUITABLE}be a constant or a linear function"),
        ({(0, 1): x + y}, f"{UNSUITABLE}contain one variable only"),
        ({(0, 1): x, (1, 2): 2 * y}, r"Expression in \[1,2\] interval contains variable y while"),
        ({None: x, (1, 2): y + 1}, r"Expression in \[1,2\] interval contains variable y while"),
        ({(0, 1): 2, (1, 2): y, None: x}, r"Expression in \[1,2\] interval contains variable y"),
        ({None: 2 * x}, r"Tuple \(None, Obj\) must have an nalora.var\(\) object as Obj, found <2"),
        (
            {(0, 1): 3},
            r"No variable specified for this piecewise linear function: \{\(0, 1\): 3\};",
        ),
        ({}, r"No variable specified for this piecewise linear function: \{\}; Are all values"),
        ({None: x}, "No interval specified"),
    ],
)
def test_pwl_refuses(pieces, text):
    with pytest.raises(nalora.ModelError, match=text):
        nalora.pwl(pieces)


# ---- user functions -----------------------------------------------------------------------------


def test_user_functions():
    calls = []

    def total(*arguments):
        calls.append(arguments)
        return sum(arguments)

    f = nalora.user(total, x, 2 * y, 3)
    assert str(f) == "user (user, x, 2*y, 3)"
    assert value(f + 1) == 0.5 - 4.0 + 3 + 1
    assert calls == [(0.5, -4.0, 3.0)] and [type(a) for a in calls[0]] == [float] * 3
    g = nalora.user(lambda a: (a * a, 2 * a), z, derivatives=True)
    assert value(g) == 16.0
    assert value(nalora.user(lambda: 7)) == 7.0
    assert value(nalora.user(lambda a: np.float32(a), z)) == 4.0


def test_user_functions_that_fail():
    class Stop(Exception):
        pass

    def stop(_):
        raise Stop("here")

    with pytest.raises(Stop, match="here"):
        value(nalora.user(stop, x) * 2)
    for wrong in ["a", None, (), ("a",)]:
        with pytest.raises((TypeError, IndexError)):
            value(nalora.user(lambda _, result=wrong: result, x))
    with pytest.raises(TypeError):
        value(nalora.user(lambda a, b: a, x))


def test_user_arguments():
    with pytest.raises(nalora.ModelError, match="must specify at least one argument"):
        nalora.user()
    for not_callable in [x, 3, 2 * x + 1]:
        with pytest.raises(nalora.ModelError, match="must be the function itself"):
            nalora.user(not_callable, x)
    for arguments in [("f", x), (math.sin, math.cos), (math.sin, np.array([x]))]:
        with pytest.raises(nalora.ModelError, match="Invalid object in n-ary operation"):
            nalora.user(*arguments)
    with pytest.raises(TypeError, match="'derivative' is an invalid keyword argument for user"):
        nalora.user(math.sin, x, derivative=True)


def test_nothing_is_leaked():
    array, numbers = np.array([x, 2 * y, 1.0], dtype=object), np.arange(1.0, 4.0)

    def step():
        nalora.exp(array), nalora.log(numbers), nalora.sin(x), nalora.sqrt(4)
        nalora.max(x, y, z), nalora.min([x]), nalora.min(np.array([2.0]))
        nalora.pwl({(0, 1): 2 * x, (1, 2): x + 1 + y - y, (2, math.inf): 3})
        nalora.user(lambda a, b: a, x, y, derivatives=True)
        for bad in [
            lambda: nalora.exp(np.array([x, None])),
            lambda: nalora.log(np.array([x, -1])),
            lambda: nalora.pwl({(0, 1): x, (1, 2): y}),
            lambda: nalora.max(x, y, z, "a"),
            lambda: nalora.min(Sized(-1)),
        ]:
            with pytest.raises((nalora.ModelError, ValueError)):
                bad()

    assert growth(step) < 20
    references = [sys.getrefcount(v) for v in (x, y, z)]
    growth(step)
    assert [sys.getrefcount(v) for v in (x, y, z)] == references
