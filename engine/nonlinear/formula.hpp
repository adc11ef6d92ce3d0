// Formulas as they come in: postfix tokens, in pieces that are added up, and functions that only
// their author knows.
#pragma once

#include <cstddef>

#include "nslp.h"

namespace nlra {

// Values of NSLP_TOKEN_FUNCTION tokens.
enum FormulaFunction {
    kFunctionLog10 = 14,
    kFunctionLog = 15,
    kFunctionExp = 16,
    kFunctionAbs = 17,
    kFunctionSqrt = 18,
    kFunctionSin = 27,
    kFunctionCos = 28,
    kFunctionTan = 29,
    kFunctionAsin = 30,
    kFunctionAcos = 31,
    kFunctionAtan = 32,
    kFunctionMin = 33,
    kFunctionMax = 34,
    kFunctionPiecewise = 35,  // x, x1, y1, x2, y2, ...: the points are constants
    kFunctionSign = 46,
    kFunctionErf = 49,
    kFunctionErfc = 50,
};

// factor * x[column] * formula; without a column where that is -1. The tokens may, but need not,
// close with an end token.
struct FormulaPiece {
    double factor;
    int column;
    const int* types;
    const double* values;
    size_t tokens;
};

// A function of n arguments that is evaluated by calling it. Equal arguments must give equal
// results: calls are shared and remembered.
struct OpaqueFunction {
    virtual ~OpaqueFunction() = default;
    // Fills *value and, where it is not null, the partial derivatives. False: not defined there.
    // Exceptions come out of the evaluation that needed the call.
    virtual bool call(const double* args, int n, double* value, double* gradient) = 0;

    bool gives_derivatives = false;  // otherwise gradient is always null
    int arguments = -1;              // -1: any number
};

}  // namespace nlra
