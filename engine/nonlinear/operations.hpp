// The operations of expression graphs: what they are called and the calculus of those with one
// argument.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace nlra {

enum class Op : uint8_t {
    kConstant,
    kColumn,
    kSum,      // constant + sum of coefficient * node
    kProduct,  // of two
    kDivide,
    kGeneralPower,  // defined for positive bases
    kMin,           // derivatives: those of the first argument that attains the extreme
    kMax,
    kPiecewise,  // derivative: the slope to the right
    kCall,
    kPower,  // by a constant exponent that has no operation of its own
    kSquare,
    kCube,
    kReciprocal,
    kSqrt,
    kExp,
    kLog,
    kLog10,
    kSin,
    kCos,
    kTan,
    kAsin,
    kAcos,
    kAtan,
    kAbs,   // derivative at zero: zero
    kSign,  // derivative: zero everywhere
    kErf,
    kErfc,
};
inline constexpr int kOps = static_cast<int>(Op::kErfc) + 1;

inline bool is_unary(Op op) { return op >= Op::kPower; }

inline constexpr double kNotDefined = std::numeric_limits<double>::quiet_NaN();

inline double sign_of(double x) { return x > 0.0 ? 1.0 : x < 0.0 ? -1.0 : x; }

// A unary operation at x with exponent p (kPower only): its value, then the first derivative d from
// x and the value v, then the second from all of them. Outside the domain something is not finite.
template <Op>
struct Unary;

#define NLRA_UNARY(NAME, VALUE, FIRST, SECOND)                                       \
    template <>                                                                      \
    struct Unary<Op::NAME> {                                                         \
        static double value([[maybe_unused]] double x, [[maybe_unused]] double p) {  \
            return VALUE;                                                            \
        }                                                                            \
        static double first([[maybe_unused]] double x, [[maybe_unused]] double v,    \
                            [[maybe_unused]] double p) {                             \
            return FIRST;                                                            \
        }                                                                            \
        static double second([[maybe_unused]] double x, [[maybe_unused]] double v,   \
                             [[maybe_unused]] double d, [[maybe_unused]] double p) { \
            return SECOND;                                                           \
        }                                                                            \
    };

// At x = 0 the quotients v / x say nothing.
NLRA_UNARY(kPower, x == 0.0 && p < 0.0 ? kNotDefined : std::pow(x, p),
           x == 0.0 ? p * std::pow(x, p - 1.0) : p * (v / x),
           x == 0.0 ? p * (p - 1.0) * std::pow(x, p - 2.0) : (p - 1.0) * (d / x))
NLRA_UNARY(kSquare, x* x, 2.0 * x, 2.0)
NLRA_UNARY(kCube, x* x* x, 3.0 * x * x, 6.0 * x)
NLRA_UNARY(kReciprocal, x == 0.0 ? kNotDefined : 1.0 / x, -v* v, -2.0 * v * d)
NLRA_UNARY(kSqrt, std::sqrt(x), 0.5 / v, -0.5 * d / x)
NLRA_UNARY(kExp, std::exp(x), v, v)
NLRA_UNARY(kLog, std::log(x), 1.0 / x, -d* d)
NLRA_UNARY(kLog10, std::log10(x), 0.43429448190325182765 / x, -d / x)
NLRA_UNARY(kSin, std::sin(x), std::cos(x), -v)
NLRA_UNARY(kCos, std::cos(x), -std::sin(x), -v)
NLRA_UNARY(kTan, std::tan(x), 1.0 + v * v, 2.0 * v * d)
NLRA_UNARY(kAsin, std::asin(x), 1.0 / std::sqrt((1.0 - x) * (1.0 + x)), x* d* d* d)
NLRA_UNARY(kAcos, std::acos(x), -1.0 / std::sqrt((1.0 - x) * (1.0 + x)), x* d* d* d)
NLRA_UNARY(kAtan, std::atan(x), 1.0 / (1.0 + x * x), -2.0 * x * d * d)
NLRA_UNARY(kAbs, std::fabs(x), sign_of(x), 0.0)
NLRA_UNARY(kSign, sign_of(x), 0.0, 0.0)
NLRA_UNARY(kErf, std::erf(x), 1.12837916709551257390 * std::exp(-x * x), -2.0 * x * d)
NLRA_UNARY(kErfc, std::erfc(x), -1.12837916709551257390 * std::exp(-x * x), -2.0 * x * d)
#undef NLRA_UNARY

// Calls visitor(Unary<op>{}).
template <class Visitor>
inline void visit_unary(Op op, Visitor&& visitor) {
    switch (op) {
#define NLRA_CASE(NAME)             \
    case Op::NAME:                  \
        visitor(Unary<Op::NAME>{}); \
        break;
        NLRA_CASE(kPower)
        NLRA_CASE(kSquare)
        NLRA_CASE(kCube)
        NLRA_CASE(kReciprocal)
        NLRA_CASE(kSqrt)
        NLRA_CASE(kExp)
        NLRA_CASE(kLog)
        NLRA_CASE(kLog10)
        NLRA_CASE(kSin)
        NLRA_CASE(kCos)
        NLRA_CASE(kTan)
        NLRA_CASE(kAsin)
        NLRA_CASE(kAcos)
        NLRA_CASE(kAtan)
        NLRA_CASE(kAbs)
        NLRA_CASE(kSign)
        NLRA_CASE(kErf)
        NLRA_CASE(kErfc)
#undef NLRA_CASE
        default:
            break;
    }
}

inline double general_power(double base, double exponent) {
    return base > 0.0 ? std::pow(base, exponent) : kNotDefined;
}

// n arguments; NaN as soon as one is.
inline double extreme_of(Op op, double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return kNotDefined;
    return (op == Op::kMin ? b < a : b > a) ? b : a;
}

}  // namespace nlra
