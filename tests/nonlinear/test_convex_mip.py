"""Convex mixed integer models with formulas and quadratic terms, from model to solution."""

import itertools
import math
import threading
import time

import pytest

import nalora

pytestmark = pytest.mark.usefixtures("silent")

GLOBAL = "nlp_globally_optimal"


@pytest.mark.parametrize("sense", [nalora.minimize, nalora.maximize])
def test_formulas_against_all_integer_points(sense):
    def value(x, y, z):
        return math.exp(0.5 * x - 1) + (y - 1.6) ** 2 - 3 * math.log(1 + x + y) + 0.3 * z**4

    def holds(x, y, z):
        return math.sqrt(x + 1) + math.sqrt(z + 2) >= 2.8 and x + y + z <= 5

    x, y, z = (nalora.var(name, vartype=nalora.integer, ub=4) for name in "xyz")
    p = nalora.problem(x, y, z, x + y + z <= 5, sense=sense)
    p.addConstraint(nalora.sqrt(x + 1) + nalora.sqrt(z + 2) >= 2.8)
    convex = nalora.exp(0.5 * x - 1) + (y - 1.6) ** 2 - 3 * nalora.log(1 + x + y) + 0.3 * z**4
    p.setObjective(sense * convex)
    p.solve()
    assert p.getProbStatusString() == GLOBAL
    points = [q for q in itertools.product(range(5), repeat=3) if holds(*q)]
    best = min(points, key=lambda q: value(*q))
    assert p.getObjVal() == pytest.approx(sense * value(*best), abs=1e-6)
    assert tuple(p.getSolution([x, y, z])) == best
    with pytest.raises(nalora.SolverError):
        p.getDual()


def test_no_integer_point_and_changes_afterwards():
    x, y = nalora.var(vartype=nalora.integer, ub=9), nalora.var(ub=9)
    p = nalora.problem(x, y, nalora.exp(x) <= 15, x + y == 6.5)
    row = x >= 2.5
    p.addConstraint(row)
    p.setObjective(y)
    p.solve()
    assert p.getProbStatusString() == "nlp_infeasible"
    p.delConstraint(row)
    p.solve()
    assert p.getSolution([x, y]) == pytest.approx([2, 4.5], abs=1e-6)


def portfolio(n, held):
    share = [nalora.var(ub=0.5) for _ in range(n)]
    bought = [nalora.var(vartype=nalora.binary) for _ in range(n)]
    p = nalora.problem(share, bought, nalora.Sum(share) == 1, nalora.Sum(bought) <= held)
    p.addConstraint(s <= 0.5 * b for s, b in zip(share, bought))
    factors = [
        nalora.Sum(math.sin(7 * k + 3 * j * (k + 1)) * s for j, s in enumerate(share))
        for k in range(4)
    ]
    own = nalora.Sum((0.05 + 0.04 * math.cos(5 * j)) * s**2 for j, s in enumerate(share))
    p.setObjective(100 * own + nalora.Sum(10 * f**2 for f in factors))
    return p, share, bought


def test_quadratic_objective_with_a_cardinality_row():
    p, share, bought = portfolio(30, 5)
    p.solve()
    assert p.getProbStatusString() == "mip_optimal"
    assert p.attributes.bestbound == pytest.approx(p.getObjVal(), rel=2e-4)
    shares = p.getSolution(share)
    assert sum(shares) == pytest.approx(1, abs=1e-6)
    assert sum(s > 1e-9 for s in shares) <= 5
    assert all(b in (0, 1) for b in p.getSolution(bought))


def test_interrupt_from_another_thread():
    p, _, _ = portfolio(150, 10)
    p.controls.relgap = 0
    asked = []

    def interrupt():
        asked.append(time.monotonic())
        p.interrupt(nalora.stop_user)

    timer = threading.Timer(0.5, interrupt)
    timer.start()
    p.solve()
    ended = time.monotonic()
    timer.join()
    assert ended - asked[0] < 1
    assert p.getProbStatusString() in ("mip_solution", "mip_no_sol_found")


def test_what_is_not_convex_is_refused():
    x, y = nalora.var(vartype=nalora.integer, ub=9), nalora.var(ub=9)
    p = nalora.problem(x, y, nalora.sin(x) + y <= 3)
    p.setObjective(x)
    with pytest.raises(nalora.SolverError, match="not convex"):
        p.solve()
