// Dot: products of arrays of numbers and modeling objects of any dimensions.
#include <vector>

#include "model/aggregate.hpp"
#include "model/operands.hpp"
#include "numpy/element_types.hpp"
#include "numpy/factor.hpp"
#include "numpy/inner_product.hpp"
#include "numpy/sparse_dot.hpp"

namespace nalora {

namespace {

constexpr const char* kDotDoc =
    "Dot(*factors, out=None)\n--\n\n"
    "Product of two or more NumPy arrays of numbers and modeling objects, given as arguments or "
    "in\n"
    "one collection; None is left out. Factors are multiplied from left to right. Each product\n"
    "sums over the last dimension of the first array and over the last but one of the second (or\n"
    "over its only one), as numpy.dot does: a matrix of shape (m, n) by a vector of shape (n,)\n"
    "gives a vector of shape (m,), and k arrays of d1, ..., dk dimensions give one of\n"
    "d1 + ... + dk - 2 * (k - 1).\n\n"
    "With modeling objects the result is an array of npexpr, and a single object where no\n"
    "dimension is left; products of numbers alone give an array of floats, or a float. A single\n"
    "factor is returned as it is, and Dot() is 0.0.\n\n"
    "out, an array of the shape of the result, receives the last product and is returned: of\n"
    "npexpr, or of floats or integers for a product of numbers, which is converted as in an\n"
    "assignment to an array. It has one element where no dimension is left. It may be one of the\n"
    "factors, and keeps what it had when an error is raised.\n\n"
    "Raises ModelError for factors that are no arrays, for elements that are neither numbers nor\n"
    "modeling objects, for sizes that do not match, and for an unsuitable out.";

// ---- shapes ---------------------------------------------------------------------------------

// (n1, ..., n, h) by (m1, ..., m, h, k): a product of matrices for each m1, ..., m.
struct Shape {
    std::vector<npy_intp> result;
    npy_intp stacks = 1;
    MatrixSizes matrix{1, 0, 1};
};

npy_intp inner_size(const Factor& b) noexcept {
    return b.sizes()[b.dimensions() == 1 ? 0 : b.dimensions() - 2];
}

Shape shape_of(const Factor& a, const Factor& b) {
    Shape shape;
    shape.matrix.inner = a.sizes()[a.dimensions() - 1];
    if (shape.matrix.inner != inner_size(b)) {
        raise(model_error(),
              "Dot product must occur between NumPy vectors with matching sizes in the "
              "multiplying dimension");
    }
    const npy_intp *rows = a.sizes(), *rows_end = rows + a.dimensions() - 1;
    shape.result.assign(rows, rows_end);
    for (; rows != rows_end; ++rows) shape.matrix.rows *= *rows;
    for (int d = 0; d + 2 < b.dimensions(); ++d) {
        shape.result.push_back(b.sizes()[d]);
        shape.stacks *= b.sizes()[d];
    }
    if (b.dimensions() > 1) {
        shape.matrix.columns = b.sizes()[b.dimensions() - 1];
        shape.result.push_back(shape.matrix.columns);
    }
    return shape;
}

// ---- results --------------------------------------------------------------------------------

void check_out(PyObject* out, const Shape& shape, bool numeric) {
    const int type = PyArray_Check(out) ? PyArray_TYPE(as_array(out)) : NPY_VOID;
    const bool suits = numeric ? PyTypeNum_ISINTEGER(type) || PyTypeNum_ISFLOAT(type)
                               : type == type_number(ElementType::expression);
    if (!suits) {
        raise(model_error(),
              "Output argument set with wrong type: must be float/int for products of floats/ints "
              "and expression/nonlin for products of variables/expressions/nonlinear");
    }
    PyArrayObject* array = as_array(out);
    const auto dimensions = static_cast<int>(shape.result.size());
    if (dimensions == 0) {
        if (PyArray_SIZE(array) != 1) {
            raise(model_error(), "Scalar vector apparently contains more than one element");
        }
    } else if (PyArray_NDIM(array) != dimensions ||
               !PyArray_CompareLists(PyArray_DIMS(array), shape.result.data(), dimensions)) {
        raise(model_error(), "Output argument set with wrong shape: must be that of the product");
    }
    if (!PyArray_ISWRITEABLE(array)) {
        raise(model_error(), "Output argument of dot product is read-only");
    }
}

[[noreturn]] void refuse_result() {
    PyErr_Clear();
    raise(model_error(), "Could not initialize result of dot product");
}

// Always an array, if one without dimensions.
Ref product_of_numbers(const Factor& a, const Factor& b) {
    const Ref result = Ref::steal(PyArray_MatrixProduct(a.array.get(), b.array.get()));
    if (!result) refuse_result();
    return take(PyArray_FROM_O(result.get()));
}

// The rows of one of the second factor's matrices are as far apart in the result as all of them
// together are wide.
Ref product_of_objects(const Factor& a, const Factor& b, const Shape& shape) {
    Ref result = new_element_array(ElementType::expression, static_cast<int>(shape.result.size()),
                                   shape.result.data());
    if (!result) refuse_result();
    if (PyArray_SIZE(result.as<PyArrayObject>()) == 0) return result;
    constexpr npy_intp kSize = kFactorItem;
    const auto& [rows, inner, columns] = shape.matrix;
    const Matrix left{a.data(), inner * kSize, kSize, a.is_double};
    for (npy_intp s = 0; s < shape.stacks; ++s) {
        const Matrix right{b.data() + s * inner * columns * kSize, columns * kSize, kSize,
                           b.is_double};
        char* elements = PyArray_BYTES(result.as<PyArrayObject>()) + s * columns * kSize;
        matrix_product(left, right, shape.matrix, elements, shape.stacks * columns * kSize, kSize);
    }
    return result;
}

// Objects change places, so that what `out` had is released after the last element is in place:
// that may run any code. Nothing of it can fail half-way.
void exchange_elements(PyArrayObject* out, PyArrayObject* result) {
    const Ref iterator = take(PyArray_IterNew(reinterpret_cast<PyObject*>(out)));
    auto* it = iterator.as<PyArrayIterObject>();
    for (char* element = PyArray_BYTES(result); PyArray_ITER_NOTDONE(it);
         element += sizeof(PyObject*)) {
        char other[sizeof(PyObject*)];
        std::memcpy(other, PyArray_ITER_DATA(it), sizeof other);
        std::memcpy(PyArray_ITER_DATA(it), element, sizeof other);
        std::memcpy(element, other, sizeof other);
        PyArray_ITER_NEXT(it);
    }
}

// The result of the last product: put into `out` if there is one, and taken out of its array where
// no dimension is left.
Ref delivered(Ref result, PyObject* out) {
    auto* array = result.as<PyArrayObject>();
    if (out == nullptr) {
        if (PyArray_NDIM(array) > 0) return result;
        return take(PyArray_GETITEM(array, PyArray_BYTES(array)));
    }
    if (PyArray_TYPE(array) == NPY_DOUBLE) {
        check_python(PyArray_CopyInto(as_array(out), array));
    } else {
        exchange_elements(as_array(out), array);
    }
    return Ref::borrow(out);
}

Ref product(const Factor& a, const Factor& b, PyObject* out) {
    const Shape shape = shape_of(a, b);
    const bool numeric = a.is_double && b.is_double;
    if (out != nullptr) check_out(out, shape, numeric);
    return delivered(numeric ? product_of_numbers(a, b) : product_of_objects(a, b, shape), out);
}

// ---- the fold -------------------------------------------------------------------------------

// What a factor is by itself; arrays without dimensions count as their element.
enum class FactorKind { array, scalar, other };

FactorKind classify(PyObject* factor) noexcept {
    if (PyArray_Check(factor)) {
        return PyArray_NDIM(as_array(factor)) > 0 ? FactorKind::array : FactorKind::scalar;
    }
    return kind_of(factor) != Kind::invalid ? FactorKind::scalar : FactorKind::other;
}

Ref dot(PyObject* a, PyObject* b, PyObject* out) {
    const FactorKind first = classify(a), second = classify(b);
    if (first == FactorKind::array && second == FactorKind::array) {
        return product(factor_of(as_array(a)), factor_of(as_array(b)), out);
    }
    if (first == FactorKind::scalar && second == FactorKind::array) {
        raise(model_error(), "Dot product between incompatible objects: first one is a scalar");
    }
    if (first == FactorKind::array && second == FactorKind::scalar) {
        raise(model_error(), "Dot product between incompatible objects: second one is a scalar");
    }
    raise(model_error(), first == FactorKind::array
                             ? "Dot product should only be on NumPy arrays"
                             : "Dot product can only occur between NumPy arrays");
}

Ref single_factor(PyObject* factor) {
    if (classify(factor) == FactorKind::other) {
        raise(model_error(), "Dot product can only occur between NumPy arrays");
    }
    return Ref::borrow(factor);
}

bool is_vector_of_objects(PyObject* factor) noexcept {
    return PyArray_Check(factor) && PyArray_NDIM(as_array(factor)) == 1 &&
           holds_objects(PyArray_TYPE(as_array(factor)));
}

// x'Qx in half of the work of two products. Empty where the factors are not of this form.
Ref product_of_form(const std::vector<Ref>& factors, PyObject* out) {
    if (factors.size() != 3) return Ref();
    PyObject *first = factors[0].get(), *matrix = factors[1].get(), *last = factors[2].get();
    if (!is_vector_of_objects(first) || !is_vector_of_objects(last)) return Ref();
    if (!PyArray_Check(matrix) || PyArray_NDIM(as_array(matrix)) != 2) return Ref();
    const Factor x = factor_of(as_array(first)), q = factor_of(as_array(matrix)),
                 y = factor_of(as_array(last));
    const npy_intp n = x.sizes()[0];
    if (q.sizes()[0] != n || q.sizes()[1] != n || y.sizes()[0] != n) return Ref();
    if (x.is_double || !q.is_double || y.is_double) return Ref();
    const Line left{x.data(), kFactorItem, false}, right{y.data(), kFactorItem, false};
    Ref form = quadratic_form(left, {q.data(), n * kFactorItem, kFactorItem, true}, right, n);
    if (!form) return Ref();
    if (out != nullptr) check_out(out, Shape(), false);
    Ref result = new_element_array(ElementType::expression, 0, nullptr);
    if (!result) refuse_result();
    set_element(PyArray_BYTES(result.as<PyArrayObject>()), std::move(form));
    return delivered(std::move(result), out);
}

Ref fold(PyObject* collection, PyObject* out) {
    std::vector<Ref> factors;
    for_each_element(collection,
                     [&](PyObject* factor, bool) { factors.push_back(Ref::borrow(factor)); });
    if (factors.size() < 2) {
        if (out != nullptr) {
            raise(model_error(), "Output argument of dot product needs at least two factors");
        }
        return factors.empty() ? make_float(0.0) : single_factor(factors[0].get());
    }
    Ref form = product_of_form(factors, out);
    if (form) return form;
    const std::size_t last = factors.size() - 1;
    Ref total = std::move(factors[0]);
    for (std::size_t i = 1; i <= last; ++i) {
        total = dot(total.get(), factors[i].get(), i == last ? out : nullptr);
    }
    return total;
}

PyObject* dot_function(PyObject*, PyObject* factors, PyObject* keywords) noexcept {
    return guarded([&] {
        static const char* const names[] = {"out", nullptr};
        PyObject* out = Py_None;
        const Ref nothing = take(PyTuple_New(0));
        if (PyArg_ParseTupleAndKeywords(nothing.get(), keywords, "|O:Dot",
                                        const_cast<char**>(names), &out) == 0) {
            throw PythonError();
        }
        return fold(factors, out != Py_None ? out : nullptr);
    });
}

const PyMethodDef kFunctions[] = {
    {"Dot", keyword_function(dot_function), METH_VARARGS | METH_KEYWORDS, kDotDoc},
    {"_sparse_dot", sparse_dot, METH_VARARGS, kSparseDotDoc},
};

}  // namespace

std::span<const PyMethodDef> dot_functions() { return kFunctions; }

}  // namespace nalora
