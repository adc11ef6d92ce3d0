// Numbers: assembly of the fronts, their dense partial factorization, and the solves.
#include <algorithm>
#include <cmath>

#include "analysis/ldlt.hpp"

namespace nlra {

namespace {

constexpr int kBlock = 48;

// Two doubles at any address; the compiler turns operations into one instruction each.
typedef double Pair __attribute__((vector_size(16), aligned(8), may_alias));

// c -= a0*w0 + a1*w1 + a2*w2 + a3*w3 over `count` rows, for two columns c and d at once.
void update_two_by_four(int count, double* c, double* d, const double* a0, const double* a1,
                        const double* a2, const double* a3, const double* wc, const double* wd) {
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Pair v0 = *reinterpret_cast<const Pair*>(a0 + i);
        const Pair v1 = *reinterpret_cast<const Pair*>(a1 + i);
        const Pair v2 = *reinterpret_cast<const Pair*>(a2 + i);
        const Pair v3 = *reinterpret_cast<const Pair*>(a3 + i);
        *reinterpret_cast<Pair*>(c + i) -= v0 * wc[0] + v1 * wc[1] + (v2 * wc[2] + v3 * wc[3]);
        *reinterpret_cast<Pair*>(d + i) -= v0 * wd[0] + v1 * wd[1] + (v2 * wd[2] + v3 * wd[3]);
    }
    for (; i < count; ++i) {
        c[i] -= a0[i] * wc[0] + a1[i] * wc[1] + (a2[i] * wc[2] + a3[i] * wc[3]);
        d[i] -= a0[i] * wd[0] + a1[i] * wd[1] + (a2[i] * wd[2] + a3[i] * wd[3]);
    }
}

void update_one(int count, double* c, const double* a, double w) {
    for (int i = 0; i < count; ++i) c[i] -= a[i] * w;
}

// Lower triangle of columns `from` to size - 1 -= L * W^T over the pivots first to last - 1, where
// row j of W is row j of L times the pivots.
void update_trailing(double* front, int size, int first, int last, int from, const double* pivots) {
    double wc[kBlock], wd[kBlock];
    const auto column = [&](int k) { return front + static_cast<int64_t>(k) * size; };
    for (int j = from; j < size; j += 2) {
        const bool two = j + 1 < size;
        for (int k = first; k < last; ++k) {
            wc[k - first] = column(k)[j] * pivots[k];
            wd[k - first] = two ? column(k)[j + 1] * pivots[k] : 0.0;
        }
        double* c = column(j);
        int k = first;
        if (two) {
            double* d = column(j + 1);
            for (; k + 4 <= last; k += 4) {
                // Row j of the second column lies above the diagonal and is never read.
                update_two_by_four(size - j, c + j, d + j, column(k) + j, column(k + 1) + j,
                                   column(k + 2) + j, column(k + 3) + j, wc + (k - first),
                                   wd + (k - first));
            }
            for (int t = k; t < last; ++t) {
                update_one(size - j - 1, d + j + 1, column(t) + j + 1, wd[t - first]);
            }
        }
        for (; k < last; ++k) update_one(size - j, c + j, column(k) + j, wc[k - first]);
    }
}

// Calls the poll about every 20 ms worth of operations.
class Pacer {
  public:
    explicit Pacer(const StopPoll& poll) : poll_(poll) {}
    void spend(double flops) {
        spent_ += flops;
        if (spent_ < 5e7 || !poll_) return;
        spent_ = 0.0;
        if (poll_()) throw FactorizationStopped();
    }

  private:
    const StopPoll& poll_;
    double spent_ = 0.0;
};

struct PivotRule {
    const signed char* signs;  // null: all must be positive
    double floor;
};

// Eliminate the first `width` columns of a front (lower triangle, by columns): the panel becomes
// unit lower triangular, the rest its Schur complement. False when a pivot is refused.
bool eliminate(double* front, int size, int width, const PivotRule& rule, double* pivots,
               Pacer& pacer) {
    const auto column = [&](int k) { return front + static_cast<int64_t>(k) * size; };
    for (int first = 0; first < width; first += kBlock) {
        const int last = std::min(width, first + kBlock);
        for (int k = first; k < last; ++k) {
            double* c = column(k);
            double pivot = c[k];
            if (rule.signs == nullptr) {
                if (!(pivot > 0.0)) return false;
            } else if (!(pivot * rule.signs[k] >= rule.floor)) {
                pivot = rule.signs[k] * rule.floor;
            }
            pivots[k] = pivot;
            const double inverse = 1.0 / pivot;
            for (int i = k + 1; i < size; ++i) c[i] *= inverse;
            for (int j = k + 1; j < last; ++j) {
                if (c[j] != 0.0) update_one(size - j, column(j) + j, c + j, c[j] * pivot);
            }
        }
        if (last < size) update_trailing(front, size, first, last, last, pivots);
        pacer.spend(static_cast<double>(last - first) * (size - first) * (size - first));
    }
    return true;
}

}  // namespace

bool SparseLdlt::run(const std::vector<SymmetricEntry>& entries,
                     const std::vector<signed char>* signs, double floor) {
    int largest = 0;
    for (const Supernode& node : supernodes_) largest = std::max(largest, node.width + node.below);
    std::vector<double> front(static_cast<size_t>(largest) * largest);
    std::vector<double> stack;  // Schur complements that wait for their parents, packed columns
    std::vector<int> waiting;   // their supernodes
    std::vector<int> place(n_), local;
    std::vector<signed char> node_signs;
    Pacer pacer(poll_);
    pivots_.resize(n_);

    for (size_t s = 0; s < supernodes_.size(); ++s) {
        const Supernode& node = supernodes_[s];
        const int size = node.width + node.below;
        const int* rows = rows_.data() + node.rows_begin;
        std::fill_n(front.begin(), static_cast<int64_t>(size) * size, 0.0);
        for (int k = 0; k < node.width; ++k) place[node.first + k] = k;
        for (int k = 0; k < node.below; ++k) place[rows[k]] = node.width + k;

        for (int64_t k = assembly_begin_[s]; k < assembly_begin_[s + 1]; ++k) {
            const SymmetricEntry& entry = entries[assembly_entry_[k]];
            const int a = place[position_[entry.row]];
            const int b = place[position_[entry.col]];
            front[static_cast<int64_t>(std::min(a, b)) * size + std::max(a, b)] += entry.value;
        }
        // In a postorder the children's complements lie on top of the stack.
        while (!waiting.empty() && supernodes_[waiting.back()].parent == static_cast<int>(s)) {
            const Supernode& child = supernodes_[waiting.back()];
            waiting.pop_back();
            const int below = child.below;
            const int* child_rows = rows_.data() + child.rows_begin;
            local.resize(below);
            for (int k = 0; k < below; ++k) local[k] = place[child_rows[k]];
            const size_t packed = static_cast<size_t>(below) * (below + 1) / 2;
            const double* source = stack.data() + (stack.size() - packed);
            for (int j = 0; j < below; ++j) {
                double* target = front.data() + static_cast<int64_t>(local[j]) * size;
                for (int i = j; i < below; ++i) target[local[i]] += *source++;
            }
            stack.resize(stack.size() - packed);
        }

        PivotRule rule{nullptr, floor};
        if (signs != nullptr) {
            node_signs.resize(node.width);
            for (int k = 0; k < node.width; ++k) node_signs[k] = (*signs)[order_[node.first + k]];
            rule.signs = node_signs.data();
        }
        if (!eliminate(front.data(), size, node.width, rule, pivots_.data() + node.first, pacer)) {
            return false;
        }
        if (signs != nullptr) {
            std::copy_n(front.begin(), static_cast<int64_t>(size) * node.width,
                        factor_.begin() + node.factor_begin);
        }
        if (node.below > 0) {
            for (int j = node.width; j < size; ++j) {
                const double* column = front.data() + static_cast<int64_t>(j) * size;
                stack.insert(stack.end(), column + j, column + size);
            }
            waiting.push_back(static_cast<int>(s));
        }
    }
    return true;
}

bool SparseLdlt::is_positive_definite(const std::vector<SymmetricEntry>& entries) {
    return run(entries, nullptr, 0.0);
}

void SparseLdlt::factor(const std::vector<SymmetricEntry>& entries,
                        const std::vector<signed char>& signs, double floor) {
    factor_.resize(static_cast<size_t>(factor_size_));
    run(entries, &signs, floor);
}

void SparseLdlt::solve(std::vector<double>& b) const {
    std::vector<double> x(n_);
    for (int k = 0; k < n_; ++k) x[k] = b[order_[k]];
    for (const Supernode& node : supernodes_) {
        const int size = node.width + node.below;
        const int* rows = rows_.data() + node.rows_begin;
        for (int k = 0; k < node.width; ++k) {
            const double* column =
                factor_.data() + node.factor_begin + static_cast<int64_t>(k) * size;
            const double value = x[node.first + k];
            if (value == 0.0) continue;
            for (int i = k + 1; i < node.width; ++i) x[node.first + i] -= column[i] * value;
            for (int i = 0; i < node.below; ++i) x[rows[i]] -= column[node.width + i] * value;
        }
    }
    for (int k = 0; k < n_; ++k) x[k] /= pivots_[k];
    for (auto it = supernodes_.rbegin(); it != supernodes_.rend(); ++it) {
        const Supernode& node = *it;
        const int size = node.width + node.below;
        const int* rows = rows_.data() + node.rows_begin;
        for (int k = node.width - 1; k >= 0; --k) {
            const double* column =
                factor_.data() + node.factor_begin + static_cast<int64_t>(k) * size;
            double value = x[node.first + k];
            for (int i = k + 1; i < node.width; ++i) value -= column[i] * x[node.first + i];
            for (int i = 0; i < node.below; ++i) value -= column[node.width + i] * x[rows[i]];
            x[node.first + k] = value;
        }
    }
    for (int k = 0; k < n_; ++k) b[order_[k]] = x[k];
}

}  // namespace nlra
