#include "numpy/factor.hpp"

#include "model/operands.hpp"
#include "numpy/element_types.hpp"

namespace nalora {

void refuse_elements() {
    raise(model_error(), "Dot product must be between long, double, and expressions/variables");
}

Ref in_c_order(PyArrayObject* array, int type) {
    // NumPy takes over the descriptor.
    PyArray_Descr* descriptor = PyArray_DescrFromType(type);
    if (descriptor == nullptr) throw PythonError();
    constexpr int kFlags =
        NPY_ARRAY_CARRAY_RO | NPY_ARRAY_NOTSWAPPED | NPY_ARRAY_ENSUREARRAY | NPY_ARRAY_FORCECAST;
    return take(PyArray_FromArray(array, descriptor, kFlags));
}

namespace {

// The values of an array of objects in C order, empty unless all of them are numbers.
Ref values_of(PyArrayObject* objects) {
    const npy_intp count = PyArray_SIZE(objects);
    const char* element = PyArray_BYTES(objects);
    for (npy_intp i = 0; i < count; ++i) {
        if (!is_number(element_object(element + i * kFactorItem))) return Ref();
    }
    Ref values = take(PyArray_SimpleNew(PyArray_NDIM(objects), PyArray_DIMS(objects), NPY_DOUBLE));
    auto* value = reinterpret_cast<double*>(PyArray_BYTES(values.as<PyArrayObject>()));
    for (npy_intp i = 0; i < count; ++i) {
        value[i] = number_value(element_object(element + i * kFactorItem));
    }
    return values;
}

}  // namespace

Factor factor_of(PyArrayObject* array) {
    const int type = PyArray_TYPE(array);
    if (PyTypeNum_ISBOOL(type) || PyTypeNum_ISINTEGER(type) || PyTypeNum_ISFLOAT(type)) {
        return {in_c_order(array, NPY_DOUBLE), true};
    }
    if (!holds_objects(type) || type == type_number(ElementType::constraint)) {
        refuse_elements();
    }
    Ref objects = in_c_order(array, type);
    if (type == NPY_OBJECT) {
        Ref values = values_of(objects.as<PyArrayObject>());
        if (values) return {std::move(values), true};
    }
    return {std::move(objects), false};
}

}  // namespace nalora
