"""Trees as the postfix formulas that the nonlinear solver takes."""

import math
import random
import sys

import pytest
from conftest import growth

import nalora

formula = nalora.naloralib._formula
x, y, z, w = (nalora.var(name) for name in "xyzw")
stranger = nalora.var("stranger")
PROBLEM = nalora.problem(w, x, y, z)
COLUMN = {w: 0, x: 1, y: 2, z: 3}
POINT = [0.75, 1.5, -0.5, 2.0]

CONSTANT, COL, USER, FUNCTION, LIST, COMMA, OPERATOR = 1, 10, 11, 12, 21, 22, 31
OPERATORS = {"neg": 1, "**": 2, "*": 3, "/": 4, "+": 5, "-": 6}
FUNCTIONS = {
    "log10": 14, "log": 15, "exp": 16, "abs": 17, "sqrt": 18, "sin": 27, "cos": 28, "tan": 29,
    "asin": 30, "acos": 31, "atan": 32, "min": 33, "max": 34, "pwl": 35, "sign": 46, "erf": 49,
    "erfc": 50,
}  # fmt: skip


def tokens(text):
    """Tokens of a formula written as words: names of columns, operators and functions, numbers."""
    result = []
    for word in text.split():
        if word in "[,":
            result.append((LIST if word == "[" else COMMA, 0))
        elif word in OPERATORS:
            result.append((OPERATOR, OPERATORS[word]))
        elif word in FUNCTIONS:
            result.append((FUNCTION, FUNCTIONS[word]))
        elif word in "wxyz":
            result.append((COL, "wxyz".index(word)))
        else:
            user = word.startswith("user")
            result.append((USER if user else CONSTANT, float(word[4:] if user else word)))
    return [*result, (0, 0)]


@pytest.mark.parametrize(
    ("make", "expected"),
    [
        # terms
        (lambda: 3, "3"),
        (lambda: x, "x"),
        (lambda: 1 * x, "x"),
        (lambda: -x, "x neg"),
        (lambda: 2 * x, "2 x *"),
        (lambda: x * y, "x y *"),
        (lambda: -x * y, "x y * neg"),
        (lambda: 2 * x * y, "2 x y * *"),
        (lambda: x**2, "x x *"),
        # expressions: constant, linear terms, quadratic terms
        (lambda: x - x + 0, "0"),
        (lambda: x + 1 - x, "1"),
        (lambda: 2 * x * y + 3 * x - y + 4, "4 3 x * + y neg 2 x y * * + +"),
        (lambda: x + y + z, "x y + z +"),
        # operators
        (lambda: x / y, "x y /"),
        (lambda: x / y - x, "x y / x -"),
        (lambda: (x / y) ** (x / y), "x y / x y / **"),
        (lambda: x**3, "x 3 **"),
        (lambda: -(x / y), "x y / neg"),
        (lambda: 2 * (x / y), "x y / 2 *"),
        (lambda: x / y + 3, "x y / 3 +"),
        (lambda: x / y + (x + y) * (x + 1), "x y / x y + x x * x y * + + +"),
        # functions
        (lambda: nalora.max(x, 3), "[ x , 3 max"),
        (lambda: nalora.Or(x, nalora.And(y, z, w)), "[ x , [ y , z , w min max"),
        (lambda: nalora.sin(nalora.exp(x)) * y, "[ [ x exp sin y *"),
        (lambda: nalora.pwl({(0, 1): 2 * x}), "[ x , 0 , 0 , 1 , 2 pwl"),
        (lambda: nalora.user(max, x, nalora.user(min, y)), "[ x , [ y user1 user0"),
        (lambda: nalora.user(max), "[ user0"),
        (lambda: type(x / y)(), "0"),
    ],
)
def test_tokens(make, expected):
    types, values = formula(PROBLEM, make())
    assert list(zip(types, values)) == tokens(expected)
    assert {type(v) for v in values} == {float}


@pytest.mark.parametrize("name", sorted(set(FUNCTIONS) - {"min", "max", "pwl"}))
def test_function_numbers(name):
    assert list(zip(*formula(PROBLEM, getattr(nalora, name)(x)))) == tokens(f"[ x {name}")


@pytest.mark.parametrize(
    ("n", "expected"),
    [
        (3, "w x + y +"),
        (5, "w x + y z + + w +"),
        (7, "w x + y z + + w x + y + +"),
        (8, "w x + y z + + w x + y z + + +"),
    ],
)
def test_pairwise_order(n, expected):
    operands = [[w, x, y, z][i % 4] for i in range(n)]
    product = nalora.sin(w)
    for operand in operands[1:]:
        product *= operand
    expected = expected.replace("+", "*").replace("w", "[ w sin", 1)
    assert list(zip(*formula(PROBLEM, product))) == tokens(expected)


BINARY = {
    2: math.pow,
    3: lambda a, b: a * b,
    4: lambda a, b: a / b,
    5: lambda a, b: a + b,
    6: lambda a, b: a - b,
}
VALUES = {FUNCTIONS[n]: getattr(math, n) for n in ["sin", "cos", "exp", "atan", "erf", "sqrt"]}
VALUES.update({33: min, 34: max, 17: abs})


def computed(types, values, point=POINT):
    """The value of a formula and the depth of its tree; user functions are maxima."""
    stack = []

    def combine(function, operands):
        result = function(*[operand for operand, _ in operands])
        return result, 1 + max(depth for _, depth in operands)

    for kind, number in zip(types[:-1], values[:-1]):
        if kind in (CONSTANT, COL):
            stack.append((number if kind == CONSTANT else point[int(number)], 1))
        elif kind in (LIST, COMMA):
            stack.append(kind)
        elif kind == OPERATOR and number == 1:
            stack.append(combine(lambda a: -a, [stack.pop()]))
        elif kind == OPERATOR:
            stack[-2:] = [combine(BINARY[number], stack[-2:])]
        else:
            mark = len(stack) - 1 - stack[::-1].index(LIST)
            arguments = stack[mark + 1 :]
            assert arguments[1::2] == [COMMA] * (len(arguments) // 2)
            stack[mark:] = [combine(max if kind == USER else VALUES[number], arguments[::2])]
    assert (types[-1], values[-1], len(stack)) == (0, 0, 1)
    return stack[0]


def random_tree(rng, depth):
    def operand():
        return random_tree(rng, depth - 1)

    if depth == 0:
        leaves = [w, x, y, z, 2 * x, x * y, -x, 3 + x - 2 * w, 1.5, w * w - z + 2, -2 * y * z]
        return rng.choice(leaves)
    unary = [nalora.sin, nalora.cos, nalora.atan, nalora.erf, nalora.abs, nalora.exp]
    several = [nalora.max, nalora.min, lambda *a: nalora.user(max, *a)]
    forms = [
        lambda: operand() + operand() - operand(),
        lambda: operand() * operand(),
        lambda: operand() / (2 + operand() * operand() * 0.125 + nalora.exp(operand())),
        lambda: nalora.sqrt(1 + nalora.exp(operand())),
        lambda: rng.choice(unary)(operand()),
        lambda: rng.choice(several)(*[operand() for _ in range(rng.randint(2, 5))]),
        lambda: nalora.Sum(operand() for _ in range(rng.randint(1, 9))),
        lambda: (1 + operand() ** 2) ** rng.choice([3, 0.5, -1]),
    ]
    try:
        return rng.choice(forms)()
    except (OverflowError, ValueError, nalora.ModelError):  # numbers among themselves
        return x


def test_formulas_have_the_values_of_their_trees():
    rng = random.Random(3)
    compared = 0
    for _ in range(300):
        tree = random_tree(rng, rng.randint(0, 4))
        try:
            result, _ = computed(*formula(PROBLEM, tree))
        except (ArithmeticError, ValueError):  # where evaluation gives infinity or nan
            continue
        expected = nalora.evaluate(tree, problem=PROBLEM, solution=POINT)
        assert math.isclose(result, expected, rel_tol=1e-9, abs_tol=1e-9)
        compared += 1
    assert compared > 250


def test_wide_sums_stay_shallow():
    n = 10_000
    variables = list(nalora.vars(n).flat)
    problem = nalora.problem(variables)
    flat = nalora.Sum(nalora.sin(v) for v in variables)
    linear = nalora.exp(nalora.Sum(0.0001 * v for v in variables))
    for tree, expected in [(flat, n * math.sin(1)), (linear, math.e)]:
        result, depth = computed(*formula(problem, tree), [1.0] * n)
        assert math.isclose(result, expected) and depth <= 17


@pytest.mark.parametrize(
    ("make", "place"),
    [
        (lambda: stranger, "nonlinear part of constraint"),
        (lambda: nalora.sin(stranger), "nonlinear part of constraint"),
        (lambda: 2 * stranger, "nonlinear expression"),
        (lambda: x / (x * stranger), "nonlinear expression"),
        (lambda: x / (x + stranger), "nonlinear expression"),
        (lambda: "x", None),
        (lambda: None, None),
        (lambda: x <= 1, None),
    ],
)
def test_refused(make, place):
    text = "Cannot convert expression"
    if place is not None:
        text = f"Variable in {place} has not been added to problem yet"
    with pytest.raises(nalora.ModelError, match=text):
        formula(PROBLEM, make())
    with pytest.raises(TypeError):
        formula(None, make())


def test_depth():
    tree = x
    for _ in range(64):
        tree = nalora.sin(tree)
    assert len(formula(PROBLEM, tree)[0]) == 64 * 2 + 2
    for deeper in [nalora.sin(tree), x + nalora.exp(y / tree)]:
        with pytest.raises(nalora.ModelError, match="expression tree depth reached the maximum"):
            formula(PROBLEM, deeper)


def test_coefficient_form():
    f = nalora.sin(y)
    product = f * x
    for factor in [2, z, -1.5, 3 * w]:
        product *= factor
    result = formula(PROBLEM, product, True)
    assert result[2:] == (-3.0, COLUMN[x])
    assert list(zip(*result[:2])) == tokens("[ y sin z * 3 w * *")
    for tree, expected, coefficient, column in [
        (f * 2, "[ y sin", 2.0, -1),
        (x / y, "x y /", 1.0, -1),
        (x, "x", 1.0, -1),
        (f * x, "[ y sin", 1.0, COLUMN[x]),
    ]:
        result = formula(PROBLEM, tree, True)
        assert result[2:] == (coefficient, column)
        assert list(zip(*result[:2])) == tokens(expected)
    with pytest.raises(nalora.ModelError, match="Variable in nonlinear term not added to problem"):
        formula(PROBLEM, f * stranger, True)


def test_nothing_is_leaked():
    trees = [
        nalora.max(x, 2 * y, x * y + 3, nalora.user(math.hypot, x, z)),
        nalora.Sum(nalora.sin(x) * y for _ in range(300)),
        nalora.Sum(nalora.user(max, y) * y for _ in range(30)) * stranger,
    ]

    def step():
        formula(PROBLEM, trees[0]), formula(PROBLEM, trees[1])
        with pytest.raises(nalora.ModelError):
            formula(PROBLEM, trees[2])

    objects = [x, y, z, math.hypot, max, *trees]
    assert growth(step) < 20
    references = [sys.getrefcount(o) for o in objects]
    growth(step)
    assert [sys.getrefcount(o) for o in objects] == references
