// The module functions of one argument: sin, exp, ...
#include "nonlinear/functions.hpp"

#include <array>
#include <cmath>
#include <utility>

#include "library/library.hpp"
#include "model/operands.hpp"
#include "nonlinear/node_build.hpp"
#include "numpy/element_types.hpp"

namespace nalora {

namespace {

// ---- the table ------------------------------------------------------------------------------

struct Function {
    const char* name;
    Op op;
    double (*value)(double);
    const char* doc;
};

double sign(double x) { return x < 0.0 ? -1.0 : x > 0.0 ? 1.0 : 0.0; }

#define NALORA_FUNCTION(name, op, value, what)                                                  \
    {                                                                                           \
        name, op, value,                                                                        \
            name                                                                                \
            "(x, /)\n--\n\n" what                                                               \
            "\n\n"                                                                              \
            "x: a number, a modeling object, or a NumPy array of any shape of numbers or\n"     \
            "objects (npvar, npexpr, object).\n\n"                                              \
            "Returns a float for a number and a nonlinear expression for an object; for an\n"   \
            "array of numbers an array of floats, for one of objects an npexpr array, of the\n" \
            "same shape, in which numbers are floats.\n\n"                                      \
            "Raises ModelError for anything else. On numbers it raises ValueError where the\n"  \
            "function is not defined and OverflowError where its value is beyond a float, as\n" \
            "Python's own functions do."                                                        \
    }

// In the order in which the module lists them.
constexpr Function kFunctions[] = {
    NALORA_FUNCTION("sin", Op::sin, std::sin, "Sine of an angle in radians."),
    NALORA_FUNCTION("cos", Op::cos, std::cos, "Cosine of an angle in radians."),
    NALORA_FUNCTION("tan", Op::tan, std::tan, "Tangent of an angle in radians."),
    NALORA_FUNCTION("asin", Op::asin, std::asin, "Arc sine, in radians."),
    NALORA_FUNCTION("acos", Op::acos, std::acos, "Arc cosine, in radians."),
    NALORA_FUNCTION("atan", Op::atan, std::atan, "Arc tangent, in radians."),
    NALORA_FUNCTION("exp", Op::exp, std::exp, "e to the power x."),
    NALORA_FUNCTION("log", Op::log, std::log, "Natural logarithm."),
    NALORA_FUNCTION("log10", Op::log10, std::log10, "Decimal logarithm."),
    NALORA_FUNCTION("abs", Op::abs, std::fabs, "Absolute value."),
    NALORA_FUNCTION("sqrt", Op::sqrt, std::sqrt, "Square root."),
    NALORA_FUNCTION("sign", Op::sign, sign, "Sign: -1 for x < 0, 1 for x > 0, 0 for 0."),
    NALORA_FUNCTION("erf", Op::erf, std::erf, "Error function."),
    NALORA_FUNCTION("erfc", Op::erfc, std::erfc, "Complementary error function, 1 - erf(x)."),
};
constexpr std::size_t kCount = std::size(kFunctions);

#undef NALORA_FUNCTION

// ---- values ---------------------------------------------------------------------------------

[[noreturn, gnu::cold]] void refuse_value(const Function& f, double x, double value) {
    const Ref number = make_float(x);
    if (value > 0.0) {
        raise(PyExc_OverflowError, "%s(%S) is too large for a float", f.name, number.get());
    }
    raise(PyExc_ValueError, "%s(%S) is not defined", f.name, number.get());
}

// Neither a silent NaN nor an infinity that the argument does not bring with it.
double value_at(const Function& f, double x) {
    const double value = f.value(x);
    if (!std::isfinite(value) && !std::isnan(x) && (std::isfinite(x) || std::isnan(value))) {
        refuse_value(f, x, value);
    }
    return value;
}

// NumPy's scalars of all real types, as the elements of arrays may have them too.
bool is_numpy_number(PyObject* o) noexcept {
    return PyArray_IsScalar(o, Integer) || PyArray_IsScalar(o, Floating) ||
           PyArray_IsScalar(o, Bool);
}

Ref apply_to_single(const Function& f, PyObject* x) {
    const Kind kind = operand_kind(x);
    if (kind == Kind::number) return make_float(value_at(f, operand_value(x)));
    if (kind != Kind::invalid) return few_node(f.op, x, nullptr);
    if (!is_numpy_number(x)) return make_unary(f.op, x);  // which says why not
    const double number = PyFloat_AsDouble(x);
    if (number == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return make_float(value_at(f, number));
}

// ---- arrays ---------------------------------------------------------------------------------

bool is_real(int type) noexcept {
    return PyTypeNum_ISBOOL(type) || PyTypeNum_ISINTEGER(type) || PyTypeNum_ISFLOAT(type);
}

Ref apply_to_array(const Function& f, PyArrayObject* array) {
    const bool objects = holds_objects(PyArray_TYPE(array));
    if (!objects && !is_real(PyArray_TYPE(array))) {
        raise(model_error(), "Invalid object in unary operation");
    }
    constexpr int kFlags =
        NPY_ARRAY_CARRAY_RO | NPY_ARRAY_NOTSWAPPED | NPY_ARRAY_FORCECAST | NPY_ARRAY_ENSUREARRAY;
    PyArray_Descr* type = PyArray_DescrFromType(objects ? PyArray_TYPE(array) : int{NPY_DOUBLE});
    const Ref source = Ref::steal(PyArray_FromArray(array, type, kFlags));
    if (!source) raise_chained(model_error(), "Cannot iterate on sequence of arguments");
    const char* from = PyArray_BYTES(source.as<PyArrayObject>());
    const npy_intp size = PyArray_SIZE(source.as<PyArrayObject>());
    const int dimensions = PyArray_NDIM(array);
    if (!objects) {
        Ref result = take(PyArray_SimpleNew(dimensions, PyArray_DIMS(array), NPY_DOUBLE));
        auto* to = static_cast<double*>(PyArray_DATA(result.as<PyArrayObject>()));
        const auto* numbers = reinterpret_cast<const double*>(from);
        for (npy_intp i = 0; i < size; ++i) to[i] = value_at(f, numbers[i]);
        return result;
    }
    Ref result = new_element_array(ElementType::expression, dimensions, PyArray_DIMS(array));
    if (!result) throw PythonError();
    char* to = PyArray_BYTES(result.as<PyArrayObject>());
    constexpr npy_intp kWidth = sizeof(PyObject*);
    for (npy_intp i = 0; i < size; ++i) {
        set_element(to + i * kWidth, apply_to_single(f, element_object(from + i * kWidth)));
    }
    return result;
}

// ---- the module's functions -----------------------------------------------------------------

template <std::size_t Row>
PyObject* call(PyObject*, PyObject* x) noexcept {
    return guarded([=] {
        if (is_array(x)) return apply_to_array(kFunctions[Row], as_array(x));
        return apply_to_single(kFunctions[Row], x);
    });
}

template <std::size_t... Rows>
constexpr std::array<PyMethodDef, kCount> make_methods(std::index_sequence<Rows...>) {
    return {{{kFunctions[Rows].name, call<Rows>, METH_O, kFunctions[Rows].doc}...}};
}
const std::array<PyMethodDef, kCount> kMethods = make_methods(std::make_index_sequence<kCount>());

}  // namespace

Ref apply_unary(Op op, PyObject* x) {
    for (const Function& f : kFunctions) {
        if (f.op == op) return apply_to_single(f, x);
    }
    return make_unary(op, x);
}

std::span<const PyMethodDef> unary_functions() { return kMethods; }

}  // namespace nalora
