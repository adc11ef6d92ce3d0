"""What importing the module gives: names, constants, types, exceptions."""

import inspect
import os
import pickle
import shlex
import subprocess
import sys
import textwrap

import pytest

import nalora
from nalora import naloralib

TYPES = ["var", "sos", "constraint", "problem", "branchobj", "poolcut"]
EXCEPTIONS = ["ModelError", "InterfaceError", "SolverError"]
FUNCTION_WORDS = """
    Sum Prod Dot sin cos tan asin acos atan exp log log10 abs sqrt sign erf erfc max min user
    getlasterror getversion getcheckedmode setcheckedmode setdefaultcontrol setdefaults
    addcbmsghandler removecbmsghandler getbanner init free vars setarchconsistency evaluate
    pwl And Or getOutputEnabled setOutputEnabled
"""
FUNCTIONS = FUNCTION_WORDS.split()
CONSTANT_WORDS = """
    continuous=0 binary=1 integer=2 semicontinuous=3 semiinteger=4 partiallyinteger=5 minimize=1
    maximize=-1 leq=1 geq=2 eq=3 range=4 infinity=1e20 solinfo_absprimalinfeas=0
    solinfo_relprimalinfeas=1 solinfo_absdualinfeas=2 solinfo_reldualinfeas=3
    solinfo_maxmipfractional=4 basis_nonbasic_lower=0 basis_basic=1 basis_nonbasic_upper=2
    basis_superbasic=3 lp_unstarted=0 lp_optimal=1 lp_infeas=2 lp_cutoff=3 lp_unfinished=4
    lp_unbounded=5 lp_cutoff_in_dual=6 lp_unsolved=7 lp_nonconvex=8 mip_not_loaded=0
    mip_lp_not_optimal=1 mip_lp_optimal=2 mip_no_sol_found=3 mip_solution=4 mip_infeas=5
    mip_optimal=6 mip_unbounded=7 nlp_unstarted=0 nlp_solution=1 nlp_locally_optimal=1
    nlp_globally_optimal=2 nlp_locally_infeasible=3 nlp_infeasible=4 nlp_unbounded=5
    nlp_unfinished=6 stop_timelimit=1 stop_ctrlc=2 stop_nodelimit=3 stop_iterlimit=4 stop_mipgap=5
    stop_sollimit=6 stop_user=9 type_notdefined=0 type_int=1 type_int64=2 type_double=3
    type_string=4 colinfo_value=1 colinfo_rdj=2 colinfo_deltaindex=3 colinfo_delta=4
    colinfo_deltadj=5 colinfo_updaterow=6 colinfo_sb=7 colinfo_sbdual=8 rowinfo_slack=1
    rowinfo_dual=2 rowinfo_numpenaltyerrors=3 rowinfo_maxpenaltyerror=4
    rowinfo_totalpenaltyerror=5 rowinfo_currentpenaltyerror=6 rowinfo_currentpenaltyfactor=7
    rowinfo_penaltycolumnplus=8 rowinfo_penaltycolumnplusvalue=9 rowinfo_penaltycolumnplusdj=10
    rowinfo_penaltycolumnminus=11 rowinfo_penaltycolumnminusvalue=12
    rowinfo_penaltycolumnminusdj=13 msset_initialvalues=0 msset_initialfiltered=6 msset_solvers=1
    msset_slp_basic=2 msset_slp_extended=3 msset_knitro_basic=4 msset_knitro_extended=5
    gencons_max=0 gencons_min=1 gencons_and=2 gencons_or=3 gencons_abs=4
"""
CONSTANTS = {
    name: 1e20 if name == "infinity" else int(value)
    for name, value in (word.split("=") for word in CONSTANT_WORDS.split())
}


def run_python(code, **environment):
    return subprocess.run(
        [sys.executable, "-X", "faulthandler", "-c", textwrap.dedent(code)],
        capture_output=True,
        text=True,
        timeout=60,
        env={**os.environ, **environment},
    )


def test_names_in_order():
    names = [name for name in vars(naloralib) if not name.startswith("_")]
    arrays = ["npvar", "npexpr", "npconstraint"]
    assert names == FUNCTIONS + TYPES + EXCEPTIONS + list(CONSTANTS) + arrays + ["controls"]


def test_constants():
    assert {name: getattr(nalora, name) for name in CONSTANTS} == CONSTANTS
    wrong = [name for name in CONSTANTS if type(getattr(nalora, name)) is not int]
    assert wrong == ["infinity"]
    assert type(nalora.infinity) is float


def test_type_names_and_subclassing():
    type_names = {name: getattr(nalora, name).__name__ for name in TYPES}
    assert type_names == {name: "SOS" if name == "sos" else name for name in TYPES}
    for name in TYPES:
        cls = getattr(nalora, name)
        assert cls.__module__ == "nalora"
        assert issubclass(type("Derived", (cls,), {}), cls)


def test_exceptions_are_siblings():
    for name in EXCEPTIONS:
        error = getattr(nalora, name)
        assert error.__bases__ == (Exception,)
        assert f"{error.__module__}.{error.__name__}" == f"nalora.{name}"
        assert type(pickle.loads(pickle.dumps(error("text")))) is error


@pytest.mark.parametrize("name", FUNCTIONS)
def test_functions_are_documented(name):
    function = getattr(nalora, name)
    assert function.__doc__
    if name != "evaluate":
        inspect.signature(function)


def test_problem_methods_are_documented():
    for name, member in vars(nalora.problem).items():
        if callable(member) and not name.startswith("__"):
            assert member.__doc__, name
            assert member.__text_signature__, name


def test_defaults_at_import():
    result = run_python("import nalora; print(nalora.controls.nslp_postsolve)")
    assert (result.stdout, result.stderr) == ("1\n", "")


@pytest.mark.parametrize("cls", [nalora.branchobj, nalora.poolcut], ids=str)
def test_handles_are_opaque(cls):
    handle = cls()
    assert repr(handle) == f"<nalora.{cls.__name__} without a handle>"
    with pytest.raises(TypeError, match="takes no arguments"):
        cls(nalora.problem())
    with pytest.raises(TypeError, match="takes no arguments"):
        cls(x=1)
    with pytest.raises(TypeError):
        pickle.dumps(handle)

    class Derived(cls):
        pass

    assert isinstance(Derived(), cls)


def test_imported_again_after_removal():
    # The interpreter gives the same contents to a new module object and drops the first.
    result = run_python(
        """
        import gc, sys
        import nalora
        p = nalora.problem(nalora.var())
        for name in ["nalora", "nalora.naloralib"]:
            del sys.modules[name]
        del nalora
        gc.collect()
        import nalora
        gc.collect()
        q = nalora.problem(nalora.var(), name="again")
        assert isinstance(p, nalora.problem) and p.attributes.cols == q.attributes.cols == 1
        assert nalora.controls.nslp_postsolve == 1 and q.getControl("miptol") > 0
        del p
        print(q)
        """
    )
    assert (result.returncode, result.stdout, result.stderr) == (0, "again\n", "")


def test_loaded_again():
    result = run_python(
        """
        import importlib, nalora
        before = dict(vars(nalora))
        p = nalora.problem(nalora.var())
        for module in [nalora.naloralib, nalora, nalora]:
            importlib.reload(module)
        assert all(vars(nalora)[name] is before[name] for name in nalora.__all__)
        print(p.attributes.cols, isinstance(p, nalora.problem))
        """
    )
    assert (result.stdout, result.stderr) == ("1 True\n", "")


def test_imported_in_a_thread():
    result = run_python(
        """
        import threading
        def work():
            global nalora, p
            import nalora
            p = nalora.problem(nalora.var())
        thread = threading.Thread(target=work)
        thread.start()
        thread.join()
        print(p.attributes.cols)
        """
    )
    assert (result.returncode, result.stdout, result.stderr) == (0, "1\n", "")


def test_failed_import_leaves_nothing_behind():
    result = run_python(
        """
        import sys
        sys.modules["numpy.core.multiarray"] = sys.modules["numpy._core.multiarray"] = None
        sys.modules["numpy.core._multiarray_umath"] = None
        sys.modules["numpy._core._multiarray_umath"] = None
        sys.modules["numpy"] = None
        for attempt in range(2):
            try:
                import nalora
            except ImportError as error:
                print("no numpy")
        for name in [name for name in sys.modules if name.startswith(("numpy", "nalora"))]:
            del sys.modules[name]
        import nalora
        p = nalora.problem()
        print(p.attributes.cols)
        """
    )
    assert (result.returncode, result.stdout) == (0, "no numpy\nno numpy\n0\n"), result.stderr


def test_library_that_cannot_start(tmp_path):
    source = tmp_path / "shim.c"
    source.write_text(
        """
        #include <stddef.h>
        #include <stdlib.h>
        int NLRAinit(const char* path) { (void)path; return getenv("BROKEN") ? 1 : 0; }
        int NLRA_ge_getlasterror(int* code, char* text, int size, int* n) {
            const char* why = "no licence here";
            (void)size; (void)n; *code = 17;
            for (; (*text++ = *why++) != 0;) {}
            return 0;
        }
        """
    )
    shim = tmp_path / "shim.so"
    compiler = shlex.split(os.environ.get("CXX", "c++"))
    options = ["-x", "c", "-shared", "-fPIC", "-o", str(shim), str(source)]
    subprocess.run(compiler + options, check=True)
    preload = " ".join(filter(None, [os.environ.get("LD_PRELOAD"), str(shim)]))
    code = """
        import nalora
        for use in [nalora.getversion, nalora.init, nalora.problem, nalora.getbanner]:
            try:
                use()
            except nalora.InterfaceError as error:
                print(error)
        nalora.free()
        print(nalora.controls.nslp_postsolve, nalora.getlasterror())
        """
    result = run_python(code, LD_PRELOAD=preload, BROKEN="1")
    expected = "no licence here\n" * 4 + "1 (17, 'no licence here')\n"
    assert (result.returncode, result.stdout, result.stderr) == (0, expected, "")
