// Speed of formulas and derivatives, without any solver:
//
//   cmake --build BUILD --target nlra_objects
//   g++ -O2 -std=c++20 -D_GLIBCXX_USE_CXX11_ABI=0 -Iengine/include -Iengine
//       benchmarks/native/tape_bench.cpp BUILD/CMakeFiles/nlra_objects.dir/engine/nonlinear/{graph,
//       formula_check,formula_parser,formula_roots,tape_plan,tape,tape_sweeps,hessian_plan,opaque_call}.cpp.o
//       BUILD/CMakeFiles/nlra_objects.dir/engine/store/error.cpp.o -o tape_bench
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "nonlinear/tape.hpp"

namespace {

using Clock = std::chrono::steady_clock;

struct Tokens {
    std::vector<int> types;
    std::vector<double> values;

    void add(int type, double value) {
        types.push_back(type);
        values.push_back(value);
    }
    void column(int index) { add(NSLP_TOKEN_COLUMN, index); }
    void constant(double value) { add(NSLP_TOKEN_CONSTANT, value); }
    void op(int number) { add(NSLP_TOKEN_OPERATOR, number); }
    void begin() { add(NSLP_TOKEN_ARGUMENTS, 0); }
    void close(int function) { add(NSLP_TOKEN_FUNCTION, function); }
    nlra::FormulaPiece piece() const {
        return {1.0, -1, types.data(), values.data(), types.size()};
    }
};

template <class Body>
double best_ms(int repeats, Body&& body) {
    double best = 1e30;
    for (int i = 0; i < repeats; ++i) {
        const auto start = Clock::now();
        body(i);
        const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
        best = std::min(best, taken.count());
    }
    return best;
}

// Rows of random smooth terms over a window of columns.
std::vector<Tokens> lagrangian(int columns, int rows) {
    std::mt19937 random(7);
    std::vector<Tokens> out(rows);
    for (int r = 0; r < rows; ++r) {
        Tokens& row = out[r];
        const auto any = [&] { row.column((2 * r + static_cast<int>(random() % 12)) % columns); };
        for (int k = 0; k < 5; ++k) {
            row.begin();  // exp(0.1 x y) * sin(z + 0.5 w) / (1 + u^2) + v^3
            row.constant(0.1);
            any();
            row.op(NSLP_OPERATOR_MULTIPLY);
            any();
            row.op(NSLP_OPERATOR_MULTIPLY);
            row.close(nlra::kFunctionExp);
            row.begin();
            any();
            row.constant(0.5);
            any();
            row.op(NSLP_OPERATOR_MULTIPLY);
            row.op(NSLP_OPERATOR_PLUS);
            row.close(nlra::kFunctionSin);
            row.op(NSLP_OPERATOR_MULTIPLY);
            row.constant(1.0 + 0.01 * static_cast<double>(random() % 100));
            any();
            row.constant(2.0);
            row.op(NSLP_OPERATOR_POWER);
            row.op(NSLP_OPERATOR_PLUS);
            row.op(NSLP_OPERATOR_DIVIDE);
            any();
            row.constant(3.0);
            row.op(NSLP_OPERATOR_POWER);
            row.op(NSLP_OPERATOR_PLUS);
            if (k > 0) row.op(NSLP_OPERATOR_PLUS);
        }
    }
    return out;
}

// The sum of exp(x_i) * sin(x_{i+1}) + x_i^3, pairs first.
void wave(Tokens& out, int first, int count) {
    if (count > 1) {
        wave(out, first, count / 2);
        wave(out, first + count / 2, count - count / 2);
        return out.op(NSLP_OPERATOR_PLUS);
    }
    out.begin();
    out.column(first);
    out.close(nlra::kFunctionExp);
    out.begin();
    out.column(first + 1);
    out.close(nlra::kFunctionSin);
    out.op(NSLP_OPERATOR_MULTIPLY);
    out.column(first);
    out.constant(3.0);
    out.op(NSLP_OPERATOR_POWER);
    out.op(NSLP_OPERATOR_PLUS);
}

void report(const char* what, double ms) { std::printf("  %-44s %8.3f ms\n", what, ms); }

void run(const std::vector<Tokens>& formulas, int columns, int repeats) {
    struct Built {
        nlra::FormulaRoots roots;
        std::vector<const nlra::RootParts*> parts;
        std::unique_ptr<nlra::Tape> tape;
    };
    std::unique_ptr<Built> built;
    const auto parse = [&](int) {
        built = std::make_unique<Built>();
        built->roots.set_columns(columns);
        for (const Tokens& formula : formulas) built->roots.add({formula.piece()});
    };
    const auto make_tape = [&](int) {
        built->parts.clear();
        for (size_t i = 0; i < formulas.size(); ++i) {
            built->parts.push_back(&built->roots.parts(static_cast<int>(i)));
        }
        built->tape = std::make_unique<nlra::Tape>(built->roots.graph(), built->parts,
                                                   built->roots.functions());
    };
    const auto plan = [&](int) { built->tape->plan_hessian(); };
    report("parse", best_ms(repeats, parse));
    report("tape with Jacobian structure", best_ms(repeats, make_tape));
    report("plan of the Hessian", best_ms(repeats, plan));
    report("all three", best_ms(repeats, [&](int) {
               parse(0);
               make_tape(0);
               plan(0);
           }));
    nlra::Tape& tape = *built->tape;
    std::printf("  %d nodes, %zu in the Jacobian, %zu in the Hessian\n",
                built->roots.graph().size(), tape.jacobian_col().size(), tape.hessian_row().size());

    std::vector<double> x(columns), values(formulas.size()), weights(formulas.size(), 0.7);
    std::vector<double> jacobian(tape.jacobian_col().size()), hessian(tape.hessian_row().size());
    for (int j = 0; j < columns; ++j) x[j] = 0.3 + 0.001 * (j % 100);
    const auto move = [&](int i) { x[0] = 0.3 + 1e-6 * i; };
    const int times = 20 * repeats;
    report("values at a new point", best_ms(times, [&](int i) {
               move(i);
               tape.values(x.data(), values.data());
           }));
    report("Jacobian at a new point", best_ms(times, [&](int i) {
               move(i);
               tape.jacobian(x.data(), jacobian.data());
           }));
    report("Jacobian again",
           best_ms(times, [&](int) { tape.jacobian(x.data(), jacobian.data()); }));
    report("Hessian at a new point", best_ms(times, [&](int i) {
               move(i);
               tape.hessian(x.data(), weights.data(), hessian.data());
           }));
    report("Hessian again (other weights)",
           best_ms(times, [&](int) { tape.hessian(x.data(), weights.data(), hessian.data()); }));
}

}  // namespace

int main() {
    std::printf("1,000 columns, 500 rows of mixed terms\n");
    run(lagrangian(1000, 500), 1000, 30);
    std::printf("sum of 50,000 exp(x_i) sin(x_i+1) + x_i^3\n");
    std::vector<Tokens> one(1);
    wave(one[0], 0, 50000);
    run(one, 50001, 5);
}
