// The module's entry point and its release.
#include <cstddef>

#include "library/library.hpp"
#include "model/objects.hpp"
#include "module/constants.hpp"
#include "module/parts.hpp"
#include "module/state.hpp"
#include "numpy/element_types.hpp"
#include "problem/controls.hpp"
#include "support/interpreter.hpp"

namespace nalora {

namespace {

constexpr const char* kModuleDoc =
    "Creates, solves, queries and handles optimization problems with the Nalora optimizer.";

// The order in which types are readied.
constexpr PyTypeObject* kTypes[] = {
    &VarType,       &SosType,     &ExpressionType, &ConstraintType, &ControlType,
    &AttributeType, &ProblemType, &BranchobjType,  &PoolcutType,    &NlraobjectType,
    &GenericType,   &LintermType, &QuadtermType,   &NonlinearType,
};

struct NamedType {
    const char* name;
    PyTypeObject* type;
};

// The other types are reached as results of operations only.
constexpr NamedType kPublicTypes[] = {
    {"var", &VarType},
    {"sos", &SosType},
    {"constraint", &ConstraintType},
    {"problem", &ProblemType},
    {"branchobj", &BranchobjType},
    {"poolcut", &PoolcutType},
};

struct ExceptionRow {
    const char* name;
    const char* doc;
    PyObject* ModuleState::*field;
};

constexpr ExceptionRow kExceptions[] = {
    {"nalora.ModelError", "An error in the user's model: wrong arguments, objects or operations.",
     &ModuleState::model_error},
    {"nalora.InterfaceError",
     "Misuse of the interface: unknown names, missing arguments, or a failure of the library as a "
     "whole.",
     &ModuleState::interface_error},
    {"nalora.SolverError", "The library reported an error on a problem.",
     &ModuleState::solver_error},
};

constexpr std::size_t kMaxFunctions = 64;
PyMethodDef module_functions[kMaxFunctions + 1];

// The parts' rows in one table that lives as long as the module.
void join_functions() {
    std::size_t n = 0;
    for (auto part :
         {aggregate_functions, dot_functions, unary_functions, nary_functions, library_functions,
          control_functions, handler_functions, environment_functions, variable_functions,
          architecture_functions, evaluation_functions, pwl_functions, logic_functions,
          output_functions, memory_functions, formula_functions}) {
        for (const PyMethodDef& function : part()) {
            if (n == kMaxFunctions) raise(PyExc_RuntimeError, "too many module functions");
            module_functions[n++] = function;
        }
    }
    module_functions[n] = {};
}

// Objects of these types are set up by their initialisation alone, so that a subclass may change
// the arguments of its own.
void ready_types() {
    prepare_problem_type();
    for (PyTypeObject* type : kTypes) {
        if (type != &ProblemType) type->tp_new = PyType_GenericNew;
    }
    for (PyTypeObject* type : kTypes) check_python(PyType_Ready(type));
}

void make_state() {
    ModuleState& s = state();
    s.default_controls = new_control_accessor(nullptr).release();
    s.default_control_values = take(PyDict_New()).release();
    s.control_table = take(PyDict_New()).release();
    s.attribute_table = take(PyDict_New()).release();
    s.message_handlers = take(PyList_New(0)).release();
    s.env_users = 0;
    s.nslp_state = -1;
    s.output_enabled = 1;
    make_side_tables();
}

void make_exceptions() {
    for (const ExceptionRow& row : kExceptions) {
        // The references stay: objects that outlive the module still raise these.
        if (state().*row.field != nullptr) continue;
        state().*row.field =
            take(PyErr_NewExceptionWithDoc(row.name, row.doc, nullptr, nullptr)).release();
    }
}

void add_objects(PyObject* module) {
    for (const NamedType& row : kPublicTypes) {
        check_python(
            PyObject_SetAttrString(module, row.name, reinterpret_cast<PyObject*>(row.type)));
    }
    for (const ExceptionRow& row : kExceptions) {
        constexpr std::size_t kPrefix = sizeof("nalora.") - 1;
        check_python(PyObject_SetAttrString(module, row.name + kPrefix, state().*row.field));
    }
    set_up_numpy();
    add_constants(module);
    add_element_types(module);
    // After a nonlinear solve a problem is wanted as the user stated it, not as presolve left it.
    set_initial_default("nslp_postsolve", take(PyLong_FromLong(1)).get());
    check_python(PyObject_SetAttrString(module, "controls", state().default_controls));
}

// Objects that outlive this go on working as far as they need no table: see the null checks at the
// places that use these fields. The locks stay.
void release_state() noexcept {
    ModuleState& s = state();
    for (PyObject* ModuleState::*field :
         {&ModuleState::default_controls, &ModuleState::default_control_values,
          &ModuleState::control_table, &ModuleState::attribute_table,
          &ModuleState::message_handlers}) {
        assign_field(s.*field, Ref());
    }
    destroy_side_tables();
    guarded_release(nullptr, [] { stop_environment(false); });
}

void free_module(void* module) noexcept {
    // A module whose initialisation failed goes late, when its cycles are collected; by then
    // another attempt may have made the state anew.
    if (module != state().module) return;
    state().module = nullptr;
    // A module dropped from sys.modules while the interpreter runs comes back at the next import
    // with the objects it had, so everything behind them must go on working.
    if (interpreter_is_finalizing()) release_state();
}

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "naloralib",
    kModuleDoc,
    -1,  // all state is the process's, none an interpreter's
    module_functions,
    nullptr,
    nullptr,
    nullptr,
    free_module,
};

Ref initialise() {
    make_locks();
    ready_types();
    join_functions();
    const Ref module = take(PyModule_Create(&definition));
    const int status = guarded([&] {
        make_state();
        probe_library();
        make_exceptions();
        add_objects(module.get());
    });
    if (status < 0) {
        release_state();
        throw PythonError{};
    }
    state().module = module.get();
    return Ref::borrow(module.get());
}

}  // namespace

}  // namespace nalora

extern "C" __attribute__((visibility("default"))) PyObject* PyInit_naloralib() {
    PyObject* module = nalora::guarded(nalora::initialise);
    if (module == nullptr && PyErr_Occurred() == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "Error initializing the Nalora module");
    }
    return module;
}
