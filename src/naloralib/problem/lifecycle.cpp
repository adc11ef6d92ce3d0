#include "problem/lifecycle.hpp"

#include <mutex>
#include <new>
#include <utility>

#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/controls.hpp"
#include "problem/solving.hpp"

namespace nalora {

namespace {

constexpr PyObject* ProblemObject::*kLists[] = {&ProblemObject::variables,
                                                &ProblemObject::constraints, &ProblemObject::sets};
constexpr IndexMap* ProblemObject::*kMaps[] = {
    &ProblemObject::variable_index, &ProblemObject::constraint_index, &ProblemObject::set_index};

Ref allocate(PyTypeObject* type) {
    Ref object = take(type->tp_alloc(type, 0));
    ProblemObject* p = object.as<ProblemObject>();
    // The module outlives its problems.
    p->module = Ref::borrow(state().module).release();
    return object;
}

// ---- containers -------------------------------------------------------------------------------

struct Lists {
    Ref list[3] = {take(PyList_New(0)), take(PyList_New(0)), take(PyList_New(0))};
};

// The old ones are released last, all of them: that may run Python code.
void replace_lists(ProblemObject* p, Lists& lists) {
    Ref old[3];
    for (int i = 0; i < 3; ++i) {
        old[i] = Ref::steal(std::exchange(p->*kLists[i], lists.list[i].release()));
    }
}

void clear_fields(ProblemObject* p) noexcept {
    assign_field(p->user_functions, Ref());
    for (PyObject*& slot : p->callbacks) assign_field(slot, Ref());
}

void clear_maps(ProblemObject* p) noexcept {
    for (auto field : kMaps) {
        if (p->*field != nullptr) (p->*field)->clear();
    }
}

// Kept until the end of the record, like the lists: a walk under way may come back to them.
void make_maps(ProblemObject* p) {
    for (auto field : kMaps) {
        if (p->*field == nullptr) p->*field = new IndexMap;
    }
}

// ---- library handles --------------------------------------------------------------------------

// What exists when this fails is the record's, and goes with it.
void create_handles(ProblemObject* p) {
    check_library(NLRAcreateprob(&p->prob), as_object(p));
    if (nonlinear_available()) {
        check_library(NSLPcreateprob(&p->nonlinear, p->prob), as_object(p));
    }
}

// The library decides how many threads evaluate formulas.
void set_nonlinear_threads(ProblemObject* p) {
    if (p->nonlinear == nullptr) return;
    check_library(NSLPsetintcontrol(p->nonlinear, NSLP_THREADS, 0), as_object(p));
}

void register_printers(ProblemObject* p) {
    check_library(NLRAaddcbmessage(p->prob, problem_message_printer, nullptr, 1), as_object(p));
    if (p->nonlinear == nullptr) return;
    check_library(NSLPsetcbmessage(p->nonlinear, nonlinear_message_printer, nullptr), as_object(p));
}

void load_empty(ProblemObject* p, const char* name) {
    check_library(NLRAloadlp(p->prob, name, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, nullptr),
                  as_object(p));
}

// The nonlinear problem sits on the other one. A failure leaves the field, so nothing is destroyed
// twice.
void destroy_handles(ProblemObject* p) {
    if (p->nonlinear != nullptr) {
        check_library(NSLPdestroyprob(p->nonlinear), as_object(p));
        p->nonlinear = nullptr;
    }
    if (p->prob != nullptr) {
        check_library(NLRAdestroyprob(p->prob), as_object(p));
        p->prob = nullptr;
    }
}

bool is_busy(const ProblemObject* p) noexcept {
    if (p->prob == nullptr) return false;
    const int status = NLRAhold(p->prob);
    if (status == 0) NLRArelease(p->prob);
    return status == NLRA_ERROR_BUSY;
}

// Raise before anything is changed when the problem is in use, in a solve for instance.
void refuse_if_busy(ProblemObject* p) {
    if (p->prob != nullptr) const ProblemHold hold(p);
}

// Take everything down but the record. Reports failures as unraisable; a handle that cannot be
// destroyed is given up.
void take_down(ProblemObject* p) noexcept {
    // Another thread may be in the middle of starting or stopping the library.
    { const std::lock_guard barrier(locks().env); }
    detach_accessors(p);
    if (p->prob != nullptr) NLRAremovecbmessage(p->prob, problem_message_printer, nullptr);
    guarded_release(nullptr, [&] { destroy_handles(p); });
    p->nonlinear = nullptr;
    p->prob = nullptr;
    clear_fields(p);
    clear_maps(p);
    assign_field(p->controls, Ref());
    assign_field(p->attributes, Ref());
    // Emptied, not dropped: a walk that is adding to this problem may still come back to them.
    for (auto field : kLists) {
        PyObject* list = p->*field;
        if (list == nullptr) continue;
        guarded_release(nullptr, [&] {
            check_python(PyList_SetSlice(list, 0, PyList_GET_SIZE(list), nullptr));
        });
    }
}

// ---- initialisation ---------------------------------------------------------------------------

struct Declaration {
    const char* name = "noname";
    long sense = 1;
};

Declaration parse(PyObject* kwargs) {
    // The positional arguments are no keywords: a placeholder stands for them.
    static const char* const keywords[] = {"elements", "name", "sense", nullptr};
    const Ref placeholder = take(Py_BuildValue("(d)", 0.0));
    Declaration declaration;
    double ignored = 0.0;
    if (!PyArg_ParseTupleAndKeywords(placeholder.get(), kwargs, "d|$sl",
                                     const_cast<char**>(keywords), &ignored, &declaration.name,
                                     &declaration.sense)) {
        throw PythonError{};
    }
    if (declaration.sense != 1 && declaration.sense != -1) {
        raise(model_error(), "Invalid optimization sense");
    }
    return declaration;
}

// Load an empty model in silence.
void load_first(ProblemObject* p, const Declaration& declaration) {
    int level = 0;
    check_library(NLRAgetintcontrol(p->prob, NLRA_LOGLEVEL, &level), as_object(p));
    check_library(NLRAsetintcontrol(p->prob, NLRA_LOGLEVEL, 0), as_object(p));
    load_empty(p, declaration.name);
    check_library(NLRAsetintcontrol(p->prob, NLRA_LOGLEVEL, level), as_object(p));
    if (declaration.sense != 1) {
        check_library(NLRAchgobjsense(p->prob, static_cast<int>(declaration.sense)), as_object(p));
    }
}

// The controls exist before the defaults are applied, the printers before anything can be said, and
// the elements come last, onto a problem that is whole.
void build(ProblemObject* p, const Declaration& declaration, PyObject* elements) {
    Lists lists;
    make_maps(p);
    start_environment(false);
    replace_lists(p, lists);
    clear_fields(p);
    create_handles(p);
    set_nonlinear_threads(p);
    load_first(p, declaration);
    assign_field(p->controls, new_control_accessor(p));
    assign_field(p->attributes, new_attribute_accessor(p));
    register_printers(p);
    apply_default_controls(p);
    declare(p, elements, static_cast<int>(declaration.sense));
}

// May be called again on a problem in use, which then starts over.
void initialise(ProblemObject* p, PyObject* elements, PyObject* kwargs) {
    const Declaration declaration = parse(kwargs);
    refuse_if_busy(p);
    take_down(p);
    // The error is set before the handles that it comes from are gone. They stay, and all else that
    // a solve may reach, where code that ran meanwhile has made another thread solve the problem.
    if (guarded([&] { build(p, declaration, elements); }) < 0) {
        if (!is_busy(p)) take_down(p);
        throw PythonError{};
    }
}

}  // namespace

void require_initialised(ProblemObject* p) {
    if (p->prob != nullptr && p->variables != nullptr) return;
    raise(interface_error(), "The problem has not been initialised, or its initialisation failed");
}

PyObject* problem_new(PyTypeObject* type, PyObject*, PyObject*) noexcept {
    return guarded([&] { return allocate(type); });
}

int problem_init(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] { initialise(as_problem(self), args, kwargs); });
}

int problem_traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    ProblemObject* p = as_problem(self);
    for (auto field : kLists) Py_VISIT(p->*field);
    for (PyObject* slot : p->callbacks) Py_VISIT(slot);
    Py_VISIT(p->controls);
    Py_VISIT(p->attributes);
    Py_VISIT(p->user_functions);
    Py_VISIT(p->module);
    return 0;
}

// Breaks cycles only; whatever still reaches the problem finds it uninitialised.
int problem_clear(PyObject* self) noexcept {
    ProblemObject* p = as_problem(self);
    for (auto field : kLists) assign_field(p->*field, Ref());
    clear_fields(p);
    return 0;
}

// The object must not be shown to any Python code from here on: its count is zero.
void problem_dealloc(PyObject* self) noexcept {
    PyObject_GC_UnTrack(self);
    ProblemObject* p = as_problem(self);
    take_down(p);
    for (auto field : kLists) assign_field(p->*field, Ref());
    for (auto field : kMaps) delete std::exchange(p->*field, nullptr);
    const Ref module = Ref::steal(std::exchange(p->module, nullptr));
    Py_TYPE(self)->tp_free(self);
}

Ref bare_problem() {
    Ref object = allocate(&ProblemType);
    ProblemObject* p = object.as<ProblemObject>();
    Lists lists;
    replace_lists(p, lists);
    create_handles(p);
    set_nonlinear_threads(p);
    return object;
}

// The new state is whole before it takes the place of the old one, which then goes with the
// temporary: last, because releasing it may run Python code.
void reset_problem(ProblemObject* p) {
    require_initialised(p);
    {
        const ProblemHold hold(p);
        apply_default_controls(p);
    }
    const Ref temporary = bare_problem();
    ProblemObject* fresh = temporary.as<ProblemObject>();
    check_library(NLRAsetprobname(fresh->prob, ""), temporary.get());
    load_empty(fresh, "");
    Lists lists;
    refuse_if_busy(p);
    std::swap(p->prob, fresh->prob);
    std::swap(p->nonlinear, fresh->nonlinear);
    std::swap(p->user_functions, fresh->user_functions);
    std::swap(p->callbacks, fresh->callbacks);
    clear_maps(p);
    replace_lists(p, lists);
}

// The defaults only matter where the source's controls cannot be copied over them.
Ref copy_problem(ProblemObject* p) {
    require_initialised(p);
    Ref object = bare_problem();
    ProblemObject* copy = object.as<ProblemObject>();
    apply_default_controls(copy);
    // That may have run Python code; from here on the source stays as it is.
    sync_lists(p);
    for (const Registry* registry : {&kVariables, &kConstraints, &kSets}) close_gaps(p, *registry);
    for (int i = 0; i < 3; ++i) {
        PyObject* list = p->*kLists[i];
        assign_field(copy->*kLists[i], take(PyList_GetSlice(list, 0, PyList_GET_SIZE(list))));
        copy->*kMaps[i] = new IndexMap((p->*kMaps[i])->copy());
    }
    check_library(NLRAcopyprob(copy->prob, p->prob, ""), object.get());
    const bool nonlinear = copy->nonlinear != nullptr && p->nonlinear != nullptr;
    if (nonlinear) {
        check_library(NSLPcopyprob(copy->nonlinear, p->nonlinear, ""), object.get());
    }
    check_library(NLRAcopycontrols(copy->prob, p->prob), object.get());
    if (nonlinear) check_library(NSLPcopycontrols(copy->nonlinear, p->nonlinear), object.get());
    register_printers(copy);

    assign_field(copy->controls, new_control_accessor(copy));
    assign_field(copy->attributes, new_attribute_accessor(copy));
    if (p->user_functions != nullptr) {
        assign_field(copy->user_functions, take(PyDict_Copy(p->user_functions)));
    }
    return object;
}

}  // namespace nalora
