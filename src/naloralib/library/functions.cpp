// Module functions that do nothing but reach the library.
#include "library/library.hpp"
#include "module/parts.hpp"
#include "module/state.hpp"

namespace nalora {

namespace {

PyObject* getlasterror(PyObject*, PyObject*) noexcept {
    return guarded([] {
        int code = 0;
        int needed = 0;
        char text[1025] = {};
        check_library(NLRA_ge_getlasterror(&code, text, sizeof(text), &needed), nullptr);
        return take(Py_BuildValue("(iN)", code, decode_text(text).release()));
    });
}

PyObject* getversion(PyObject*, PyObject*) noexcept {
    return guarded([] {
        start_environment(false);
        char version[32] = {};
        check_library(NLRAgetversion(version), nullptr);
        return decode_text(version);
    });
}

PyObject* getbanner(PyObject*, PyObject*, PyObject*) noexcept {
    return guarded([] {
        start_environment(false);
        char banner[512] = {};
        check_library(NLRAgetbanner(banner), nullptr);
        return decode_text(banner);
    });
}

PyObject* getcheckedmode(PyObject*, PyObject*) noexcept {
    return guarded([] {
        start_environment(false);
        int checked = 0;
        check_library(NLRAgetcheckedmode(&checked), nullptr);
        return Ref::borrow(checked != 0 ? Py_True : Py_False);
    });
}

PyObject* setcheckedmode(PyObject*, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] {
        static const char* const keywords[] = {"checked_mode", nullptr};
        PyObject* mode = nullptr;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "O", const_cast<char**>(keywords), &mode)) {
            throw PythonError{};
        }
        start_environment(false);
        check_library(NLRAsetcheckedmode(mode == Py_True ? 1 : 0), nullptr);
        return none();
    });
}

PyObject* setarchconsistency(PyObject*, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] {
        static const char* const keywords[] = {"ifArchConsistent", nullptr};
        PyObject* wanted = nullptr;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "O", const_cast<char**>(keywords),
                                         &wanted)) {
            throw PythonError{};
        }
        const int consistent = wanted != Py_None && wanted != Py_False;
        check_library(NLRA_ge_setarchconsistency(consistent), nullptr);
        return none();
    });
}

PyObject* init_environment(PyObject*, PyObject*) noexcept {
    return guarded([] {
        start_environment(true);
        return none();
    });
}

PyObject* free_environment(PyObject*, PyObject*) noexcept {
    return guarded([] {
        stop_environment(true);
        return none();
    });
}

const PyMethodDef kLibraryFunctions[] = {
    {"getlasterror", getlasterror, METH_NOARGS,
     "getlasterror()\n--\n\n"
     "Return the last error of the library as a whole as a pair of its code and its text; (0, '')\n"
     "when there was none. Errors of a problem are not told here."},
    {"getversion", getversion, METH_NOARGS,
     "getversion()\n--\n\n"
     "Return the optimizer library's version as a str. Starts the library when it is not running;\n"
     "raises InterfaceError when that fails."},
    {"getcheckedmode", getcheckedmode, METH_NOARGS,
     "getcheckedmode()\n--\n\n"
     "Return True when the library looks through the contents of its array arguments. Starts the\n"
     "library when it is not running."},
    {"setcheckedmode", keyword_function(setcheckedmode), METH_VARARGS | METH_KEYWORDS,
     "setcheckedmode(checked_mode)\n--\n\n"
     "Switch the library's search for NaN and duplicate entries in array arguments on when\n"
     "checked_mode is True, off for anything else. Starts the library when it is not running."},
};

const PyMethodDef kEnvironmentFunctions[] = {
    {"getbanner", keyword_function(getbanner), METH_VARARGS | METH_KEYWORDS,
     "getbanner(*args, **kwargs)\n--\n\n"
     "Return the library's banner, its name and version, as a str; arguments are ignored. Starts\n"
     "the library when it is not running."},
    {"init", init_environment, METH_NOARGS,
     "init()\n--\n\n"
     "Start the library and count one more user of it. It is not needed before making problems,\n"
     "which start the library by themselves. Raises InterfaceError when the library cannot start."},
    {"free", free_environment, METH_NOARGS,
     "free()\n--\n\n"
     "Stop the library, whatever the number of its users. Problems that are still alive answer\n"
     "every call with an error from then on, until the library is started again."},
};

const PyMethodDef kArchitectureFunctions[] = {
    {"setarchconsistency", keyword_function(setarchconsistency), METH_VARARGS | METH_KEYWORDS,
     "setarchconsistency(ifArchConsistent)\n--\n\n"
     "Ask the library to take the same execution path on all processors, unless ifArchConsistent\n"
     "is None or False. The library has one path only, so this changes nothing at present."},
};

}  // namespace

std::span<const PyMethodDef> library_functions() { return kLibraryFunctions; }
std::span<const PyMethodDef> environment_functions() { return kEnvironmentFunctions; }
std::span<const PyMethodDef> architecture_functions() { return kArchitectureFunctions; }

}  // namespace nalora
