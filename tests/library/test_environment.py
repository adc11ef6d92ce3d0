"""Starting and stopping the library, in every order, and the functions that only reach it."""

import subprocess
import sys
import textwrap
import threading

import pytest

import nalora


def run_python(code):
    result = subprocess.run(
        [sys.executable, "-X", "faulthandler", "-c", "import nalora\n" + textwrap.dedent(code)],
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


@pytest.mark.parametrize(
    "code",
    [
        "",
        "nalora.init()",
        "nalora.init(); nalora.init(); nalora.free()",
        "nalora.free()",
        "nalora.free(); nalora.free(); nalora.init(); nalora.free(); nalora.free()",
        "p = nalora.problem()",
        "p = nalora.problem(); nalora.free()",
        "p = nalora.problem(); nalora.free(); del p",
        "p = nalora.problem(); c = p.controls; nalora.free(); nalora.init()",
        "x = nalora.var(name='a name', lb=-3); p = nalora.problem(x, x <= 2)",
        "import sys; sys.kept = [nalora.problem(), nalora.var(name='n', lb=-3), nalora.controls]",
        "import atexit; atexit.register(nalora.problem)",
        "import atexit; p = nalora.problem(); atexit.register(nalora.free)",
        "class P(nalora.problem): pass\np = P(); p.itself = p",
        "class K:\n  def __del__(self, n=nalora): n.problem(n.var(name='late'))\nk = K()",
        "h = print; nalora.addcbmsghandler(h, None, 0)",
        "try:\n  nalora.problem(sense=3)\nexcept nalora.ModelError: pass",
    ],
)
def test_exit_is_clean(code):
    assert run_python(code) == ""


def test_problems_outlive_the_stop():
    x = nalora.var()
    p = nalora.problem(x, name="kept")
    attributes = p.attributes
    nalora.free()
    for use in [
        lambda: p.attributes.cols,
        lambda: attributes.cols,
        lambda: p.controls.miptol,
        lambda: p.setControl("miptol", 1e-6),
        lambda: p.getVariable(),
        lambda: p.addVariable(nalora.var()),
        p.name,
        p.copy,
        p.reset,
        p.solve,
    ]:
        with pytest.raises(nalora.SolverError, match=r"been st(opp|art)ed"):
            use()
    q = nalora.problem(nalora.var())  # starts the library again
    assert q.attributes.cols == 1
    assert p.attributes.cols == attributes.cols == 1
    assert p.name() == "kept"
    nalora.free()
    nalora.free()
    assert nalora.getversion()
    assert p.getIndex(x) == 0
    assert p.copy().getAttrib("cols") == 1


@pytest.mark.parametrize("kind", ["linear", "integer", "nonlinear"])
def test_stopping_during_a_solve(kind, silent):
    def stop(*_):
        if not stopped:
            stopped.append(nalora.free())

    stopped = []
    x = nalora.var(ub=3.5, vartype=nalora.integer if kind == "integer" else nalora.continuous)
    p = nalora.problem(x, nalora.exp(-x) - x if kind == "nonlinear" else -x)
    nalora.addcbmsghandler(stop, None, 0)
    try:
        with pytest.raises(nalora.SolverError, match="was stopped while the problem was being"):
            p.solve()
        # Not the error of any call before.
        for use in [p.getProbStatus, p.getObjVal, p.getSolution, p.getSlack, p.solve, p.getvar]:
            with pytest.raises(nalora.SolverError, match=r"been stopped|Could not get"):
                use(*[0] * (use == p.getvar))
        nalora.init()
        for _ in range(2):
            assert p.solve() is None
            assert p.getSolution(x) == pytest.approx(3 if kind == "integer" else 3.5)
    finally:
        nalora.removecbmsghandler(stop)


def test_forced_start_keeps_everything():
    calls = []

    def handler(*arguments):
        calls.append(arguments)

    nalora.addcbmsghandler(handler, None, 0)
    try:
        nalora.init()
        nalora.init()
        x = nalora.var(ub=3)
        p = nalora.problem(x, -x)
        p.solve()
        once = len(calls)
        assert once > 0
        nalora.free()
        nalora.init()
        del calls[:]
        p.addConstraint(x <= 2)
        p.solve()
        messages = [call[3] for call in calls]
        assert messages
        assert len(messages) < 2 * once + 5
    finally:
        nalora.removecbmsghandler(handler)


def test_forked_child_works():
    out = run_python(
        """
        import os, threading, warnings
        warnings.simplefilter("ignore", DeprecationWarning)  # of forking with threads around
        nalora.setOutputEnabled(False)
        x = nalora.var(ub=4, name="x")
        p = nalora.problem(x, -x)
        p.solve()
        stop = threading.Event()
        def churn():  # takes all locks all the time
            while not stop.is_set():
                v = nalora.var(lb=-1, name="v")
                nalora.problem(v, v <= 3)
        thread = threading.Thread(target=churn)
        thread.start()
        for i in range(20):
            child = os.fork()
            if child == 0:
                q = nalora.problem(x, x <= i / 10, -x)
                q.solve()
                p.setControl("miptol", 1e-6)
                ok = abs(q.getSolution(x) - i / 10) < 1e-9 and nalora.var(name="y").name == "y"
                os._exit(0 if ok else 1)
            assert os.waitpid(child, 0)[1] == 0
        stop.set()
        thread.join()
        print("done")
        """
    )
    assert out == "done\n"


def test_starting_from_many_threads():
    errors = []

    def work():
        try:
            for _ in range(50):
                nalora.free()
                nalora.getversion()
                nalora.init()
        except Exception as error:
            errors.append(error)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert errors == []
    p = nalora.problem(nalora.var())
    assert p.attributes.cols == 1


def test_texts():
    version = nalora.getversion()
    assert version.startswith("0.")
    assert version in nalora.getbanner()
    assert nalora.getbanner(1, two=2) == nalora.getbanner()
    assert nalora.getlasterror() == (0, "")


def test_checked_mode():
    assert nalora.getcheckedmode() is True
    try:
        for value in [False, 1, None, "True"]:  # only True itself switches it on
            nalora.setcheckedmode(value)
            assert nalora.getcheckedmode() is False
        nalora.setcheckedmode(checked_mode=True)
        assert nalora.getcheckedmode() is True
    finally:
        nalora.setcheckedmode(True)
    with pytest.raises(TypeError):
        nalora.setcheckedmode()


def test_arch_consistency():
    for value in [True, False, None, 3]:
        assert nalora.setarchconsistency(ifArchConsistent=value) is None
    with pytest.raises(TypeError):
        nalora.setarchconsistency()
