"""Linear and quadratic terms, expressions: every rule of the operator tables."""

import copy
import operator
import pickle

import numpy as np
import pytest

import nalora

x, y, z = (nalora.var(name) for name in "xyz")
LINTERM, QUADTERM, EXPRESSION = type(2 * x), type(x * y), type(x + y)
NONLINEAR = type(x / y)


def form(o):
    """Kind and value of a result: numbers as they are, the rest by what it holds."""
    if isinstance(o, float):
        return o
    if isinstance(o, (nalora.var, LINTERM, QUADTERM, EXPRESSION)):
        return type(o).__name__, str(o)
    return "nonlinear", str(o)


def L(text):
    return "linterm", text


def Q(text):
    return "quadterm", text


def E(text):
    return "expression", text


def N(text):
    return "nonlinear", text


V = ("var", "x")

RULES = [
    # variables and numbers
    (lambda: x + 0, V),
    (lambda: 0 + x, E("x")),
    (lambda: x + 2, E("2 + x")),
    (lambda: 2 + x, E("2 + x")),
    (lambda: x - 0, V),
    (lambda: x - 2, E("-2 + x")),
    (lambda: 2 - x, E("2 - x")),
    (lambda: 0 - x, E("- x")),
    (lambda: x * 0, 0.0),
    (lambda: 0 * x, 0.0),
    (lambda: x * 1, V),
    (lambda: 1 * x, V),
    (lambda: True * x, V),
    (lambda: x * 3, L("3*x")),
    (lambda: 2.5e7 * x, L("2.5e+07*x")),
    (lambda: x / 1, V),
    (lambda: x / 4, L("0.25*x")),
    (lambda: x / float("inf"), 0.0),
    (lambda: 0 / x, 0.0),
    (lambda: 2 / x, N("(2 / x)")),
    (lambda: x**0, 1.0),
    (lambda: x**1, V),
    (lambda: x**2, Q("x**2")),
    (lambda: x**3, N("(x ** 3)")),
    (lambda: 1**x, 1.0),
    (lambda: 2**x, N("(2 ** x)")),
    (lambda: -x, L("-1*x")),
    (lambda: abs(x), N("abs (x)")),
    # variables
    (lambda: x + x, L("2*x")),
    (lambda: x + y, E("x + y")),
    (lambda: y + x, E("x + y")),
    (lambda: x - x, 0.0),
    (lambda: y - x, E("- x + y")),
    (lambda: x * y, Q("x*y")),
    (lambda: y * x, Q("x*y")),
    (lambda: x * x, Q("x**2")),
    (lambda: x / x, 1.0),
    (lambda: x / y, N("(x / y)")),
    (lambda: x**y, N("(x ** y)")),
    (lambda: x & y, N("and (x, y)")),
    (lambda: x | y, N("or (x, y)")),
    # linear terms
    (lambda: 2 * x + 0, L("2*x")),
    (lambda: 0 + 2 * x, L("2*x")),
    (lambda: 0 - 2 * x, L("-2*x")),
    (lambda: 2 * x + 3, E("3 +2 x")),
    (lambda: 3 - 2 * x, E("3 -2 x")),
    (lambda: 2 * x - 3, E("-3 +2 x")),
    (lambda: 2 * x + x, L("3*x")),
    (lambda: x - 2 * x, L("-1*x")),
    (lambda: -1 * x + x, 0.0),
    (lambda: 2 * x - y, E("2 x - y")),
    (lambda: y - 2 * x, E("-2 x + y")),
    (lambda: 2 * x + 3 * x, L("5*x")),
    (lambda: 2 * x - 2 * x, 0.0),
    (lambda: 2 * x - 3 * y, E("2 x -3 y")),
    (lambda: 0.5 * (2 * x), L("x")),
    (lambda: (2 * x) * 0, 0.0),
    (lambda: (2 * x) * (3 * y), Q("6*x*y")),
    (lambda: (2 * x) * x, Q("2*x**2")),
    (lambda: y * (2 * x), Q("2*x*y")),
    (lambda: (2 * x) / 4, L("0.5*x")),
    (lambda: (2 * x) / x, 2.0),
    (lambda: (2 * x) / (4 * x), 0.5),
    (lambda: (2 * x) / (4 * y), N("(2*x / 4*y)")),
    (lambda: x / (2 * x), N("(x / 2*x)")),
    (lambda: 0 / (2 * x), N("(0 / 2*x)")),
    (lambda: (2 * x) ** 0, 1.0),
    (lambda: (2 * x) ** 1, L("2*x")),
    (lambda: (2 * x) ** 2, Q("4*x**2")),
    (lambda: (2 * x) ** 0.5, N("(2*x ** 0.5)")),
    (lambda: -(-1 * x), L("x")),
    # quadratic terms
    (lambda: x * y + 0, Q("x*y")),
    (lambda: 0 - x * y, Q("-1*x*y")),
    (lambda: x * y + 3, E("3 + x*y")),
    (lambda: 3 - 2 * x * y, E("3 -2 x*y")),
    (lambda: x * y - z, E("- z + x*y")),
    (lambda: z - 2 * x * y, E("z -2 x*y")),
    (lambda: 3 * z + x**2, E("3 z + x**2")),
    (lambda: x * y - 3 * z, E("-3 z + x*y")),
    (lambda: x * y + y * x, E("2 x*y")),
    (lambda: x * y - x**2, E("- x**2 + x*y")),
    (lambda: 0 * (x * y), Q("0*x*y")),
    (lambda: 2 * (x * y), Q("2*x*y")),
    (lambda: (x * y) * z, N("(z * x*y)")),
    (lambda: (x * y) * (2 * z), N("(2*z * x*y)")),
    (lambda: (x * y) * (x * z), N("(x*z * x*y)")),
    (lambda: (x * y) / 2, Q("0.5*x*y")),
    (lambda: (x * y) / z, N("(x*y / z)")),
    (lambda: (x * y) ** 1, Q("x*y")),
    (lambda: (x * y) ** 2, N("(x*y ** 2)")),
    (lambda: (x * y) ** 0, N("(x*y ** 0)")),
    (lambda: -(3 * x * y), Q("-3*x*y")),
    # expressions
    (lambda: (x + y) + 1.5, E("1.5 + x + y")),
    (lambda: 1 - (x + y), E("1 - x - y")),
    (lambda: (x + y) - y, E("x")),
    (lambda: (x + y) - x - y, E("0")),
    (lambda: y - (x + 2 * y), E("- x - y")),
    (lambda: (x + 2 * y) + (3 - 2 * y), E("3 + x")),
    (lambda: (x + y) - (x - y), E("2 y")),
    (lambda: (x + y) - x * y, E("x + y - x*y")),
    (lambda: x * y - (x + y), E("- x - y + x*y")),
    (lambda: 2 * (x + y - 1), E("-2 +2 x +2 y")),
    (lambda: (x + y) * 1, E("x + y")),
    (lambda: (x + y) * 0, E("0 x +0 y")),
    (lambda: -(x - y + 1), E("-1 - x + y")),
    (lambda: (x + y) * (x - y), E("x**2 - y**2")),
    (lambda: (x + 1) * (y - 2), E("-2 -2 x + y + x*y")),
    (lambda: (y + x) * z, E("x*z + y*z")),
    (lambda: (2 * z) * (y + 1), E("2 z +2 y*z")),
    (lambda: (x + y) * (x * y), N("(x*y * x + y)")),
    (lambda: (x * y + 1) * (x + 1), N("(1 + x * 1 + x*y)")),
    (lambda: (x * y + x) * ((x + 2) - x), E("2 x +2 x*y")),
    (lambda: (x * y) * ((x + 2) - x), Q("2*x*y")),
    (lambda: (x * y + 1) * x, N("(x * 1 + x*y)")),
    (lambda: (x + y) / 4, E("0.25 x +0.25 y")),
    (lambda: (x + 5) / float("inf"), E("0")),
    (lambda: (x + y) / x, N("(x + y / x)")),
    (lambda: x / ((x + y) - x - y), N("(x / 0)")),
    (lambda: (x + y) ** 0, 1.0),
    (lambda: (x + y) ** 1, E("x + y")),
    (lambda: (x + y) ** 2, E("x**2 +2 x*y + y**2")),
    (lambda: (x * y + 1) ** 2, N("(1 + x*y * 1 + x*y)")),
    (lambda: (x + y) ** 3, N("(x + y ** 3)")),
    (lambda: (x + y) ** x, N("(x + y ** x)")),
    (lambda: 1 ** (x + y), 1.0),
    (lambda: 2 ** (x + y), N("(2 ** x + y)")),
]


@pytest.mark.parametrize("rule", range(len(RULES)))
def test_rules(rule):
    make, expected = RULES[rule]
    assert form(make()) == expected


def test_identities_of_trivial_results():
    t, q, e = 2 * x, x * y, x + y
    assert (x + 0) is x and (x - 0.0) is x and (x * 1) is x and (x / 1) is x and (x**1) is x
    assert (t + 0) is t and (t**1) is t and (q**1) is q
    assert (t * 1) is not t
    assert (q + 0) is not q
    assert (e * 1) is not e


def constant(value):
    """An expression that never had a term counts as a number."""
    return EXPRESSION() + value


@pytest.mark.parametrize(
    ("make", "expected"),
    [
        (lambda: x / constant(2), L("0.5*x")),
        (lambda: x * constant(1), V),
        (lambda: constant(0) * x, 0.0),
        (lambda: (2 * x) / constant(2), L("x")),
        (lambda: constant(3) * (2 * x), L("6*x")),
        (lambda: constant(3) * (x * y), Q("3*x*y")),
        (lambda: (x * y) / constant(2), Q("0.5*x*y")),
        (lambda: constant(3) * (x * y + x), E("3 x +3 x*y")),
        (lambda: (x + y) / constant(2), E("0.5 x +0.5 y")),
        (lambda: 6 / constant(3), 2.0),
        (lambda: constant(0) * (x / y), 0.0),
        (lambda: constant(2) * constant(3), E("6")),
        (lambda: constant(2) ** x, N("(2 ** x)")),
    ],
)
def test_expressions_without_terms_count_as_numbers(make, expected):
    assert form(make()) == expected


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda: x / 0, "Division of variable by zero"),
        (lambda: x / constant(0), "Division of variable by zero"),
        (lambda: (2 * x) / 0, "Division by zero"),
        (lambda: (x * y) / 0, "Division by zero of a bilinear term"),
        (lambda: (x + y) / 0.0, "Division by zero"),
        (lambda: (x / y) / 0, "Division by zero"),
        (lambda: x.__itruediv__(0), "Division by zero"),
        (lambda: (x * y).__itruediv__(0), "Division by zero"),
        (lambda: (x + y).__itruediv__(0), "Division by zero"),
        (lambda: x + "a", "Invalid operands in addition"),
        (lambda: operator.add([], x), "Invalid operands in addition"),
        (lambda: x - None, "Invalid object in subtraction"),
        (lambda: x * "a", "Invalid operands in multiplication"),
        (lambda: x / {}, "Invalid operands in division"),
        (lambda: x ** "a", "Invalid operands in exponentiation"),
        (lambda: pow(x, 2, 3), "Invalid operands in exponentiation"),
        (lambda: 2 * x + "a", "Invalid operands in sum"),
        (lambda: 2 * x - "a", "Invalid operands in sum"),
        (lambda: x * y + "a", "Invalid operands in sum with quadratic term"),
        (lambda: (2 * x) * "a", "Invalid operands in product of linear terms"),
        (lambda: (2 * x) / "a", "Invalid operands in product of linear terms"),
        (lambda: (x + y) + "a", "Invalid object in operation: <a>"),
        (lambda: "a" * (x + y), "Invalid object in operation: <a>"),
        (lambda: x / y + "a", "Invalid object in operation: <a>"),
        (lambda: x & "a", "Invalid object in n-ary operation"),
        (lambda: x + np.int8(1), "Invalid operands in addition"),
        (lambda: x + 1j, "Invalid operands in addition"),
        (lambda: x ** np.ones(2), "Cannot obtain a power with a vector as an exponent"),
        (lambda: (x + y) ** np.ones(2), "Cannot obtain a power with a vector as an exponent"),
        (lambda: (x / y) ** np.ones(2), "Cannot obtain a power with a vector as an exponent"),
    ],
)
def test_messages(make, text):
    with pytest.raises(nalora.ModelError) as info:
        make()
    assert str(info.value) == text


def test_errors_from_operands_pass_through():
    class Unprintable:
        def __str__(self):
            raise KeyError("no text")

    with pytest.raises(OverflowError):
        x + 10**400
    with pytest.raises((KeyError, nalora.ModelError)):
        (x + y) + Unprintable()


@pytest.mark.parametrize("kind", [np.float32, np.float64, np.intc, np.int_, np.longlong])
def test_numpy_scalars_are_numbers(kind):
    assert form(x + kind(2)) == E("2 + x")
    assert form(kind(3) * x) == L("3*x")
    assert form((x + y) * kind(2)) == E("2 x +2 y")
    assert form(x ** kind(2)) == Q("x**2")


def test_numpy_arrays_take_over_as_the_right_operand():
    a = np.array([1.0, 2.0])
    for result, expected in [
        (x + a, ["1 + x", "2 + x"]),
        (x - a, ["-1 + x", "-2 + x"]),
        (a - x, ["1 - x", "2 - x"]),
        ((2 * x) * a, ["2*x", "4*x"]),
        (x / a, ["x", "0.5*x"]),
        ((x + y) * np.array([x, 1]), ["x**2 + x*y", "x + y"]),
        (a**x, ["1.0", "(2.0 ** x)"]),
        (x & np.array([y, z]), ["and (y, x)", "and (z, x)"]),
    ]:
        assert isinstance(result, np.ndarray)
        assert [str(item) for item in result] == expected
    accumulated = x
    accumulated += a
    assert accumulated.shape == (2,)
    assert np.array([x, y]).dtype == object


def test_extraction():
    assert x.extractLinear() == ([x], [1.0])
    assert x.extractQuadratic() == ([], [], [])
    assert (2 * x).extractLinear() == ([x], [2.0])
    assert (2 * y * x).extractQuadratic() == ([x], [y], [2.0])
    e = z - y + 2 * x * z + y**2 - 4
    assert e.extractLinear() == ([y, z], [-1.0, 1.0])
    assert e.extractQuadratic() == ([x, y], [z, y], [2.0, 1.0])
    assert ((x + y) - x - y).extractLinear() == ([], [])


def test_values_are_hashable_by_identity_copied_as_they_are_and_not_pickled():
    for o in (2 * x, x * y, x + y, x / y):
        assert hash(o) == object.__hash__(o)
        assert o
        assert copy.copy(o) is o
        assert copy.deepcopy(o) is o
        with pytest.raises(TypeError, match="cannot pickle"):
            pickle.dumps(o)


@pytest.mark.parametrize("kind", [LINTERM, QUADTERM, EXPRESSION, NONLINEAR])
def test_objects_made_by_calling_the_type(kind):
    empty = kind()
    str(empty), repr(empty), hash(empty)
    assert empty.extractLinear() == ([], [])
    assert empty.extractQuadratic() == ([], [], [])
    operations = [
        lambda: empty + 1,
        lambda: x - empty,
        lambda: empty * 2,
        lambda: (x + y) * empty,
        lambda: empty / 3,
        lambda: -empty,
        lambda: abs(empty),
        lambda: empty**2,
        lambda: empty <= 1,
        lambda: nalora.constraint(body=empty, ub=1),
    ]
    if kind in (LINTERM, QUADTERM):
        for operation in operations:
            with pytest.raises(nalora.ModelError):
                operation()
    else:
        for operation in operations:
            str(operation())


def test_subclasses_of_the_result_types():
    class Cost(EXPRESSION):
        pass

    c = Cost()
    assert str(c + x + 1) == "1 + x"
    assert type((c <= 0).body) is EXPRESSION
