"""Controls and attributes by name."""

import copy
import gc
import pickle

import numpy as np
import pytest

import nalora

CONTROLS = sorted(nalora.controls.__dict__)
PROBLEM = nalora.problem()
TABLE = PROBLEM.controls.__dict__
INTEGERS = [name for name in CONTROLS if TABLE[name][1] == 1]
REALS = [name for name in CONTROLS if TABLE[name][1] == 2]


@pytest.fixture(autouse=True)
def defaults_restored():
    yield
    nalora.setdefaults()
    nalora.controls.nslp_postsolve = 1


@pytest.fixture
def p():
    return nalora.problem()


def test_tables(p):
    assert "miptol" in REALS
    assert "nslp_postsolve" in INTEGERS
    for table in [p.controls.__dict__, p.attributes.__dict__]:
        for name, (identifier, kind, solver) in table.items():
            assert name == name.lower()
            assert identifier > 0
            assert kind in (1, 2, 3)
            assert solver in (0, 1, 2)
    assert set(p.controls.__dict__) == set(nalora.controls.__dict__)
    assert {"rows", "cols", "sets"} <= set(p.attributes.__dict__)
    p.controls.__dict__.clear()  # a copy
    nalora.controls.__dict__.clear()
    assert sorted(p.controls.__dict__) == sorted(nalora.controls.__dict__) == CONTROLS


@pytest.mark.parametrize("name", CONTROLS)
def test_every_control(p, name):
    value = getattr(p.controls, name)
    assert type(value) is (int if name in INTEGERS else float)
    assert p.getControl(name) == value
    setattr(p.controls, name, value)
    p.setControl(name, value)
    p.setControl({name: value})
    assert getattr(p.controls, name) == value
    if name != "nslp_postsolve":
        assert getattr(nalora.controls, name) == value
    # All controls have a range but for these, which take infinite values.
    outside = [] if name == "cutoff" else [-(1 << 30)]
    if name not in ("cutoff", "timelimit", "nodelimit", "relgap", "absgap"):
        outside.append(1 << 62)
    for number in outside:
        with pytest.raises((nalora.SolverError, OverflowError)):
            p.setControl(name, number)
        assert getattr(p.controls, name) == value


@pytest.mark.parametrize("name", CONTROLS)
@pytest.mark.parametrize(
    "value", [None, "1", 1j, [1], b"1", np.float32(1), np.array([1])], ids=repr
)
def test_values_of_wrong_types(p, name, value):
    kind = "non-integer value to an integer" if name in INTEGERS else "non-numerical value to a f"
    with pytest.raises(nalora.ModelError, match=f"^Cannot set {kind}"):
        p.setControl(name, value)
    with pytest.raises(nalora.ModelError, match=f"^Cannot set {kind}"):
        setattr(nalora.controls, name, value)


def test_numbers(p):
    for value in [1, True, np.intc(1), np.int64(1), np.longlong(1), np.float64(1)]:
        p.setControl("relgap", value)
        assert p.controls.relgap == 1.0
        p.setControl("relgap", 0)
    for value in [1, True, np.intc(1), np.int64(1), np.longlong(1)]:
        p.controls.presolve = 0
        p.controls.presolve = value
        assert p.controls.presolve == 1
    for value in [1.5, 1.0, np.float64(1), np.float32(1), np.int8(1), np.bool_(True)]:
        with pytest.raises(nalora.ModelError, match="non-integer value to an integer control"):
            p.controls.presolve = value
    for value in [float("nan"), float("inf"), -float("inf"), -1.0, 2]:
        with pytest.raises(nalora.SolverError, match=r"heureffort.*0 to 1"):
            p.controls.heureffort = value
    for name, value in [("presolve", 1 << 64), ("relgap", 1 << 2000), ("presolve", -(1 << 70))]:
        with pytest.raises(OverflowError):
            p.setControl(name, value)
    with pytest.raises(OverflowError, match="32-bit"):
        p.setControl("nslp_threads", 1 << 40)
    p.setControl("nodelimit", 1 << 40)
    assert p.controls.nodelimit == 1 << 40


def test_set_control_forms(p):
    p.setControl({"miptol": 1e-4, "presolve": 0})
    assert (p.controls.miptol, p.controls.presolve) == (1e-4, 0)
    p.setControl({})
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect control name$"):
        p.setControl({"miptol": 1e-3, "nonsense": 1, "presolve": 1})
    assert (p.controls.miptol, p.controls.presolve) == (1e-3, 0)  # in order, up to the wrong one

    class Name(str):
        def __hash__(self):
            raise RuntimeError

    p.setControl(Name("presolve"), 1)
    p.setControl(b"miptol", 1e-5)
    assert (p.controls.miptol, p.controls.presolve) == (1e-5, 1)


@pytest.mark.parametrize(
    ("arguments", "error", "message"),
    [
        (
            (),
            nalora.ModelError,
            "setControl requires at least one argument of type dictionary or two elements: "
            "parameter, value",
        ),
        (("miptol",), nalora.ModelError, "Single argument to setControl must be a dictionary"),
        (([("a", 1)],), nalora.ModelError, "Single argument to setControl must be a dictionary"),
        ((1, 2, 3), nalora.ModelError, "setControl: arguments mismatch"),
        (("nonsense", 1), nalora.InterfaceError, "Incorrect control name"),
        ((8035, 1), nalora.InterfaceError, "Incorrect control name"),
        ((None, 1), nalora.InterfaceError, "Incorrect control name"),
        (("cols", 1), nalora.InterfaceError, "Incorrect control name"),
    ],
    ids=str,
)
def test_set_control_errors(p, arguments, error, message):
    with pytest.raises(error) as caught:
        p.setControl(*arguments)
    assert str(caught.value) == message


@pytest.mark.parametrize("what", ["control", "attribute"])
def test_get_forms(p, what):
    get = p.getControl if what == "control" else p.getAttrib
    names = CONTROLS if what == "control" else sorted(p.attributes.__dict__)
    everything = get()
    assert sorted(everything) == names
    one, two = names[:2]
    assert get(one) == everything[one]
    both = {one: everything[one], two: everything[two]}
    for form in [(one, two), ([one, two],), ((one, two),), (iter([one, two]),), (both,)]:
        assert get(*form) == both
    assert get([]) == get(()) == {}
    for wrong in ["nonsense", 3, None, ["nonsense"], [one, 5], [[one]], "", one.upper()]:
        with pytest.raises(nalora.InterfaceError) as caught:
            get(wrong)
        assert str(caught.value) == f"Requested value of an unknown {what}"

    def exploding():
        yield one
        raise KeyError("mine")

    with pytest.raises(KeyError, match="mine"):
        get(exploding())


def test_strange_but_harmless_names(p):
    for name in ["\ud800", "mip\0tol", "é" * 1000]:
        with pytest.raises(nalora.InterfaceError):
            p.getControl(name)
        with pytest.raises(nalora.InterfaceError):
            setattr(p.controls, name, 1)


def test_attributes_are_read_only(p):
    for change in [
        lambda: setattr(p.attributes, "cols", 3),
        lambda: setattr(p.attributes, "nonsense", 3),
        lambda: delattr(p.attributes, "cols"),
    ]:
        with pytest.raises(nalora.ModelError, match=r"^A problem's attribute cannot be set$"):
            change()
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect attribute name$"):
        _ = p.attributes.nonsense
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect control name$"):
        _ = p.controls.nonsense
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect control name$"):
        p.controls.nonsense = 1
    with pytest.raises(nalora.ModelError, match="cannot be deleted"):
        del p.controls.miptol
    for name in ["controls", "attributes"]:
        with pytest.raises(AttributeError):
            setattr(p, name, None)


def test_accessors_as_objects(p):
    assert isinstance(p.controls, type(nalora.controls))
    assert not isinstance(p.controls, int)
    assert dir(p.controls) == CONTROLS
    assert "cols" in dir(p.attributes)
    assert not hasattr(p.controls, "__array_interface__")
    assert eval(str(p.controls), {"inf": float("inf")}) == p.getControl()
    assert str(p.attributes) == repr(p.attributes) == str(p.getAttrib())
    assert eval(str(nalora.controls))["nslp_postsolve"] == 1
    for accessor in [p.controls, p.attributes, nalora.controls]:
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            with pytest.raises(TypeError, match="cannot pickle"):
                pickle.dumps(accessor, protocol)
        with pytest.raises(TypeError, match="takes no arguments"):
            type(accessor)(p)
    for other in [copy.copy(p.controls), copy.deepcopy(p.controls)]:
        other.miptol = 1e-4
        assert p.controls.miptol == 1e-4
        p.controls.miptol = 1e-5
        assert other.miptol == 1e-5


def test_detached_accessors():
    p = nalora.problem()
    accessors = [p.controls, p.attributes, copy.copy(p.controls), copy.copy(p.attributes)]
    del p
    gc.collect()
    for accessor, name in zip(accessors, ["miptol", "cols"] * 2):
        with pytest.raises(nalora.InterfaceError, match=r"no longer exists$"):
            getattr(accessor, name)
        with pytest.raises(nalora.InterfaceError, match=r"no longer exists$"):
            str(accessor)
        with pytest.raises((nalora.InterfaceError, nalora.ModelError)):
            setattr(accessor, name, 1)
        assert repr(accessor).endswith("without a problem>")
        assert dir(accessor)
        assert name in accessor.__dict__
    again = copy.copy(accessors[0])
    with pytest.raises(nalora.InterfaceError, match=r"no longer exists$"):
        again.miptol = 1


def test_bare_accessors(p):
    controls, attributes = type(p.controls)(), type(p.attributes)()
    assert controls.nslp_postsolve == 1
    controls.presolve = 0
    assert nalora.controls.presolve == nalora.problem().getControl("presolve") == 0
    assert controls.__dict__ == attributes.__dict__ == {}
    for use in [lambda: attributes.cols, lambda: str(attributes), lambda: controls.nonsense]:
        with pytest.raises(nalora.InterfaceError):
            use()
    with pytest.raises(nalora.ModelError):
        attributes.cols = 3


# ---- module-wide defaults ---------------------------------------------------------------------


def test_defaults(p):
    own = nalora.controls.miptol
    nalora.controls.miptol = 1e-3
    nalora.controls.presolve = np.int64(0)
    assert nalora.controls.miptol == 1e-3
    q = nalora.problem()
    assert (q.controls.miptol, q.controls.presolve) == (1e-3, 0)
    assert p.controls.miptol == own  # made before
    q.controls.miptol = 1e-2
    assert p.copy().getControl("miptol") == own
    assert q.copy().getControl("miptol") == 1e-2  # the source's controls count
    q.reset()
    assert q.controls.miptol == own
    nalora.setdefaultcontrol("miptol")
    assert nalora.controls.miptol == nalora.problem().getControl("miptol") == own
    assert nalora.problem().getControl("presolve") == 0
    nalora.setdefaultcontrol(ipar="miptol")  # not there any more: no error
    nalora.setdefaultcontrol("nonsense")
    nalora.setdefaults()
    assert nalora.problem().getControl("presolve") == 1
    assert nalora.problem().getControl("nslp_postsolve") == 0


def test_wrong_defaults():
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect control name$"):
        nalora.controls.nonsense = 1
    with pytest.raises(nalora.InterfaceError, match=r"^Incorrect control name$"):
        _ = nalora.controls.nonsense
    with pytest.raises(nalora.ModelError, match="non-integer"):
        nalora.controls.presolve = 1.5
    with pytest.raises(nalora.InterfaceError):
        nalora.setdefaultcontrol(3)
    with pytest.raises(TypeError):
        nalora.setdefaultcontrol()
    nalora.controls.feastol = 1e-5
    nalora.free()  # a library that is stopped knows the ranges too
    for name, value in [("presolve", 77), ("feastol", 10.0), ("feastol", -1), ("nslp_threads", -5)]:
        with pytest.raises(nalora.SolverError, match=rf"{name}.*{value:g}.* to "):
            setattr(nalora.controls, name, value)
    assert nalora.problem().getControl("presolve", "feastol") == {"presolve": 1, "feastol": 1e-5}


def test_default_values_are_released():
    class Number(int):
        alive = 0

        def __init__(self, _):
            Number.alive += 1

        def __del__(self):
            Number.alive -= 1
            nalora.controls.seed = 5  # changes the defaults while they change

    for _ in range(3):
        nalora.controls.presolve = Number(1)
    nalora.setdefaultcontrol("presolve")
    nalora.controls.threads = Number(0)
    assert nalora.problem().getControl("threads") == 0
    nalora.setdefaults()
    assert Number.alive == 0
