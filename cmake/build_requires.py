"""Prints build-system.requires of pyproject.toml, one requirement a line, for pip."""

from pathlib import Path

try:
    import tomllib
except ImportError:  # before Python 3.11
    from pip._vendor import tomli as tomllib

text = (Path(__file__).resolve().parent.parent / "pyproject.toml").read_text(encoding="utf-8")
print("\n".join(tomllib.loads(text)["build-system"]["requires"]))
