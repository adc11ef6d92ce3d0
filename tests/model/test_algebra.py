"""Random formulas over variables: their value is that of the same formula over numbers."""

import operator

from hypothesis import given, settings
from hypothesis import strategies as st

import nalora

VARIABLES = [nalora.var(f"v{i}") for i in range(5)]
# Small integers keep the arithmetic of both sides exact, so that terms cancel for certain.
VALUES = {v: float(value) for v, value in zip(VARIABLES, (2, -1, 3, 0, 5))}
NUMBERS = st.sampled_from([-3, -2, -1, 0, 1, 2, 3, 0.5, -1.5, True])

LEAVES = st.one_of(NUMBERS, st.sampled_from(VARIABLES))
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
    return VALUES[o] if isinstance(o, nalora.var) else o


def degree_fits(value):
    return abs(value) < 2**40


@settings(max_examples=120, deadline=None)
@given(formulas())
def test_values_agree(steps):
    symbolic = run(steps, lambda o: o)
    numeric = run(steps, number)
    for s, n in zip(symbolic, numeric):
        if not degree_fits(n):
            break
        assert nalora.evaluate(s, solution=VALUES) == n


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


@settings(max_examples=80, deadline=None)
@given(st.lists(st.tuples(st.sampled_from(VARIABLES), NUMBERS, NUMBERS), max_size=30))
def test_accumulated_terms_are_merged_as_in_a_dictionary(terms):
    e = VARIABLES[0] * 0 + VARIABLES[1] + VARIABLES[2]  # an expression, neither term nor number
    expected = {VARIABLES[1]: 1.0, VARIABLES[2]: 1.0}
    total = 0.0
    for v, coef, shift in terms:
        e = e + coef * v - shift
        total -= shift
        expected[v] = expected.get(v, 0.0) + coef
        if expected[v] == 0.0:
            del expected[v]
    variables, coefs = e.extractLinear()
    assert [hash(v) for v in variables] == sorted(hash(v) for v in expected)
    assert coefs == [expected[v] for v in variables]
    assert nalora.evaluate(e, solution=dict.fromkeys(VARIABLES, 0.0)) == total
