#include "nonlinear/tape.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

#include "nonlinear/hessian_plan.hpp"

namespace nlra {

namespace {

// With so few operations under a root they are sorted; otherwise all are looked through.
bool is_small(size_t part, int all) { return 16 * part < static_cast<size_t>(all); }

}  // namespace

Tape::Tape(const Graph& graph, const std::vector<const RootParts*>& parts,
           const std::vector<OpaqueFunction*>& functions)
    : plan_(graph, parts) {
    size_t most = 0;
    for (const int call : plan_.calls) {
        const int arguments = plan_.edge_begin[call + 1] - plan_.edge_begin[call];
        calls_.emplace_back(*functions[static_cast<size_t>(plan_.param[call])], arguments);
        most = std::max(most, static_cast<size_t>(arguments));
    }
    args_.resize(most);
    value_.resize(plan_.slots());
    std::copy(plan_.constant.begin(), plan_.constant.end(), value_.begin() + plan_.columns);
    first_ = plan_.edge_factor;
    second_.resize(plan_.second_begin.back());
    adjoint_.resize(plan_.slots());
    plan_jacobian();
}

Tape::~Tape() = default;

void Tape::plan_jacobian() {
    std::vector<int> seen(plan_.slots(), -1);  // the last root that reached a slot
    std::vector<int> pending;
    sweep_start_.push_back(0);
    jacobian_start_.push_back(0);
    for (int root = 0; root < roots(); ++root) {
        const TapePlan::Root& begin = plan_.roots[root];
        const TapePlan::Root& end = plan_.roots[root + 1];
        const size_t first_entry = jacobian_slot_.size();
        const size_t first_sweep = sweep_.size();
        int lowest = plan_.slots();
        int highest = -1;
        const auto reach = [&](int slot) {
            if (seen[slot] == root || plan_.is_constant_slot(slot)) return;
            seen[slot] = root;
            if (slot < plan_.columns) {
                jacobian_slot_.push_back(slot);
                return;
            }
            const int operation = slot - plan_.first_op;
            if (plan_.op[operation] == Op::kSign) return;
            sweep_.push_back(slot);
            pending.push_back(operation);
            lowest = std::min(lowest, slot);
            highest = std::max(highest, slot);
        };
        for (int k = begin.linear; k < end.linear; ++k) reach(plan_.linear[k].slot);
        for (int k = begin.quadratic; k < end.quadratic; ++k) {
            reach(plan_.quadratic[k].first);
            reach(plan_.quadratic[k].second);
        }
        for (int k = begin.rest; k < end.rest; ++k) reach(plan_.rest[k].slot);
        while (!pending.empty()) {
            const int operation = pending.back();
            pending.pop_back();
            for (int e = plan_.edge_begin[operation]; e < plan_.edge_begin[operation + 1]; ++e) {
                reach(plan_.edge_slot[e]);
            }
        }
        // Slots are in an order of evaluation.
        if (is_small(sweep_.size() - first_sweep, highest - lowest)) {
            std::sort(sweep_.begin() + first_sweep, sweep_.end(), std::greater<int>());
        } else {
            size_t at = first_sweep;
            for (int slot = highest; slot >= lowest; --slot) {
                const bool in_sweep =
                    seen[slot] == root && plan_.op[slot - plan_.first_op] != Op::kSign;
                if (in_sweep) sweep_[at++] = slot;
            }
        }
        sweep_start_.push_back(static_cast<int>(sweep_.size()));
        if (!std::is_sorted(jacobian_slot_.begin() + first_entry, jacobian_slot_.end())) {
            std::sort(jacobian_slot_.begin() + first_entry, jacobian_slot_.end());
        }
        jacobian_linear_.resize(jacobian_slot_.size(), 0.0);
        size_t entry = first_entry;
        for (int k = begin.linear; k < end.linear; ++k) {
            while (jacobian_slot_[entry] != plan_.linear[k].slot) ++entry;
            jacobian_linear_[entry] = plan_.linear[k].value;
        }
        jacobian_start_.push_back(static_cast<int64_t>(jacobian_slot_.size()));
    }
    jacobian_col_.reserve(jacobian_slot_.size());
    for (const int slot : jacobian_slot_) jacobian_col_.push_back(plan_.column[slot]);
}

bool Tape::plan_hessian(size_t max_steps) {
    auto hessian = std::make_unique<HessianPlan>(plan_, max_steps);
    if (!hessian->complete()) return false;
    hessian_ = std::move(hessian);
    return true;
}

const std::vector<int>& Tape::hessian_row() const { return hessian_->row(); }
const std::vector<int>& Tape::hessian_col() const { return hessian_->col(); }

void Tape::move_to(const double* x, int level) {
    bool same = level_ > 0;
    for (int k = 0; k < plan_.columns; ++k) {
        const double next = x[plan_.column[k]];
        same = same && std::bit_cast<uint64_t>(next) == std::bit_cast<uint64_t>(value_[k]);
        value_[k] = next;
    }
    if (!same) level_ = 0;
    if (level_ < 1 && level >= 1) {
        compute_values();
        level_ = 1;
    }
    if (level_ < 2 && level >= 2) {
        compute_first();
        level_ = 2;
    }
    if (level_ < 3 && level >= 3) {
        compute_second();
        level_ = 3;
    }
}

bool Tape::root_value(int root, double& value) const {
    const TapePlan::Root& begin = plan_.roots[root];
    const TapePlan::Root& end = plan_.roots[root + 1];
    double sum = begin.constant;
    for (int k = begin.linear; k < end.linear; ++k) {
        sum += plan_.linear[k].value * value_[plan_.linear[k].slot];
    }
    for (int k = begin.quadratic; k < end.quadratic; ++k) {
        const TapePlan::QuadSlots& term = plan_.quadratic[k];
        sum += term.value * value_[term.first] * value_[term.second];
    }
    for (int k = begin.rest; k < end.rest; ++k) {
        sum += plan_.rest[k].value * value_[plan_.rest[k].slot];
    }
    value = sum;
    return std::isfinite(sum);
}

void Tape::root_gradient(int root, double* out) {
    const TapePlan::Root& begin = plan_.roots[root];
    const TapePlan::Root& end = plan_.roots[root + 1];
    double* const adjoint = adjoint_.data();
    for (int k = begin.rest; k < end.rest; ++k) adjoint[plan_.rest[k].slot] = plan_.rest[k].value;
    for (int k = begin.quadratic; k < end.quadratic; ++k) {
        const TapePlan::QuadSlots& term = plan_.quadratic[k];
        adjoint[term.first] += term.value * value_[term.second];
        adjoint[term.second] += term.value * value_[term.first];
    }
    for (int s = sweep_start_[root]; s < sweep_start_[root + 1]; ++s) {
        const int slot = sweep_[s];
        const double own = adjoint[slot];
        adjoint[slot] = 0.0;
        const int* edge = plan_.edge_begin.data() + (slot - plan_.first_op);
        for (int e = edge[0]; e < edge[1]; ++e) adjoint[plan_.edge_slot[e]] += first_[e] * own;
    }
    const int64_t first = jacobian_start_[root];
    const int64_t count = jacobian_start_[root + 1] - first;
    const int* const slots = jacobian_slot_.data() + first;
    const double* const linear = jacobian_linear_.data() + first;
    for (int64_t k = 0; k < count; ++k) {
        out[k] = linear[k] + adjoint[slots[k]];
        adjoint[slots[k]] = 0.0;
    }
}

bool Tape::values(const double* x, double* out) {
    move_to(x, 1);
    bool defined = true;
    for (int root = 0; root < roots(); ++root) defined &= root_value(root, out[root]);
    return defined;
}

bool Tape::gradient(const double* x, int root, double* out) {
    move_to(x, 2);
    root_gradient(root, out);
    double value = 0.0;
    double probe = 0.0;
    const int64_t count = jacobian_start_[root + 1] - jacobian_start_[root];
    for (int64_t k = 0; k < count; ++k) probe += out[k] * 0.0;
    return root_value(root, value) && probe == 0.0;
}

bool Tape::jacobian(const double* x, double* out) {
    move_to(x, 2);
    bool defined = true;
    double value = 0.0;
    double probe = 0.0;
    for (int root = 0; root < roots(); ++root) {
        root_gradient(root, out + jacobian_start_[root]);
        defined &= root_value(root, value);
    }
    for (size_t k = 0; k < jacobian_col_.size(); ++k) probe += out[k] * 0.0;
    return defined && probe == 0.0;
}

bool Tape::hessian(const double* x, const double* weights, double* out) {
    move_to(x, 3);
    bool defined = true;
    double value = 0.0;
    for (int root = 0; root < roots(); ++root) {
        defined &= weights[root] == 0.0 || root_value(root, value);
    }
    return hessian_->evaluate(plan_, first_, second_, weights, out) && defined;
}

}  // namespace nlra
