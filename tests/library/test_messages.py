"""The library's messages: on sys.stdout, and in handlers of the global environment."""

import contextlib
import gc
import io
import os
import subprocess
import sys

import pytest

import nalora


@pytest.fixture(autouse=True)
def output_restored():
    yield
    nalora.setOutputEnabled(True)
    nalora.removecbmsghandler()


def small_problem(name="noname"):
    x = nalora.var(ub=4, vartype=nalora.integer)
    return nalora.problem(x, 2 * x <= 7, -x, name)


def log_of(problem):
    with contextlib.redirect_stdout(io.StringIO()) as out:
        problem.solve()
    return out.getvalue()


def test_log_goes_to_the_stdout_of_the_moment():
    problem = small_problem()
    log = log_of(problem)
    assert log.endswith("\n")
    assert len(log.splitlines()) > 1
    nalora.setOutputEnabled(False)
    assert nalora.getOutputEnabled() is False
    assert log_of(problem) == ""
    nalora.setOutputEnabled(1)
    assert nalora.getOutputEnabled() is True
    assert log_of(problem) != ""


def test_output_flag():
    for value, enabled in [(True, True), (0, False), (-7, True), (1 << 80, True), (False, False)]:
        assert nalora.setOutputEnabled(value) is None
        assert nalora.getOutputEnabled() is enabled
    for value in ["x", None, 1.0, [True]]:
        with pytest.raises(SystemError, match="should be True or False") as caught:
            nalora.setOutputEnabled(value)
        assert type(caught.value.__cause__) is nalora.ModelError
        assert nalora.getOutputEnabled() is False


def test_messages_of_copies_and_of_reset_problems():
    problem = small_problem()
    assert log_of(problem.copy()) != ""
    problem.reset()
    x = nalora.var(ub=1)
    problem.addVariable(x)
    problem.setObjective(-x)
    assert log_of(problem) == ""
    assert problem.getObjVal() == -1


class Stream:
    """Raises on the first lines written to it."""

    def __init__(self, *errors):
        self.errors = list(errors)
        self.text = ""

    def write(self, text):
        if self.errors:
            raise self.errors.pop(0)
        self.text += text


@pytest.mark.parametrize(
    "error", [ValueError("closed"), UnicodeEncodeError("ascii", "x", 0, 1, "")]
)
def test_broken_stream_does_not_stop_a_solve(error, capfd):
    problem = small_problem()
    stream = Stream(error)
    with contextlib.redirect_stdout(stream):
        problem.solve()
    assert problem.getObjVal() == -3
    assert stream.text
    with contextlib.redirect_stdout(None):
        problem.solve()


@pytest.mark.parametrize("error", [KeyboardInterrupt, SystemExit])
def test_interrupt_inside_the_stream_is_not_lost(error):
    problem = small_problem()
    with contextlib.redirect_stdout(Stream(error("first"), error("second"))), pytest.raises(
        error, match="first"
    ):
        problem.solve()
    assert log_of(problem) != ""
    assert problem.getObjVal() == -3


def test_stream_that_replaces_itself():
    problem = small_problem()

    class Replacing(io.StringIO):
        def write(self, text):
            sys.stdout = io.StringIO()
            gc.collect()
            return super().write(text)

    before = sys.stdout
    try:
        sys.stdout = Replacing()
        problem.solve()
    finally:
        sys.stdout = before


def test_log_in_ascii_environment():
    code = "import nalora; x = nalora.var(ub=1); p = nalora.problem(x, -x, 'Ä'); p.solve()"
    result = subprocess.run(
        [sys.executable, "-c", code],
        capture_output=True,
        env={**os.environ, "PYTHONIOENCODING": "ascii"},
    )
    assert (result.returncode, result.stderr) == (0, b"")
    assert result.stdout


# ---- handlers of the global environment -------------------------------------------------------


class Recorder:
    def __init__(self):
        self.calls = []

    def __call__(self, *arguments):
        self.calls.append(arguments)

    def method(self, *arguments):
        self.calls.append(arguments)


def test_handler_arguments():
    recorder = Recorder()
    data = object()
    nalora.addcbmsghandler(msghandler=recorder, data=data, priority=3)
    log = log_of(small_problem())
    messages = [call[3] for call in recorder.calls]
    assert messages == log.splitlines()
    sender, got_data, thread, message, kind, code = recorder.calls[0]
    assert type(sender).__name__ == "nlraobject"
    assert repr(sender).startswith("<nalora.nlraobject 0x")
    assert type(thread).__name__ == "generic"
    assert got_data is data
    assert (type(message), type(kind), type(code)) == (str, int, int)
    recorder.calls.clear()
    nalora.setOutputEnabled(False)
    assert log_of(small_problem()) == ""
    assert recorder.calls


def test_handler_added_twice_and_removed():
    recorder = Recorder()
    nalora.addcbmsghandler(recorder, "a", 0)
    nalora.addcbmsghandler(recorder, "b", 1)
    log_of(small_problem())
    assert [call[1] for call in recorder.calls[:2]] == ["b", "a"]
    nalora.removecbmsghandler(recorder, "a")
    recorder.calls.clear()
    log_of(small_problem())
    assert {call[1] for call in recorder.calls} == {"b"}
    nalora.addcbmsghandler(recorder, "c", 1)
    nalora.removecbmsghandler(recorder)
    recorder.calls.clear()
    log_of(small_problem())
    assert recorder.calls == []


def test_bound_methods_can_be_removed():
    recorder, other = Recorder(), Recorder()
    nalora.addcbmsghandler(recorder.method, None, 0)
    with pytest.raises(nalora.InterfaceError, match="Callback not found"):
        nalora.removecbmsghandler(other.method)
    nalora.removecbmsghandler(recorder.method)
    with pytest.raises(nalora.InterfaceError, match="Cannot remove callback from an empty set"):
        nalora.removecbmsghandler(recorder.method)
    assert nalora.removecbmsghandler() is None
    assert nalora.removecbmsghandler(None, "data") is None


def test_handler_that_raises_stops_the_solve():
    first = ValueError("first")
    raised = []

    def handler(*_):
        raised.append(1)
        raise first if len(raised) == 1 else ValueError("later")

    problem = small_problem()
    nalora.addcbmsghandler(handler, None, 0)
    with pytest.raises(ValueError, match="first") as caught:
        problem.solve()
    assert caught.value is first
    assert len(raised) == 1
    nalora.removecbmsghandler(handler)
    problem.solve()
    assert problem.getObjVal() == -3


def test_handlers_that_remove_and_add_handlers():
    removed, added = Recorder(), Recorder()

    def change(*_):
        nalora.removecbmsghandler()
        gc.collect()
        nalora.addcbmsghandler(added, None, 0)

    nalora.addcbmsghandler(change, None, 5)
    nalora.addcbmsghandler(removed, [], 0)  # follows in the round in which it is removed
    log_of(small_problem())
    log_of(small_problem())
    assert removed.calls == []
    assert added.calls


class Index:
    def __init__(self, error):
        self.error = error

    def __index__(self):
        raise self.error


@pytest.mark.parametrize(
    "arguments",
    [
        *[(), (print,), (print, None), (print, None, "1"), (print, None, 1, 2)],
        *[(None, None, 0), (print, None, 1 << 40), (print, None, 1 << 90), ("handler", None, 0)],
    ],
    ids=str,
)
def test_wrong_handler_arguments(arguments):
    with pytest.raises(nalora.InterfaceError) as caught:
        nalora.addcbmsghandler(*arguments)
    assert str(caught.value) == (
        "Incorrect arguments in addcbmsghandler. Must provide correct list of three arguments"
    )
    with pytest.raises(nalora.InterfaceError, match="Cannot remove callback from an empty set"):
        nalora.removecbmsghandler(print)


def test_wrong_removal_arguments():
    with pytest.raises(nalora.InterfaceError) as caught:
        nalora.removecbmsghandler(print, None, 3)
    assert str(caught.value) == (
        "Incorrect arguments in removecbmsghandler. Must provide correct list of two arguments"
    )
    assert type(caught.value.__cause__) is TypeError
    with pytest.raises(KeyboardInterrupt):
        nalora.addcbmsghandler(print, None, Index(KeyboardInterrupt()))


def test_handlers_do_not_leak():
    class Data:
        alive = 0

        def __init__(self):
            Data.alive += 1

        def __del__(self):
            Data.alive -= 1

    for _ in range(10):
        nalora.addcbmsghandler(Recorder(), Data(), 0)
    nalora.removecbmsghandler()
    assert Data.alive == 0
