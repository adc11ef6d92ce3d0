// The methods that build, change, read and write a model: argument passing and docstrings.
#include "module/state.hpp"
#include "problem/building.hpp"

namespace nalora {

namespace {

using Arguments = std::span<PyObject* const>;

// Methods that take positional arguments only, as the interpreter passes them: no tuple is made.
template <Ref (*Body)(ProblemObject*, Arguments)>
PyObject* positional(PyObject* self, PyObject* const* args, Py_ssize_t count) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return Body(as_problem(self), Arguments(args, static_cast<std::size_t>(count)));
    });
}

template <Ref (*Body)(ProblemObject*, PyObject*, PyObject*)>
PyObject* with_keywords(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return Body(as_problem(self), args, keywords);
    });
}

Ref add_variable(ProblemObject* p, Arguments args) {
    add_variables(p, args);
    return none();
}

Ref add_constraint(ProblemObject* p, Arguments args) {
    add_constraints(p, args);
    return none();
}

Ref add_sos(ProblemObject* p, Arguments args) {
    for (PyObject* object : args) add_sets(p, object);
    return none();
}

Ref add_indicator(ProblemObject* p, Arguments args) {
    return add_indicators(p, args.data(), static_cast<Py_ssize_t>(args.size()));
}

template <const Registry& Kind>
Ref remove(ProblemObject* p, PyObject* args, PyObject* keywords) {
    return delete_objects(p, Kind, args, keywords);
}

Ref set_objective_method(ProblemObject* p, PyObject* args, PyObject* keywords) {
    static const char* names[] = {"objective", "sense", nullptr};
    PyObject* objective = nullptr;
    PyObject* sense = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "O|O", const_cast<char**>(names), &objective,
                                     &sense)) {
        throw PythonError();
    }
    if (sense == nullptr || sense == Py_None) {
        set_objective(p, objective, nullptr);
        return none();
    }
    const Ref integer = take(PyNumber_Index(sense));
    int overflow = 0;
    const long given = PyLong_AsLongAndOverflow(integer.get(), &overflow);
    const int value = given == 1 || given == -1 ? static_cast<int>(overflow == 0 ? given : 0) : 0;
    set_objective(p, objective, &value);
    return none();
}

template <class Function>
PyCFunction method(Function* function) noexcept {
    return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

constexpr int kKeywords = METH_VARARGS | METH_KEYWORDS;

const PyMethodDef kMethods[] = {
    {"addVariable", method(positional<add_variable>), METH_FASTCALL,
     "addVariable($self, /, *variables)\n--\n\n"
     "Add variables to the problem; each becomes the next column.\n\n"
     "Arguments: variables, or lists, tuples, dictionaries (their values), iterators, other\n"
     "sequences and NumPy arrays of them, nested to at most 32 levels. Bounds, types and names\n"
     "are taken over as they are now; later changes of the objects do not reach the problem. An\n"
     "object without a name whose default name another one of the problem was given is named by\n"
     "another number, for good.\n\n"
     "Raises ModelError for anything that is not a variable, a variable that is in the problem\n"
     "already, or a threshold outside the bounds; SolverError when the library refuses the\n"
     "values. After an error the problem holds none of the call's variables."},
    {"addConstraint", method(positional<add_constraint>), METH_FASTCALL,
     "addConstraint($self, /, *constraints)\n--\n\n"
     "Add constraints to the problem; each becomes the next row.\n\n"
     "Arguments: constraints or (nested) collections of them, as for addVariable. Their variables\n"
     "must be in the problem. Passing many constraints in one call is faster than many calls.\n\n"
     "Raises ModelError for anything that is not a constraint, a constraint that is in the\n"
     "problem already, variables that are not, contradicting bounds, or nonlinear bodies of more\n"
     "than 64 levels; SolverError when the library refuses the values. After an error\n"
     "the problem holds none of the call's constraints."},
    {"addSOS", method(positional<add_sos>), METH_FASTCALL,
     "addSOS($self, /, *sets)\n--\n\n"
     "Add special ordered sets to the problem, one after the other.\n\n"
     "Arguments: SOS objects or (nested) collections of them, as for addVariable. A set's "
     "elements\n"
     "are variables of the problem or column indices (int), its weights numbers that differ from\n"
     "each other.\n\n"
     "Raises ModelError for other objects, sets that are in the problem already, and variables\n"
     "that are not; SolverError when the library refuses a set. Sets before the failing one stay."},
    {"addIndicator", method(positional<add_indicator>), METH_FASTCALL,
     "addIndicator($self, /, *args)\n--\n\n"
     "Add constraints that hold only where a binary variable has a given value.\n\n"
     "Arguments: a condition (z == 1 or z == 0 with a binary variable z of the problem) and a\n"
     "constraint, or any number of tuples (condition, constraint). Each constraint becomes the\n"
     "next row.\n\n"
     "Raises ModelError for conditions of any other form and whatever addConstraint refuses;\n"
     "SolverError when the library refuses an indicator. After an error nothing was added."},
    {"delVariable", method(with_keywords<remove<kVariables>>), kKeywords,
     "delVariable($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Delete variables from the problem; later columns move down.\n\n"
     "Arguments: index, a variable of the problem, a column index or a (nested) collection of\n"
     "them; or first and last, a range of column indices, both ends included; without first from\n"
     "the beginning, without last to the end. The variables leave\n"
     "every constraint, the objective and every set of the problem; the objects stay usable.\n\n"
     "Raises ModelError for indices out of range and objects that are not in the problem;\n"
     "SolverError when an indicator constraint depends on a variable."},
    {"delConstraint", method(with_keywords<remove<kConstraints>>), kKeywords,
     "delConstraint($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Delete constraints from the problem; later rows move down.\n\n"
     "Arguments: index, a constraint of the problem, a row index or a (nested) collection of "
     "them;\n"
     "or first and last, a range of row indices, both ends included; without first from the\n"
     "beginning, without last to the end.\n\n"
     "Raises ModelError for indices out of range and objects that are not in the problem."},
    {"delSOS", method(with_keywords<remove<kSets>>), kKeywords,
     "delSOS($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Delete special ordered sets from the problem; later ones move down.\n\n"
     "Arguments: index, a set of the problem, a set index or a (nested) collection of them; or\n"
     "first and last, a range of set indices, both ends included; without first from the "
     "beginning,\n"
     "without last to the end.\n\n"
     "Raises ModelError for indices out of range and objects that are not in the problem."},
    {"setObjective", method(with_keywords<set_objective_method>), kKeywords,
     "setObjective($self, /, objective, sense=None)\n--\n\n"
     "Replace the objective, and its sense when one is given.\n\n"
     "Arguments: objective, a variable, a linear or quadratic term, an expression or a nonlinear\n"
     "expression (or a NumPy array of exactly one) over variables of the problem; its constant "
     "counts for getObjVal.\n"
     "sense, nalora.minimize (1) or nalora.maximize (-1); without it the sense stays.\n\n"
     "Raises ModelError for other objects, variables that are not in the problem, coefficients\n"
     "that are not finite and nonlinear expressions of more than 64 levels. After an\n"
     "error the old objective stands."},
    {"read", method(with_keywords<read_problem>), kKeywords,
     "read($self, /, filename, options='')\n--\n\n"
     "Replace the problem by the one in a file, with new variables, constraints and sets.\n\n"
     "Arguments: filename, a str or path; its ending decides about the format (.mps, .lp, .nlm, "
     "any\n"
     "with .gz); files of nonlinear models are known by their content, whatever their names.\n"
     "options: 'l' for LP format, 'g' for that of nonlinear models, whatever the ending.\n"
     "Constraints that were read have name and bounds, but no body: their terms and formulas are "
     "in\n"
     "the problem only. Starting values come with nonlinear models, solutions do not.\n\n"
     "Raises SolverError, with file and line, for files that cannot be read; the problem is then\n"
     "as it was."},
    {"write", method(with_keywords<write_problem>), kKeywords,
     "write($self, /, filename, flags='')\n--\n\n"
     "Write the problem to a file.\n\n"
     "Arguments: filename, a str or path; its ending decides about the format (.mps or none, .lp,\n"
     ".nlm, any with .gz). flags: 'l' for LP format, 'z' for compression, 'x' for fixed MPS\n"
     "columns, 'g' for the format of nonlinear models (.nlm), which holds everything but "
     "solutions\n"
     "and takes names of any kind. Problems with nonlinear constraints or objective are always\n"
     "written in that format.\n\n"
     "Raises SolverError when the file cannot be written, a name does not fit the format or a\n"
     "formula calls a user function; no file is then left behind."},
};

}  // namespace

std::span<const PyMethodDef> problem_build_methods() { return kMethods; }

}  // namespace nalora
