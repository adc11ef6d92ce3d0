// Objects of a problem by index and indices by object, its name, reset and copy.
#include "problem/lookup.hpp"

#include <string>

#include "module/parts.hpp"
#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/lifecycle.hpp"
#include "problem/walker.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

bool is_integer(PyObject* object) noexcept {
    return PyLong_Check(object) || PyArray_IsScalar(object, Integer);
}

Py_ssize_t index_value(PyObject* index) {
    const Py_ssize_t i = PyNumber_AsSsize_t(index, PyExc_IndexError);
    if (i == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
    return i;
}

// The object at an index; the list's own IndexError outside.
Ref item_at(PyObject* list, PyObject* index) {
    PyObject* item = PyList_GetItem(list, index_value(index));
    if (item == nullptr) throw PythonError{};
    return Ref::borrow(item);
}

// In the order of the leaves, repeats kept.
Ref items_at(PyObject* list, PyObject* indices) {
    const Ref result = take(PyList_New(0));
    walk(indices, [&](PyObject* leaf) {
        if (!is_integer(leaf)) {
            raise(model_error(), "Error in index list(s): must contain only integers");
        }
        check_python(PyList_Append(result.get(), item_at(list, leaf).get()));
    });
    return Ref::borrow(result.get());
}

// Inclusive; -1 means not given. A range that ends just before it begins is empty.
Ref items_between(PyObject* list, int first, int last) {
    const Py_ssize_t size = PyList_GET_SIZE(list);
    if (first < -1 || last < -1) {
        raise(model_error(),
              "Parameters 'first' and 'last' must be both nonnegative when specified");
    }
    if (first >= size || last >= size) {
        raise(model_error(), "Parameters 'first' and 'last' are out of range");
    }
    const Py_ssize_t begin = first < 0 ? 0 : first;
    const Py_ssize_t end = last < 0 ? size : last + 1;
    if (begin > end) {
        raise(PyExc_SystemError, "Parameter 'first' (%d) is beyond 'last' (%d)", first, last);
    }
    return take(PyList_GetSlice(list, begin, end));
}

Ref get_items(PyObject* self, const Registry& registry, PyObject* args, PyObject* kwargs) {
    static const char* const keywords[] = {"index", "first", "last", nullptr};
    PyObject* index = nullptr;
    int first = -1;
    int last = -1;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|Oii", const_cast<char**>(keywords), &index,
                                     &first, &last)) {
        throw PythonError{};
    }
    ProblemObject* p = as_problem(self);
    require_initialised(p);
    sync_lists(p);
    const bool single = index != nullptr && is_integer(index) && first < 0 && last < 0;
    if (single) {
        const Py_ssize_t i = index_value(index);
        const Py_ssize_t count =
            PyList_GET_SIZE(p->*registry.list) - (p->*registry.index)->gaps().size();
        if (i >= 0 && i < count) {
            return Ref::borrow(object_at(p, registry, static_cast<int32_t>(i)));
        }
    }
    close_gaps(p, registry);
    // The list may be replaced (reset) while the indices are walked.
    const Ref list = Ref::borrow(p->*registry.list);
    if (index != nullptr && index != Py_None) {
        if (first >= 0 || last >= 0) {
            raise(model_error(),
                  "Parameters 'first' and 'last' cannot be specified if 'index' is also specified");
        }
        return is_integer(index) ? item_at(list.get(), index) : items_at(list.get(), index);
    }
    if (first == -1 && last == -1) {
        return take(PyList_GetSlice(list.get(), 0, PyList_GET_SIZE(list.get())));
    }
    return items_between(list.get(), first, last);
}

PyObject* get_variable(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] { return get_items(self, kVariables, args, kwargs); });
}

PyObject* get_constraint(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] { return get_items(self, kConstraints, args, kwargs); });
}

PyObject* get_sos(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] { return get_items(self, kSets, args, kwargs); });
}

int32_t index_of(ProblemObject* p, PyObject* object) {
    int32_t index = -1;
    const char* what = nullptr;
    if (is_var(object)) {
        index = p->variable_index->find(var_serial(as_var(object)));
        what = "Variable %S not in problem";
    } else if (is_constraint(object)) {
        index = p->constraint_index->find(constraint_serial(as_constraint(object)));
        what = "Constraint %S not in problem";
    } else if (is_sos(object)) {
        index = p->set_index->find(as_sos(object)->serial);
        what = "SOS %S not in problem";
    } else {
        raise(model_error(), "Incorrect object(s) passed: need variable, constraint, or SOS");
    }
    if (index < 0) raise(model_error(), what, object);
    return index;
}

PyObject* get_index(PyObject* self, PyObject* object) noexcept {
    return guarded([&] {
        ProblemObject* p = as_problem(self);
        require_initialised(p);
        return take(PyLong_FromLong(index_of(p, object)));
    });
}

PyObject* name_method(PyObject* self, PyObject*) noexcept {
    return guarded([&] { return problem_name(as_problem(self)); });
}

PyObject* reset_method(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        reset_problem(as_problem(self));
        return none();
    });
}

PyObject* copy_method(PyObject* self, PyObject*) noexcept {
    return guarded([&] { return copy_problem(as_problem(self)); });
}

PyObject* reduce_method(PyObject* self, PyObject*) noexcept {
    return guarded([&]() -> Ref {
        raise(PyExc_TypeError,
              "cannot pickle '%s' object: write the model to a file with write() instead",
              Py_TYPE(self)->tp_name);
    });
}

const PyMethodDef kMethods[] = {
    {"getVariable", keyword_function(get_variable), METH_VARARGS | METH_KEYWORDS,
     "getVariable($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Return the variable at an int index, a list of those at a (nested) collection of indices, a\n"
     "list of those from first to last inclusive, or with no argument a list of all. Raises\n"
     "ModelError for ranges outside the problem and for indices that are no ints, IndexError for\n"
     "an index outside."},
    {"getConstraint", keyword_function(get_constraint), METH_VARARGS | METH_KEYWORDS,
     "getConstraint($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Return constraints by their indices, as getVariable does variables."},
    {"getSOS", keyword_function(get_sos), METH_VARARGS | METH_KEYWORDS,
     "getSOS($self, /, index=None, first=-1, last=-1)\n--\n\n"
     "Return special ordered sets by their indices, as getVariable does variables."},
    {"getIndex", get_index, METH_O,
     "getIndex($self, object, /)\n--\n\n"
     "Return the index of a variable, constraint or special ordered set in this problem. Raises\n"
     "ModelError for any other object and for one that is not in the problem."},
    {"name", name_method, METH_NOARGS,
     "name($self, /)\n--\n\nReturn the name of the problem as a str."},
    {"reset", reset_method, METH_NOARGS,
     "reset($self, /)\n--\n\n"
     "Empty the problem: no variables, constraints, sets, objective or name, and the library's\n"
     "own controls. Its messages are not printed any more. Raises SolverError while it is being\n"
     "solved."},
    {"copy", copy_method, METH_NOARGS,
     "copy($self, /)\n--\n\n"
     "Return a new problem over a copy of the model and its controls. Both hold the same\n"
     "variables, constraints and sets, at the same indices; changing one problem leaves the other\n"
     "as it is."},
    {"__copy__", copy_method, METH_NOARGS, "__copy__($self, /)\n--\n\nThe same as copy()."},
    {"__deepcopy__", copy_method, METH_O,
     "__deepcopy__($self, memo, /)\n--\n\nThe same as copy(): modeling objects are shared."},
    {"__reduce__", reduce_method, METH_NOARGS,
     "__reduce__($self, /)\n--\n\nRefused with TypeError."},
    {"__reduce_ex__", reduce_method, METH_O,
     "__reduce_ex__($self, protocol, /)\n--\n\nRefused with TypeError."},
};

}  // namespace

Ref problem_name(ProblemObject* p) {
    require_initialised(p);
    int needed = 0;
    check_library(NLRAgetprobname(p->prob, nullptr, 0, &needed), as_object(p));
    std::string name(static_cast<std::size_t>(needed) + 1, '\0');
    check_library(NLRAgetprobname(p->prob, name.data(), static_cast<int>(name.size()), &needed),
                  as_object(p));
    return decode_text(name.c_str());
}

std::span<const PyMethodDef> problem_lookup_methods() { return kMethods; }

}  // namespace nalora
