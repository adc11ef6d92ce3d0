#include "nonlinear/graph.hpp"

#include <bit>

namespace nlra {

namespace {

// Sums up to this size are merged into sums that use them: arguments of functions and parts of
// longer sums are then plain sums of few terms. Larger ones stay shared.
constexpr int kMergedTerms = 8;

uint64_t mix(uint64_t hash, uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ull;
    return hash ^ hash >> 29;
}

uint64_t pair_of(int a, int b) {
    return static_cast<uint64_t>(static_cast<uint32_t>(a)) << 32 | static_cast<uint32_t>(b);
}

bool same_bits(double a, double b) {
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

bool is_usable_factor(double value) { return std::isfinite(value) && value != 0.0; }

}  // namespace

void Graph::reserve(size_t more_nodes) {
    // Doubling at least, so that many small calls stay linear.
    const size_t wanted = nodes_.size() + more_nodes;
    if (wanted > nodes_.capacity()) nodes_.reserve(std::max(wanted, 2 * nodes_.capacity()));
    if (3 * wanted > 2 * table_.size()) rehash(std::bit_ceil(3 * wanted / 2 + 64));
}

// What is made and looked up one after the other often has arguments of similar number: such nodes
// go into the same cache lines.
uint64_t Graph::place_of(const Node& node, const Entry* entries) const {
    uint64_t hash = mix(1, std::bit_cast<uint64_t>(node.param));
    if (entries != nullptr) {
        hash = mix(hash, static_cast<uint64_t>(node.op));
        for (int i = 0; i < node.second; ++i) {
            hash = mix(mix(hash, std::bit_cast<uint64_t>(entries[i].value)),
                       static_cast<uint64_t>(static_cast<uint32_t>(entries[i].node)));
        }
        return hash >> 20;
    }
    const int distance = is_unary(node.op) ? 0 : node.second - node.first;
    hash = mix(hash, pair_of(node.first >> 4, distance < 3 ? 0 : distance));
    const unsigned within =
        2u * static_cast<unsigned>(node.first) + 7u * static_cast<unsigned>(node.op);
    return (hash >> 20 & ~uint64_t{31}) | (within & 31u);
}

void Graph::rehash(size_t slots) {
    std::vector<int> table(slots, -1);
    const size_t mask = slots - 1;
    for (const int index : table_) {
        if (index < 0) continue;
        const Node& node = nodes_[index];
        size_t at = place_of(node, node.has_entries() ? entries(node) : nullptr) & mask;
        while (table[at] >= 0) at = (at + 1) & mask;
        table[at] = index;
    }
    table_.swap(table);
}

template <class Equal, class Create>
int Graph::find_or_create(uint64_t place, const Equal& equal, const Create& create) {
    if (3 * (nodes_.size() + 1) > 2 * table_.size())
        rehash(std::max<size_t>(64, 2 * table_.size()));
    const size_t mask = table_.size() - 1;
    size_t at = place & mask;
    for (; table_[at] >= 0; at = (at + 1) & mask) {
        if (equal(nodes_[table_[at]])) return table_[at];
    }
    nodes_.push_back(create());
    table_[at] = size() - 1;
    return table_[at];
}

int Graph::intern(Op op, double param, int first, int second) {
    const Node made{param, first, second, op};
    return find_or_create(
        place_of(made, nullptr),
        [&](const Node& node) {
            return node.op == op && node.first == first && node.second == second &&
                   same_bits(node.param, param);
        },
        [&] { return made; });
}

int Graph::intern_entries(Op op, double param) {
    const int count = static_cast<int>(scratch_.size());
    const auto same_entry = [](const Entry& a, const Entry& b) {
        return a.node == b.node && same_bits(a.value, b.value);
    };
    return find_or_create(
        place_of({param, 0, count, op}, scratch_.data()),
        [&](const Node& node) {
            return node.op == op && node.second == count && same_bits(node.param, param) &&
                   std::equal(scratch_.begin(), scratch_.end(), entries(node), same_entry);
        },
        [&] {
            const int first = static_cast<int>(pool_.size());
            pool_.insert(pool_.end(), scratch_.begin(), scratch_.end());
            return Node{param, first, count, op};
        });
}

Scaled Graph::column(int index) {
    if (index >= static_cast<int>(column_node_.size())) {
        column_node_.resize(std::max<size_t>(index + 1, 2 * column_node_.size()), -1);
    }
    int& node = column_node_[index];
    if (node < 0) {
        nodes_.push_back({0.0, index, -1, Op::kColumn});
        node = size() - 1;
    }
    return {1.0, node};
}

int Graph::materialize(Scaled a) {
    if (a.is_constant()) return intern(Op::kConstant, a.factor + 0.0, -1);
    if (a.factor == 1.0) return a.node;
    const Node& node = nodes_[a.node];
    scratch_.clear();
    double constant = 0.0;
    if (node.op == Op::kSum && node.second <= kMergedTerms) {
        constant = a.factor * node.param;
        for (int i = 0; i < node.second; ++i) {
            const Entry& entry = entries(node)[i];
            scratch_.push_back({a.factor * entry.value, entry.node});
        }
    } else {
        scratch_.push_back({a.factor, a.node});
    }
    return intern_entries(Op::kSum, constant + 0.0);
}

Scaled Graph::sum(double constant, std::vector<Entry>& terms) {
    for (size_t i = 0, count = terms.size(); i < count; ++i) {
        const Entry term = terms[i];
        const Node& node = nodes_[term.node];
        if (node.op != Op::kSum || node.second > kMergedTerms) continue;
        constant += term.value * node.param;
        terms[i].value = 0.0;
        for (int k = 0; k < node.second; ++k) {
            const Entry& inner = entries(node)[k];
            terms.push_back({term.value * inner.value, inner.node});
        }
    }
    sort_terms(terms, [](const Entry& a, const Entry& b) { return a.node < b.node; });
    scratch_.clear();
    for (size_t i = 0; i < terms.size();) {
        Entry merged = terms[i++];
        while (i < terms.size() && terms[i].node == merged.node) merged.value += terms[i++].value;
        if (merged.value != 0.0) scratch_.push_back(merged);
    }
    if (scratch_.empty()) return {constant, -1};
    if (scratch_.size() == 1 && constant == 0.0) return {scratch_[0].value, scratch_[0].node};
    return {1.0, intern_entries(Op::kSum, constant + 0.0)};
}

Scaled Graph::product(double factor, std::vector<Entry>& factors) {
    if (factor == 0.0 || factors.empty()) return {factor, -1};
    sort_terms(factors, [](const Entry& a, const Entry& b) { return a.node < b.node; });
    size_t kept = 0;
    for (size_t i = 0; i < factors.size();) {
        size_t end = i;
        while (end < factors.size() && factors[end].node == factors[i].node) ++end;
        const Scaled repeated = power({1.0, factors[i].node}, {static_cast<double>(end - i), -1});
        factors[kept++].node = repeated.node;
        i = end;
    }
    // Halves are multiplied first: the depth stays logarithmic.
    while (kept > 1) {
        size_t out = 0;
        for (size_t i = 0; i + 1 < kept; i += 2) {
            const int low = std::min(factors[i].node, factors[i + 1].node);
            const int high = std::max(factors[i].node, factors[i + 1].node);
            factors[out++].node = intern(Op::kProduct, 0.0, low, high);
        }
        if (kept % 2 == 1) factors[out++].node = factors[kept - 1].node;
        kept = out;
    }
    return {factor, factors[0].node};
}

Scaled Graph::divide(Scaled a, Scaled b) {
    const double factor = a.factor / b.factor;
    if (b.factor != 0.0 && std::isfinite(factor) && (factor != 0.0 || a.factor == 0.0)) {
        if (b.is_constant()) return {factor, factor == 0.0 ? -1 : a.node};
        if (a.factor == 0.0) return {0.0, -1};
        if (a.is_constant()) return {factor, intern(Op::kReciprocal, 0.0, b.node)};
        return {factor, intern(Op::kDivide, 0.0, a.node, b.node)};
    }
    const int numerator = materialize(a);
    return {1.0, intern(Op::kDivide, 0.0, numerator, materialize(b))};
}

Scaled Graph::power(Scaled base, Scaled exponent) {
    if (exponent.is_constant()) {
        const double p = exponent.factor;
        if (p == 0.0) return {1.0, -1};
        if (p == 1.0) return base;
        double factor = 1.0;
        if (base.is_constant()) {
            factor = Unary<Op::kPower>::value(base.factor, p);
            if (std::isfinite(factor)) return {factor, -1};
            factor = 1.0;
        } else if (base.factor != 1.0) {
            // (c * g)^p = c^p * g^p, if the two sides have the same domain.
            const bool splits = base.factor > 0.0 || std::floor(p) == p;
            factor = splits ? std::pow(base.factor, p) : 0.0;
            if (!is_usable_factor(factor))
                factor = 1.0;
            else
                base.factor = 1.0;
        }
        const int node = materialize(base);
        if (p == 2.0) return {factor, intern(Op::kSquare, 0.0, node)};
        if (p == 3.0) return {factor, intern(Op::kCube, 0.0, node)};
        if (p == -1.0) return {factor, intern(Op::kReciprocal, 0.0, node)};
        if (p == 0.5) return {factor, intern(Op::kSqrt, 0.0, node)};
        return {factor, intern(Op::kPower, p, node)};
    }
    if (base.is_constant() && base.factor == 1.0) return {1.0, -1};
    const int base_node = materialize(base);
    return {1.0, intern(Op::kGeneralPower, 0.0, base_node, materialize(exponent))};
}

Scaled Graph::unary(Op op, Scaled a) {
    if (a.is_constant()) {
        double value = kNotDefined;
        visit_unary(op, [&](auto f) { value = f.value(a.factor, 0.0); });
        if (std::isfinite(value)) return {value, -1};
    }
    return {1.0, intern(op, 0.0, materialize(a))};
}

Scaled Graph::extreme(Op op, const std::vector<Scaled>& args) {
    // Constants count as one argument; equal ones count once.
    bool has_constant = false;
    double constant = 0.0;
    std::vector<Entry> kept;
    for (const Scaled& arg : args) {
        if (arg.is_constant()) {
            constant = has_constant ? extreme_of(op, constant, arg.factor) : arg.factor;
            has_constant = true;
        } else {
            kept.push_back({0.0, materialize(arg)});
        }
    }
    if (kept.empty()) return {constant, -1};
    if (has_constant) kept.push_back({0.0, materialize({constant, -1})});
    std::sort(kept.begin(), kept.end(),
              [](const Entry& a, const Entry& b) { return a.node < b.node; });
    scratch_.clear();
    for (const Entry& entry : kept) {
        if (scratch_.empty() || scratch_.back().node != entry.node) scratch_.push_back(entry);
    }
    if (scratch_.size() == 1) return {1.0, scratch_[0].node};
    return {1.0, intern_entries(op, 0.0)};
}

Scaled Graph::piecewise(Scaled x, const std::vector<Scaled>& points) {
    if (x.is_constant()) {
        std::vector<double> flat;
        for (const Scaled& point : points) flat.push_back(point.factor);
        const double y = piecewise_at(flat.data(), static_cast<int>(flat.size()), x.factor).value;
        if (std::isfinite(y)) return {y, -1};
    }
    const int argument = materialize(x);
    scratch_.clear();
    scratch_.push_back({0.0, argument});
    for (const Scaled& point : points) scratch_.push_back({point.factor + 0.0, -1});
    return {1.0, intern_entries(Op::kPiecewise, 0.0)};
}

Scaled Graph::call(int function, const std::vector<Scaled>& args) {
    std::vector<Entry> nodes;
    nodes.reserve(args.size());
    for (const Scaled& arg : args) nodes.push_back({0.0, materialize(arg)});
    scratch_.swap(nodes);
    return {1.0, intern_entries(Op::kCall, function)};
}

PiecewiseValue piecewise_at(const double* points, int count, double x) {
    const int n = count / 2;
    const auto px = [&](int i) { return points[2 * i]; };
    const auto py = [&](int i) { return points[2 * i + 1]; };
    if (std::isnan(x)) return {kNotDefined, kNotDefined};
    // The first point beyond x, by halving.
    int low = 0;
    for (int high = n; low < high;) {
        const int middle = (low + high) / 2;
        if (px(middle) > x)
            high = middle;
        else
            low = middle + 1;
    }
    const int right = std::clamp(low, 1, n - 1);
    const double width = px(right) - px(right - 1);
    if (width == 0.0) {
        // A jump at one of the ends: constant behind the last, unknown before the first.
        return low == n ? PiecewiseValue{py(n - 1), 0.0} : PiecewiseValue{kNotDefined, kNotDefined};
    }
    const double slope = (py(right) - py(right - 1)) / width;
    return {py(right - 1) + slope * (x - px(right - 1)), slope};
}

}  // namespace nlra
