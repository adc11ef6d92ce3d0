"""Columns on which nothing depends, in every class of problem."""

import pytest

import nalora
from nalora import var

pytestmark = pytest.mark.usefixtures("silent")

CLASSES = {
    "linear": (lambda x: x, nalora.continuous),
    "mixed integer": (lambda x: x, nalora.integer),
    "quadratic": (lambda x: x * x + x, nalora.continuous),
    "convex mixed integer": (lambda x: x * x + x, nalora.integer),
    "nonlinear": (nalora.exp, nalora.continuous),
    "local": (lambda x: nalora.exp(x) + nalora.sin(x) ** 3, nalora.continuous),
    "nonlinear mixed integer": (nalora.exp, nalora.integer),
    "nonsmooth": (lambda x: nalora.abs(x), nalora.continuous),
}


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
@pytest.mark.parametrize("kind", CLASSES)
def test_values_of_unused_columns(kind, sense):
    function, vartype = CLASSES[kind]
    x = var(lb=1, ub=4, vartype=vartype)
    # By the value expected; discrete ones only where the class is one with discrete columns.
    aside, started, outside, zero = var(lb=-3, ub=8), var(lb=-9), var(ub=1), var(lb=-5, ub=5)
    unused = {var(lb=-nalora.infinity): 0, var(lb=-7, ub=3182): 0, var(ub=-2.5, lb=-9): -2.5}
    unused.update({aside: 0, started: 3.25, outside: 1, zero: 0})
    if vartype == nalora.integer:
        unused[var(lb=0.5, ub=9, vartype=nalora.integer)] = 1
        unused[var(ub=9, threshold=2, vartype=nalora.semicontinuous)] = 0
    p = nalora.problem(x, list(unused), sense=sense)
    p.addConstraint(x + 0 * zero >= 1.5, x + 0 * nalora.exp(zero) <= 3)
    p.setObjective(sense * function(x))
    p.chgvar(started, initvalue=3.25)
    p.chgvar(outside, initvalue=7)
    p.solve()
    best = 2 if vartype == nalora.integer else 1.5
    assert p.getSolution(x) == pytest.approx(best, abs=1e-5)
    assert p.getSolution(list(unused)) == list(unused.values())
