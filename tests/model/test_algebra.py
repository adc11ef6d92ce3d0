"""Random formulas over variables: their value is that of the same formula over numbers."""

import operator

from hypothesis import given, settings
from hypothesis import strategies as st

import nalora

VARIABLES = [nalora.var(f"v{i}") for i in range(5)]
# Small integers keep the arithmetic of both sides exact, so that terms cancel for certain.
VALUES = {v: float(value) for v, value in zip(VARIABLES, (2, -1, 3, 0, 5))}
NUMBERS = st.sampled_from([-3, -2, -1, 0, 1, 2, 3, 0.5, -1.5, True])

V = VARIABLES
# Expressions of several lengths, some with coefficients that scaling made zero.
LONG = [
    V[0] + V[1] + 2,
    0 * (V[0] + V[1] - V[2] * V[3]),
    0 * (V[0] * V[0] + V[1] * V[1] + V[0] * V[1]) + V[4],
    nalora.Sum(v * w for v in V for w in V) + V[3],
    (V[2] + 3 * V[3]) - V[2] - 3 * V[3],
]
LEAVES = st.one_of(NUMBERS, st.sampled_from(VARIABLES), st.sampled_from(LONG))
OPERATORS = st.sampled_from([operator.add, operator.sub, operator.mul])
IN_PLACE = {operator.add: operator.iadd, operator.sub: operator.isub, operator.mul: operator.imul}


@st.composite
def formulas(draw):
    """A list of steps: an operator and two operands, numbers or earlier results."""
    size = draw(st.integers(1, 14))
    steps = []
    for i in range(size):
        earlier = st.integers(0, i - 1).map(lambda k: ("result", k)) if i else LEAVES
        operand = st.one_of(LEAVES, earlier)
        steps.append((draw(OPERATORS), draw(operand), draw(operand), draw(st.booleans())))
    return steps


def run(steps, leaf):
    results = []

    def operand(o):
        return results[o[1]] if isinstance(o, tuple) else leaf(o)

    for function, a, b, in_place in steps:
        if in_place:
            function = IN_PLACE[function]
        results.append(function(operand(a), operand(b)))
    return results


def number(o):
    return o if isinstance(o, (int, float)) else nalora.evaluate(o, solution=VALUES)


def coefficients(o):
    variables, coefs = o.extractLinear()
    firsts, seconds, quadratic = o.extractQuadratic()
    return dict(zip(variables + list(zip(firsts, seconds)), coefs + quadratic))


def degree_fits(value):
    return abs(value) < 2**40


@settings(max_examples=80, deadline=None)
@given(formulas())
def test_values_agree(steps):
    symbolic = run(steps, lambda o: o)
    numeric = run(steps, number)
    for s, n in zip(symbolic, numeric):
        if not degree_fits(n):
            break
        assert nalora.evaluate(s, solution=VALUES) == n


# Zero coefficients come from scaling and stay where they are. A sum takes none over from its right
# operand, whichever is the longer one.
@settings(max_examples=50, deadline=None)
@given(formulas())
def test_sums_of_expressions_add_coefficients(steps):
    results = [r for r in run(steps, lambda o: o) if type(r).__name__ == "expression"]
    for left, right in zip(results, results[1:] + LONG):
        a, b = coefficients(left), coefficients(right)
        for total, sign in ((left + right, 1), (nalora.Sum(left, right), 1), (left - right, -1)):
            expected = {key: a.get(key, 0) + sign * b.get(key, 0) for key in {**a, **b}}
            found = coefficients(total)
            assert {k: c for k, c in found.items() if c} == {k: c for k, c in expected.items() if c}
            assert all(a.get(k) == 0 for k, c in found.items() if c == 0)


@settings(max_examples=80, deadline=None)
@given(formulas(), st.sampled_from([operator.le, operator.eq, operator.ge]), NUMBERS)
def test_constraints_hold_exactly_where_the_comparison_does(steps, comparison, rhs):
    s = run(steps, lambda o: o)[-1]
    n = run(steps, number)[-1]
    if isinstance(s, (int, float)) or not degree_fits(n):
        return
    for c, expected in (
        (comparison(s, rhs), comparison(n, rhs)),
        (comparison(rhs, s), comparison(rhs, n)),
        (comparison(s, VARIABLES[0] + rhs), comparison(n, VALUES[VARIABLES[0]] + rhs)),
    ):
        value = nalora.evaluate(c.body, solution=VALUES)
        assert (c.lb <= value <= c.ub) == expected
