"""Solving: known results, edits between solves, stopping, threads."""

import math
import os
import subprocess
import sys
import textwrap
import threading

import pytest
from model_file import fails

import nalora

INF = nalora.infinity


def solve(p, flags=""):
    p.solve(flags)
    return p.getProbStatusString(), pytest.approx(p.getObjVal(), abs=1e-5), p.getSolution()


# ---- results ------------------------------------------------------------------------------------


@pytest.mark.parametrize("flags", ["", "d", "p", "b", b"d"])
def test_linear_problems_with_duals(flags):
    x, y = nalora.var("x"), nalora.var("y")
    rows = [x + 2 * y <= 14, 3 * x - y >= 0, x - y <= 2]
    p = nalora.problem(x, y, rows, 3 * x + 4 * y, sense=nalora.maximize)
    assert solve(p, flags) == ("lp_optimal", 34, pytest.approx([6, 4], abs=1e-6))
    assert p.getDual() == pytest.approx([7 / 3, 0, 2 / 3], abs=1e-5)
    assert p.getSlack() == pytest.approx([0, -14, 0], abs=1e-5)
    # The dual is what one more unit brings.
    p.chgrhs(rows[:1], [15])
    p.solve()
    assert p.getObjVal() == pytest.approx(34 + 7 / 3)
    p.setObjective(-3 * x - 4 * y, sense=nalora.minimize)
    p.solve()
    assert p.getDual() == pytest.approx([-7 / 3, 0, -2 / 3], abs=1e-5)
    assert p.getRCost() == pytest.approx([0, 0], abs=1e-6)


def test_statuses():
    x = nalora.var()
    p = nalora.problem(x, x >= 2, x <= 1)
    p.solve()
    assert (p.getProbStatus(), p.getProbStatusString()) == (nalora.lp_infeas, "lp_infeas")
    p.delConstraint(1)
    p.setObjective(x, sense=nalora.maximize)
    p.solve()
    assert (p.getProbStatus(), p.getProbStatusString()) == (nalora.lp_unbounded, "lp_unbounded")
    z = nalora.var(vartype=nalora.integer)
    p.addVariable(z)
    p.addConstraint(2 * z == 3)
    p.solve()
    assert p.getProbStatusString() == "mip_infeas"


def test_mixed_integer_sets_indicators_and_semicontinuous():
    items = [(60, 10), (100, 20), (120, 30)]
    take = [nalora.var(vartype=nalora.binary) for _ in items]
    weight = sum(w * t for (_, w), t in zip(items, take))
    value = sum(v * t for (v, _), t in zip(items, take))
    p = nalora.problem(take, weight <= 50, value, sense=nalora.maximize)
    assert solve(p) == ("mip_optimal", 220, pytest.approx([0, 1, 1]))
    p.solve("l")
    relaxed = []
    p.getlpsol(relaxed)
    assert sum(v * t for (v, _), t in zip(items, relaxed)) == pytest.approx(240)

    x, y, z = (nalora.var(ub=u) for u in (1, 1, 2))
    p = nalora.problem(x, y, z, x + y + z <= 2, x + 2 * y + 1.5 * z, sense=nalora.maximize)
    p.solve()
    assert p.getObjVal() == pytest.approx(3.5)
    p.addSOS(nalora.sos([x, y, z], [1, 2, 3]))
    assert solve(p) == ("mip_optimal", 3, pytest.approx([0, 0, 2]))
    p.delSOS(0)
    p.addSOS(nalora.sos([x, z, y], [1, 2, 3], type=2))
    assert solve(p)[1] == 3.5

    b, u = nalora.var(vartype=nalora.binary), nalora.var(ub=10)
    p = nalora.problem(b, u, u + 6 * b, sense=nalora.maximize)
    p.addIndicator((b == 1, u <= 3))
    assert solve(p) == ("mip_optimal", 10, pytest.approx([0, 10]))
    p.addIndicator((b == 0, u <= 5))
    assert solve(p) == ("mip_optimal", 9, pytest.approx([1, 3]))

    s = nalora.var(ub=8, threshold=3, vartype=nalora.semicontinuous)
    p = nalora.problem(s, s >= 1, s)
    assert solve(p) == ("mip_optimal", 3, pytest.approx([3]))


def test_quadratic_problems():
    x, y = nalora.var(lb=-INF), nalora.var(lb=-INF)
    p = nalora.problem(x, y, x + y == 1, x * x + 2 * y * y + x * y + 3)
    assert solve(p) == ("lp_optimal", 3.875, pytest.approx([0.75, 0.25], abs=1e-5))
    p.setObjective(x + y, sense=nalora.maximize)
    p.delConstraint(0)
    p.addConstraint(x * x + y * y <= 2)
    assert solve(p) == ("lp_optimal", 2, pytest.approx([1, 1], abs=1e-5))
    assert p.getDual() == pytest.approx([0.5], abs=1e-5)


def test_nonconvex_problems_say_so():
    x, y = nalora.var(ub=1), nalora.var(ub=1)
    p = nalora.problem(x, y, x * y)
    text = (
        "The problem was determined to be nonconvex, and the optimizer cannot solve it. Call "
        "nlpoptimize() to find a solution using SLP"
    )
    with fails(text, nalora.SolverError):
        p.solve()
    assert p.getProbStatusString() == "lp_nonconvex"
    p.setObjective(x + y)
    p.solve()
    assert p.getProbStatusString() == "lp_optimal"


def test_edits_and_solves_again():
    x, y = nalora.var(ub=10), nalora.var(ub=10)
    c = x + y <= 12
    p = nalora.problem(x, y, c, x + 2 * y, sense=nalora.maximize)
    assert solve(p)[1] == 22
    p.chgcoef(c, y, 2)
    assert solve(p)[1] == 12
    p.chgobj([x, 1], [3, 1])
    assert solve(p)[1] == 31
    z = nalora.var(ub=1)
    p.addVariable(z)
    p.addConstraint(y - z <= 0)
    p.setObjective(x + 5 * z + y)
    assert solve(p)[1] == 16
    p.delVariable(x)
    assert solve(p)[1] == 6


# ---- arguments and errors -----------------------------------------------------------------------


def test_flags_that_are_no_string():
    p = nalora.problem(nalora.var())
    for flags in (3, None, ["d"]):
        with fails("The optional 'flags' parameter should be a string", nalora.InterfaceError):
            p.solve(flags)
    with fails("null", ValueError):
        p.solve("d\0")
    assert p.getProbStatus() == nalora.lp_unstarted
    p.solve(flags="d")
    assert p.getProbStatus() == nalora.lp_optimal


def test_flags_of_other_kinds_of_problems_are_ignored():
    x = nalora.var(ub=2.5)
    p = nalora.problem(x, -x)
    for change, value in [
        (lambda: None, -2.5),
        (lambda: p.addConstraint(nalora.exp(x) <= math.exp(2.25)), -2.25),
        (lambda: p.addVariable(nalora.var(vartype=nalora.integer)), -2.25),
        (lambda: p.delConstraint(0), -2.5),
    ]:
        change()
        for flags in ["d", "p", "b", "g", "gd"]:
            p.solve(flags)
            assert p.getObjVal() == pytest.approx(value, abs=1e-5)


def test_every_failed_optimize_raises():
    x = nalora.var()
    p = nalora.problem(x, x >= 1)
    for call in (p.solve, p.lpoptimize, p.mipoptimize, p.nlpoptimize):
        with pytest.raises(nalora.SolverError, match=r"flags: '\?'"):
            call("?")
    n = nalora.var(vartype=nalora.integer)
    p = nalora.problem(n, (n - 1) * (n - 1), sense=nalora.maximize)
    with pytest.raises(nalora.SolverError, match="nonconvex"):
        p.solve()


# ---- stopping -----------------------------------------------------------------------------------

HARD = """
import random
import nalora

def hard(rows=40, columns=60):
    # Market split: almost no bound, very many nodes.
    rng = random.Random(1)
    x = [nalora.var(vartype=nalora.binary) for _ in range(columns)]
    p = nalora.problem(x)
    slack = []
    for _ in range(rows):
        up, down = nalora.var(), nalora.var()
        p.addVariable(up, down)
        coefs = [rng.randrange(100) for _ in x]
        p.addConstraint(sum(k * v for k, v in zip(coefs, x)) + up - down == sum(coefs) // 2)
        slack += [up, down]
    p.setObjective(sum(slack))
    return p
"""


def run(code):
    code = HARD + "nalora.setOutputEnabled(False)\n" + textwrap.dedent(code)
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(p for p in sys.path if p)}
    return subprocess.run(
        [sys.executable, "-W", "ignore", "-c", code],  # forking beside threads makes a warning
        env=env,
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )


@pytest.mark.parametrize("method", ["solve", "mipoptimize"])
def test_ctrl_c_stops_a_solve(method):
    result = run(f"""
        import os, signal, time
        p = hard()
        # A shell's background jobs ignore it, and so would this process.
        signal.signal(signal.SIGINT, signal.default_int_handler)
        # Its own process, because a thread could not run while mipoptimize keeps the lock.
        if os.fork() == 0:
            time.sleep(1)
            os.kill(os.getppid(), signal.SIGINT)
            os._exit(0)
        start = time.monotonic()
        try:
            p.{method}()
        except KeyboardInterrupt:
            print("interrupted", time.monotonic() - start < 2)
        print(p.attributes.stopstatus == nalora.stop_ctrlc, p.getProbStatusString())
        print(len(p.getSolution()) == p.attributes.cols, p.getObjVal() > 0)
        p.controls.timelimit = 0.2
        p.solve()
        print(p.attributes.stopstatus - nalora.stop_timelimit)
    """)
    assert result.stderr == ""
    assert result.stdout.split("\n") == [
        "interrupted True",
        "True mip_solution",
        "True True",
        "0",
        "",
    ]


def test_exceptions_of_other_signal_handlers_end_a_solve():
    result = run("""
        import signal
        class Alarm(Exception): pass
        def handler(*_): raise Alarm
        signal.signal(signal.SIGALRM, handler)
        p = hard()
        signal.setitimer(signal.ITIMER_REAL, 0.5)
        try:
            p.solve()
        except Alarm:
            print("alarm", p.attributes.stopstatus == nalora.stop_user)
    """)
    assert (result.stdout, result.stderr) == ("alarm True\n", "")


def fill(p):
    x = [nalora.var(ub=1) for _ in range(4)]
    p.addVariable(x)
    p.addConstraint(x[i] + x[i - 1] <= 1.5 for i in range(4))
    p.setObjective(sum(x), nalora.maximize)


def test_whatever_another_thread_does_beside_solves(tmp_path, silent):
    p, file = nalora.problem(), str(tmp_path / "model.nlm")
    fill(p)
    p.write(file, "g")
    changes = [p.reset, p.__init__, lambda: p.read(file), lambda: p.read(__file__), p.copy, p.solve]
    changes += [lambda: fill(p), lambda: p.delVariable(0), lambda: p.delConstraint([0, 1])]
    changes += [lambda: p.addSOS(nalora.sos(p.getVariable()[:2], [1, 2])), p.lpoptimize]
    changes += [lambda: p.setControl("miptol", 1e-6), lambda: p.chgrhs([0], [1]), p.nlpoptimize]
    changes += [p.getSolution, p.getDual, p.interrupt, lambda: p.write(file, "g"), p.getAttrib]
    errors = set()

    def solve():
        while other.is_alive():
            attempt(p.solve)

    def work():
        for i in range(40):
            for change in changes[:1] * (i % 4) + changes:
                attempt(change)

    def attempt(call):
        try:
            call()
        except (nalora.SolverError, nalora.ModelError, TypeError) as error:
            errors.add(str(error))

    solver, other = threading.Thread(target=solve), threading.Thread(target=work)
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-5)
    try:
        other.start()
        solver.start()
        other.join()
        solver.join()
    finally:
        sys.setswitchinterval(interval)
    assert any("the problem is being solved" in error for error in errors)
    assert not any("Unidentified" in error or "initialised" in error for error in errors)
    p.reset()
    fill(p)
    p.solve()
    assert p.getObjVal() == pytest.approx(3)


def test_two_threads_solve_at_once():
    results = {}

    def work(key):
        values = []
        for i in range(20):
            x, y = nalora.var(ub=10), nalora.var(ub=key + 1, vartype=nalora.integer)
            p = nalora.problem(x, y, x + y <= 7.5 + i, x + 3 * y, sense=nalora.maximize)
            p.solve()
            values.append(p.getObjVal() - min(10, 7.5 + i - key - 1) - 3 * (key + 1))
        results[key] = values

    threads = [threading.Thread(target=work, args=(key,)) for key in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [max(map(abs, results[key])) < 1e-6 for key in range(2)] == [True, True]


def test_a_forked_child_solves():
    result = run("""
        import os
        def small():
            x = nalora.var(vartype=nalora.integer, ub=9)
            p = nalora.problem(x, 2 * x <= 7, x, sense=nalora.maximize)
            p.solve()
            return p.getObjVal()
        small()
        child = os.fork()
        if child == 0:
            os._exit(0 if abs(small() - 3) < 1e-6 else 1)
        print(os.waitpid(child, 0)[1], round(small()))
    """)
    assert (result.stdout, result.stderr) == ("0 3\n", "")


DAEMONS = """
import nalora, random, sys, threading, time
nalora.setOutputEnabled(False)

def solve_for_ever(size):
    while True:
        x = [nalora.var(vartype=nalora.binary) for _ in range(size)]
        p = nalora.problem(x)
        for _ in range(10):
            p.addConstraint(sum(random.randint(10, 99) * v for v in x) <= 18 * size)
        p.setObjective(sum(random.randint(1, 99) * v for v in x), nalora.maximize)
        p.solve()

for size in (8, 45):
    threading.Thread(target=solve_for_ever, args=(size,), daemon=True).start()
time.sleep(float(sys.argv[1]))
sys.exit(3)
"""


@pytest.mark.parametrize("seconds", [0.1, 0.22, 0.3])
def test_a_process_ends_well_while_daemon_threads_solve(seconds):
    done = subprocess.run([sys.executable, "-c", DAEMONS, str(seconds)], timeout=60, check=False)
    assert done.returncode == 3
