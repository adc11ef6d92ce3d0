// The module-wide defaults: what every later problem is given.
#include <mutex>
#include <utility>
#include <vector>

#include "module/parts.hpp"
#include "module/state.hpp"
#include "problem/controls.hpp"

namespace nalora {

namespace {

// The lock is held for one look at the dictionary each. Keys are exact str, so comparing them runs
// no code, and whatever a change drops from the dictionary is held until the lock is given back.

// Empty without an entry of this name.
Ref take_out(PyObject* exact_name) {
    const std::lock_guard guard(locks().defaults);
    PyObject* values = state().default_control_values;
    if (values == nullptr) return Ref();
    Ref old = Ref::borrow(PyDict_GetItemWithError(values, exact_name));
    if (old) check_python(PyDict_DelItem(values, exact_name));
    return old;
}

std::vector<std::pair<Ref, Ref>> recorded_defaults() {
    std::vector<std::pair<Ref, Ref>> pairs;
    const std::lock_guard guard(locks().defaults);
    PyObject* values = state().default_control_values;
    PyObject *name, *value;
    Py_ssize_t position = 0;
    while (values != nullptr && PyDict_Next(values, &position, &name, &value)) {
        pairs.emplace_back(Ref::borrow(name), Ref::borrow(value));
    }
    return pairs;
}

PyObject* setdefaultcontrol(PyObject*, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] {
        static const char* const keywords[] = {"ipar", nullptr};
        PyObject* ipar = nullptr;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "O", const_cast<char**>(keywords), &ipar)) {
            throw PythonError{};
        }
        const Ref name = exact_name(ipar);
        if (!name) raise(interface_error(), "Incorrect control name");
        const Ref dropped = take_out(name.get());
        return none();
    });
}

PyObject* setdefaults(PyObject*, PyObject*) noexcept {
    return guarded([] {
        Ref values = take(PyDict_New());
        {
            const std::lock_guard guard(locks().defaults);
            values = Ref::steal(std::exchange(state().default_control_values, values.release()));
        }
        return none();
    });
}

const PyMethodDef kControlFunctions[] = {
    {"setdefaultcontrol", keyword_function(setdefaultcontrol), METH_VARARGS | METH_KEYWORDS,
     "setdefaultcontrol(ipar)\n--\n\n"
     "Forget the module-wide default of the control named ipar: problems made from now on start\n"
     "with the library's own. A name without a default is no error."},
    {"setdefaults", setdefaults, METH_NOARGS,
     "setdefaults()\n--\n\n"
     "Forget all module-wide defaults of controls: problems made from now on start with the\n"
     "library's own."},
};

}  // namespace

std::span<const PyMethodDef> control_functions() { return kControlFunctions; }

void set_initial_default(const char* name, PyObject* value) {
    const Ref key = take(PyUnicode_InternFromString(name));
    check_python(
        PyDict_SetItem(as_accessor(state().default_controls)->dictionary, key.get(), value));
    record_default(key.get(), value);
}

void record_default(PyObject* exact_name, PyObject* value) {
    Ref old;
    const std::lock_guard guard(locks().defaults);
    PyObject* values = state().default_control_values;
    if (values == nullptr) return;
    old = Ref::borrow(PyDict_GetItemWithError(values, exact_name));
    check_python(PyDict_SetItem(values, exact_name, value));
}

Ref recorded_default(PyObject* exact_name) {
    const std::lock_guard guard(locks().defaults);
    PyObject* values = state().default_control_values;
    return values == nullptr ? Ref() : Ref::borrow(PyDict_GetItemWithError(values, exact_name));
}

Ref all_defaults() {
    PyObject* accessor = state().default_controls;
    PyObject* own = accessor != nullptr ? as_accessor(accessor)->dictionary : nullptr;
    Ref values = take(own != nullptr ? PyDict_Copy(own) : PyDict_New());
    for (const auto& [name, value] : recorded_defaults()) {
        check_python(PyDict_SetItem(values.get(), name.get(), value.get()));
    }
    return values;
}

// Works on a copy of the pairs: setting a control calls the library, which may print, and then any
// code may run. Stops at the first failure.
void apply_default_controls(ProblemObject* p) {
    const auto pairs = recorded_defaults();
    const Ref table = name_table(Role::control);
    for (const auto& [name, value] : pairs) {
        Descriptor d;
        if (!find_descriptor(table.get(), name.get(), d)) {
            // The default that the module starts with is the nonlinear solver's.
            if (!nonlinear_available()) continue;
            raise(interface_error(), "Incorrect control name in initialization");
        }
        if (d.kind != ParamKind::optimizer && p->nonlinear == nullptr) continue;
        set_problem_control(p, d, value.get());
    }
}

}  // namespace nalora
