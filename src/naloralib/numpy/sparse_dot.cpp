#include "numpy/sparse_dot.hpp"

#include <algorithm>

#include "module/state.hpp"
#include "numpy/element_types.hpp"
#include "numpy/factor.hpp"
#include "numpy/inner_product.hpp"
#include "support/boundary.hpp"

namespace nalora {

const char* const kSparseDotDoc =
    "_sparse_dot(data, indices, indptr, x, /)\n--\n\n"
    "Product of a matrix in compressed rows with an array of one or two dimensions; see\n"
    "nalora.sparse.dot.";

namespace {

// A matrix by its rows: row i has data[k] in column indices[k] for k from starts[i] on, before
// starts[i + 1].
struct Rows {
    Ref data_array, index_array, start_array;
    const double* data;
    const npy_intp *indices, *starts;
    npy_intp count;
};

template <class T>
const T* elements_of(const Ref& array) noexcept {
    return reinterpret_cast<const T*>(PyArray_BYTES(array.as<PyArrayObject>()));
}

Ref integers(PyObject* object) {
    PyArrayObject* array = as_array(object);
    if (!PyTypeNum_ISINTEGER(PyArray_TYPE(array)) || PyArray_NDIM(array) != 1) {
        raise(PyExc_TypeError, "The indices of a sparse matrix must be arrays of integers");
    }
    return in_c_order(array, NPY_INTP);
}

// Refuses what would lead to elements that are not there.
Rows read_rows(PyObject* data, PyObject* indices, PyObject* starts, npy_intp columns) {
    Factor values = factor_of(as_array(data));
    if (!values.is_double || values.dimensions() != 1) refuse_elements();
    Rows rows{
        std::move(values.array), integers(indices), integers(starts), nullptr, nullptr, nullptr, 0};
    rows.data = elements_of<double>(rows.data_array);
    rows.indices = elements_of<npy_intp>(rows.index_array);
    rows.starts = elements_of<npy_intp>(rows.start_array);
    const npy_intp size = std::min(PyArray_SIZE(rows.data_array.as<PyArrayObject>()),
                                   PyArray_SIZE(rows.index_array.as<PyArrayObject>()));
    rows.count = PyArray_SIZE(rows.start_array.as<PyArrayObject>()) - 1;
    bool valid = rows.count >= 0 && rows.starts[0] >= 0 && rows.starts[rows.count] <= size;
    for (npy_intp i = 0; valid && i < rows.count; ++i) {
        valid = rows.starts[i] <= rows.starts[i + 1];
    }
    if (valid) {
        for (npy_intp k = rows.starts[0]; valid && k < rows.starts[rows.count]; ++k) {
            valid = rows.indices[k] >= 0 && rows.indices[k] < columns;
        }
    }
    if (!valid) raise(model_error(), "The indices of the sparse matrix are out of range");
    return rows;
}

Ref new_result(const Factor& x, npy_intp rows) {
    const npy_intp sizes[] = {rows, x.dimensions() == 2 ? x.sizes()[1] : 0};
    if (x.is_double) return take(PyArray_SimpleNew(x.dimensions(), sizes, NPY_DOUBLE));
    Ref result = new_element_array(ElementType::expression, x.dimensions(), sizes);
    if (!result) throw PythonError();
    return result;
}

Ref multiply_rows(const Rows& rows, const Factor& x) {
    Ref result = new_result(x, rows.count);
    char* element = PyArray_BYTES(result.as<PyArrayObject>());
    const npy_intp columns = x.dimensions() == 2 ? x.sizes()[1] : 1;
    for (npy_intp i = 0; i < rows.count; ++i) {
        const npy_intp start = rows.starts[i], end = rows.starts[i + 1];
        for (npy_intp j = 0; j < columns; ++j, element += kFactorItem) {
            const auto factor = [&](npy_intp k) {
                return x.data() + (rows.indices[k] * columns + j) * kFactorItem;
            };
            if (x.is_double) {
                double sum = 0.0;
                for (npy_intp k = start; k < end; ++k) {
                    sum += rows.data[k] * *reinterpret_cast<const double*>(factor(k));
                }
                *reinterpret_cast<double*>(element) = sum;
                continue;
            }
            InnerProduct sum(end - start);
            for (npy_intp k = start; k < end; ++k) {
                sum.add(rows.data[k], element_object(factor(k)));
            }
            set_element(element, sum.finish());
        }
    }
    return result;
}

}  // namespace

PyObject* sparse_dot(PyObject*, PyObject* args) noexcept {
    return guarded([&] {
        PyObject *data, *indices, *starts, *x;
        if (PyArg_ParseTuple(args, "O!O!O!O!:_sparse_dot", &PyArray_Type, &data, &PyArray_Type,
                             &indices, &PyArray_Type, &starts, &PyArray_Type, &x) == 0) {
            throw PythonError();
        }
        const Factor factor = factor_of(as_array(x));
        if (factor.dimensions() != 1 && factor.dimensions() != 2) {
            raise(model_error(),
                  "Dot product of a sparse matrix must be with an array of one or "
                  "two dimensions");
        }
        return multiply_rows(read_rows(data, indices, starts, factor.sizes()[0]), factor);
    });
}

}  // namespace nalora
