"""Declaring, copying, emptying and dropping problems, and looking their objects up."""

import contextlib
import copy
import gc
import pickle
import weakref

import numpy as np
import pytest
from conftest import growth

import nalora

pytestmark = pytest.mark.usefixtures("silent")


@pytest.fixture
def xyz():
    return [nalora.var(name=name) for name in "xyz"]


def sizes(p):
    return p.attributes.cols, p.attributes.rows, p.attributes.sets


# ---- declaration ------------------------------------------------------------------------------


def test_empty_declaration():
    p = nalora.problem()
    assert p.name() == str(p) == "noname"
    assert sizes(p) == (0, 0, 0)
    assert p.attributes.objsense == 1
    assert p.getVariable() == p.getConstraint() == p.getSOS() == []


def test_sense_and_name():
    p = nalora.problem(sense=nalora.maximize, name="café")
    assert p.attributes.objsense == -1
    assert p.name() == "café"
    x = nalora.var(ub=3)
    p.addVariable(x)
    p.setObjective(x)
    p.solve()
    assert p.getObjVal() == 3
    assert nalora.problem("positional", name="keyword").name() == "positional"
    assert nalora.problem(b"bytes").name() == "bytes"


def test_everything_in_one_declaration(xyz):
    x, y, z = xyz
    c, d = x + y <= 4, y - z >= -3
    s = nalora.sos([x, y], [1, 2], type=2)
    p = nalora.problem(
        x, [y, (z,)], "all", {"c": c}, (row for row in [d]), s, [], (), 2 * x + y, sense=-1
    )
    assert sizes(p) == (3, 2, 1)
    assert p.name() == "all"
    assert [p.getIndex(o) for o in [x, y, z, c, d, s]] == [0, 1, 2, 0, 1, 0]
    p.solve()
    assert p.getObjVal() == pytest.approx(8)


def test_objectives(xyz):
    x, y, _ = xyz
    for objective in [2 * x, x * y, x + y, x, np.array([x + y]), np.array([[x]]), np.array(x)]:
        assert sizes(nalora.problem(x, y, objective)) == (2, 0, 0)
        with pytest.raises(nalora.ModelError, match="At most one expression can be used as an ob"):
            nalora.problem(x, y, objective, y)


def test_registered_variable_is_the_objective(xyz):
    x, y, _ = xyz
    x.ub, y.ub = 7, 1
    p = nalora.problem(x, y, x, sense=nalora.maximize)
    p.solve()
    assert p.getObjVal() == 7


@pytest.mark.parametrize(
    ("make", "text"),
    [
        (lambda x, y: ["a", "b"], "More than one string passed in problem declaration"),
        (lambda x, y: [x, y, [x + y]], "Incorrect way of defining an objective function"),
        (lambda x, y: [x, y, iter([x + y, 2 * x])], "it should not be in an aggregate structure"),
        (lambda x, y: [x, y, np.array([x + y, 2 * x])], "Only one objective can be set, but a seq"),
        (lambda x, y: [3], "Erroneous problem declaration; argument contained object that was not"),
        (lambda x, y: [["name"]], "not a variable, constraint, or expression"),
        (lambda x, y: [[1, 2]], "not a variable, constraint, or expression"),
        (lambda x, y: [[x, 3]], "Incorrect objects added as variables to problem"),
        (lambda x, y: [[x, x]], "Variable already added to problem"),
        (lambda x, y: [x + y], "not been added"),
        (lambda x, y: [x <= 3], "Variable in linear part of constraint has not been added"),
        (lambda x, y: [x, [x <= 3, x]], "Invalid constraint"),
        (lambda x, y: {"sense": 2}, "Invalid optimization sense"),
        (lambda x, y: {"sense": 1 << 40}, "Invalid optimization sense"),
        (lambda x, y: {"sense": 1.0}, TypeError),
        (lambda x, y: {"sense": 1 << 70}, OverflowError),
        (lambda x, y: {"elements": 3}, TypeError),
        (lambda x, y: {"nam": "x"}, TypeError),
        (lambda x, y: {"name": 3}, TypeError),
        (lambda x, y: {"name": "a\0b"}, ValueError),
        (lambda x, y: [b"a\0b"], ValueError),
        (lambda x, y: ["\ud800"], UnicodeEncodeError),
    ],
)
def test_wrong_declarations(make, text, xyz):
    arguments = make(*xyz[:2])
    error, text = (nalora.ModelError, text) if isinstance(text, str) else (text, None)
    with pytest.raises(error, match=text):
        nalora.problem(**arguments) if isinstance(arguments, dict) else nalora.problem(*arguments)


class Boom(Exception):
    pass


def exploding(*items):
    yield from items
    raise Boom


def test_exploding_declarations(xyz):
    x, y, _ = xyz
    p = nalora.problem.__new__(nalora.problem)
    for elements in [exploding(), exploding(x, y), [x, exploding(y)], np.array([x, exploding()])]:
        with pytest.raises(Boom):
            p.__init__(elements)
        with pytest.raises(nalora.InterfaceError):
            p.getVariable()
    p.__init__(x, exploding.__name__)
    assert sizes(p) == (1, 0, 0)


# ---- half-made problems -----------------------------------------------------------------------


def use_everything(p, x):
    yield from [p.name, p.reset, p.copy, lambda: str(p), lambda: copy.copy(p), p.getVariable]
    yield from [p.getConstraint, p.getSOS, lambda: p.getIndex(x), lambda: p.getIndexFromName(1, "")]
    yield from [lambda: p.controls, lambda: p.attributes, p.getControl, p.getAttrib]
    yield from [lambda: p.setControl("miptol", 1e-6), lambda: p.addVariable(x), p.solve]
    yield from [lambda: p.addConstraint(x <= 1), lambda: p.addSOS(), lambda: p.delVariable(0)]
    yield from [lambda: p.setObjective(x), p.getSolution, p.getObjVal, lambda: p.write("model")]
    yield from [lambda: p.read("model"), lambda: p.getlpsol([]), p.lpoptimize]


@pytest.mark.parametrize("how", ["new", "failed", "failed again"])
def test_half_made_problems(how, xyz, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    x = xyz[0]
    p = nalora.problem.__new__(nalora.problem, 1, two=2)
    if how == "failed again":
        p.__init__(x, x <= 3)
    if how != "new":
        with pytest.raises(nalora.ModelError):
            p.__init__(x, "a", "b")
    for use in use_everything(p, x):
        with pytest.raises(nalora.InterfaceError, match="not been initialised"):
            use()
    p.__init__(x, name="now")
    assert p.name() == "now"
    assert p.getVariable() == [x]


def test_starting_over(xyz):
    x, y, _ = xyz
    p = nalora.problem(x, y, x + y <= 1, x, name="first")
    controls = p.controls
    with pytest.raises(nalora.ModelError):  # refused before anything is lost
        p.__init__(sense=0)
    assert sizes(p) == (2, 1, 0)
    p.__init__(y, name="second")
    assert (p.name(), sizes(p), p.getIndex(y)) == ("second", (1, 0, 0), 0)
    with pytest.raises(nalora.ModelError, match=r"^Variable x not in problem$"):
        p.getIndex(x)
    with pytest.raises(nalora.InterfaceError, match="no longer exists"):
        _ = controls.miptol
    assert p.controls.miptol > 0


def test_busy_problem_refuses(xyz):
    x = xyz[0]
    x.ub, x.vartype = 4.5, nalora.integer
    p = nalora.problem(x, -x)
    errors = []

    def meddle(*_):
        for use in [p.reset, p.__init__, lambda: p.addVariable(xyz[1]), p.solve, p.copy]:
            try:
                use()
            except nalora.SolverError as error:
                errors.append(str(error))

    nalora.addcbmsghandler(meddle, None, 0)
    try:
        p.solve()
    finally:
        nalora.removecbmsghandler(meddle)
    assert len(errors) >= 4
    assert all("being solved" in error for error in errors)
    assert p.getSolution() == [4.0]
    assert sizes(p) == (1, 0, 0)


def test_declaration_that_restarts_itself(xyz):
    x, y, z = xyz
    p = nalora.problem.__new__(nalora.problem)

    def nasty():
        yield x
        p.__init__(z)
        yield y

    try:
        p.__init__([z], nasty())
    except nalora.ModelError:
        return
    assert [p.getIndex(v) for v in p.getVariable()] == list(range(p.attributes.cols))


# ---- look-ups ---------------------------------------------------------------------------------


@pytest.fixture
def looked_up():
    x = [nalora.var(name=f"v{i}") for i in range(4)]
    rows = [v <= 9 for v in x]
    sets = [nalora.sos([x[i], x[i + 1]], [1, 2], type=1) for i in range(3)]
    return nalora.problem(x, rows, sets), x, rows, sets


def same(got, expected):
    return len(got) == len(expected) and all(a is b for a, b in zip(got, expected))


def test_lookups_by_index(looked_up):
    p, *kinds = looked_up
    for get, objects in zip([p.getVariable, p.getConstraint, p.getSOS], kinds):
        assert same(get(), objects)
        assert get(1) is get(index=True) is get(np.int64(1)) is objects[1]
        assert same(get(index=[2, 0, 2]), [objects[i] for i in [2, 0, 2]])
        assert same(get([[0], (1, iter([2]))]), objects[:3])
        assert same(get(np.array([2, 1])), [objects[2], objects[1]])
        assert same(get(None), objects)
        assert same(get(first=1), objects[1:])
        assert same(get(last=1), objects[:2])
        assert same(get(first=1, last=2), objects[1:3])
        assert get(first=2, last=1) == []
        assert same(get(None, 0, 0), objects[:1])


@pytest.mark.parametrize(
    ("arguments", "error", "message"),
    [
        ({"index": 0, "first": 1}, nalora.ModelError, "cannot be specified if 'index' is also"),
        ({"index": 0, "last": 0}, nalora.ModelError, "cannot be specified if 'index' is also"),
        ({"first": -2}, nalora.ModelError, "must be both nonnegative when specified"),
        ({"first": 0, "last": -3}, nalora.ModelError, "must be both nonnegative when specified"),
        ({"first": 4}, nalora.ModelError, "'first' and 'last' are out of range"),
        ({"first": 0, "last": 4}, nalora.ModelError, "'first' and 'last' are out of range"),
        ({"first": 3, "last": 1}, SystemError, "beyond 'last'"),
        ({"index": 4}, IndexError, "list index out of range"),
        ({"index": -1}, IndexError, "list index out of range"),
        ({"index": 1 << 70}, IndexError, None),
        ({"index": [0, -1]}, IndexError, "list index out of range"),
        ({"index": [1, "a"]}, nalora.ModelError, "^Error in index list"),
        ({"index": "a"}, nalora.ModelError, "must contain only integers$"),
        ({"index": 1.0}, nalora.ModelError, "must contain only integers$"),
        ({"index": exploding(0)}, Boom, None),
        ({"first": "a"}, TypeError, None),
        ({"first": 1 << 40}, OverflowError, None),
        ({"indices": 1}, TypeError, None),
    ],
    ids=str,
)
def test_wrong_lookups(looked_up, arguments, error, message):
    with pytest.raises(error, match=message):
        looked_up[0].getVariable(**arguments)


def test_lookup_while_the_problem_is_emptied(looked_up):
    p, x, *_ = looked_up

    def indices():
        yield 0
        p.reset()
        yield 1

    assert same(p.getVariable(indices()), x[:2])
    assert p.getVariable() == []


def test_indices_of_objects(looked_up):
    p, *kinds = looked_up
    for objects in kinds:
        assert [p.getIndex(o) for o in objects] == list(range(len(objects)))
    stranger = nalora.var(name="stranger")
    for other, name in [(stranger, "Variable stranger"), (stranger <= 1, "Constraint")]:
        with pytest.raises(nalora.ModelError, match=f"^{name}.* not in problem$"):
            p.getIndex(other)
    for wrong in [0, "v0", None, [kinds[0][0]], 2 * stranger]:
        with pytest.raises(
            nalora.ModelError,
            match=r"^Incorrect object\(s\) passed: need variable, constraint, or SOS$",
        ):
            p.getIndex(wrong)


# ---- reset and copy ---------------------------------------------------------------------------


def test_reset(looked_up):
    p, x, rows, _ = looked_up
    p.setControl({"miptol": 1e-4, "loglevel": 2})
    controls = p.controls
    p.reset()
    assert p.name() == str(p) == ""
    assert sizes(p) == (0, 0, 0)
    assert p.getVariable() == p.getConstraint() == p.getSOS() == []
    assert controls.miptol == nalora.problem().getControl("miptol")  # the library's own again
    assert controls is p.controls
    p.addVariable(x[3], x[0])
    assert p.getIndex(x[0]) == 1
    p.addConstraint(rows[0])
    p.setObjective(x[0])
    p.solve()
    assert p.getObjVal() == 0


def test_copy_shares_objects_but_not_the_model(looked_up):
    p, x, rows, sets = looked_up
    p.setObjective(x[0] + 2 * x[1], sense=nalora.maximize)
    p.setControl("miptol", 1e-4)
    q = p.copy()
    assert type(q) is nalora.problem
    assert (q.name(), sizes(q), q.controls.miptol) == (p.name(), sizes(p), 1e-4)
    assert same(q.getVariable(), x)
    assert same(q.getConstraint(), rows)
    assert same(q.getSOS(), sets)
    assert [q.getIndex(v) for v in x] == [0, 1, 2, 3]
    q.delVariable(x[3])
    q.delConstraint(rows[0])
    q.addVariable(nalora.var())
    q.setControl("miptol", 1e-3)
    assert sizes(p) == (4, 4, 3)
    assert same(p.getVariable(), x)
    assert p.getIndex(x[3]) == 3
    assert p.controls.miptol == 1e-4
    p.reset()
    assert sizes(q) == (4, 3, 3)
    del p
    gc.collect()
    assert q.controls.miptol == 1e-3


def test_copies_by_the_copy_module(looked_up):
    p, x, *_ = looked_up
    for q in [copy.copy(p), copy.deepcopy(p)]:
        assert same(q.getVariable(), x)
        assert sizes(q) == sizes(p)
        assert q is not p
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        with pytest.raises(TypeError, match=r"cannot pickle 'nalora\.problem'"):
            pickle.dumps(p, protocol)


def test_copy_after_a_failed_addition(xyz):
    x, y, z = xyz
    p = nalora.problem(x)
    with pytest.raises(nalora.ModelError):
        p.addVariable([y, 3])
    q = p.copy()
    assert q.getVariable() == p.getVariable() == [x]
    q.addVariable(z)
    assert q.getIndex(z) == 1


# ---- the end ----------------------------------------------------------------------------------


class Owner(nalora.problem):
    pass


def test_cycles_are_collected():
    class Payload:
        pass

    payload = Payload()
    gone = weakref.ref(payload)
    p = Owner(nalora.var())
    p.itself, p.payload = p, payload
    x = nalora.var()
    q = Owner(x)
    q.objects = [q, p.controls, p.attributes]
    del payload, p, q
    gc.collect()
    assert gone() is None


def test_subclasses():
    class Named(nalora.problem):
        def __init__(self, *elements, tag):
            super().__init__(*elements, name=tag)
            self.tag = tag

        def size(self):
            return self.attributes.cols

    p = Named(nalora.var(), nalora.var(), tag="mine")
    assert (p.size(), p.name(), p.tag) == (2, "mine", "mine")
    assert type(p.copy()) is nalora.problem


def test_no_leaks(xyz):
    x, y, z = xyz
    rows = [x + y <= 1, z >= 2]

    def once():
        p = nalora.problem(x, [y, z], rows, 2 * x, name="leak")
        q = p.copy()
        q.reset()
        p.__init__(x)
        p.controls.miptol = p.controls.miptol
        str(p.attributes), p.getVariable([0]), copy.copy(p.controls), p.getControl()
        for wrong in ["a", "b"], [exploding(x)], [x, [x + y]]:
            with contextlib.suppress(nalora.ModelError, Boom):
                nalora.problem(*wrong)

    assert growth(once) < 50
