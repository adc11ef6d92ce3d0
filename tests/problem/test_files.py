"""Reading and writing model files."""

import pathlib
import re

import pytest
from model_file import read_back

import nalora

INF = nalora.infinity


def full_model():
    x, y, z = nalora.var("x", ub=4), nalora.var("y", lb=-INF), nalora.var("z", vartype=1)
    s = nalora.var("s", ub=9, threshold=2, vartype=nalora.semicontinuous)
    p = nalora.problem(x, y, z, s, name="full")
    for i, (lb, ub) in enumerate([(1, INF), (-INF, 2), (3, 3), (-1, 5), (-INF, INF)]):
        p.addConstraint(nalora.constraint(body=x + 2 * y + s, lb=lb, ub=ub, name=f"c{i}"))
    p.addConstraint(nalora.constraint(body=x * x + x * y + y * y, ub=9, name="q"))
    p.addIndicator(z == 1, nalora.constraint(body=x, lb=1, name="i"))
    p.addSOS(nalora.sos([x, y], [2, 1], name="set", type=2))
    p.setObjective(x + x * x + 3, sense=nalora.maximize)
    return p


@pytest.mark.parametrize("name", ["m.mps", "m.lp", "m.mps.gz", "m.lp.gz"])
def test_what_is_written_is_read(tmp_path, name):
    p = full_model()
    path = tmp_path / name
    assert p.write(str(path)) is None
    q = nalora.problem(nalora.var("old"), name="other")
    old = q.getVariable(0)
    assert q.read(path) is None
    assert read_back(q, tmp_path) == read_back(p, tmp_path)

    assert [v.name for v in q.getVariable()] == ["x", "y", "z", "s"]
    assert [(v.lb, v.ub, v.vartype) for v in q.getVariable()] == [
        (0, 4, nalora.continuous),
        (-INF, INF, nalora.continuous),
        (0, 1, nalora.binary),
        (0, 9, nalora.semicontinuous),
    ]
    assert q.getVariable(3).threshold == 2
    rows = {c.name: c for c in q.getConstraint()}
    bounds = [(rows[f"c{i}"].lb, rows[f"c{i}"].ub) for i in range(5)]
    assert bounds == [(1, INF), (-INF, 2), (3, 3), (-1, 5), (-INF, INF)]
    with pytest.raises(nalora.InterfaceError, match="Incorrect member name"):
        _ = rows["c0"].body
    assert [s.name for s in q.getSOS()] == ["set"]
    with pytest.raises(nalora.ModelError, match="not in problem"):
        q.getIndex(old)
    # The new objects serve in new constraints.
    q.addConstraint(q.getVariable(0) + q.getVariable(3) <= 1)
    assert q.getIndex(q.getVariable(3)) == 3


def test_flags_choose_the_format(tmp_path):
    p = full_model()
    p.write(tmp_path / "a.txt", "l")
    p.write(tmp_path / "b.txt", flags="lz")
    assert "\nsubject to" in (tmp_path / "a.txt").read_text().lower()
    assert (tmp_path / "b.txt").read_bytes()[:2] == b"\x1f\x8b"
    q = nalora.problem()
    q.read(filename=str(tmp_path / "a.txt"), options="l")
    assert q.attributes.cols == 4
    p.write(tmp_path / "c.txt", "g")
    assert (tmp_path / "c.txt").read_text().startswith("nalora model 1\n")
    q.read(tmp_path / "c.txt")
    assert read_back(q, tmp_path) == read_back(p, tmp_path)


def test_files_that_cannot_be_read_change_nothing(tmp_path):
    p = full_model()
    before = read_back(p, tmp_path)
    variables, rows = p.getVariable(), p.getConstraint()
    (tmp_path / "bad.mps").write_text("NAME\nROWS\n N obj\n L c\nCOLUMNS\n    x  c  one\nENDATA\n")
    (tmp_path / "cut.mps").write_text("NAME\nROWS\n N obj\n L c\nCOLUMNS\n    x  c  1\n")
    (tmp_path / "dir.mps").mkdir()
    for name, text in [
        ("bad.mps", r"bad\.mps:6: "),
        ("cut.mps", r"cut\.mps"),
        ("dir.mps", r"dir\.mps"),
        ("missing.mps", r"missing\.mps"),
    ]:
        with pytest.raises(nalora.SolverError, match=text):
            p.read(tmp_path / name)
    for filename in (3, None, ["a.mps"]):
        with pytest.raises(TypeError):
            p.read(filename)
    with pytest.raises(ValueError, match="null"):
        p.read("a\0b")
    with pytest.raises(TypeError):
        p.read("a.mps", 3)
    assert read_back(p, tmp_path) == before
    for old, new in ((variables, p.getVariable()), (rows, p.getConstraint())):
        assert all(a is b for a, b in zip(old, new))


def test_files_that_cannot_be_written(tmp_path):
    p = full_model()
    for path in (tmp_path / "missing" / "m.mps", tmp_path, "/dev/full"):
        with pytest.raises(nalora.SolverError, match=re.escape(str(path))):
            p.write(path)
    p.addVariable(nalora.var("two words"))
    with pytest.raises(nalora.SolverError, match="two words"):
        p.write(tmp_path / "m.mps")


def test_names_outside_ascii(tmp_path):
    path = tmp_path / "größe.mps"
    p = nalora.problem(nalora.var("größe"))
    p.write(path)
    assert path.exists()
    q = nalora.problem()
    q.read(str(path))
    assert q.getVariable(0).name == "größe"
    path.write_bytes(path.read_bytes().replace("ö".encode(), b"\xf6"))
    q.read(pathlib.Path(path))
    assert q.getVariable(0).name == "gr\ufffdße"
