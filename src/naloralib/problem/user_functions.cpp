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

}  // namespace

void require_nonlinear_solver(ProblemObject* p) {
    if (p->nonlinear != nullptr && nonlinear_available()) return;
    raise(solver_error(), "The nonlinear solver is not available");
}

void release_unused_functions(ProblemObject* p) noexcept {
    if (p->user_functions == nullptr || p->nonlinear == nullptr) return;
    guarded_release(as_object(p), [&] {
        const Ref functions = Ref::borrow(p->user_functions);
        std::vector<Ref> released;  // at the end: that may run Python code
        int index = -1;
        while (NSLPforgetuserfunction(p->nonlinear, &index) == 0 && index >= 0) {
            const Ref key = take(PyLong_FromLong(index));
            PyObject* callable = PyDict_GetItemWithError(functions.get(), key.get());
            if (callable == nullptr) continue;
            released.push_back(Ref::borrow(callable));
            check_python(PyDict_DelItem(functions.get(), key.get()));
        }
    });
}

// Equal calls of a callable share its entry.
int32_t FunctionCollector::position_of(PyObject* callable, bool derivatives,
                                       std::size_t arguments) {
    const auto next = static_cast<int32_t>(functions_.size());
    const auto [found, added] = positions_.try_emplace({callable, derivatives, arguments}, next);
    if (added) functions_.push_back({Ref::borrow(callable), derivatives, arguments});
    return found->second;
}

Ref FunctionCollector::collect(FormulaTokens& tokens, PyObject* object) {
    require_nonlinear_solver(problem_);
    return append_nonlinear_part(
        tokens, object, *problem_->variable_index,
        [this](PyObject* callable, bool derivatives, std::size_t arguments) {
            return position_of(callable, derivatives, arguments);
        });
}

int FunctionCollector::add_to_library(const Function& function) const {
    ProblemObject* p = problem_;
    if (p->user_functions == nullptr) p->user_functions = take(PyDict_New()).release();
    int index = 0;
    check_library(NSLPadduserfunction(p->nonlinear, "user_function", call_function,
                                      function.callable.get(), static_cast<int>(function.arguments),
                                      function.derivatives ? 1 : 0, &index),
                  as_object(p));
    const Ref key = take(PyLong_FromLong(index));
    check_python(PyDict_SetItem(p->user_functions, key.get(), function.callable.get()));
    return index;
}

void FunctionCollector::load(FormulaTokens& tokens) const {
    if (functions_.empty()) return;
    std::vector<int> indices;
    indices.reserve(functions_.size());
    for (const Function& function : functions_) indices.push_back(add_to_library(function));
    for (std::size_t k = 0; k < tokens.size(); ++k) {
        if (tokens.types[k] != static_cast<uint32_t>(Token::user_function)) continue;
        tokens.values[k] = indices[static_cast<std::size_t>(tokens.values[k])];
    }
}

}  // namespace nalora
