"""Reading solutions by object, index and name."""

import time

import numpy as np
import pytest
from conftest import allocated
from model_file import fails

import nalora


@pytest.fixture
def lp():
    """min x + 2 y, x + y >= 4, x <= 3 as a row, y <= 5: x = 3, y = 1."""
    x, y = nalora.var("x"), nalora.var("y", ub=5)
    demand = nalora.constraint(body=x + y, lb=4, name="demand")
    limit = nalora.constraint(body=x, ub=3, name="limit")
    idle = nalora.constraint(body=x - y, lb=-9, name="idle")
    p = nalora.problem(x, y, demand, limit, idle, x + 2 * y + 10)
    p.solve()
    return p, x, y, demand, limit, idle


def test_all_values_and_single_ones(lp):
    p, x, y, demand, limit, idle = lp
    assert p.getObjVal() == pytest.approx(15)
    assert p.getSolution() == pytest.approx([3, 1])
    assert p.getSlack() == pytest.approx([0, 0, -11])
    assert p.getDual() == pytest.approx([2, -1, 0])
    assert p.getRCost() == pytest.approx([0, 0])
    for getter, key, value in [
        (p.getSolution, y, 1),
        (p.getSolution, 0, 3),
        (p.getSolution, np.intc(1), 1),
        (p.getSolution, "y", 1),
        (p.getSolution, x * y + 2 * x + 1, 10),
        (p.getDual, demand, 2),
        (p.getDual, "limit", -1),
        (p.getDual, b"limit", -1),
        (p.getSlack, 2, -11),
        (p.getSlack, idle, -11),
        (p.getRCost, x, 0),
        (p.getRCost, True, 0),
    ]:
        result = getter(key)
        assert type(result) is float
        assert result == pytest.approx(value, abs=1e-9)
    assert limit.name == "limit"


def test_results_have_the_shape_of_the_arguments(lp):
    p, x, y, demand, limit, _ = lp
    assert p.getSolution([x, (y, x + y)]) == [pytest.approx(3), pytest.approx((1, 4))]
    assert p.getSolution(x, [y]) == (pytest.approx(3), [pytest.approx(1)])
    assert p.getSolution({"a": x, "b": [0]}) == {"a": pytest.approx(3), "b": [pytest.approx(3)]}
    assert p.getSolution([x, (y, {"a": "x"})], flatten=True) == pytest.approx([3, 1, 3])
    assert p.getSolution(x, flatten=True) == pytest.approx(3)
    assert p.getSolution([x], flatten=False) == [pytest.approx(3)]
    assert p.getDual([demand]) == pytest.approx([2])
    assert p.getDual(np.array([demand], dtype=object)) == pytest.approx([2])
    assert p.getDual(demand, [(limit,), {"a": 0}], iter(["limit"])) == pytest.approx([2, -1, 2, -1])
    assert p.getSlack([]) == []


def test_arguments_that_are_refused(lp):
    p, x, _, demand, limit, _ = lp
    stranger = nalora.var("stranger")
    out_of_range = "getDual() contains an out-of-range index"
    for call, text, error in [
        (lambda: p.getDual(3), out_of_range, nalora.InterfaceError),
        (lambda: p.getDual([0, -1]), out_of_range, nalora.InterfaceError),
        (lambda: p.getDual(2**31), "", OverflowError),
        (lambda: p.getSolution(2), "getSolution() contains an out-of-range", nalora.InterfaceError),
        (lambda: p.getDual(x), "Invalid constraint object x", nalora.ModelError),
        (lambda: p.getRCost(demand), "Invalid variable object demand", nalora.ModelError),
        (lambda: p.getRCost(1.0), "Invalid variable object 1.0", nalora.ModelError),
        (lambda: p.getRCost([stranger]), "Variable stranger not in problem", nalora.ModelError),
        (lambda: p.getSolution(stranger), "Object does not belong to problem", nalora.ModelError),
        (lambda: p.getSlack("x"), "", nalora.SolverError),
        (lambda: p.getSlack("a\0b"), "", ValueError),
        (lambda: p.getSolution(x, depth=2), "unexpected keyword", TypeError),
        (lambda: p.getDual(index=0), "", TypeError),
    ]:
        with fails(text, error):
            call()
    p.delConstraint(limit)
    p.solve()
    with fails("Constraint limit not in problem", nalora.ModelError):
        p.getDual(limit)


def test_before_and_without_a_solution():
    x = nalora.var("x")
    p = nalora.problem(x, x >= 1)
    assert p.getProbStatus() == nalora.lp_unstarted
    assert p.getProbStatusString() == "lp_unstarted"
    for getter, text in [
        (p.getSolution, ""),
        (p.getSlack, "Could not get constraints' slack"),
        (p.getDual, "Could not get dual solution"),
        (p.getRCost, "Could not retrieve reduced costs"),
    ]:
        with fails(text, nalora.SolverError):
            getter()
        with fails(text, nalora.SolverError):
            getter(0)


def test_mixed_integer_problems_have_no_duals():
    x = nalora.var("x", vartype=nalora.integer, ub=9)
    c = 2 * x <= 7
    p = nalora.problem(x, c, x, sense=nalora.maximize)
    assert p.getProbStatusString() == "mip_not_loaded"
    p.solve()
    assert p.getProbStatusString() == "mip_optimal"
    assert (p.getSolution(x), p.getSlack(c)) == (pytest.approx(3), pytest.approx(1))
    with fails("Cannot retrieve dual variables in a MIP", nalora.SolverError):
        p.getDual()
    with fails("Cannot retrieve reduced cost in a MIP", nalora.SolverError):
        p.getRCost(x)


def test_many_values_are_read_in_one_pass():
    p = nalora.problem([nalora.var(ub=3) for _ in range(100_000)])
    p.solve()

    def seconds():
        start = time.perf_counter()
        values = p.getSolution()
        assert len(values) == 100_000
        return time.perf_counter() - start

    assert min(seconds() for _ in range(7)) < 0.05
    before = allocated()
    for _ in range(3):
        p.getSolution()
    assert allocated() - before < 100
