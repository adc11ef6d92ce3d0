// The passes over all operations: one loop for each batch.
#include <algorithm>
#include <cmath>

#include "nonlinear/tape.hpp"

namespace nlra {

PiecewiseValue Tape::piecewise(double function, double x) const {
    const int* const points = plan_.points_begin.data() + static_cast<int>(function);
    return piecewise_at(plan_.points.data() + points[0], points[1] - points[0], x);
}

void Tape::compute_values() {
    double* const value = value_.data();
    size_t next_call = 0;
    for (const TapePlan::Batch& batch : plan_.batches) {
        const int count = batch.end - batch.begin;
        const int* const begin = plan_.edge_begin.data() + batch.begin;
        const int* const args = plan_.edge_slot.data() + *begin;  // without gaps in the batch
        const double* const param = plan_.param.data() + batch.begin;
        double* const out = value + plan_.first_op + batch.begin;
        switch (batch.op) {
            case Op::kSum:
                for (int k = 0; k < count; ++k) {
                    double sum = param[k];
                    for (int e = begin[k]; e < begin[k + 1]; ++e) {
                        sum += first_[e] * value[plan_.edge_slot[e]];
                    }
                    out[k] = sum;
                }
                break;
            case Op::kProduct:
                for (int k = 0; k < count; ++k)
                    out[k] = value[args[2 * k]] * value[args[2 * k + 1]];
                break;
            case Op::kDivide:
                for (int k = 0; k < count; ++k) {
                    const double divisor = value[args[2 * k + 1]];
                    out[k] = divisor == 0.0 ? kNotDefined : value[args[2 * k]] / divisor;
                }
                break;
            case Op::kGeneralPower:
                for (int k = 0; k < count; ++k) {
                    out[k] = general_power(value[args[2 * k]], value[args[2 * k + 1]]);
                }
                break;
            case Op::kMin:
            case Op::kMax:
                for (int k = 0; k < count; ++k) {
                    double extreme = value[plan_.edge_slot[begin[k]]];
                    for (int e = begin[k] + 1; e < begin[k + 1]; ++e) {
                        extreme = extreme_of(batch.op, extreme, value[plan_.edge_slot[e]]);
                    }
                    out[k] = extreme;
                }
                break;
            case Op::kPiecewise:
                for (int k = 0; k < count; ++k) {
                    out[k] = piecewise(param[k], value[args[k]]).value;
                }
                break;
            case Op::kCall:
                for (int k = 0; k < count; ++k) {
                    for (int e = begin[k]; e < begin[k + 1]; ++e) {
                        args_[e - begin[k]] = value[plan_.edge_slot[e]];
                    }
                    out[k] = calls_[next_call++].value(args_.data());
                }
                break;
            default:
                visit_unary(batch.op, [&](auto f) {
                    for (int k = 0; k < count; ++k) out[k] = f.value(value[args[k]], param[k]);
                });
        }
    }
}

void Tape::compute_first() {
    const double* const value = value_.data();
    size_t next_call = 0;
    for (const TapePlan::Batch& batch : plan_.batches) {
        const int count = batch.end - batch.begin;
        const int* const begin = plan_.edge_begin.data() + batch.begin;
        const int* const args = plan_.edge_slot.data() + *begin;
        const double* const param = plan_.param.data() + batch.begin;
        const double* const result = value + plan_.first_op + batch.begin;
        double* const out = first_.data() + *begin;
        switch (batch.op) {
            case Op::kSum:
                break;
            case Op::kProduct:
                for (int k = 0; k < count; ++k) {
                    out[2 * k] = value[args[2 * k + 1]];
                    out[2 * k + 1] = value[args[2 * k]];
                }
                break;
            case Op::kDivide:
                for (int k = 0; k < count; ++k) {
                    out[2 * k] = 1.0 / value[args[2 * k + 1]];
                    out[2 * k + 1] = -result[k] * out[2 * k];
                }
                break;
            case Op::kGeneralPower:
                for (int k = 0; k < count; ++k) {
                    const double base = value[args[2 * k]];
                    out[2 * k] = value[args[2 * k + 1]] * (result[k] / base);
                    out[2 * k + 1] = result[k] * std::log(base);
                }
                break;
            case Op::kMin:
            case Op::kMax:
                for (int k = 0; k < count; ++k) {
                    bool found = false;
                    for (int e = begin[k]; e < begin[k + 1]; ++e) {
                        const bool attains = !found && value[plan_.edge_slot[e]] == result[k];
                        first_[e] = attains ? 1.0 : 0.0;
                        found = found || attains;
                    }
                }
                break;
            case Op::kPiecewise:
                for (int k = 0; k < count; ++k) {
                    out[k] = piecewise(param[k], value[args[k]]).slope;
                }
                break;
            case Op::kCall:
                for (int k = 0; k < count; ++k) {
                    OpaqueCall& call = calls_[next_call++];
                    std::copy_n(call.gradient(), call.arguments(), first_.data() + begin[k]);
                }
                break;
            default:
                visit_unary(batch.op, [&](auto f) {
                    for (int k = 0; k < count; ++k) {
                        out[k] = f.first(value[args[k]], result[k], param[k]);
                    }
                });
        }
    }
}

void Tape::compute_second() {
    const double* const value = value_.data();
    size_t next_call = 0;
    for (const TapePlan::Batch& batch : plan_.batches) {
        const int count = batch.end - batch.begin;
        const int begin = plan_.edge_begin[batch.begin];
        const int* const args = plan_.edge_slot.data() + begin;
        const double* const param = plan_.param.data() + batch.begin;
        const double* const result = value + plan_.first_op + batch.begin;
        const double* const slope = first_.data() + begin;
        double* out = second_.data() + plan_.second_begin[batch.begin];
        switch (batch.op) {
            case Op::kProduct:
                std::fill(out, out + count, 1.0);
                break;
            case Op::kDivide:
                for (int k = 0; k < count; ++k) {
                    out[2 * k] = -slope[2 * k] * slope[2 * k];
                    out[2 * k + 1] = -2.0 * slope[2 * k + 1] * slope[2 * k];
                }
                break;
            case Op::kGeneralPower:
                for (int k = 0; k < count; ++k) {
                    const double base = value[args[2 * k]];
                    const double exponent = value[args[2 * k + 1]];
                    const double log = std::log(base);
                    out[3 * k] = (exponent - 1.0) * (slope[2 * k] / base);
                    out[3 * k + 1] = result[k] / base * (1.0 + exponent * log);
                    out[3 * k + 2] = slope[2 * k + 1] * log;
                }
                break;
            case Op::kCall:
                for (int k = 0; k < count; ++k) {
                    OpaqueCall& call = calls_[next_call++];
                    const int n = call.arguments();
                    out = std::copy_n(call.second(), n * (n + 1) / 2, out);
                }
                break;
            default:
                visit_unary(batch.op, [&](auto f) {
                    for (int k = 0; k < count; ++k) {
                        out[k] = f.second(value[args[k]], result[k], slope[k], param[k]);
                    }
                });
        }
    }
}

}  // namespace nlra
