"""The package around the compiled module: names, version, examples, company of other packages."""

import importlib.util
import re
import subprocess
import sys
from pathlib import Path

import pytest

import nalora

ROOT = Path(__file__).resolve().parents[2]


def python(*arguments):
    run = subprocess.run(
        [sys.executable, *map(str, arguments)], capture_output=True, text=True, timeout=120
    )
    assert run.returncode == 0, run.stderr
    return run.stdout


def test_names_are_those_of_the_compiled_module():
    for name in nalora.__all__:
        assert getattr(nalora, name) is getattr(nalora.naloralib, name)
    assert {"var", "problem", "controls", "SolverError"} <= set(nalora.__all__)
    assert nalora.var.__module__ == "nalora"
    assert re.fullmatch(r"\d+\.\d+\.\d+(\.dev\d+|rc\d+)?", nalora.__version__)


def test_diet_example():
    output = python(ROOT / "examples" / "diet.py")
    total = re.search(r"^total\s+([\d.]+)$", output, re.MULTILINE)
    assert float(total.group(1)) == pytest.approx(39.66)
    # The duals of the binding nutrients explain the whole bill, as nothing else is binding.
    rows = re.findall(r"^\w[\w ]*\([\w ]+\) +([\d.]+) +([\d.]+)$", output, re.MULTILINE)
    assert len(rows) == 5
    bill = sum(float(minimum) * float(cents) for minimum, cents in rows) / 100 * 365
    assert bill == pytest.approx(39.66, abs=0.02)


def test_transport_example():
    output = python(ROOT / "examples" / "transport.py")
    assert "cost 153.675 thousand dollars" in output


@pytest.mark.parametrize(
    ("example", "printed"),
    [
        ("curve.py", "sum of squares 0.124551389"),
        ("glider.py", "range 1247.98 m in 98.4 s"),
        ("power_flow.py", "cost 5296.69 dollars an hour"),
    ],
)
def test_nonlinear_examples_find_the_published_optimum(example, printed):
    assert printed in python(ROOT / "examples" / example)


@pytest.mark.parametrize("example", ["knapsack.py", "portfolio.py", "blend_pandas.py"])
def test_other_examples_run(example):
    if "pandas" in example:
        pytest.importorskip("pandas")
    assert python(ROOT / "examples" / example)


def test_readme_examples_print_what_they_say():
    text = (ROOT / "README.md").read_text(encoding="utf-8")
    examples = re.findall(r"```python\n(.*?)```\s*```text\n(.*?)```", text, re.DOTALL)
    assert len(examples) == 3
    for code, printed in examples:
        assert python("-c", code) == printed


LOAD_OTHER_COPIES = """
import ctypes, sys
for library in sys.argv[2:]:
    ctypes.CDLL(library)
import nalora
nalora.setOutputEnabled(False)
p = nalora.problem()
p.read(sys.argv[1])
p.solve()
print(p.getObjVal())
"""


def test_other_copies_of_the_solvers_in_the_process():
    """The solver libraries of the build-time packages, loaded first, must not be picked up."""
    libraries = []
    for package, file in [("highsbox", "highs_dist/lib/libhighs.so"), ("casadi", "libipopt.so.3")]:
        spec = importlib.util.find_spec(package)
        assert spec is not None, f"{package}, of which the build takes a solver, is missing"
        libraries.append(Path(spec.submodule_search_locations[0], file))
    model = ROOT / "examples" / "data" / "afiro.mps"
    output = python("-c", LOAD_OTHER_COPIES, model, *libraries)
    assert float(output) == pytest.approx(-464.7531428571)
