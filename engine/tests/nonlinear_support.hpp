// Expressions for tests of the nonlinear side: written with operators, turned into tokens, and
// evaluated independently with all first and second derivatives.
#pragma once

#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "nonlinear/formula.hpp"
#include "nonlinear/formula_roots.hpp"

namespace formulas {

// A value with gradient and Hessian, carried forward through every operation.
struct Taylor {
    static constexpr int kSize = 6;
    double value = 0.0;
    std::array<double, kSize> gradient{};
    std::array<std::array<double, kSize>, kSize> hessian{};
    // The largest number that took part in computing it, which tells how good it can be. NaN when
    // anything is.
    double scale = 1.0;

    void meet(double number) {
        if (!std::isnan(scale) && !(std::fabs(number) <= scale)) scale = std::fabs(number);
    }
    bool is_flat() const { return gradient == Taylor().gradient && hessian == Taylor().hessian; }
    // f(this, other), from f's derivatives.
    Taylor apply(const Taylor& other, double f, double fa, double fb, double faa, double fab,
                 double fbb) const {
        Taylor out;
        out.scale = scale;
        out.meet(other.scale);
        for (const double number : {f, fa, fb, faa, fab, fbb}) out.meet(number);
        out.value = f;
        for (int i = 0; i < kSize; ++i) {
            out.gradient[i] = fa * gradient[i] + fb * other.gradient[i];
            out.meet(out.gradient[i]);
            for (int j = 0; j < kSize; ++j) {
                double& sum = out.hessian[i][j];
                for (const double term :
                     {fa * hessian[i][j], fb * other.hessian[i][j], faa * gradient[i] * gradient[j],
                      fab * (gradient[i] * other.gradient[j] + other.gradient[i] * gradient[j]),
                      fbb * other.gradient[i] * other.gradient[j]}) {
                    sum += term;
                    out.meet(term);
                }
            }
        }
        return out;
    }
};

// An opaque function known to tests: a * sin(b) + a^2 b + exp(c / 4) ... over any number of
// arguments: the sum of sin(a_i) * a_{i+1} + a_i^2.
struct Wavy : nlra::OpaqueFunction {
    int calls = 0;
    explicit Wavy(bool derivatives) { gives_derivatives = derivatives; }
    bool call(const double* args, int n, double* value, double* gradient) override;
};

struct Expression;
using Ptr = std::shared_ptr<const Expression>;

struct Expression {
    int type;      // NSLP_TOKEN_...
    double value;  // of the token
    std::vector<Ptr> args;
};

struct Tokens {
    std::vector<int> types;
    std::vector<double> values;

    void add(int type, double value = 0.0) {
        types.push_back(type);
        values.push_back(value);
    }
    nlra::FormulaPiece piece(double factor = 1.0, int column = -1) const {
        return {factor, column, types.data(), values.data(), types.size()};
    }
};

Ptr constant(double value);
Ptr column(int index);
Ptr applied(int function, std::vector<Ptr> args);  // internal function
Ptr call(int function, std::vector<Ptr> args);
Ptr operate(int op, std::vector<Ptr> args);
Ptr operator+(const Ptr& a, const Ptr& b);
Ptr operator-(const Ptr& a, const Ptr& b);
Ptr operator-(const Ptr& a);
Ptr operator*(const Ptr& a, const Ptr& b);
Ptr operator/(const Ptr& a, const Ptr& b);
Ptr power(const Ptr& a, const Ptr& b);
Ptr power(const Ptr& a, double b);

void emit(const Ptr& expression, Tokens& out);
Tokens tokens(const Ptr& expression);
// The node's value from those of its arguments; user functions are all Wavy.
Taylor evaluate(const Expression& node, const std::vector<Taylor>& args, const double* x);
Taylor evaluate(const Ptr& expression, const double* x);

// Adds a root; end token included.
int add(nlra::FormulaRoots& roots, const Ptr& expression);

}  // namespace formulas
