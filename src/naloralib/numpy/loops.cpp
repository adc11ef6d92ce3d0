// Element loops: one table row per group of universal functions that take the same operand types.
#include "numpy/loops.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "model/operands.hpp"
#include "model/operators.hpp"
#include "nonlinear/functions.hpp"
#include "numpy/element_types.hpp"
#include "support/boundary.hpp"
#include "support/gil.hpp"

namespace nalora {

namespace {

// ---- the loop -------------------------------------------------------------------------------

using Unary = Ref (*)(PyObject*);
using Binary = Ref (*)(PyObject*, PyObject*);

// One operand of a loop: references to objects, or doubles, of which one Python float is kept as
// long as the values repeat (they mostly come from a scalar).
class Operand {
  public:
    Operand(char* data, npy_intp stride, bool is_double) noexcept
        : data_(data), stride_(stride), is_double_(is_double) {}

    // The object that the element stands for, kept alive until the next one is asked for: an
    // operation may run code that overwrites the element.
    PyObject* next() {
        if (is_double_) {
            uint64_t bits;  // zeros and NaNs differ by their bits only
            std::memcpy(&bits, data_, sizeof bits);
            if (!object_ || bits != bits_) {
                object_ = take(PyFloat_FromDouble(std::bit_cast<double>(bits)));
                bits_ = bits;
            }
        } else {
            object_ = Ref::borrow(element_object(data_));
        }
        data_ += stride_;
        return object_.get();
    }

  private:
    char* data_;
    npy_intp stride_;
    bool is_double_;
    uint64_t bits_ = 0;
    Ref object_;
};

// What a registered loop is told about itself. NumPy hands the address to the loop.
struct LoopData {
    Unary unary;  // one of the two is set
    Binary binary;
    Binary fold;  // in place of `binary` where results go over their first operands
    bool first_is_double, second_is_double;
};

// An error ends the loop and stays pending for NumPy to report; the elements that were not reached
// keep what they had.
void loop(char** args, const npy_intp* sizes, const npy_intp* strides, void* context) noexcept {
    const auto& data = *static_cast<const LoopData*>(context);
    const GilEnsured lock;
    if (PyErr_Occurred() != nullptr) return;
    const bool folds = data.binary != nullptr && args[0] == args[2] && strides[0] == strides[2];
    const Binary binary = folds ? data.fold : data.binary;
    guarded([&] {
        Operand first(args[0], strides[0], data.first_is_double);
        Operand second(args[1], strides[1], data.second_is_double);
        char* result = args[data.unary != nullptr ? 1 : 2];
        const npy_intp result_stride = strides[data.unary != nullptr ? 1 : 2];
        for (npy_intp n = sizes[0]; n > 0; --n, result += result_stride) {
            PyObject* a = first.next();
            set_element(result, data.unary != nullptr ? data.unary(a) : binary(a, second.next()));
        }
        return 0;
    });
}

// ---- the table ------------------------------------------------------------------------------

struct FunctionRow {
    const char* name;
    Unary unary;  // one of the two is set
    Binary binary;
    ElementType result;
    // Of reductions and operators in place: however long, they make one level of a nonlinear
    // expression. Null for `binary`.
    Binary fold = nullptr;
};

template <int Code>
Ref compare_with(PyObject* a, PyObject* b) {
    return compare(a, b, Code);
}
Ref square(PyObject* a) { return multiply(a, a); }
Ref itself(PyObject* a) { return Ref::borrow(a); }
Ref reciprocal(PyObject* a) { return divide(make_float(1.0).get(), a); }

template <Op O>
Ref extremum(PyObject* a, PyObject* b) {
    if (operand_kind(a) == Kind::number && operand_kind(b) == Kind::number) {
        const double p = operand_value(a), q = operand_value(b);
        const bool first = std::isnan(p) || (O == Op::max ? p > q : p < q);
        return Ref::borrow(first ? a : b);
    }
    return extended_nary(O, a, b);
}

// NumPy begins with the number that changes no bits.
template <Op O>
Ref fold_logical(PyObject* a, PyObject* b) {
    constexpr double kStart = O == Op::logical_and ? -1.0 : 0.0;
    const bool starts = operand_kind(a) == Kind::number && operand_value(a) == kStart;
    if (starts && kind_of(b) != Kind::invalid) return Ref::borrow(b);
    return extended_nary(O, a, b);
}

template <Op O>
Ref function_of(PyObject* a) {
    return apply_unary(O, a);
}

constexpr ElementType kExpressions = ElementType::expression;
constexpr ElementType kConstraints = ElementType::constraint;
constexpr FunctionRow kFunctions[] = {
    // The comparisons stand first: the mirrored one of row i is row 2 - i.
    {"less_equal", nullptr, compare_with<Py_LE>, kConstraints},
    {"equal", nullptr, compare_with<Py_EQ>, kConstraints},
    {"greater_equal", nullptr, compare_with<Py_GE>, kConstraints},
    {"add", nullptr, add, kExpressions},
    {"subtract", nullptr, subtract, kExpressions},
    {"negative", negate, nullptr, kExpressions},
    {"positive", itself, nullptr, kExpressions},
    {"multiply", nullptr, multiply, kExpressions, multiply_in_place},
    {"divide", nullptr, divide, kExpressions},
    {"true_divide", nullptr, divide, kExpressions},
    {"power", nullptr, power, kExpressions},
    {"square", square, nullptr, kExpressions},
    {"absolute", absolute, nullptr, kExpressions},
    {"fabs", absolute, nullptr, kExpressions},
    {"reciprocal", reciprocal, nullptr, kExpressions},
    {"conjugate", itself, nullptr, kExpressions},
    {"maximum", nullptr, extremum<Op::max>, kExpressions},
    {"minimum", nullptr, extremum<Op::min>, kExpressions},
    {"fmax", nullptr, extremum<Op::max>, kExpressions},
    {"fmin", nullptr, extremum<Op::min>, kExpressions},
    {"bitwise_and", nullptr, logical_and, kExpressions, fold_logical<Op::logical_and>},
    {"bitwise_or", nullptr, logical_or, kExpressions, fold_logical<Op::logical_or>},
    {"sin", function_of<Op::sin>, nullptr, kExpressions},
    {"cos", function_of<Op::cos>, nullptr, kExpressions},
    {"tan", function_of<Op::tan>, nullptr, kExpressions},
    {"arcsin", function_of<Op::asin>, nullptr, kExpressions},
    {"arccos", function_of<Op::acos>, nullptr, kExpressions},
    {"arctan", function_of<Op::atan>, nullptr, kExpressions},
    {"exp", function_of<Op::exp>, nullptr, kExpressions},
    {"log", function_of<Op::log>, nullptr, kExpressions},
    {"log10", function_of<Op::log10>, nullptr, kExpressions},
    {"sqrt", function_of<Op::sqrt>, nullptr, kExpressions},
    {"sign", function_of<Op::sign>, nullptr, kExpressions},
};
constexpr std::size_t kFunctionCount = std::size(kFunctions);

// The operand types of loops: every combination in which the module's own types occur. Arrays of
// objects, and single objects that NumPy takes for such, are operands too, or NumPy would hand
// their comparisons to truth values.
struct OperandRow {
    int (*number)() noexcept;
    bool is_double, is_own;
};
template <ElementType Type>
int own_number() noexcept {
    return type_number(Type);
}
constexpr OperandRow kOperands[] = {
    {[]() noexcept { return int{NPY_DOUBLE}; }, true, false},
    {own_number<ElementType::var>, false, true},
    {own_number<ElementType::expression>, false, true},
    {[]() noexcept { return int{NPY_OBJECT}; }, false, false},
};
constexpr std::size_t kOperandCount = std::size(kOperands);

// NumPy keeps the addresses.
LoopData loop_data[kFunctionCount][kOperandCount][kOperandCount];
PyObject* functions[kFunctionCount];  // references that stay, null where NumPy lacks the name

void register_loop(std::size_t row, const OperandRow& first, const OperandRow* second,
                   LoopData& data) {
    const FunctionRow& function = kFunctions[row];
    data = {function.unary, function.binary,
            function.fold != nullptr ? function.fold : function.binary, first.is_double,
            second != nullptr && second->is_double};
    const int result = type_number(function.result);
    const int binary[] = {first.number(), second != nullptr ? second->number() : result, result};
    const int owner = first.is_own ? first.number() : binary[1];
    check_python(PyUFunc_RegisterLoopForType(reinterpret_cast<PyUFuncObject*>(functions[row]),
                                             owner, loop, binary, &data));
}

void register_function(PyObject* numpy, std::size_t row) {
    Ref function = Ref::steal(PyObject_GetAttrString(numpy, kFunctions[row].name));
    if (!function) throw PythonError();
    functions[row] = function.release();
    const bool known = std::find(functions, functions + row, functions[row]) != functions + row;
    if (known) return;  // two names of one function
    for (std::size_t i = 0; i < kOperandCount; ++i) {
        const OperandRow& first = kOperands[i];
        if (kFunctions[row].unary != nullptr) {
            if (first.is_own) register_loop(row, first, nullptr, loop_data[row][i][0]);
            continue;
        }
        for (std::size_t j = 0; j < kOperandCount; ++j) {
            const OperandRow& second = kOperands[j];
            if (first.is_own || second.is_own) {
                register_loop(row, first, &second, loop_data[row][i][j]);
            }
        }
    }
}

}  // namespace

void register_loops() {
    static bool registered = false;
    if (registered) return;
    const Ref numpy = take(PyImport_ImportModule("numpy"));
    for (std::size_t row = 0; row < kFunctionCount; ++row) register_function(numpy.get(), row);
    register_matmul_loops();
    registered = true;
}

Ref apply_function(PyObject* function, std::span<PyObject* const> operands) {
    for (std::size_t row = 0; row < kFunctionCount; ++row) {
        if (functions[row] != function) continue;
        const FunctionRow& found = kFunctions[row];
        if (operands.size() == 1 && found.unary != nullptr) return found.unary(operands[0]);
        if (operands.size() != 2 || found.binary == nullptr) break;
        // As the interpreter does it with numbers of its own: 3 <= x is x >= 3.
        if (found.result == kConstraints && operand_kind(operands[0]) == Kind::number) {
            return kFunctions[2 - row].binary(operands[1], operands[0]);
        }
        return found.binary(operands[0], operands[1]);
    }
    return Ref();
}

}  // namespace nalora
