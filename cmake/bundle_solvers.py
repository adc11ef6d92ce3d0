"""Prepare the solver libraries that the package carries.

Copies HiGHS and Ipopt with what they need out of the build-time packages `highsbox` and `casadi`
and gives each copy a file name, SONAME and NEEDED entries of our own with an $ORIGIN run path. A
process that also loads another package's HiGHS or Ipopt then never mixes them up with ours.

METIS is left out: libnlra_metis.so, built from engine/third_party/metis_stub, takes its place.

Prints the include directories of HiGHS and Ipopt, separated by a semicolon.
"""

import argparse
import hashlib
import importlib.util
import shutil
import subprocess
import sys
from pathlib import Path

# Our name, and how the file is called in the package (a pattern: some names carry a hash).
HIGHS = [("libnlra_highs.so", "lib/libhighs.so")]
IPOPT = [
    ("libnlra_ipopt.so", "libipopt.so.3"),
    ("libnlra_mumps.so", "libcoinmumps.so.3"),
    ("libnlra_openblas.so", "libcasadi-tp-openblas.so.0"),
    ("libnlra_gfortran.so", "libgfortran-*.so.5*"),
    ("libnlra_quadmath.so", "libquadmath-*.so.0*"),
]
METIS = ("libnlra_metis.so", "libcoinmetis.so.2")
# What a library may need beyond the ones above: glibc, the compiler's run time, and zlib.
SYSTEM = {
    "ld-linux-x86-64.so.2",
    "ld-linux-aarch64.so.1",
    "libc.so.6",
    "libdl.so.2",
    "libgcc_s.so.1",
    "libm.so.6",
    "libpthread.so.0",
    "librt.so.1",
    "libstdc++.so.6",
    "libz.so.1",
}


def package_dir(name):
    """The folder of an installed package, found without importing it."""
    spec = importlib.util.find_spec(name)
    if spec is None or not spec.submodule_search_locations:
        sys.exit(
            f"error: the build-time package {name} is not installed for {sys.executable}; "
            "see build-system.requires in pyproject.toml"
        )
    return Path(next(iter(spec.submodule_search_locations)))


def find_one(folder, pattern):
    found = sorted(folder.glob(pattern))
    if len(found) != 1:
        sys.exit(f"error: expected one file {pattern} in {folder}, found {len(found)}")
    return found[0]


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def bundle(patchelf, sources, out):
    """Copy and rename the libraries; `sources` maps our name to the original file."""
    renamed = {Path(file).name: name for name, file in sources.items()}
    renamed[METIS[1]] = METIS[0]
    for name, file in sources.items():
        target = out / name
        partial = out / (name + ".part")
        shutil.copyfile(file, partial)
        arguments = ["--set-soname", name, "--set-rpath", "$ORIGIN"]
        for needed in run(patchelf, "--print-needed", str(partial)).split():
            if needed in renamed:
                arguments += ["--replace-needed", needed, renamed[needed]]
            elif needed not in SYSTEM:
                sys.exit(f"error: {file} needs {needed}, which is neither bundled nor standard")
        run(patchelf, *arguments, str(partial))
        partial.chmod(0o755)
        partial.replace(target)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--patchelf", required=True)
    parser.add_argument("--out", type=Path, required=True, help="folder of the libraries")
    options = parser.parse_args()

    highs = package_dir("highsbox") / "highs_dist"
    casadi = package_dir("casadi")
    sources = {name: find_one(highs, pattern) for name, pattern in HIGHS}
    sources.update({name: find_one(casadi, pattern) for name, pattern in IPOPT})

    # Copy again only when this script or a library changed, so that nothing is relinked in vain.
    key = hashlib.sha256(Path(__file__).read_bytes())
    for file in sources.values():
        status = file.stat()
        key.update(f"{file} {status.st_size} {status.st_mtime_ns}\n".encode())
    stamp = options.out / ".bundled"
    complete = all((options.out / name).exists() for name in sources)
    if not (complete and stamp.exists() and stamp.read_text() == key.hexdigest()):
        options.out.mkdir(parents=True, exist_ok=True)
        bundle(options.patchelf, sources, options.out)
        stamp.write_text(key.hexdigest())

    print(f"{highs / 'include'};{casadi / 'include' / 'coin-or'}", end="")


if __name__ == "__main__":
    main()
