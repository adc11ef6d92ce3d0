// Random sequences of edits through the C functions, against a naive dense model.
#include <numeric>
#include <random>
#include <set>

#include "dense_problem.hpp"

namespace {

class Editor {
  public:
    explicit Editor(unsigned seed) : random_(seed) {
        REQUIRE(NLRAinit(nullptr) == 0);
        REQUIRE(NLRAcreateprob(&prob_) == 0);
    }
    ~Editor() { NLRAdestroyprob(prob_); }

    void step();
    bool agrees() const {
        DenseProblem expected = naive_;
        expected.fill_names();
        return read_problem(prob_) == expected;
    }

  private:
    using Terms = DenseProblem::Terms;

    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    double number() { return below(9) - 4.0; }
    double weight() { return below(1000000) / 8.0; }
    int row() { return below(naive_.nrows()); }
    int col() { return below(naive_.ncols()); }
    std::vector<int> sample(int size) {
        std::vector<int> all(size);
        std::iota(all.begin(), all.end(), 0);
        std::shuffle(all.begin(), all.end(), random_);
        all.resize(below(std::min(size, 5) + 1));
        return all;
    }
    // Each pair once; the second half of the columns may come first.
    Terms pairs() {
        Terms terms;
        for (int k = below(5); k > 0; --k) {
            const int i = col(), j = col();
            terms[{std::min(i, j), std::max(i, j)}] = number();
        }
        return terms;
    }
    void flat(const Terms& terms, std::vector<int>& col1, std::vector<int>& col2,
              std::vector<double>& value) {
        for (const auto& [pair, v] : terms) {
            const bool swap = below(2) == 0;
            col1.push_back(swap ? pair.second : pair.first);
            col2.push_back(swap ? pair.first : pair.second);
            value.push_back(v);
        }
    }

    void add_rows();
    void add_cols();
    void add_set();
    void change_coefficients();
    void change_columns();
    void change_quadratic();
    void change_names();
    void delete_rows();
    void delete_cols();
    void delete_sets();

    std::mt19937 random_;
    NLRAprob prob_ = nullptr;
    DenseProblem naive_;
};

void Editor::add_rows() {
    const int count = below(4);
    std::vector<char> type;
    std::vector<double> rhs, range, value;
    std::vector<int64_t> start;
    std::vector<int> colind;
    for (int i = 0; i < count; ++i) {
        type.push_back("LGERN"[below(5)]);
        rhs.push_back(number());
        range.push_back(number());
        start.push_back(static_cast<int64_t>(colind.size()));
        DenseProblem::Row row;
        row.type = type[i];
        row.rhs = rhs[i];
        row.range = type[i] == 'R' ? std::fabs(range[i]) : 0.0;
        for (const int j : sample(naive_.ncols())) {
            colind.push_back(j);
            value.push_back(number());
            if (value.back() != 0.0) row.coefs[j] = value.back();
        }
        naive_.rows.push_back(row);
    }
    CHECK(NLRAaddrows64(prob_, count, static_cast<int64_t>(colind.size()), type.data(), rhs.data(),
                        range.data(), start.data(), colind.data(), value.data()) == 0);
}

void Editor::add_cols() {
    const int count = below(4);
    std::vector<double> obj, lower, upper, value;
    std::vector<int64_t> start;
    std::vector<int> rowind;
    for (int j = 0; j < count; ++j) {
        obj.push_back(number());
        lower.push_back(below(4) == 0 ? -1e30 : number());
        upper.push_back(below(4) == 0 ? 1e30 : number());
        start.push_back(static_cast<int64_t>(rowind.size()));
        for (const int i : sample(naive_.nrows())) {
            rowind.push_back(i);
            value.push_back(number());
            if (value.back() != 0.0) naive_.rows[i].coefs[naive_.ncols()] = value.back();
        }
        naive_.cols.push_back(
            {obj[j], std::max(lower[j], -1e20), std::min(upper[j], 1e20), 0.0, 'C', ""});
    }
    CHECK(NLRAaddcols64(prob_, count, static_cast<int64_t>(rowind.size()), obj.data(), start.data(),
                        rowind.data(), value.data(), lower.data(), upper.data()) == 0);
}

void Editor::add_set() {
    DenseProblem::SetData set{"12" [below(2)], {}, ""};
    std::vector<int> cols = sample(naive_.ncols());
    std::vector<double> weights;
    std::set<double> used;
    for (const int j : cols) {
        double w = weight();
        while (!used.insert(w).second) w = weight();
        weights.push_back(w);
        set.elements.emplace_back(j, w);
    }
    const int64_t start = 0;
    CHECK(NLRAaddsets64(prob_, 1, static_cast<int64_t>(cols.size()), &set.type, &start, cols.data(),
                        weights.data()) == 0);
    naive_.sets.push_back(set);
}

void Editor::change_coefficients() {
    if (naive_.nrows() == 0) return;
    const int i = row();
    double rhs = number();
    CHECK(NLRAchgrhs(prob_, 1, &i, &rhs) == 0);
    naive_.rows[i].rhs = rhs;
    for (int k = below(6); k > 0 && naive_.ncols() > 0; --k) {
        const int r = row(), c = col();
        const double value = number();
        CHECK(NLRAchgcoef(prob_, r, c, value) == 0);
        if (value == 0.0) {
            naive_.rows[r].coefs.erase(c);
        } else {
            naive_.rows[r].coefs[c] = value;
        }
    }
}

void Editor::change_columns() {
    if (naive_.ncols() == 0) return;
    int j = col();
    DenseProblem::Column& column = naive_.cols[j];
    const double value = number();
    switch (below(5)) {
        case 0: {
            const char bound = "LUB"[below(3)];
            CHECK(NLRAchgbounds(prob_, 1, &j, &bound, &value) == 0);
            if (bound != 'U') column.lower = value;
            if (bound != 'L') column.upper = value;
            if (column.type == 'B' && (column.lower < 0.0 || column.upper > 1.0)) column.type = 'I';
            break;
        }
        case 1: {
            const char type = "CBISRP"[below(6)];
            CHECK(NLRAchgcoltype(prob_, 1, &j, &type) == 0);
            if (type != column.type) column.limit = 0.0;
            column.type = type;
            if (type == 'B') {
                column.lower = std::max(column.lower, 0.0);
                column.upper = std::min(column.upper, 1.0);
            }
            break;
        }
        case 2: {
            const bool possible =
                column.type == 'P' || ((column.type == 'S' || column.type == 'R') && value >= 0.0);
            CHECK((NLRAchgglblimit(prob_, 1, &j, &value) == 0) == possible);
            if (possible) column.limit = value;
            break;
        }
        case 3: {
            const int where[] = {j, -1};
            const double values[] = {value, number()};
            CHECK(NLRAchgobj(prob_, 2, where, values) == 0);
            column.cost = values[0];
            naive_.constant = -values[1];
            break;
        }
        default: {
            if (naive_.nrows() == 0) break;
            const int i = row();
            const int complement = below(3) - 1;
            const bool binary = (column.type == 'B' || column.type == 'I') && column.lower >= 0.0 &&
                                column.upper <= 1.0;
            CHECK((NLRAsetindicators(prob_, 1, &i, &j, &complement) == 0) ==
                  (binary || complement == 0));
            if (complement == 0) {
                naive_.rows[i].indicator = {-1, 0};
            } else if (binary) {
                naive_.rows[i].indicator = {j, complement};
            }
        }
    }
}

void Editor::change_quadratic() {
    naive_.sense = below(2) == 0 ? 1 : -1;
    CHECK(NLRAchgobjsense(prob_, naive_.sense) == 0);
    if (naive_.ncols() == 0) return;
    const Terms terms = pairs();
    std::vector<int> col1, col2;
    std::vector<double> value;
    flat(terms, col1, col2, value);
    const int n = static_cast<int>(value.size());
    Terms* target = &naive_.quadratic;
    if (below(2) == 0) {
        CHECK(NLRAchgmqobj(prob_, n, col1.data(), col2.data(), value.data()) == 0);
    } else {
        if (naive_.nrows() == 0) return;
        const int i = row();
        CHECK(NLRAaddqmatrix64(prob_, i, n, col1.data(), col2.data(), value.data()) == 0);
        target = &naive_.rows[i].quadratic;
        target->clear();
    }
    for (const auto& [pair, v] : terms) {
        if (v == 0.0) {
            target->erase(pair);
        } else {
            (*target)[pair] = v;
        }
    }
}

void Editor::change_names() {
    const auto rename = [&](auto& objects, int type) {
        if (objects.empty()) return;
        const int first = below(static_cast<int>(objects.size()));
        const int last = first + below(static_cast<int>(objects.size()) - first);
        std::string packed;
        for (int i = first; i <= last; ++i) {
            objects[i].name = below(4) == 0 ? "" : "n" + std::to_string(below(6));
            packed += objects[i].name;
            packed += '\0';
        }
        CHECK(NLRAaddnames(prob_, type, packed.data(), first, last) == 0);
    };
    rename(naive_.rows, NLRA_NAMES_ROW);
    rename(naive_.cols, NLRA_NAMES_COLUMN);
    rename(naive_.sets, NLRA_NAMES_SET);
    DenseProblem named = naive_;
    named.fill_names();
    for (int k = 0; k < 6; ++k) {
        const std::string name = (k % 2 == 0 ? "n" : "C") + std::to_string(below(6));
        int expected = -1, found = -1;
        for (int j = named.ncols() - 1; j >= 0; --j) {
            if (named.cols[j].name == name) expected = j;
        }
        const int status = NLRAgetindex(prob_, NLRA_NAMES_COLUMN, name.c_str(), &found);
        CHECK(found == expected && status == (expected < 0 ? NLRA_ERROR_NOTFOUND : 0));
    }
}

void Editor::delete_rows() {
    std::vector<int> doomed = sample(naive_.nrows());
    CHECK(NLRAdelrows(prob_, static_cast<int>(doomed.size()), doomed.data()) == 0);
    std::sort(doomed.rbegin(), doomed.rend());
    for (const int i : doomed) naive_.delete_row(i);
}

void Editor::delete_cols() {
    std::vector<int> doomed = sample(naive_.ncols());
    const bool needed =
        std::any_of(naive_.rows.begin(), naive_.rows.end(), [&](const DenseProblem::Row& row) {
            return std::count(doomed.begin(), doomed.end(), row.indicator.first) > 0;
        });
    const int status = NLRAdelcols(prob_, static_cast<int>(doomed.size()), doomed.data());
    CHECK(status == (needed ? NLRA_ERROR_STATE : 0));
    if (needed) return;
    std::sort(doomed.rbegin(), doomed.rend());
    for (const int j : doomed) naive_.delete_col(j);
}

void Editor::delete_sets() {
    std::vector<int> doomed = sample(static_cast<int>(naive_.sets.size()));
    CHECK(NLRAdelsets(prob_, static_cast<int>(doomed.size()), doomed.data()) == 0);
    std::sort(doomed.rbegin(), doomed.rend());
    for (const int i : doomed) naive_.sets.erase(naive_.sets.begin() + i);
}

void Editor::step() {
    switch (below(14)) {
        case 0:
        case 1:
            return add_rows();
        case 2:
        case 3:
            return add_cols();
        case 4:
            return add_set();
        case 5:
        case 6:
            return change_coefficients();
        case 7:
        case 8:
            return change_columns();
        case 9:
            return change_quadratic();
        case 10:
            return change_names();
        case 11:
            return delete_rows();
        case 12:
            return delete_cols();
        default:
            return delete_sets();
    }
}

}  // namespace

TEST("api: random edits agree with a naive model") {
    for (unsigned seed = 0; seed < 300; ++seed) {
        Editor editor(seed);
        for (int step = 0; step < 60; ++step) {
            editor.step();
            // Not after every step: edits must also work on top of edits that nobody has read.
            if (step % 7 == 6 && !CHECK(editor.agrees())) {
                std::fprintf(stderr, "seed %u, step %d\n", seed, step);
                return;
            }
        }
    }
}
