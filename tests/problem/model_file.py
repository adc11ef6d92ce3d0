"""Shared by the tests of this folder: what a problem holds, read back through a model file."""

import re
from collections import defaultdict

import pytest

import nalora


def fails(text, error=nalora.ModelError):
    return pytest.raises(error, match=re.escape(text) if text else None)


def is_same(left, right):
    return len(left) == len(right) and all(a is b for a, b in zip(left, right))


def sizes(p):
    return p.attributes.cols, p.attributes.rows, p.attributes.sets


def read_back(problem, directory):
    """The sections of the problem's MPS file: {section: {key: value}}.

    ROWS: name -> type; COLUMNS: (column, row) -> coefficient; RHS and RANGES: row -> value; BOUNDS:
    column -> [(kind, value)]; QUADOBJ: (column, column) -> value; QCMATRIX: (row, column, column)
    -> value; SOS: set -> (type, {column: weight}); INDICATORS: row -> (column, value). Integer
    columns are the keys of INTEGER.
    """
    path = directory / "model.mps"
    problem.write(path)
    model = defaultdict(dict)
    section = row = entry = None
    integer = False
    for line in path.read_text().splitlines():
        fields = line.split()
        if not line.startswith(" "):
            section, row = fields[0], fields[-1]
        elif section == "ROWS":
            model[section][fields[1]] = fields[0]
        elif section == "COLUMNS" and fields[1] == "'MARKER'":
            integer = fields[2] == "'INTORG'"
        elif section == "BOUNDS":
            value = float(fields[3]) if len(fields) > 3 else None
            model[section].setdefault(fields[2], []).append((fields[0], value))
        elif section in ("RHS", "RANGES"):
            model[section][fields[1]] = float(fields[2])
        elif section == "QCMATRIX":
            model[section][(row, *sorted(fields[:2]))] = float(fields[2])
        elif section == "SOS":
            if fields[0] in ("S1", "S2"):
                entry = model[section][fields[1]] = (fields[0], {})
            else:
                entry[1][fields[0]] = float(fields[1])
        elif section == "INDICATORS":
            model[section][fields[1]] = (fields[2], float(fields[3]))
        elif section in ("COLUMNS", "QUADOBJ"):
            model[section][(fields[0], fields[1])] = float(fields[2])
            if integer and section == "COLUMNS":
                model["INTEGER"][fields[0]] = True
    return model
