// Matrix products by numpy.matmul and the operator @.
#include "numpy/element_types.hpp"
#include "numpy/inner_product.hpp"
#include "numpy/loops.hpp"
#include "support/boundary.hpp"

namespace nalora {

namespace {

// What a registered loop is told: which of its factors are of doubles.
struct LoopData {
    bool first_is_double, second_is_double;
};

// NumPy hands over the number of products and the sizes of the matrices, the steps from product to
// product, and the steps within the matrices. An error ends the loop and stays pending for NumPy to
// report; the elements that were not reached keep what they had.
void loop(char** args, const npy_intp* sizes, const npy_intp* strides, void* context) noexcept {
    const auto& data = *static_cast<const LoopData*>(context);
    if (PyErr_Occurred() != nullptr) return;
    guarded([&] {
        const MatrixSizes matrix{sizes[1], sizes[2], sizes[3]};
        for (npy_intp n = 0; n < sizes[0]; ++n) {
            const Matrix a{args[0] + n * strides[0], strides[3], strides[4], data.first_is_double};
            const Matrix b{args[1] + n * strides[1], strides[5], strides[6], data.second_is_double};
            matrix_product(a, b, matrix, args[2] + n * strides[2], strides[7], strides[8]);
        }
    });
}

}  // namespace

void register_matmul_loops() {
    static constexpr LoopData kNone{false, false}, kFirst{true, false}, kSecond{false, true};
    const int var = type_number(ElementType::var), expr = type_number(ElementType::expression);
    struct Row {
        int first, second;
        const LoopData* data;
    };
    const Row rows[] = {
        {NPY_DOUBLE, var, &kFirst},   {NPY_DOUBLE, expr, &kFirst}, {var, NPY_DOUBLE, &kSecond},
        {expr, NPY_DOUBLE, &kSecond}, {var, var, &kNone},          {var, expr, &kNone},
        {expr, var, &kNone},          {expr, expr, &kNone},
    };
    const Ref numpy = take(PyImport_ImportModule("numpy"));
    const Ref matmul = take(PyObject_GetAttrString(numpy.get(), "matmul"));
    for (const Row& row : rows) {
        const int types[] = {row.first, row.second, expr};
        const int owner = row.first == expr || row.second == expr ? expr : var;
        check_python(PyUFunc_RegisterLoopForType(matmul.as<PyUFuncObject>(), owner, loop, types,
                                                 const_cast<LoopData*>(row.data)));
    }
}

}  // namespace nalora
