"""Objects, the library and files call every variable, constraint and set by the same name."""

import random

import pytest

import nalora

NAMES_OF = {2: "getVariable", 1: "getConstraint", 3: "getSOS"}


class Pair:
    """A problem beside a plain list of the names that each kind of object must have."""

    def __init__(self, seed, tmp_path):
        self.random = random.Random(seed)
        self.p = nalora.problem(nalora.var("kept"))
        self.path = str(tmp_path / "m.lp")
        # Unnamed objects from before the files are read, whose numbers the names may hit.
        self.spare = {kind: [self.make(kind) for _ in range(40)] for kind in NAMES_OF}
        self.given = {1: set(), 2: {"kept"}, 3: set()}  # names that must not change any more

    def make(self, kind, **name):
        if kind == 3:
            return nalora.sos([0], [1.0], **name)
        return nalora.var(**name) if kind == 2 else nalora.constraint(body=0, ub=1, **name)

    def objects(self, kind):
        return getattr(self.p, NAMES_OF[kind])()

    def some_name(self, kind):
        """Like a default name, of an object at hand at best, or like none."""
        letter = {2: "C", 1: "R", 3: "sos"}[kind]
        hit = self.random.choice([*self.spare[kind], *self.objects(kind)])
        number = len(self.objects(kind)) + self.random.choice([1, 1, 2, 5])
        return self.random.choice([hit.name, f"{letter}{number}", f"x{number}", f"C0{number}"])

    def add(self, kind):
        add = {2: self.p.addVariable, 1: self.p.addConstraint, 3: self.p.addSOS}[kind]
        new = []
        for _ in range(self.random.randint(1, 3)):
            name = self.some_name(kind)
            if self.random.random() < 0.5 and self.spare[kind]:
                new.append(self.spare[kind].pop())
            elif name not in self.given[kind] and (kind != 3 or name not in self.names(3)):
                new.append(self.make(kind, name=name))
                self.given[kind].add(name)
        add(new)

    def delete(self, kind):
        objects = [o for o in self.objects(kind) if o.name != "kept"]
        if not objects:
            return
        gone = self.random.choice(objects)
        name = gone.name
        remove = {2: self.p.delVariable, 1: self.p.delConstraint, 3: self.p.delSOS}[kind]
        remove(self.p.getIndexFromName(kind, name) if kind == 3 else gone)
        self.given[kind].discard(name)
        with pytest.raises(nalora.SolverError):
            self.p.getIndexFromName(kind, name)

    def names(self, kind):
        return [o.name for o in self.objects(kind)]

    def read(self):
        before = {kind: self.names(kind) for kind in NAMES_OF}
        self.p.write(self.path)
        self.p.read(self.path)
        for kind, names in before.items():
            assert self.names(kind) == names
            self.given[kind] = set(names)

    def check(self):
        self.p.write(self.path)
        q = nalora.problem()
        q.read(self.path)
        for kind, get in NAMES_OF.items():
            names = self.names(kind)
            assert [o.name for o in getattr(q, get)()] == names
            assert [self.p.getIndexFromName(kind, n) for n in names] == list(range(len(names)))
            assert self.given[kind] <= set(names)


@pytest.mark.parametrize("seed", range(6))
def test_names_agree_whatever_happens(seed, tmp_path):
    pair = Pair(seed, tmp_path)
    for _ in range(40):
        step = pair.random.choice([pair.add, pair.add, pair.delete, lambda _: pair.read()])
        step(pair.random.choice([2, 2, 1, 3]))
        pair.check()


def test_rows_without_names_in_a_file_get_names_that_are_free(tmp_path):
    path = tmp_path / "m.lp"
    path.write_text("min x\nst\n x + y >= 1\nR1: x >= 0\n y <= 5\nend\n")
    p = nalora.problem()
    p.read(path)
    names = [c.name for c in p.getConstraint()]
    assert names[1:] == ["R1", "R3"] and names[0] not in names[1:]
    p.delConstraint(1)
    assert [p.getIndexFromName(1, name) for name in (names[0], "R3")] == [0, 1]
