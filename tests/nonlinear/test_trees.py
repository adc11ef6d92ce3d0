"""Nonlinear trees: how they are built, kept flat, printed and taken apart."""

import pytest
from conftest import growth

import nalora

x, y, z = (nalora.var(name) for name in "xyz")
f, g = x / y, abs(z)
NONLINEAR = type(f)


@pytest.mark.parametrize(
    ("make", "text"),
    [
        # sums are flat, their number comes last
        (lambda: f + x, "((x / y) + x)"),
        (lambda: x + f, "((x / y) + x)"),
        (lambda: f + g + x + 2 * y, "((x / y) + abs (z) + x + 2*y)"),
        (lambda: x + (f + g), "((x / y) + abs (z) + x)"),
        (lambda: (f + x) + (g + y), "((x / y) + x + abs (z) + y)"),
        (lambda: (f + 1) + (g + y + 2), "(abs (z) + y + (x / y) + 3.0)"),
        (lambda: f + (x + y), "((x / y) + x + y)"),
        (lambda: f + 3, "((x / y) + 3)"),
        (lambda: 3 + f, "((x / y) + 3)"),
        (lambda: 3 + f + x, "((x / y) + x + 3)"),
        (lambda: 3 + f + x - 1.5, "((x / y) + x + 1.5)"),
        (lambda: f + 3 - 3, "(x / y)"),
        (lambda: f + x - y, "((x / y) + x + -1*y)"),
        (lambda: f + x - g, "((x / y) + x + - (abs (z)))"),
        (lambda: f + x - x * y, "((x / y) + x + -1*x*y)"),
        (lambda: f + g - (x + 1), "((x / y) + abs (z) + -1 - x)"),
        # other differences are binary, long chains of them are not
        (lambda: f - x, "((x / y) - x)"),
        (lambda: x - f, "(x - (x / y))"),
        (lambda: 0 - f, "- ((x / y))"),
        (lambda: f - g - x, "(((x / y) - abs (z)) - x)"),
        (lambda: f - g - x - y - 2, "((((x / y) - abs (z)) - x) + -1*y + -2)"),
        # products nest; *= extends them
        (lambda: f * x, "((x / y) * x)"),
        (lambda: x * f, "((x / y) * x)"),
        (lambda: 2 * f, "((x / y) * 2)"),
        (lambda: f * x * y, "(((x / y) * x) * y)"),
        (lambda: f * -1, "- ((x / y))"),
        (lambda: (f * x).__imul__(y), "((x / y) * x * y)"),
        (lambda: (f * x).__imul__(-1), "- (((x / y) * x))"),
        (lambda: f.__imul__(x), "((x / y) * x)"),
        # quotients, powers and the rest
        (lambda: f / 2, "((x / y) / 2)"),
        (lambda: f / x, "((x / y) / x)"),
        (lambda: f**3, "((x / y) ** 3)"),
        (lambda: 2**f, "(2 ** (x / y))"),
        (lambda: -f, "- ((x / y))"),
        (lambda: abs(f), "abs ((x / y))"),
        (lambda: f & x, "and ((x / y), x)"),
        (lambda: x | y | z, "or (or (x, y), z)"),
    ],
)
def test_forms(make, text):
    assert str(make()) == repr(make()) == text


@pytest.mark.parametrize("same", [lambda: f + 0, lambda: 0 + f, lambda: f + 0.0])
def test_zero_added_gives_the_object_itself(same):
    assert same() is f


def test_trivial_factors_exponents_and_divisors():
    assert f * 0 == 0.0 and isinstance(f * 0, float)
    assert f**0 == 1.0 and 1**f == 1.0
    for copy in (f * 1, 1 * f, f - 0, f / 1, f**1, (f * x).__imul__(1)):
        assert type(copy) is NONLINEAR
        assert copy is not f


def accumulate_in_place(terms):
    total = 0
    for term in terms:
        total += term
    return total


def subtract(terms):
    total = x
    for term in terms:
        total = total - term
    return total


@pytest.mark.parametrize("build", [sum, accumulate_in_place, subtract])
def test_long_sums_stay_flat(build):  # and would have no end if a term took time that grows
    terms = [(v + i) ** 3 for i, v in enumerate([x, y, z, x] * 25_000)]
    point = {x: 1.0, y: 2.0, z: 3.0}
    value, expected = (nalora.evaluate(o, solution=point) for o in (build(terms), terms))
    assert value == pytest.approx(1 - sum(expected) if build is subtract else sum(expected))


def nested(depth):
    tree = f
    for _ in range(depth):
        tree = abs(tree)
    return tree


def test_printing_stops_at_the_depth_limit():
    assert "[MAX RECURS LEV]" not in str(nested(62))
    text = str(nested(64))
    assert text.count("abs (") == 64
    assert text.endswith("([MAX RECURS LEV] / [MAX RECURS LEV])" + 64 * ")")


def test_chains_of_a_million_nodes_are_printed_and_released():
    tree = nested(1_000_000)
    assert str(tree).count("abs") == 65
    assert tree.extractLinear() == ([], [])
    copied = (tree <= 1).copy()
    constraint = nalora.constraint(body=tree, ub=1)
    del tree, copied
    constraint.name = nested(100_000)
    del constraint


@pytest.mark.parametrize(
    ("levels", "step"),
    [
        (40, lambda f: f * f),
        (40, lambda f: f.__imul__(f)),
        (40, lambda f: f / f),
        (40, lambda f: f + f),
        (40, lambda f: nalora.Sum(f, f, 1)),
        (40, lambda f: nalora.max(f, f)),
        (40, lambda f: nalora.user(lambda a, b: a - b / 2, f, f)),
        (28, lambda f: nalora.sin(f) * f),
        (20, lambda f: nalora.sin(f) + f * f),
        # the sums are not shared, what they share is their arguments
        (28, lambda f: (f + x) * (f + y)),
        (2, lambda f: nalora.max(*[f] * 100_000)),
    ],
)
def test_trees_that_stand_for_huge_ones_are_handled_as_they_are_stored(levels, step):
    def work():
        tree, value, point = x / y + x - 1, 1.0, {x: 1.0, y: 1.0}
        for _ in range(levels):
            tree = step(tree)
            value = nalora.evaluate(step(z), solution={**point, z: value})
        assert repr(nalora.evaluate(tree, solution=point)) == repr(value)
        assert 50_000 < len(str(tree)) < 50_100 and str(tree).endswith(" ...")
        assert sum(tree.extractLinear()[1]) == (2**40 if 2**40 <= value < 2**42 else 0)
        with pytest.raises(nalora.ModelError, match=r"formula is too long|tree depth"):
            nalora.naloralib._formula(nalora.problem(x, y), (tree <= 1).copy().body)

    assert growth(work, 1, 1) < 20


def test_a_sum_shared_with_its_own_terms_is_released():
    def work():
        total = f + g + x
        total = total + nalora.exp(total)
        return [total <= k for k in range(5)]

    assert growth(work) < 20


def test_extraction_looks_through_sums_and_differences():
    assert (x**5 - 7 * x).extractLinear() == ([x], [-7.0])
    assert (x**4 + abs(y)).extractLinear() == ([], [])
    e = x**5 - 7 * x * y - 4 * x * y * z
    assert e.extractQuadratic() == ([x], [y], [-7.0])
    e = f + (2 * x - y + 3 * x * z) - (x + g)
    assert e.extractLinear() == ([x, y, x], [2.0, -1.0, -1.0])
    assert e.extractQuadratic() == ([x], [z], [3.0])
    assert (-(f + 2 * x)).extractLinear() == ([x], [-2.0])
    deep = f
    for _ in range(100_000):
        deep = -(deep + x)
    assert len(deep.extractLinear()[0]) == 100_000
