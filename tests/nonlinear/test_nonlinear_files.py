"""Nonlinear models in files."""

import gzip
import math

import numpy as np
import pytest

import nalora

pytestmark = pytest.mark.usefixtures("silent")

INF = nalora.infinity


def model():
    x, y = nalora.var("x", lb=-10, ub=10), nalora.var("größer als", lb=-10, ub=10)
    z = nalora.var(lb=0, ub=5)
    p = nalora.problem(x, y, z, name='a "small" model')
    p.addConstraint(nalora.constraint(body=nalora.exp(x) + y * z - x, ub=4, name="a row"))
    p.addConstraint(x + y >= -3)
    p.addConstraint(nalora.constraint(body=x * x + nalora.sin(y), lb=-1, ub=8, name="range"))
    p.setObjective((x - 1) ** 4 + nalora.exp(y) + nalora.log(z + 1) - 3 * y + 2)
    p.chgvar(x, initvalue=0.5)
    p.chgvar(z, initvalue=1.25)
    return p


def text(p, path):
    p.write(path, "g")
    return path.read_text(encoding="utf-8")


def solved(p):
    p.solve()
    assert p.attributes.nslp_status in (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal)
    return p.getObjVal()


@pytest.mark.parametrize("name", ["m.nlm", "m.nlm.gz", "m", "m.mps"])
def test_what_is_written_is_read(tmp_path, name):
    p = model()
    path = tmp_path / name
    assert p.write(str(path)) is None
    q = nalora.problem(nalora.var("old"), name="other")
    assert q.read(path) is None
    assert text(q, tmp_path / "q") == text(p, tmp_path / "p")

    assert [v.name for v in q.getVariable()] == [v.name for v in p.getVariable()]
    assert [(v.lb, v.ub) for v in q.getVariable()] == [(-10, 10), (-10, 10), (0, 5)]
    bounds = [(c.lb, c.ub) for c in q.getConstraint()]
    assert bounds == [(-INF, 4), (-3, INF), (-1, 8)]
    assert [c.name for c in q.getConstraint()] == [c.name for c in p.getConstraint()]
    with pytest.raises(nalora.InterfaceError, match="Incorrect member name"):
        _ = q.getConstraint(0).body
    assert q.attributes.nslp_nonlinearconstraints == 2
    assert q.attributes.nslp_nonlinearobjective == 1
    assert solved(q) == pytest.approx(solved(p), abs=1e-7)
    assert q.getSolution() == pytest.approx(p.getSolution(), abs=1e-6)


def test_compression_and_names_without_ending(tmp_path):
    p = model()
    p.write(tmp_path / "a.nlm", "z")
    p.write(tmp_path / "b.nlm.gz")
    p.write(tmp_path / "c.nlm")
    plain = (tmp_path / "c.nlm").read_bytes()
    assert gzip.decompress((tmp_path / "a.nlm").read_bytes()) == plain
    for name in ("a", "b", "c"):
        q = nalora.problem()
        q.read(tmp_path / name)
        assert text(q, tmp_path / "q").encode() == plain
    # A name says what is in the file, unless a flag does.
    linear = nalora.problem(nalora.var("two words"), name="linear")
    linear.write(tmp_path / "d.nlm")
    linear.write(tmp_path / "e.txt", "g")
    assert (tmp_path / "d.nlm").read_bytes() == (tmp_path / "e.txt").read_bytes()
    q.read(tmp_path / "d.nlm")
    assert q.getVariable(0).name == "two words"
    assert (q.attributes.nslp_nonlinearconstraints, q.attributes.nslp_nonlinearobjective) == (0, 0)
    with pytest.raises(nalora.SolverError, match="exclude each other"):
        linear.write(tmp_path / "f", "gl")
    with pytest.raises(nalora.SolverError, match="unknown option 'k'"):
        linear.write(tmp_path / "f", "gk")
    with pytest.raises(nalora.SolverError, match="exclude each other"):
        p.write(tmp_path / "f", "l")
    assert not (tmp_path / "f").exists()


def test_a_model_that_was_read_can_be_changed_and_copied(tmp_path):
    p = model()
    p.write(tmp_path / "m.nlm")
    q = nalora.problem()
    q.read(tmp_path / "m.nlm")
    best = solved(q)

    c = q.copy()
    assert text(c, tmp_path / "c") == text(q, tmp_path / "q")
    assert solved(c) == pytest.approx(best, abs=1e-7)

    x, y, z = q.getVariable()
    q.chgvar(x, initvalue=1.0)
    q.delConstraint(q.getConstraint(0))
    q.addConstraint(nalora.exp(x) + y * z - x <= 4)
    assert solved(q) == pytest.approx(best, abs=1e-6)
    q.delVariable(z)
    assert "log(1 + 0)" in text(q, tmp_path / "q")
    q.setObjective(x + y)
    q.delConstraint([0, 1, 2])
    assert solved_linear(q) == -20
    # The copy is a model of its own.
    assert solved(c) == pytest.approx(best, abs=1e-7)


def solved_linear(p):
    p.solve()
    assert p.getProbStatusString() == "lp_optimal"
    return p.getObjVal()


def test_reading_an_older_format_drops_formulas(tmp_path):
    x = nalora.var("x", ub=3)
    nalora.problem(x, x, sense=nalora.maximize).write(tmp_path / "lp.mps")
    p = model()
    p.addConstraint(nalora.user(lambda a: a, p.getVariable(0)) <= 1)
    p.read(tmp_path / "lp.mps")
    assert (p.attributes.nslp_nonlinearconstraints, p.attributes.nslp_nonlinearobjective) == (0, 0)
    assert solved_linear(p) == 3


def test_user_functions_are_refused(tmp_path):
    p = model()
    user = nalora.user(math.sin, p.getVariable(0)) <= 1
    p.addConstraint(user)
    with pytest.raises(nalora.SolverError, match="user function"):
        p.write(tmp_path / "m.nlm")
    assert not list(tmp_path.iterdir())
    p.delConstraint(user)
    p.write(tmp_path / "m.nlm")


def test_bad_files_change_nothing(tmp_path):
    p = model()
    before = text(p, tmp_path / "m.nlm")
    variables = p.getVariable()
    lines = before.splitlines()
    row = next(i for i, line in enumerate(lines) if "exp(x)" in line and "sin" not in line)
    (tmp_path / "bad.nlm").write_text("\n".join([*lines[:row], "  formula exp(x", *lines[row:]]))
    (tmp_path / "cut.nlm").write_text("\n".join(lines[:-1]) + "\n")
    (tmp_path / "mps.nlm").write_text("NAME\nROWS\n N obj\nCOLUMNS\nENDATA\n")
    for name, message in [
        ("bad.nlm", rf"bad\.nlm:{row + 1}: a bracket is not closed"),
        ("cut.nlm", r"cut\.nlm:\d+: the file ends"),
        ("mps.nlm", r"mps\.nlm:1: "),
        ("missing.nlm", r"missing\.nlm"),
    ]:
        with pytest.raises(nalora.SolverError, match=message):
            p.read(tmp_path / name)
        # The error is that of the last call, whichever side it was on.
        with pytest.raises(nalora.SolverError, match="no/folder"):
            p.write(tmp_path / "no" / "folder")
    assert text(p, tmp_path / "m.nlm") == before
    assert all(a is b for a, b in zip(variables, p.getVariable()))


def test_a_large_model(tmp_path):
    x = nalora.vars(3000, name="x", lb=-1, ub=1)
    terms = [nalora.exp(x[i]) * nalora.sin(x[i + 1]) + x[i] ** 3 for i in range(2999)]
    p = nalora.problem(x, nalora.Sum(terms) <= 10, nalora.Sum(v * v for v in x))
    p.write(tmp_path / "m.nlm")
    q = nalora.problem()
    q.read(tmp_path / "m.nlm")
    assert text(q, tmp_path / "q") == (tmp_path / "m.nlm").read_text()
    assert np.allclose(solved(q), 0, atol=1e-6)
