// The store below the C functions: what the recorded edits promise to solvers, and names.
#include <map>
#include <random>

#include "check.hpp"
#include "store/model.hpp"

using namespace nlra;

namespace {

// A solver that keeps a copy of the linear part and takes changes over by the rules in model.hpp.
struct Shadow {
    std::vector<double> lower, upper, cost, row_lower, row_upper;
    std::map<std::pair<int, int>, double> coefs;
    double constant = 0.0, sense = 0.0;
    std::vector<int> row_serial, col_serial;  // identity of each row and column, for the maps
    bool operator==(const Shadow&) const = default;

    void add_column(const Model& model, int col) {
        lower.push_back(model.lower[col]);
        upper.push_back(model.upper[col]);
        cost.push_back(model.obj[col]);
    }
    void add_row(const Model& model, int row) {
        row_lower.push_back(model.row_lower(row));
        row_upper.push_back(model.row_upper(row));
        for (int64_t k = model.matrix.start()[row]; k < model.matrix.start()[row + 1]; ++k) {
            coefs[{row, model.matrix.index()[k]}] = model.matrix.value()[k];
        }
    }
    static Shadow of(const Model& model) {
        Shadow all;
        for (int j = 0; j < model.cols(); ++j) all.add_column(model, j);
        for (int i = 0; i < model.rows(); ++i) all.add_row(model, i);
        all.constant = model.constant;
        all.sense = model.sense;
        return all;
    }
    void take_over(const Model& model, const std::vector<int>& rows, const std::vector<int>& cols);
};

// The serials that `map` (empty: all stay) leaves, in their new places.
std::vector<int> survivors(const std::vector<int>& serials, const std::vector<int>& map) {
    std::vector<int> left;
    for (size_t i = 0; i < serials.size(); ++i) {
        if (!map.empty() && map[i] < 0) continue;
        CHECK(map.empty() || map[i] == static_cast<int>(left.size()));
        left.push_back(serials[i]);
    }
    return left;
}

void Shadow::take_over(const Model& model, const std::vector<int>& rows,
                       const std::vector<int>& cols) {
    Edits& edits = model.edits;
    CHECK(edits.known_rows == static_cast<int>(row_serial.size()));
    CHECK(edits.known_cols == static_cast<int>(col_serial.size()));
    const std::vector<int> kept_rows = survivors(row_serial, edits.row_map);
    const std::vector<int> kept_cols = survivors(col_serial, edits.col_map);
    CHECK(std::equal(kept_rows.begin(), kept_rows.end(), rows.begin()));
    CHECK(std::equal(kept_cols.begin(), kept_cols.end(), cols.begin()));

    if (edits.rebuild) {
        *this = of(model);
    } else {
        for (int j = edits.known_cols; j < model.cols(); ++j) add_column(model, j);
        for (int i = edits.known_rows; i < model.rows(); ++i) add_row(model, i);
        for (const int j : edits.bounds) {
            lower[j] = model.lower[j];
            upper[j] = model.upper[j];
        }
        for (const int j : edits.costs) cost[j] = model.obj[j];
        for (const int i : edits.sides) {
            row_lower[i] = model.row_lower(i);
            row_upper[i] = model.row_upper(i);
        }
        for (const auto& [i, j] : edits.coefs) {
            const double value = model.matrix.get(i, j);
            if (value == 0.0) {
                coefs.erase({i, j});
            } else {
                coefs[{i, j}] = value;
            }
        }
        if (edits.objective_offset) constant = model.constant;
        if (edits.sense) sense = model.sense;
    }
    row_serial = rows;
    col_serial = cols;
    edits = Edits();
    edits.rebuild = false;
    edits.known_rows = model.rows();
    edits.known_cols = model.cols();
}

// One random edit of the model; the serials follow. `rebuilds`: edits that end in a rebuild, too.
void random_edit(Model& model, std::vector<int>& rows, std::vector<int>& cols, int& serial,
                 bool rebuilds, std::mt19937& random) {
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const auto number = [&] { return below(7) - 3.0; };
    const int kind = below(rebuilds ? 12 : 9);
    if (kind == 0 || model.rows() == 0) {
        const char type = "LGERN"[below(5)];
        const double rhs = number(), range = 2.0;
        const int64_t start = 0;
        const int col = model.cols() > 0 ? below(model.cols()) : 0;
        const double value = number();
        model.add_rows(1, model.cols() > 0 ? 1 : 0, &type, &rhs, &range, &start, &col, &value);
        rows.push_back(serial++);
    } else if (kind == 1 || model.cols() == 0) {
        const double cost = number();
        const int64_t start = 0;
        const int row = below(model.rows());
        const bool full = rebuilds && below(2) == 0;
        model.add_cols(1, full ? 1 : 0, &cost, &start, &row, &cost, nullptr, nullptr);
        cols.push_back(serial++);
    } else if (kind == 9) {
        model.set_type(below(model.cols()), "CI"[below(2)]);
    } else if (kind == 10) {
        const int row = below(model.rows());
        model.delete_rows({row});
        rows.erase(rows.begin() + row);
    } else if (kind == 11) {
        const int col = below(model.cols());
        model.delete_cols({col});
        cols.erase(cols.begin() + col);
    } else if (kind == 2) {
        model.set_constant(number());
        model.set_sense(below(2) == 0 ? 1.0 : -1.0);
    } else if (kind == 3) {
        model.set_cost(below(model.cols()), number());
    } else if (kind == 4) {
        model.set_rhs(below(model.rows()), number());
    } else if (kind == 5) {
        model.set_bounds(below(model.cols()), number(), number());
    } else {
        model.set_coef(below(model.rows()), below(model.cols()), number());
    }
}

}  // namespace

TEST("store: a solver that follows the recorded edits has the model") {
    for (unsigned seed = 0; seed < 400; ++seed) {
        std::mt19937 random(seed);
        Model model;
        Shadow solver;
        std::vector<int> rows, cols;
        int serial = 0;
        bool agrees = true;
        for (int round = 0; round < 12 && agrees; ++round) {
            for (int k = 0; k < 8; ++k) {
                random_edit(model, rows, cols, serial, seed % 2 == 0, random);
            }
            // The first take-over is a rebuild; with plain edits only, none follows.
            const bool rebuild = model.edits.rebuild;
            agrees = CHECK(seed % 2 == 0 || rebuild == (round == 0));
            solver.take_over(model, rows, cols);
            Shadow expected = Shadow::of(model);
            expected.row_serial = rows;
            expected.col_serial = cols;
            agrees = CHECK(solver == expected) && agrees;
        }
        if (!agrees) {
            std::fprintf(stderr, "seed %u\n", seed);
            return;
        }
    }
}

TEST("store: edits without effect leave no trace, repeated ones stay bounded") {
    Model model;
    const double zeros[3] = {};
    const int64_t starts[3] = {};
    model.add_cols(3, 0, zeros, starts, nullptr, nullptr, nullptr, nullptr);
    const char types[2] = {'L', 'G'};
    const double rhs[2] = {4.0, 1.0};
    const int64_t row_start[2] = {0, 2};
    const int colind[3] = {0, 1, 2};
    const double value[3] = {1.0, 2.0, 3.0};
    model.add_rows(2, 3, types, rhs, nullptr, row_start, colind, value);
    model.edits = Edits();
    model.edits.rebuild = false;
    model.edits.known_rows = 2;
    model.edits.known_cols = 3;

    CHECK(!model.set_bounds(1, 0.0, 5e20) && !model.set_cost(0, 0.0) && !model.set_rhs(0, 4.0));
    CHECK(!model.set_coef(0, 1, 2.0) && !model.set_coef(0, 2, 0.0) && !model.set_sense(1.0));
    CHECK(!model.set_qobj({{0, 1, 0.0}}) && !model.set_qrow(1, {}) && !model.set_type(2, 'C'));
    CHECK(!model.set_indicator(0, 1, 0));
    const Edits& edits = model.edits;
    CHECK(!edits.rebuild && edits.bounds.empty() && edits.costs.empty() && edits.sides.empty() &&
          edits.coefs.empty() && !edits.sense && !edits.objective_offset);

    for (int i = 0; i < 100000; ++i) {
        model.set_bounds(i % 3, 0.0, 1.0 + i);
        model.set_coef(i % 2, i % 3, i % 5);
    }
    CHECK(edits.bounds.size() < 1000 && edits.coefs.size() < 1000);
    model.touch_structure();
    CHECK(edits.rebuild && edits.bounds.empty());
}

TEST("store: quadratic terms are merged by pair") {
    Model model;
    const double zeros[4] = {};
    const int64_t starts[4] = {};
    model.add_cols(4, 0, zeros, starts, nullptr, nullptr, nullptr, nullptr);
    CHECK(model.set_qobj({{2, 1, 5.0}, {0, 0, 1.0}, {1, 2, 7.0}}));  // the last one counts
    CHECK(model.qobj == (std::vector<QuadTerm>{{0, 0, 1.0}, {1, 2, 7.0}}));
    CHECK(model.set_qobj({{3, 0, 2.0}, {0, 0, 0.0}}));
    CHECK(model.qobj == (std::vector<QuadTerm>{{0, 3, 2.0}, {1, 2, 7.0}}));
    const char type = 'L';
    const double rhs = 1.0;
    model.add_rows(1, 0, &type, &rhs, nullptr, nullptr, nullptr, nullptr);
    CHECK(model.set_qrow(0, {{2, 1, 5.0}, {1, 2, -5.0}, {3, 3, 1.0}, {3, 3, 1.0}}));  // sums
    CHECK(model.qrows.at(0) == (std::vector<QuadTerm>{{3, 3, 2.0}}));
    model.delete_cols({3});
    CHECK(model.qrows.empty() && model.qobj == (std::vector<QuadTerm>{{1, 2, 7.0}}));
}

TEST("store: names are found whatever happened since the index was built") {
    std::mt19937 random(7);
    Names names('C');
    std::vector<std::string> plain;  // empty: no name
    const auto expect = [&](const std::string& wanted) {
        for (size_t i = 0; i < plain.size(); ++i) {
            const std::string name = plain[i].empty() ? "C" + std::to_string(i + 1) : plain[i];
            if (name == wanted) return static_cast<int>(i);
        }
        return -1;
    };
    for (int step = 0; step < 20000; ++step) {
        const unsigned kind = random() % 100;
        if (kind < 20 || plain.empty()) {
            plain.resize(plain.size() + random() % 3);
            names.resize(static_cast<int>(plain.size()));
        } else if (kind < 60) {
            const size_t i = random() % plain.size();
            plain[i] = "C" + std::to_string(random() % 60 + 1) + (random() % 2 == 0 ? "" : "x");
            names.set(static_cast<int>(i), plain[i]);
        } else if (kind < 62) {
            const size_t i = random() % plain.size();
            const int64_t number = 1 + random() % 60;
            plain[i] = "C" + std::to_string(number);
            names.set_numbered(static_cast<int>(i), 1, &number);
        } else if (kind < 64) {
            // As many go as come in the long run.
            std::vector<int> map;
            std::vector<std::string> kept;
            for (const std::string& name : plain) {
                const bool keep = random() % 8 != 0;
                map.push_back(keep ? static_cast<int>(kept.size()) : -1);
                if (keep) kept.push_back(name);
            }
            names.compact(map);
            plain = kept;
        } else if (kind < 66 && step % 10 == 0) {
            // A large block whose names are replaced: the arena must give the waste back.
            const int first = static_cast<int>(plain.size());
            std::string packed;
            for (int i = 0; i < 3000; ++i) packed += "long_name_" + std::to_string(i) + '\0';
            names.resize(first + 3000);
            for (int k = 0; k < 3; ++k) names.set_packed(first, 3000, packed.c_str());
            CHECK(names.find("long_name_2999") == first + 2999 && names.longest() == 14);
            names.resize(first);
        }
        const std::string wanted = "C" + std::to_string(random() % 70) + (random() % 2 ? "" : "x");
        if (!CHECK(names.find(wanted) == expect(wanted))) return;
    }
    for (size_t i = 0; i < plain.size(); ++i) {
        const std::string name = plain[i].empty() ? "C" + std::to_string(i + 1) : plain[i];
        CHECK(names.get(static_cast<int>(i)) == name);
    }
    CHECK(names.find("") == -1 && names.find("C") == -1 && names.find("C01") == -1);
    CHECK(names.find("C99999999999") == -1);
}
