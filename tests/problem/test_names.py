"""Objects, the library and files call every variable, constraint and set by the same name."""

import random

import pytest

import nalora

# By the library's type of names: how default names begin, an object that needs no other, and how
# the problem gets, adds and deletes its objects.
KINDS = {
    1: ("R", lambda **n: nalora.constraint(body=0, ub=1, **n), "Constraint"),
    2: ("C", nalora.var, "Variable"),
    3: ("sos", lambda **n: nalora.sos([0], [1.0], **n), "SOS"),
}


def names(p, kind):
    return [o.name for o in getattr(p, "get" + KINDS[kind][2])()]


def add(p, kind, spare, given, r):
    """Some unnamed objects and some with names that are, or could be, somebody's default name."""
    letters, make, what = KINDS[kind]
    new = []
    for _ in range(r.randint(1, 3)):
        number = len(names(p, kind)) + r.choice([1, 1, 2])
        hit = r.choice(spare["names"][kind])
        name = r.choice([hit, hit, f"{letters}{number}", f"x{number}"])
        if r.random() < 0.5 and spare[kind]:
            new.append(spare[kind].pop())
        elif name not in given[kind]:
            new.append(make(name=name))
            given[kind].add(name)
    getattr(p, "add" + what)(new)


def delete(p, kind, spare, given, r):
    what = KINDS[kind][2]
    objects = [o for o in getattr(p, "get" + what)() if o.name != "kept"]
    if not objects:
        return
    gone = r.choice(objects)
    getattr(p, "del" + what)(r.choice([gone, p.getIndexFromName(kind, gone.name)]))
    given[kind].discard(gone.name)
    with pytest.raises(nalora.SolverError):
        p.getIndexFromName(kind, gone.name)


@pytest.mark.parametrize("seed", range(6))
def test_names_agree_whatever_happens(seed, tmp_path):
    r, path, q = random.Random(seed), tmp_path / "m.lp", nalora.problem()
    p = nalora.problem(nalora.var("kept"))
    # Objects from before files are read, whose numbers the names in them may hit.
    spare = {kind: [KINDS[kind][1]() for _ in range(40)] for kind in KINDS}
    spare["names"] = {kind: [o.name for o in spare[kind]] for kind in KINDS}
    given = {1: set(), 2: {"kept"}, 3: set()}  # names that must not change any more
    for _ in range(40):
        r.choice([add, add, delete])(p, r.choice([2, 2, 1, 3]), spare, given, r)
        before = {kind: names(p, kind) for kind in KINDS}
        p.write(path)
        if r.random() < 0.3:
            p.read(path)
            given = {kind: set(before[kind]) for kind in KINDS}
        q.read(path)
        for kind, known in before.items():
            assert names(p, kind) == names(q, kind) == known and given[kind] <= set(known)
            assert [p.getIndexFromName(kind, n) for n in known] == list(range(len(known)))


def test_rows_without_names_in_a_file_get_names_that_are_free(tmp_path):
    path = tmp_path / "m.lp"
    path.write_text("min x\nst\n x + y >= 1\nR1: x >= 0\n y <= 5\nend\n")
    p = nalora.problem()
    p.read(path)
    first, *others = names(p, 1)
    assert others == ["R1", "R3"] and first not in others
    p.delConstraint(1)
    assert [p.getIndexFromName(1, name) for name in (first, "R3")] == [0, 1]
