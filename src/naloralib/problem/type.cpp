// The type record of nalora.problem; its methods come from the parts.
#include <vector>

#include "module/parts.hpp"
#include "module/state.hpp"
#include "problem/lifecycle.hpp"
#include "problem/lookup.hpp"

namespace nalora {

namespace {

PyObject* problem_str(PyObject* self) noexcept {
    return guarded([&] { return problem_name(as_problem(self)); });
}

PyObject* get_member(PyObject* self, PyObject* ProblemObject::*field) noexcept {
    return guarded([&] {
        ProblemObject* p = as_problem(self);
        require_initialised(p);
        return Ref::borrow(p->*field);
    });
}

PyObject* get_controls(PyObject* self, void*) noexcept {
    return get_member(self, &ProblemObject::controls);
}

PyObject* get_attributes(PyObject* self, void*) noexcept {
    return get_member(self, &ProblemObject::attributes);
}

PyGetSetDef kMembers[] = {
    {"controls", get_controls, nullptr,
     "The problem's controls: read and set them as attributes of this object.", nullptr},
    {"attributes", get_attributes, nullptr,
     "The problem's attributes (sizes, statuses, values), read-only.", nullptr},
    {},
};

constexpr const char* kDoc =
    "problem(*elements, name='noname', sense=minimize)\n--\n\n"
    "An optimization problem. The elements fill it in their order: variables, constraints and\n"
    "special ordered sets, singly or in (nested) collections, at most one expression as the\n"
    "objective, and at most one str as the name. A single variable that was added by an earlier\n"
    "element becomes the objective. sense is nalora.minimize (1) or nalora.maximize (-1). Raises\n"
    "ModelError for elements that are none of these, SolverError when the library refuses one.";

PyTypeObject problem_type() {
    PyTypeObject type = {PyVarObject_HEAD_INIT(nullptr, 0)};
    type.tp_name = "nalora.problem";
    type.tp_doc = kDoc;
    type.tp_basicsize = sizeof(ProblemObject);
    type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
    type.tp_new = problem_new;
    type.tp_init = problem_init;
    type.tp_traverse = problem_traverse;
    type.tp_clear = problem_clear;
    type.tp_dealloc = problem_dealloc;
    type.tp_str = problem_str;
    type.tp_getset = kMembers;
    return type;
}

}  // namespace

PyTypeObject ProblemType = problem_type();

void prepare_problem_type() {
    // Lives as long as the type.
    static std::vector<PyMethodDef> methods;
    methods.clear();
    for (auto part : {problem_lookup_methods, problem_build_methods, problem_solve_methods,
                      problem_control_methods, problem_mirror_methods}) {
        const std::span<const PyMethodDef> rows = part();
        methods.insert(methods.end(), rows.begin(), rows.end());
    }
    methods.push_back({});
    ProblemType.tp_methods = methods.data();
}

}  // namespace nalora
