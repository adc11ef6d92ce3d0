"""Reading solutions by object, index and name."""

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


def solved_chain(kind, n):
    """A problem of a class whose values differ from column to column and row to row."""
    whole = nalora.integer if kind == "MIP" else nalora.continuous
    x = [nalora.var(f"x{i}", lb=i % 3, ub=9 + i % 5, vartype=whole) for i in range(n)]
    rows = [nalora.constraint(x[i] + 2 * x[i + 1] >= 4 + i % 7, name=f"r{i}") for i in range(n - 1)]
    cost = nalora.Sum((1 + i % 4) * v for i, v in enumerate(x))
    extra = {"QP": x[0] * x[0] + x[1] * x[1], "NLP": nalora.exp(x[0])}.get(kind, 0)
    p = nalora.problem(x, rows, cost + extra)
    p.solve()
    return p, x, rows


@pytest.mark.parametrize("n", [9, 130])
@pytest.mark.parametrize("kind", ["LP", "MIP", "QP", "NLP"])
def test_a_value_read_alone_is_the_one_among_all(kind, n):
    p, x, rows = solved_chain(kind, n)
    getters = [(p.getSolution, x), (p.getSlack, rows)]
    if kind != "MIP":
        getters += [(p.getDual, rows), (p.getRCost, x)]

    def compare():
        for getter, objects in getters:
            values = getter()
            assert len(set(values)) > 1
            for i in [0, n - 2, n // 2, *range(5)]:
                for key in (objects[i], i, objects[i].name):
                    assert getter(key) == values[i]
            some = objects[:3]  # few are read one by one, many at once
            assert getter(some) == values[:3] and getter(objects) == values[: len(objects)]
        v, last = p.getSolution(), x[-1]
        assert p.getSolution(2 * x[3] - last) == pytest.approx(2 * v[3] - v[-1])
        for e in (x[3] * last + last * last, nalora.sin(x[3]) + last, nalora.Sum(x)):
            assert p.getSolution(e) == nalora.evaluate(e, problem=p, solution=v)
            assert p.getSolution(e) == nalora.evaluate(e, problem=p)

    compare()
    before = allocated()
    for _ in range(50):
        assert p.getSolution(x[-1]) == p.getSolution(n - 1) and p.getSolution() and p.getSlack()
    assert allocated() - before < 50
    p.chgbounds([x[0]], ["L"], [2])
    for getter, objects in getters:
        for key in (objects[0], 0, objects[:2], 2 * x[0]):
            with pytest.raises(nalora.SolverError):
                getter(key)
    p.solve()
    compare()
    if kind == "NLP":
        return  # finding nothing takes it long
    p.addConstraint(x[0] <= 1)  # its lower bound is 2
    p.solve()
    for getter, objects in getters:
        with pytest.raises(nalora.SolverError):
            getter(objects[0])


def test_code_that_runs_during_a_read_does_not_change_what_is_read():
    p, x, _ = solved_chain("LP", 130)

    def disturb(value=None):
        p.chgbounds([x[0]], ["L"], [p.getSolution(x[0]) + 1])
        p.solve()
        return value

    def leaves():
        yield x[0]
        disturb()
        yield x[0]

    for read, wanted in [
        (lambda: p.getSolution(nalora.user(disturb, x[0]) - x[0]), lambda v: 0),
        (lambda: p.getSolution(leaves(), flatten=True), lambda v: [v, v]),
        (lambda: p.getSolution([leaves()], flatten=True), lambda v: [v, v]),
        (lambda: nalora.evaluate(nalora.user(disturb, x[0]) - x[0], problem=p), lambda v: 0),
    ]:
        value = p.getSolution(x[0])
        assert read() == wanted(value)
        assert p.getSolution(x[0]) == value + 1
