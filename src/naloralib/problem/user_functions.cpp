#include "problem/user_functions.hpp"

#include "module/state.hpp"
#include "support/gil.hpp"
#include "support/small_array.hpp"

namespace nalora {

namespace {

double float_item(PyObject* item) {
    const double value = PyFloat_AsDouble(item);
    if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return value;
}

#if PY_VERSION_HEX < 0x03090000
constexpr auto vectorcall = _PyObject_Vectorcall;
#else
constexpr auto vectorcall = PyObject_Vectorcall;
#endif

// Calls with the numbers as floats, without a tuple of them.
Ref call_with_floats(PyObject* callable, const double* values, int count) {
    const std::size_t size = static_cast<std::size_t>(count);
    SmallArray<Ref, 8> floats(size);
    SmallArray<PyObject*, 9> slots(size + 1);
    for (std::size_t i = 0; i < size; ++i) {
        floats[i] = take(PyFloat_FromDouble(values[i]));
        slots[i + 1] = floats[i].get();
    }
    // The slot in front is the callee's to use.
    return take(
        vectorcall(callable, slots.data() + 1, size | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// A float, or a tuple that begins with the value; with derivatives these follow.
void read_result(PyObject* result, int count, double* value, double* derivatives) {
    if (!PyTuple_Check(result)) {
        if (derivatives != nullptr) {
            raise(model_error(),
                  "A user function with derivatives must return a tuple of its value and its "
                  "derivatives, not %R",
                  result);
        }
        *value = float_item(result);
        return;
    }
    const Py_ssize_t size = PyTuple_GET_SIZE(result);
    const Py_ssize_t needed = 1 + (derivatives != nullptr ? count : 0);
    if (size < needed) {
        raise(model_error(),
              "A user function of %d arguments returned a tuple of %zd numbers instead of %zd",
              count, size, needed);
    }
    *value = float_item(PyTuple_GET_ITEM(result, 0));
    for (int i = 0; derivatives != nullptr && i < count; ++i) {
        derivatives[i] = float_item(PyTuple_GET_ITEM(result, i + 1));
    }
}

// On the thread that solves, which gave the interpreter lock away. What the callable raises stays
// pending on it until the solve, which ends, returns.
int call_function(void* object, const double* args, int count, double* value,
                  double* derivatives) noexcept {
    const GilHeld lock;
    if (PyErr_Occurred() != nullptr) return 1;
    return guarded([&]() -> int {
               const Ref callable = Ref::borrow(static_cast<PyObject*>(object));
               const Ref result = call_with_floats(callable.get(), args, count);
               read_result(result.get(), count, value, derivatives);
               return 0;
           }) == 0
               ? 0
               : 1;
}

// Returns the index by which formulas name the callable.
int32_t register_user_function(ProblemObject* p, PyObject* callable, bool derivatives,
                               std::size_t arguments) {
    if (p->user_functions == nullptr) p->user_functions = take(PyDict_New()).release();
    const Ref functions = Ref::borrow(p->user_functions);
    int index = 0;
    check_library(NSLPadduserfunction(p->nonlinear, "user_function", call_function, callable,
                                      static_cast<int>(arguments), derivatives ? 1 : 0, &index),
                  as_object(p));
    const Ref key = take(PyLong_FromLong(index));
    check_python(PyDict_SetItem(functions.get(), key.get(), callable));
    return index;
}

}  // namespace

void require_nonlinear_solver(ProblemObject* p) {
    if (p->nonlinear != nullptr && nonlinear_available()) return;
    raise(solver_error(), "The nonlinear solver is not available");
}

Ref collect_formula(ProblemObject* p, FormulaTokens& tokens, PyObject* object) {
    require_nonlinear_solver(p);
    return append_nonlinear_part(tokens, object, *p->variable_index,
                                 [p](PyObject* callable, bool derivatives, std::size_t arguments) {
                                     return register_user_function(p, callable, derivatives,
                                                                   arguments);
                                 });
}

}  // namespace nalora
