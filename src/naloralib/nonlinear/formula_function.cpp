// What the tests look at when they look at formulas.
#include "model/operands.hpp"
#include "nonlinear/formula.hpp"
#include "problem/problem.hpp"

namespace nalora {

namespace {

template <class T, class Convert>
Ref list_of(const std::vector<T>& values, Convert convert) {
    Ref list = take(PyList_New(static_cast<Py_ssize_t>(values.size())));
    for (std::size_t i = 0; i < values.size(); ++i) {
        PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), take(convert(values[i])).release());
    }
    return list;
}

PyObject* formula(PyObject*, PyObject* args) noexcept {
    return guarded([=] {
        PyObject *problem, *expression;
        int coefficient_form = 0;
        if (PyArg_ParseTuple(args, "O!O|p:_formula", &ProblemType, &problem, &expression,
                             &coefficient_form) == 0) {
            throw PythonError();
        }
        require_initialised(as_problem(problem));
        const IndexMap& columns = *as_problem(problem)->variable_index;
        const Ref functions = take(PyList_New(0));
        const auto register_function = [&](PyObject* callable, bool derivatives, std::size_t n) {
            const Ref row = take(Py_BuildValue("(OOn)", callable, derivatives ? Py_True : Py_False,
                                               static_cast<Py_ssize_t>(n)));
            check_python(PyList_Append(functions.get(), row.get()));
            return static_cast<int32_t>(PyList_GET_SIZE(functions.get()) - 1);
        };
        FormulaTokens tokens;
        NonlinearCoefficient term;
        if (coefficient_form != 0) {
            term = append_coefficient_form(tokens, expression, columns, register_function);
        } else {
            append_formula(tokens, expression, columns, register_function);
        }
        const Ref types = list_of(tokens.types, PyLong_FromUnsignedLong);
        const Ref values = list_of(tokens.values, PyFloat_FromDouble);
        if (coefficient_form == 0) {
            return take(PyTuple_Pack(2, types.get(), values.get()));
        }
        return take(
            Py_BuildValue("(OOdi)", types.get(), values.get(), term.coefficient, term.column));
    });
}

const PyMethodDef kFunctions[] = {
    {"_formula", formula, METH_VARARGS,
     "_formula(problem, expression, coefficient_form=False, /)\n--\n\n"
     "The formula of an expression over a problem's columns: (token types, token values), and in\n"
     "coefficient form the coefficient and the column (-1 for none) that it is to be multiplied\n"
     "by. User functions are numbered in their order."},
};

}  // namespace

std::span<const PyMethodDef> formula_functions() { return kFunctions; }

}  // namespace nalora
