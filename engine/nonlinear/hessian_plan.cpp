#include "nonlinear/hessian_plan.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <numeric>

namespace nlra {

namespace {

// Pairs of slots, numbered as they come, and those of each slot with lower ones.
class Pairs {
  public:
    explicit Pairs(const TapePlan& plan)
        : columns_(plan.columns), head_(plan.slots(), -1), table_(1024, -1) {}

    int size() const { return static_cast<int>(pairs_.size()); }
    int high(int pair) const { return pairs_[pair].high; }
    int low(int pair) const { return pairs_[pair].low; }
    int first_of(int slot) const { return head_[slot]; }
    int next(int pair) const { return pairs_[pair].next; }

    int find_or_add(int a, int b) {
        const int high = std::max(a, b);
        const int low = std::min(a, b);
        if (2 * pairs_.size() >= table_.size()) grow();
        size_t at = place(high, low);
        for (; table_[at] >= 0; at = (at + 1) & (table_.size() - 1)) {
            const Pair& pair = pairs_[table_[at]];
            if (pair.high == high && pair.low == low) return table_[at];
        }
        table_[at] = size();
        pairs_.push_back({high, low, head_[high]});
        if (high >= columns_) head_[high] = table_[at];
        return table_[at];
    }

  private:
    struct Pair {
        int high, low, next;
    };

    size_t place(int high, int low) const {
        const uint64_t key = static_cast<uint64_t>(high) << 32 | static_cast<uint32_t>(low);
        return (key * 0x9E3779B97F4A7C15ull >> 32) & (table_.size() - 1);
    }
    void grow() {
        table_.assign(2 * table_.size(), -1);
        for (int i = 0; i < size(); ++i) {
            size_t at = place(pairs_[i].high, pairs_[i].low);
            while (table_[at] >= 0) at = (at + 1) & (table_.size() - 1);
            table_[at] = i;
        }
    }

    int columns_;
    std::vector<int> head_;
    std::vector<Pair> pairs_;
    std::vector<int> table_;  // a power of two
};

}  // namespace

class HessianPlanner {
  public:
    HessianPlanner(HessianPlan& out, const TapePlan& plan, size_t max_steps)
        : out_(out), plan_(plan), max_steps_(max_steps), pairs_(plan) {}

    bool run() {
        for (int root = 0; root < plan_.root_count(); ++root) {
            for (int k = plan_.roots[root].quadratic; k < plan_.roots[root + 1].quadratic; ++k) {
                const auto& term = plan_.quadratic[k];
                const int pair = pairs_.find_or_add(term.first, term.second);
                out_.constants_.push_back(
                    {pair, root, term.first == term.second ? 2.0 * term.value : term.value});
            }
        }
        for (int i = plan_.operations - 1; i >= 0; --i) {
            push(i);
            create(i);
            pass_adjoint(i);
            const size_t steps =
                out_.pushes_.size() + out_.creations_.size() + out_.products_.size();
            if (steps > max_steps_ || too_dense_) return false;
        }
        finish();
        return true;
    }

  private:
    int edges_begin(int i) const { return plan_.edge_begin[i]; }
    int edges_end(int i) const { return plan_.edge_begin[i + 1]; }
    bool is_constant(int edge) const { return plan_.is_constant_slot(plan_.edge_slot[edge]); }
    int slot(int edge) const { return plan_.edge_slot[edge]; }

    void add_push(int to_a, int to_b, int from, int by) {
        const int to = pairs_.find_or_add(to_a, to_b);
        out_.pushes_.push_back({to, from, by});
    }

    void push(int i) {
        if (plan_.op[i] == Op::kSign) return;
        const int node = plan_.first_op + i;
        for (int pair = pairs_.first_of(node); pair >= 0; pair = pairs_.next(pair)) {
            const int other = pairs_.low(pair);
            if (other == node) {
                push_square(i, pair);
                continue;
            }
            for (int e = edges_begin(i); e < edges_end(i); ++e) {
                if (is_constant(e)) continue;
                add_push(slot(e), other, pair, e);
                // The pair stands for both orders.
                if (slot(e) == other) out_.pushes_.push_back(out_.pushes_.back());
            }
        }
    }

    void push_square(int i, int pair) {
        const size_t n = static_cast<size_t>(edges_end(i) - edges_begin(i));
        // Of an extreme's arguments only one has a derivative.
        const bool diagonal = plan_.op[i] == Op::kMin || plan_.op[i] == Op::kMax;
        if (!diagonal && n * n / 2 > max_steps_) {
            too_dense_ = true;
            return;
        }
        for (int a = edges_begin(i); a < edges_end(i); ++a) {
            if (is_constant(a)) continue;
            for (int b = diagonal ? a : edges_begin(i); b <= a; ++b) {
                if (is_constant(b)) continue;
                const int by = static_cast<int>(plan_.edge_slot.size() + out_.products_.size());
                out_.products_.push_back({a, b});
                add_push(slot(a), slot(b), pair, by);
                if (a != b && slot(a) == slot(b)) out_.pushes_.push_back(out_.pushes_.back());
            }
        }
    }

    void add_creation(int i, int edge_a, int edge_b, int number) {
        if (is_constant(edge_a) || is_constant(edge_b)) return;
        const int pair = pairs_.find_or_add(slot(edge_a), slot(edge_b));
        out_.creations_.push_back({pair, plan_.first_op + i, number});
        if (edge_a != edge_b && slot(edge_a) == slot(edge_b)) {
            out_.creations_.push_back(out_.creations_.back());
        }
    }

    void create(int i) {
        const int e = edges_begin(i);
        const int number = plan_.second_begin[i];
        switch (plan_.op[i]) {
            case Op::kProduct:
                return add_creation(i, e, e + 1, number);
            case Op::kDivide:
                add_creation(i, e, e + 1, number);
                return add_creation(i, e + 1, e + 1, number + 1);
            case Op::kGeneralPower:
                add_creation(i, e, e, number);
                add_creation(i, e, e + 1, number + 1);
                return add_creation(i, e + 1, e + 1, number + 2);
            case Op::kCall:
                for (int a = e, k = number; a < edges_end(i); ++a) {
                    for (int b = e; b <= a; ++b) add_creation(i, a, b, k++);
                }
                return;
            case Op::kAbs:
            case Op::kSign:
                return;
            default:
                if (is_unary(plan_.op[i])) add_creation(i, e, e, number);
        }
    }

    void pass_adjoint(int i) {
        if (plan_.op[i] == Op::kSign) return;
        for (int e = edges_begin(i); e < edges_end(i); ++e) {
            if (slot(e) >= plan_.first_op) {
                out_.edges_.push_back({slot(e), plan_.first_op + i, e});
            }
        }
    }

    // Number the pairs of columns first, in order.
    void finish() {
        std::vector<int> result;
        for (int pair = 0; pair < pairs_.size(); ++pair) {
            if (pairs_.high(pair) < plan_.columns) result.push_back(pair);
        }
        const auto key = [&](int pair) {
            return static_cast<uint64_t>(pairs_.high(pair)) << 32 |
                   static_cast<uint32_t>(pairs_.low(pair));
        };
        std::sort(result.begin(), result.end(), [&](int a, int b) { return key(a) < key(b); });
        std::vector<int> number(pairs_.size(), -1);
        int next = 0;
        for (const int pair : result) {
            out_.row_.push_back(plan_.column[pairs_.high(pair)]);
            out_.col_.push_back(plan_.column[pairs_.low(pair)]);
            number[pair] = next++;
        }
        for (int& place : number) {
            if (place < 0) place = next++;
        }
        for (auto& push : out_.pushes_) {
            push.to = number[push.to];
            push.from = number[push.from];
        }
        for (auto& creation : out_.creations_) creation.to = number[creation.to];
        for (auto& constant : out_.constants_) constant.to = number[constant.to];
        out_.weight_.resize(next);
        out_.adjoint_.resize(plan_.slots());
        out_.coefficient_.resize(plan_.edge_slot.size() + out_.products_.size());
    }

    HessianPlan& out_;
    const TapePlan& plan_;
    const size_t max_steps_;
    bool too_dense_ = false;
    Pairs pairs_;
};

HessianPlan::HessianPlan(const TapePlan& plan, size_t max_steps) {
    complete_ = HessianPlanner(*this, plan, max_steps).run();
}

bool HessianPlan::evaluate(const TapePlan& plan, const std::vector<double>& first,
                           const std::vector<double>& second, const double* weights, double* out) {
    double* const weight = weight_.data();
    double* const adjoint = adjoint_.data();
    double* const coefficient = coefficient_.data();
    std::fill(weight_.begin(), weight_.end(), 0.0);
    std::fill(adjoint_.begin() + plan.first_op, adjoint_.end(), 0.0);

    for (int root = 0; root < plan.root_count(); ++root) {
        for (int k = plan.roots[root].rest; k < plan.roots[root + 1].rest; ++k) {
            adjoint[plan.rest[k].slot] += weights[root] * plan.rest[k].value;
        }
    }
    for (const Edge& edge : edges_) adjoint[edge.to] += first[edge.by] * adjoint[edge.from];
    for (const Constant& entry : constants_) weight[entry.to] += weights[entry.root] * entry.value;
    for (const Creation& creation : creations_) {
        weight[creation.to] += adjoint[creation.slot] * second[creation.by];
    }
    std::copy(first.begin(), first.end(), coefficient);
    double* product = coefficient + first.size();
    for (const Product& factors : products_) *product++ = first[factors.a] * first[factors.b];
    for (const Push& push : pushes_) weight[push.to] += coefficient[push.by] * weight[push.from];

    double probe = 0.0;
    for (size_t k = 0; k < row_.size(); ++k) {
        out[k] = weight[k];
        probe += out[k] * 0.0;
    }
    return probe == 0.0;
}

}  // namespace nlra
