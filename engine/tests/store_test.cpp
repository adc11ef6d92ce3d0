// The store below the C functions: what the recorded edits promise to solvers, and names.
#include <map>
#include <random>
#include <tuple>

#include "check.hpp"
#include "linear/handover.hpp"
#include "linear/session_pool.hpp"
#include "store/model.hpp"

using namespace nlra;

namespace {

// What a solver has of a model, with its coefficients in order.
using Held =
    std::tuple<std::vector<double>, std::vector<double>, std::vector<double>, std::vector<double>,
               std::vector<double>, std::map<std::pair<int, int>, double>, double, ObjSense>;
Held held(const HighsLp& lp) {
    HighsSparseMatrix matrix = lp.a_matrix_;
    matrix.ensureColwise();
    std::map<std::pair<int, int>, double> coefs;
    for (int j = 0; j < lp.num_col_; ++j) {
        for (int k = matrix.start_[j]; k < matrix.start_[j + 1]; ++k) {
            if (matrix.value_[k] != 0.0) coefs[{matrix.index_[k], j}] = matrix.value_[k];
        }
    }
    return {lp.col_lower_, lp.col_upper_, lp.col_cost_, lp.row_lower_,
            lp.row_upper_, coefs,         lp.offset_,   lp.sense_};
}

// One random edit of the model. `rebuilds`: edits that end in a rebuild, too.
void random_edit(Model& model, bool rebuilds, std::mt19937& random) {
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
    } else if (kind == 1 || model.cols() == 0) {
        const double cost = number();
        const int64_t start = 0;
        const int row = below(model.rows());
        const bool full = rebuilds && below(2) == 0;
        model.add_cols(1, full ? 1 : 0, &cost, &start, &row, &cost, nullptr, nullptr);
    } else if (kind == 9) {
        model.set_type(below(model.cols()), "CI"[below(2)]);
    } else if (kind == 10) {
        model.delete_rows({below(model.rows())});
    } else if (kind == 11) {
        model.delete_cols({below(model.cols())});
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
    const std::shared_ptr<HighsSession> follower = take_session(), fresh = take_session();
    for (unsigned seed = 0; seed < 100; ++seed) {
        std::mt19937 random(seed);
        Model model;
        Handover follows;
        for (int round = 0; round < 12; ++round) {
            for (int k = 0; k < 8; ++k) random_edit(model, seed % 2 == 0, random);
            // The first take-over is a rebuild; with plain edits only, none follows.
            CHECK(seed % 2 == 0 || model.edits.rebuild == (round == 0));
            Model whole = model;
            whole.edits = Edits();
            follows.sync(follower->highs, model);
            Handover().sync(fresh->highs, whole);
            if (CHECK(held(follower->highs.getLp()) == held(fresh->highs.getLp()))) continue;
            std::fprintf(stderr, "seed %u, round %d\n", seed, round);
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
            std::vector<int> gone;
            std::vector<std::string> kept;
            for (const std::string& name : plain) {
                if (random() % 8 == 0) {
                    gone.push_back(static_cast<int>(&name - plain.data()));
                } else {
                    kept.push_back(name);
                }
            }
            names.remove(gone);
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
