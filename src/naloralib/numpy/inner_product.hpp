// Inner products in which at least one factor consists of modeling objects: what Dot, the operator
// @ and products with sparse matrices are made of.
//
// Factors are read in place. Nothing here runs Python code before an element is refused, so what
// the elements refer to stays as it is; every inner product grows one expression of its own.
#pragma once

#include <span>

#include "model/objects.hpp"
#include "support/numpy.hpp"

namespace nalora {

// The elements of a factor along the dimension that is summed over: doubles, or references to
// objects (null ones read as None).
struct Line {
    const char* data;
    npy_intp stride;
    bool is_double;
};

// A matrix or a stack's matrix: doubles or objects.
struct Matrix {
    const char* data;
    npy_intp row_stride, column_stride;
    bool is_double;

    Line row(npy_intp i) const noexcept {
        return {data + i * row_stride, column_stride, is_double};
    }
    Line column(npy_intp j) const noexcept {
        return {data + j * column_stride, row_stride, is_double};
    }
};

struct MatrixSizes {
    npy_intp rows, inner, columns;
};

// One sum of products under construction.
class InnerProduct {
  public:
    // `count`, about the number of products that bring terms, tells what room to make.
    explicit InnerProduct(npy_intp count);

    // ModelError "Dot product must be between long, double, and expressions/variables" for an
    // element that is neither a number nor a modeling object.
    void add(double factor, PyObject* object);
    void add(PyObject* a, PyObject* b);

    // An expression, or a nonlinear sum where a product left the quadratic world.
    Ref finish();

  private:
    ExpressionObject* expression() const noexcept { return result_.as<ExpressionObject>(); }
    template <class Entry>
    void make_room(Terms<Entry, PythonOwner>& terms, std::size_t each);
    void add_linear(const LinearEntry& entry);
    void add_scaled_entries(std::span<const LinearEntry> entries, double factor);
    void add_product(PyObject* a, PyObject* b);

    Ref result_;
    Ref rest_;  // sum of the products that are nonlinear
    std::size_t count_;
};

// The sum of the products of two lines, at most one of them of doubles.
Ref inner_product(const Line& a, const Line& b, npy_intp count);

// The sum of x[i] * q[i][j] * y[j] for doubles q, where x and y are the same variables and linear
// terms; empty where they are not. The terms come as two inner products would give them.
Ref quadratic_form(const Line& x, const Matrix& q, const Line& y, npy_intp count);

// The product of two matrices, at most one of them of doubles, put into the elements at `result`,
// which own a reference each or are null.
void matrix_product(const Matrix& a, const Matrix& b, const MatrixSizes& sizes, char* result,
                    npy_intp row_stride, npy_intp column_stride);

}  // namespace nalora
