"""Solves a model file: python -m nalora MODEL [--controls NAME=VALUE ...] [--solution FILE]."""

import argparse
import contextlib
import sys
import time
import typing
from typing import List, Optional, Tuple

import nalora

SOLVED = {"lp_optimal", "mip_optimal", "nlp_solution", "nlp_globally_optimal"}
# States in which the problem holds a solution, be it not proven optimal.
WITH_SOLUTION = SOLVED | {"mip_solution"}
# Values below this are noise of the solver, not part of the answer.
ZERO_TOLERANCE = 1e-9

EXIT_SOLVED, EXIT_NOT_SOLVED, EXIT_ERROR, EXIT_INTERRUPTED = 0, 1, 2, 130


class UserError(Exception):
    """An error of the user's, told in one line."""


@contextlib.contextmanager
def failing(what: str) -> typing.Iterator[None]:
    """Turns errors of the library and the system into a UserError that says what was tried."""
    try:
        yield
    except (nalora.ModelError, nalora.InterfaceError, nalora.SolverError, OSError) as error:
        raise UserError(f"{what}: {error}") from error


def set_control(problem: nalora.problem, setting: str) -> None:
    """Sets one control from NAME=VALUE, with the value read as the control's own type."""
    name, equals, text = setting.partition("=")
    if not equals or not name:
        raise UserError(f"--controls: expected NAME=VALUE, got '{setting}'")
    with failing(f"--controls: {name}"):
        kind = type(problem.getControl(name))
        try:
            value = kind(text)
        except ValueError:
            article = {int: "an integer", float: "a number"}[kind]
            raise UserError(f"--controls: {name} takes {article}, got '{text}'") from None
        problem.setControl(name, value)


def write_solution(
    path: str, status: str, objective: Optional[float], values: List[Tuple[str, float]]
) -> None:
    """Writes every variable, one a line, separated by a tab; the rest is in comments."""
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"# status {status}\n")
        if objective is not None:
            file.write(f"# objective {objective!r}\n")
        for name, value in values:
            file.write(f"{name}\t{value!r}\n")


def report(
    status: str, objective: Optional[float], values: List[Tuple[str, float]], seconds: float
) -> None:
    print(f"status     {status}")
    if objective is not None:
        print(f"objective  {objective:.10g}")
    print(f"time       {seconds:.2f} s")
    shown = [(name, value) for name, value in values if abs(value) > ZERO_TOLERANCE]
    if values:
        print(f"non-zero   {len(shown)} of {len(values)} variables")
    width = max((len(name) for name, _ in shown), default=0)
    for name, value in shown:
        print(f"  {name:{width}}  {value:.10g}")


def run(model: str, controls: List[str], solution: Optional[str], quiet: bool) -> int:
    problem = nalora.problem()
    for setting in controls:
        set_control(problem, setting)
    nalora.setOutputEnabled(not quiet)
    with failing(f"cannot read {model}"):
        # The system's message for a missing file names the trouble better than a reader can.
        open(model, "rb").close()
        problem.read(model)
    if solution is not None:
        with failing("cannot write the solution"):
            open(solution, "a").close()

    interrupted = False
    start = time.perf_counter()
    try:
        with failing("cannot solve"):
            problem.solve()
    except KeyboardInterrupt:
        interrupted = True
    seconds = time.perf_counter() - start

    status = problem.getProbStatusString()
    objective = None
    values: List[Tuple[str, float]] = []
    if status in WITH_SOLUTION:
        objective = problem.getObjVal()
        names = [str(variable) for variable in problem.getVariable()]
        values = list(zip(names, problem.getSolution()))
    if not quiet:
        print()
    report(status, objective, values, seconds)
    if solution is not None:
        with failing("cannot write the solution"):
            write_solution(solution, status, objective, values)
    if interrupted:
        return EXIT_INTERRUPTED
    return EXIT_SOLVED if status in SOLVED else EXIT_NOT_SOLVED


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python -m nalora",
        description="Solve a model file and print status, objective, time and non-zero variables.",
        epilog="Exit status: 0 solved to optimality, 1 not, 2 error, 130 interrupted.",
    )
    parser.add_argument("model", metavar="MODEL", help="an MPS or LP file, plain or .gz")
    parser.add_argument(
        "--controls",
        metavar="NAME=VALUE",
        nargs="+",
        action="extend",
        default=[],
        help="controls to set before solving",
    )
    parser.add_argument("--solution", metavar="FILE", help="write the values of all variables")
    parser.add_argument("--quiet", action="store_true", help="no log of the solve")
    parser.add_argument("--version", action="version", version=f"nalora {nalora.__version__}")
    options = parser.parse_args(arguments)
    try:
        return run(options.model, options.controls, options.solution, options.quiet)
    except UserError as error:
        print(f"nalora: error: {error}", file=sys.stderr)
        return EXIT_ERROR
    except KeyboardInterrupt:
        return EXIT_INTERRUPTED


if __name__ == "__main__":
    sys.exit(main())
