// Planning: elimination order, elimination tree, supernodes and their row structures.
#include <algorithm>
#include <numeric>

#include "analysis/ldlt.hpp"
#include "analysis/ordering.hpp"

namespace nlra {

namespace {

// Pattern of a symmetric matrix by columns, both triangles, no diagonal, no repeats.
struct Pattern {
    std::vector<int64_t> start;
    std::vector<int> index;
};

Pattern full_pattern(int n, const std::vector<SymmetricEntry>& entries) {
    std::vector<int64_t> fill(static_cast<size_t>(n) + 1, 0);
    for (const SymmetricEntry& entry : entries) {
        if (entry.row == entry.col) continue;
        ++fill[entry.row + 1];
        ++fill[entry.col + 1];
    }
    std::partial_sum(fill.begin(), fill.end(), fill.begin());
    std::vector<int> index(static_cast<size_t>(fill[n]));
    std::vector<int64_t> next(fill.begin(), fill.end() - 1);
    for (const SymmetricEntry& entry : entries) {
        if (entry.row == entry.col) continue;
        index[next[entry.row]++] = entry.col;
        index[next[entry.col]++] = entry.row;
    }
    Pattern pattern;
    pattern.start.reserve(static_cast<size_t>(n) + 1);
    pattern.start.push_back(0);
    std::vector<int> seen(n, -1);
    int64_t kept = 0;
    for (int j = 0; j < n; ++j) {
        for (int64_t k = fill[j]; k < fill[j + 1]; ++k) {
            if (seen[index[k]] == j) continue;
            seen[index[k]] = j;
            index[kept++] = index[k];
        }
        pattern.start.push_back(kept);
    }
    index.resize(static_cast<size_t>(kept));
    pattern.index = std::move(index);
    return pattern;
}

// parent[j]: the first later column that column j's elimination reaches, -1 for roots.
std::vector<int> elimination_tree(const Pattern& pattern, const std::vector<int>& order,
                                  const std::vector<int>& position) {
    const int n = static_cast<int>(order.size());
    std::vector<int> parent(n, -1), ancestor(n, -1);
    for (int k = 0; k < n; ++k) {
        const int column = order[k];
        for (int64_t t = pattern.start[column]; t < pattern.start[column + 1]; ++t) {
            int i = position[pattern.index[t]];
            while (i < k) {
                const int up = ancestor[i];
                ancestor[i] = k;
                if (up < 0) {
                    parent[i] = k;
                    break;
                }
                i = up;
            }
        }
    }
    return parent;
}

// Postorder: children before parents, subtrees contiguous. post[k] is the k-th node.
std::vector<int> postorder(const std::vector<int>& parent) {
    const int n = static_cast<int>(parent.size());
    std::vector<int> child(n, -1), sibling(n, -1), post, stack;
    for (int j = n - 1; j >= 0; --j) {
        if (parent[j] < 0) continue;
        sibling[j] = child[parent[j]];
        child[parent[j]] = j;
    }
    post.reserve(n);
    for (int root = 0; root < n; ++root) {
        if (parent[root] >= 0) continue;
        stack.push_back(root);
        while (!stack.empty()) {
            const int node = stack.back();
            if (child[node] >= 0) {
                stack.push_back(child[node]);
                child[node] = sibling[child[node]];
            } else {
                post.push_back(node);
                stack.pop_back();
            }
        }
    }
    return post;
}

// Entries of each column of L below the diagonal, by walking every row's subtree.
std::vector<int> column_counts(const Pattern& pattern, const std::vector<int>& order,
                               const std::vector<int>& position, const std::vector<int>& parent) {
    const int n = static_cast<int>(order.size());
    std::vector<int> count(n, 0), mark(n, -1);
    for (int k = 0; k < n; ++k) {
        mark[k] = k;
        const int column = order[k];
        for (int64_t t = pattern.start[column]; t < pattern.start[column + 1]; ++t) {
            for (int i = position[pattern.index[t]]; i < k && mark[i] != k; i = parent[i]) {
                mark[i] = k;
                ++count[i];
            }
        }
    }
    return count;
}

}  // namespace

void SparseLdlt::analyze(int n, const std::vector<SymmetricEntry>& entries) {
    n_ = n;
    const Pattern pattern = full_pattern(n, entries);
    order_ = minimum_degree_order(n, pattern.start, pattern.index);
    position_.resize(n);
    for (int k = 0; k < n; ++k) position_[order_[k]] = k;
    std::vector<int> parent = elimination_tree(pattern, order_, position_);

    const std::vector<int> post = postorder(parent);
    std::vector<int> renumbered(n), new_parent(n), new_order(n);
    for (int k = 0; k < n; ++k) renumbered[post[k]] = k;
    for (int k = 0; k < n; ++k) {
        new_order[k] = order_[post[k]];
        const int up = parent[post[k]];
        new_parent[k] = up < 0 ? -1 : renumbered[up];
    }
    order_ = std::move(new_order);
    parent = std::move(new_parent);
    for (int k = 0; k < n; ++k) position_[order_[k]] = k;

    build_supernodes(parent, column_counts(pattern, order_, position_, parent));
    plan_assembly(entries);

    // Row structures bottom-up: own entries and the children's rows that are still to come.
    std::vector<int> mark(n, -1), rows;
    std::vector<int> first_child(supernodes_.size(), -1), next_child(supernodes_.size(), -1);
    rows_.clear();
    factor_size_ = 0;
    flops_ = 0.0;
    for (size_t s = 0; s < supernodes_.size(); ++s) {
        Supernode& node = supernodes_[s];
        const int tag = static_cast<int>(s);
        const int end = node.first + node.width;
        rows.clear();
        const auto collect = [&](int row) {
            if (row < end || mark[row] == tag) return;
            mark[row] = tag;
            rows.push_back(row);
        };
        for (int64_t k = assembly_begin_[s]; k < assembly_begin_[s + 1]; ++k) {
            const SymmetricEntry& entry = entries[assembly_entry_[k]];
            collect(std::max(position_[entry.row], position_[entry.col]));
        }
        for (int c = first_child[s]; c >= 0; c = next_child[c]) {
            const Supernode& child = supernodes_[c];
            for (int k = 0; k < child.below; ++k) collect(rows_[child.rows_begin + k]);
        }
        std::sort(rows.begin(), rows.end());
        node.rows_begin = static_cast<int64_t>(rows_.size());
        node.below = static_cast<int>(rows.size());
        rows_.insert(rows_.end(), rows.begin(), rows.end());
        node.factor_begin = factor_size_;
        const double front = static_cast<double>(node.width) + node.below;
        factor_size_ += static_cast<int64_t>(front) * node.width;
        for (int k = 0; k < node.width; ++k) flops_ += (front - k) * (front - k);
        if (node.parent >= 0) {
            next_child[s] = first_child[node.parent];
            first_child[node.parent] = static_cast<int>(s);
        }
    }
}

// Consecutive columns of a path in the tree with nested structures make one supernode.
void SparseLdlt::build_supernodes(const std::vector<int>& parent, const std::vector<int>& count) {
    supernodes_.clear();
    std::vector<int> owner(n_);
    for (int j = 0; j < n_; ++j) {
        const bool joins = j > 0 && parent[j - 1] == j && count[j - 1] == count[j] + 1;
        if (joins) {
            ++supernodes_.back().width;
        } else {
            supernodes_.push_back({j, 1, 0, -1, 0, 0});
        }
        owner[j] = static_cast<int>(supernodes_.size()) - 1;
    }
    for (Supernode& node : supernodes_) {
        const int up = parent[node.first + node.width - 1];
        node.parent = up < 0 ? -1 : owner[up];
    }
}

// Sort the entries by the front that they are added to: that of the column eliminated first.
void SparseLdlt::plan_assembly(const std::vector<SymmetricEntry>& entries) {
    std::vector<int> owner(n_);
    for (size_t s = 0; s < supernodes_.size(); ++s) {
        for (int k = 0; k < supernodes_[s].width; ++k) {
            owner[supernodes_[s].first + k] = static_cast<int>(s);
        }
    }
    assembly_begin_.assign(supernodes_.size() + 1, 0);
    const auto front_of = [&](const SymmetricEntry& entry) {
        return owner[std::min(position_[entry.row], position_[entry.col])];
    };
    for (const SymmetricEntry& entry : entries) ++assembly_begin_[front_of(entry) + 1];
    std::partial_sum(assembly_begin_.begin(), assembly_begin_.end(), assembly_begin_.begin());
    assembly_entry_.resize(entries.size());
    std::vector<int64_t> next(assembly_begin_.begin(), assembly_begin_.end() - 1);
    for (size_t k = 0; k < entries.size(); ++k) {
        assembly_entry_[next[front_of(entries[k])]++] = static_cast<int64_t>(k);
    }
}

}  // namespace nlra
