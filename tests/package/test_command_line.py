"""python -m nalora as a user runs it: in a process of its own, judged by output and exit status."""

import subprocess
import sys
from pathlib import Path

import pytest

DATA = Path(__file__).resolve().parents[2] / "examples" / "data"

INFEASIBLE = "Minimize\n obj: x\nSubject To\n c1: x >= 2\n c2: x <= 1\nEnd\n"


def nalora(*arguments, **options):
    command = [sys.executable, "-m", "nalora", *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True, timeout=120, **options)


def shown(output, label):
    """The value behind a label such as 'status' in the report."""
    (line,) = [line for line in output.splitlines() if line.startswith(label + " ")]
    return line.split(None, 1)[1]


@pytest.mark.parametrize(
    ("file", "status", "objective"),
    [("afiro.mps", "lp_optimal", -464.7531428571), ("p0033.mps", "mip_optimal", 3089.0)],
)
def test_known_models(file, status, objective, tmp_path):
    solution = tmp_path / "out.sol"
    run = nalora(DATA / file, "--quiet", "--solution", solution)
    assert (run.returncode, run.stderr) == (0, "")
    assert shown(run.stdout, "status") == status
    assert float(shown(run.stdout, "objective")) == pytest.approx(objective, rel=1e-9)

    lines = solution.read_text().splitlines()
    values = dict(line.split("\t") for line in lines if not line.startswith("#"))
    nonzero = {name for name, value in values.items() if abs(float(value)) > 1e-9}
    assert nonzero
    printed = [line.split() for line in run.stdout.splitlines() if line.startswith("  ")]
    assert {name for name, _ in printed} == nonzero
    for name, value in printed:
        assert float(value) == pytest.approx(float(values[name]), rel=1e-9)


def test_exit_status_of_an_infeasible_model(tmp_path):
    model = tmp_path / "infeasible.lp"
    model.write_text(INFEASIBLE)
    run = nalora(model, "--quiet")
    assert run.returncode == 1
    assert shown(run.stdout, "status") == "lp_infeas"
    assert "objective" not in run.stdout


def test_controls_take_effect():
    run = nalora(DATA / "p0033.mps", "--controls", "timelimit=0", "--quiet")
    assert (run.returncode, run.stderr) == (1, "")
    assert shown(run.stdout, "status") in {"mip_no_sol_found", "mip_solution", "mip_lp_optimal"}


@pytest.mark.parametrize(
    ("arguments", "complaint"),
    [
        (["missing.mps"], "missing.mps"),
        ([DATA], "directory"),
        ([DATA / "stigler_foods.csv"], "stigler_foods.csv"),
        ([DATA / "afiro.mps", "--controls", "miptol"], "NAME=VALUE"),
        ([DATA / "afiro.mps", "--controls", "no_such_control=1"], "no_such_control"),
        ([DATA / "afiro.mps", "--controls", "miptol=small"], "miptol takes a number"),
        ([DATA / "afiro.mps", "--controls", "miptol=-1"], "miptol"),
        ([DATA / "afiro.mps", "--solution", "no/such/folder/out.sol"], "no/such/folder"),
    ],
)
def test_user_errors_are_one_line(arguments, complaint):
    run = nalora(*arguments)
    assert run.returncode == 2
    assert run.stderr.startswith("nalora: error: ")
    assert run.stderr.count("\n") == 1
    assert complaint in run.stderr
