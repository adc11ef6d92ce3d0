"""Compiles the C++ sources of benchmarks/native against the build-time packages, once each."""

import hashlib
import importlib.util
import os
import subprocess
import tempfile
from pathlib import Path

NATIVE = Path(__file__).resolve().parent.parent / "native"


def package(name):
    """Folder of an installed package, which is not imported."""
    return Path(importlib.util.find_spec(name).submodule_search_locations[0])


def shared_library(source, *arguments):
    """Path of native/<source> as a shared library, kept until its text or arguments change."""
    code = NATIVE / source
    key = code.read_bytes() + repr(arguments).encode()
    folder = Path(tempfile.gettempdir()) / f"peers_{hashlib.sha256(key).hexdigest()[:12]}"
    library = folder / f"{code.stem}.so"
    if not library.exists():
        folder.mkdir(exist_ok=True)
        unfinished = library.with_suffix(f".{os.getpid()}")
        command = ["g++", "-O2", "-std=c++20", "-shared", "-fPIC", str(code), *arguments]
        subprocess.run([*command, "-o", str(unfinished)], check=True)
        os.replace(unfinished, library)  # another process may be building it as well
    return library


def linked(folder, library):
    """Arguments that link a library of a folder, found there when run."""
    return (f"-L{folder}", f"-l{library}", f"-Wl,-rpath,{folder}")


def with_highs():
    home = package("highsbox") / "highs_dist"
    return (f"-I{home / 'include' / 'highs'}", *linked(home / "lib", "highs"))
