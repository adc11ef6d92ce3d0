// The nonlinear solver's C functions: formulas, user functions, evaluating, handles.
#include <atomic>
#include <functional>
#include <limits>
#include <string>
#include <thread>

#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"
#include "dense_problem.hpp"
#include "nonlinear_support.hpp"

namespace {

using formulas::applied;
using formulas::column;
using formulas::constant;
using formulas::Ptr;
using formulas::Tokens;
using formulas::tokens;

const double kNan = std::numeric_limits<double>::quiet_NaN();

std::string nonlinear_error(NSLPprob above) {
    char text[512] = "?";
    REQUIRE(NSLPgetlasterror(above, nullptr, text, sizeof text, nullptr) == 0);
    return text;
}

std::string describe(const nlra::Formula& formula) {
    std::string text;
    for (const nlra::Coefficient& c : formula) {
        text += "[" + std::to_string(c.factor) + " C" + std::to_string(c.column) + ":";
        for (size_t k = 0; k < c.types.size(); ++k) {
            text += " " + std::to_string(c.types[k]) + "/" + std::to_string(c.values[k]);
        }
        text += "]";
    }
    return text;
}

// min (x - 1)^2 + y^2 + z^2 with x + y + z <= 10 and x - y = 1 (R2), all within 0 and 5.
struct Fixture {
    Fixture() {
        REQUIRE(NLRAinit(nullptr) == 0 && NSLPinit() == 0);
        REQUIRE(NLRAcreateprob(&prob) == 0 && NSLPcreateprob(&above, prob) == 0);
        const double obj[] = {0, 0, 0}, upper[] = {5, 5, 5}, rhs[] = {10, 1};
        const double value[] = {1, 1, 1, 1, -1};
        const int64_t start[] = {0, 3};
        const int index[] = {0, 1, 2, 0, 1};
        REQUIRE(NLRAaddcols64(prob, 3, 0, obj, nullptr, nullptr, nullptr, nullptr, upper) == 0);
        REQUIRE(NLRAaddrows64(prob, 2, 5, "LE", rhs, nullptr, start, index, value) == 0);
        const Ptr two = constant(2);
        REQUIRE(change(-1, power(column(0) - constant(1), two) + power(column(1), two) +
                               power(column(2), two)) == 0);
    }
    ~Fixture() {
        NSLPdestroyprob(above);
        NLRAdestroyprob(prob);
    }

    int change(int row, const Ptr& formula) const {
        const Tokens all = tokens(formula);
        return NSLPchgformula(above, row, all.types.data(), all.values.data());
    }
    int add(int row, int col, double factor, const Ptr& formula) const {
        const Tokens all = tokens(formula);
        const int zero = 0;
        return NSLPaddcoefs(above, 1, &row, &col, &factor, &zero, 1, all.types.data(),
                            all.values.data());
    }
    int move(std::vector<double> point) const {
        for (size_t j = 0; j < point.size(); ++j) {
            if (NSLPchgvar(above, static_cast<int>(j), nullptr, &point[j]) != 0) return 1;
        }
        return 0;
    }
    // NaN for an error.
    double evaluated(const Ptr& formula) const {
        const Tokens all = tokens(formula);
        double value = kNan;
        NSLPevaluateformula(above, 1, all.types.data(), all.values.data(), &value);
        return value;
    }
    double coefficient(int row, int col) const {
        double value = kNan;
        NSLPevaluatecoef(above, row, col, &value);
        return value;
    }
    int attribute(int id) const {
        int value = -1;
        REQUIRE(NSLPgetintattrib(above, id, &value) == 0);
        return value;
    }
    // All that a refused call must leave as it is.
    std::string state() const {
        const nlra::Formulas& all = prob->model.formulas;
        std::string text = describe(all.objective);
        for (const auto& [row, formula] : all.rows) {
            text += "R" + std::to_string(row) + describe(formula);
        }
        for (const auto& [col, value] : all.start) text += " " + std::to_string(value);
        return text + " " + std::to_string(all.functions.size()) + " " +
               std::to_string(attribute(NSLP_STATUS));
    }
    void refused(int status, const char* text, const std::string& before,
                 int code = NLRA_ERROR_ARGUMENT) const {
        const std::string said = nonlinear_error(above);
        if (!CHECK(status == code && said.find(text) != std::string::npos && state() == before)) {
            std::fprintf(stderr, "status %d, \"%s\", expected \"%s\"\n", status, said.c_str(),
                         text);
        }
    }

    NLRAprob prob = nullptr;
    NSLPprob above = nullptr;
};

// What a user function does is up to the test: args[0] squared unless told otherwise.
struct Square {
    int calls = 0;
    std::function<int(double*)> instead;

    static int call(void* object, const double* args, int n, double* value, double* derivatives) {
        Square& self = *static_cast<Square*>(object);
        ++self.calls;
        *value = 0.0;
        for (int i = 0; i < n; ++i) *value += args[i] * args[i];
        if (derivatives != nullptr) {
            for (int i = 0; i < n; ++i) derivatives[i] = 2.0 * args[i];
        }
        return self.instead ? self.instead(value) : 0;
    }
};

}  // namespace

TEST("nonlinear api: coefficients add up in rows and in the objective") {
    const Fixture f;
    REQUIRE(f.move({2, 3, 0.5}) == 0);
    // Several at once, tokens one after the other and used twice.
    Tokens all = tokens(power(column(0), constant(2)));
    const int second = static_cast<int>(all.types.size());
    emit(column(1) + column(2), all);
    all.add(NSLP_TOKEN_END);
    const int rows[] = {0, 0, 1, -1}, cols[] = {1, -1, -1, 2}, starts[] = {0, second, 0, second};
    const double factors[] = {2, 3, -1, 4};
    REQUIRE(NSLPaddcoefs(f.above, 4, rows, cols, factors, starts, 1, all.types.data(),
                         all.values.data()) == 0);
    CHECK(f.attribute(NSLP_NONLINEARROWS) == 2 && f.attribute(NSLP_NONLINEAROBJ) == 1);
    REQUIRE(f.move({2, 3, 0.5}) == 0);  // adding was a change
    CHECK_NEAR(f.coefficient(0, 1), 2 * 4, 1e-12);
    CHECK_NEAR(f.coefficient(0, -1), 3 * 3.5, 1e-12);
    CHECK_NEAR(f.coefficient(-1, 2), 4 * 3.5, 1e-12);
    REQUIRE(f.add(0, 1, 0.5, applied(nlra::kFunctionExp, {constant(0)})) == 0);
    REQUIRE(f.move({2, 3, 0.5}) == 0);
    CHECK_NEAR(f.coefficient(0, 1), 8 + 0.5, 1e-12);

    // R1: 5.5 + 8.5 y + 10.5 - 10, R2: 2 - 3 - 4 - 1.
    const double point[] = {2, 3, 0.5};
    double sum = 0, largest = 0, objective = 0;
    REQUIRE(NSLPvalidatevector(f.above, point, &sum, &largest, &objective) == 0);
    CHECK_NEAR(largest, 5.5 + 25.5 + 10.5 - 10, 1e-12);
    CHECK_NEAR(sum - largest, 6, 1e-12);
    CHECK_NEAR(objective, 1 + 9 + 0.25 + 14 * 0.5, 1e-12);

    // No columns and no factors: -1 and 1.
    REQUIRE(NSLPaddcoefs(f.above, 1, rows, nullptr, nullptr, starts, 1, all.types.data(),
                         all.values.data()) == 0);
    REQUIRE(f.move({2, 3, 0.5}) == 0);
    CHECK_NEAR(f.coefficient(0, -1), 3 * 3.5 + 4, 1e-12);
    CHECK(NSLPaddcoefs(f.above, 0, nullptr, nullptr, nullptr, nullptr, 1, nullptr, nullptr) == 0);

    CHECK(NSLPdelcoefs(f.above, 1, rows) == 0 && f.attribute(NSLP_NONLINEARROWS) == 1);
    CHECK(std::isnan(f.coefficient(0, 1)));
    REQUIRE(f.change(1, column(2)) == 0);
    CHECK_NEAR(f.coefficient(1, -1), 0, 1e-12);  // x^2 has gone, z starts at zero
    CHECK(NSLPchgformula(f.above, 1, nullptr, nullptr) == 0);
    CHECK(NSLPchgformula(f.above, -1, nullptr, nullptr) == 0);
    CHECK(f.attribute(NSLP_NONLINEARROWS) == 0 && f.attribute(NSLP_NONLINEAROBJ) == 0);
}

TEST("nonlinear api: refused formulas change nothing") {
    const Fixture f;
    REQUIRE(f.add(0, 1, 2, column(0)) == 0 && NSLPnlpoptimize(f.above, "") == 0);
    CHECK(f.attribute(NSLP_STATUS) == NSLP_LOCALLY_OPTIMAL);
    const std::string before = f.state();
    const Tokens fine = tokens(column(0));
    // The first of two coefficients is fine: nothing of it may stay.
    const auto add = [&](int row, int col, double factor, int start, int parsed, int type,
                         double value, const char* text) {
        const int rows[] = {1, row}, cols[] = {0, col}, starts[] = {0, start};
        const int types[] = {NSLP_TOKEN_COLUMN, NSLP_TOKEN_END, type, NSLP_TOKEN_END};
        const double factors[] = {1, factor}, values[] = {0, 0, value, 0};
        f.refused(NSLPaddcoefs(f.above, 2, rows, cols, factors, starts, parsed, types, values),
                  text, before);
    };
    add(2, 0, 1, 0, 1, 1, 0, "rowindex = 2 is not a row");
    add(-2, 0, 1, 0, 1, 1, 0, "rowindex = -2");
    add(1, 3, 1, 0, 1, 1, 0, "colindex = 3 is not a column");
    add(1, -2, 1, 0, 1, 1, 0, "colindex = -2");
    add(1, 0, kNan, 0, 1, 1, 0, "factor[1] = nan");
    add(1, 0, HUGE_VAL, 0, 1, 1, 0, "factor[1] = inf");
    add(1, 0, 1, -1, 1, 1, 0, "fstart[1] = -1");
    add(1, 0, 1, 0, 0, 1, 0, "parsed = 0");
    add(1, 0, 1, 3, 1, 1, 0, "the formula has no value");
    add(1, 0, 1, 2, 1, 99, 0, "unknown token type 99");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_CONSTANT, kNan, "the constant is not a finite number");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_COLUMN, 3, "3 is not a column");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_COLUMN, 0.5, "0.5 is not a column");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_OPERATOR, 1, "an operand of the operator is missing");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_ARGUMENTS, 0, "not closed");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_COMMA, 0, "a comma outside");
    add(1, 0, 1, 2, 1, NSLP_TOKEN_USERFUNCTION, 0, "without the token that begins");

    const int row = 0, zero = 0, n = 1;
    const int* const types = fine.types.data();
    const double* const values = fine.values.data();
    NSLPprob const p = f.above;
    const auto refused = [&](int status, const char* text) { f.refused(status, text, before); };
    refused(NSLPaddcoefs(p, n, nullptr, nullptr, nullptr, &zero, 1, types, values), "rowindex");
    refused(NSLPaddcoefs(p, n, &row, nullptr, nullptr, nullptr, 1, types, values), "fstart");
    refused(NSLPaddcoefs(p, n, &row, nullptr, nullptr, &zero, 1, nullptr, values), "type");
    refused(NSLPaddcoefs(p, n, &row, nullptr, nullptr, &zero, 1, types, nullptr), "value");
    refused(NSLPaddcoefs(p, -1, &row, nullptr, nullptr, &zero, 1, types, values), "n = -1");
    const int good_then_bad[] = {0, 7};
    refused(NSLPdelcoefs(p, 2, good_then_bad), "rowindex = 7");
    refused(NSLPdelcoefs(p, 1, nullptr), "rowindex is null");
    refused(NSLPchgformula(p, 2, nullptr, nullptr), "rowindex = 2");
    refused(NSLPchgformula(p, 0, types, nullptr), "value is null");
    refused(f.change(0, formulas::call(0, {column(0)})), "is not a user function");
    int index = 5;
    refused(NSLPadduserfunction(p, "f", nullptr, nullptr, 1, 0, &index), "function is null");
    refused(NSLPadduserfunction(p, "f", Square::call, nullptr, 1, 0, nullptr), "index is null");
    refused(NSLPadduserfunction(p, "f", Square::call, nullptr, -1, 0, &index), "arguments = -1");
    void* object = nullptr;
    refused(NSLPgetuserfuncobject(p, 0, &object), "there is no user function 0");
    const double nans[] = {1.0, kNan};
    const int cols[] = {0, 1, 3};
    refused(NSLPsetinitialvalues(p, 2, cols, nans), "value[1] = nan");
    refused(NSLPsetinitialvalues(p, 3, cols, nans), "colindex[2] = 3");
    refused(NSLPchgvar(p, 3, nullptr, nullptr), "colindex = 3");
    refused(NSLPchgvar(p, 0, &values[0], &nans[1]), "value[0] = nan");
    refused(NSLPgetvar(p, -1, nullptr), "info is null");
    refused(NSLPnlpoptimize(p, "gq"), "flags: 'q'");
    double result = 0;
    refused(NSLPevaluateformula(p, 2, types, values, &result), "parsed = 2");
    refused(NSLPevaluateformula(p, 1, types, values, nullptr), "result is null");
    refused(NSLPevaluatecoef(p, 1, -1, &result), "row 1 has no formula");
    refused(NSLPvalidatevector(p, nullptr, nullptr, nullptr, nullptr), "vector is null");
    CHECK(NSLPvalidate(p) == 0);  // the solution is still there
}

TEST("nonlinear api: what is known about columns, and points to evaluate at") {
    const Fixture f;
    NSLPvarinfo info;
    const double start = 4, minus = -3;
    const int first = 0, lower = 1;
    REQUIRE(NLRAchgbounds(f.prob, 1, &lower, "L", &start) == 0);
    REQUIRE(NSLPsetinitialvalues(f.above, 1, &first, &minus) == 0);
    REQUIRE(NSLPgetvar(f.above, 0, &info) == 0);
    CHECK(info.initvalue == -3 && info.started == 1 && info.value == -3 && info.converged == 0);
    CHECK_NEAR(f.evaluated(column(0) * column(1)), -12, 0);  // y begins at its bound
    CHECK(std::isnan(f.evaluated(applied(nlra::kFunctionLog, {column(0)}))));
    CHECK(nonlinear_error(f.above) == "the formula is not defined at this point");
    CHECK(NSLPvalidate(f.above) == NLRA_ERROR_STATE);
    CHECK(NSLPgetslpsol(f.above, nullptr, nullptr, nullptr, nullptr) == NLRA_ERROR_STATE);
    CHECK(nonlinear_error(f.above) == "no solution of a nonlinear solve is available");

    REQUIRE(NSLPnlpoptimize(f.above, "g") == 0);  // x = 5, y = 4, z = 0
    REQUIRE(NSLPgetvar(f.above, 1, &info) == 0);
    CHECK(info.converged == 1 && info.atbound == -1 && info.fixed == 0 && info.started == 0);
    CHECK_NEAR(info.value, 4, 1e-6);
    CHECK_NEAR(f.evaluated(column(0) * column(1)), 20, 1e-5);
    const double two = 2;
    REQUIRE(NSLPchgvar(f.above, 0, nullptr, &two) == 0);
    CHECK_NEAR(f.evaluated(column(0) * column(1)), 8, 1e-5);
    CHECK(f.attribute(NSLP_STATUS) != 0);  // the solution stays
    double x[3];
    CHECK(NSLPgetslpsol(f.above, x, nullptr, nullptr, nullptr) == 0);
    CHECK_NEAR(x[0], 5, 1e-5);
    REQUIRE(NSLPnlpoptimize(f.above, nullptr) == 0);
    CHECK_NEAR(f.evaluated(column(0)), 5, 1e-5);
    // Columns move together with what was set for them.
    REQUIRE(NSLPchgvar(f.above, 2, &two, nullptr) == 0 && NLRAdelcols(f.prob, 1, &first) == 0);
    REQUIRE(NSLPgetvar(f.above, 1, &info) == 0);
    CHECK(info.initvalue == 2 && info.value == 2 && info.dj == 0);
    CHECK(NSLPgetvar(f.above, 2, &info) == NLRA_ERROR_ARGUMENT);
}

TEST("nonlinear api: violations of discrete conditions") {
    const Fixture f;
    const int cols[] = {0, 1, 2};
    const double limits[] = {2, 3}, weights[] = {1, 2, 3};
    REQUIRE(NLRAchgcoltype(f.prob, 3, cols, "SPI") == 0);
    REQUIRE(NLRAchgglblimit(f.prob, 2, cols, limits) == 0);
    const double values[][3] = {{0.5, 2.25, 1.75}, {2.5, 3.5, 2}, {0, 2.9, 6.5}, {1.75, 1, -1}};
    // Both rows are left out: x, y and z as distances from what their types allow, and the bounds
    // of z.
    const double expected[] = {0.5 + 0.25 + 0.25, 0, 0.1 + 0.5 + 1.5, 0.25 + 0 + 1};
    const int both[] = {0, 1};
    REQUIRE(NLRAdelrows(f.prob, 2, both) == 0);
    for (int i = 0; i < 4; ++i) {
        double sum = -1;
        REQUIRE(NSLPvalidatevector(f.above, values[i], &sum, nullptr, nullptr) == 0);
        CHECK_NEAR(sum, expected[i], 1e-12);
    }
    const int64_t start = 0;
    REQUIRE(NLRAaddsets64(f.prob, 1, 3, "2", &start, cols, weights) == 0);
    double sum = -1, largest = -1;
    REQUIRE(NSLPvalidatevector(f.above, values[1], &sum, &largest, nullptr) == 0);
    CHECK_NEAR(sum, 2, 1e-12);  // 2.5 and 3.5 are neighbours

    // A row holds only where its indicator says so.
    const double rhs = 1, one = 1;
    const int binary = 2, row = 0, when = 1;
    REQUIRE(NLRAchgcoltype(f.prob, 1, &binary, "B") == 0);
    REQUIRE(NLRAaddrows64(f.prob, 1, 1, "L", &rhs, nullptr, &start, cols, &one) == 0);
    REQUIRE(NLRAsetindicators(f.prob, 1, &row, &binary, &when) == 0);
    for (const double switched : {0.0, 1.0}) {
        const double point[] = {3, 0, switched};
        REQUIRE(NSLPvalidatevector(f.above, point, nullptr, &largest, nullptr) == 0);
        CHECK_NEAR(largest, 2 * switched, 1e-12);
    }
}

TEST("nonlinear api: user functions that no formula calls are forgotten, and their indices given") {
    const Fixture f;
    Square square;
    int index[3] = {}, gone = -1;
    const auto add = [&](int& made) {
        REQUIRE(NSLPadduserfunction(f.above, "f", Square::call, &square, 1, 0, &made) == 0);
    };
    const auto forget = [&] {
        REQUIRE(NSLPforgetuserfunction(f.above, &gone) == 0);
        return gone;
    };
    for (int& i : index) add(i);
    REQUIRE(f.change(0, formulas::call(index[0], {column(0)})) == 0);
    REQUIRE(f.change(-1, formulas::call(index[0], {formulas::call(index[1], {column(1)})})) == 0);
    CHECK(forget() == index[2] && forget() == -1);
    void* object = nullptr;
    CHECK(NSLPgetuserfuncobject(f.above, index[2], &object) == NLRA_ERROR_ARGUMENT);
    CHECK(f.change(1, formulas::call(index[2], {column(0)})) == NLRA_ERROR_ARGUMENT);
    const int objective = -1, row = 0;
    REQUIRE(NSLPdelcoefs(f.above, 1, &objective) == 0);
    CHECK(forget() == index[1] && forget() == -1);
    add(index[1]), add(index[2]);
    CHECK(index[1] != index[2] && index[1] + index[2] == 3);
    REQUIRE(f.change(1, formulas::call(index[1], {column(0)})) == 0);
    REQUIRE(NLRAdelrows(f.prob, 1, &row) == 0);
    CHECK(forget() + forget() == index[0] + index[2] && forget() == -1);
}

TEST("nonlinear api: user functions are called, asked for their objects, and may fail") {
    const Fixture f;
    Square square;
    int index = -1, plain = -1;
    REQUIRE(NSLPadduserfunction(f.above, "square", Square::call, &square, 2, 1, &index) == 0);
    REQUIRE(NSLPadduserfunction(f.above, nullptr, Square::call, nullptr, 1, 0, &plain) == 0);
    void* object = nullptr;
    CHECK(NSLPgetuserfuncobject(f.above, index, &object) == 0 && object == &square);
    CHECK(index == 0 && plain == 1 && NSLPgetuserfuncobject(f.above, 2, &object) != 0);
    CHECK(f.change(0, formulas::call(index, {column(0)})) == NLRA_ERROR_ARGUMENT);
    CHECK(nonlinear_error(f.above).find("takes 2 arguments, not 1") != std::string::npos);
    REQUIRE(f.change(0, formulas::call(index, {column(0), column(1)})) == 0);
    REQUIRE(f.move({2, 3}) == 0);
    CHECK_NEAR(f.coefficient(0, -1), 13, 1e-12);
    REQUIRE(NSLPnlpoptimize(f.above, "") == 0 && square.calls > 3);
    CHECK(f.attribute(NSLP_STATUS) == NSLP_LOCALLY_OPTIMAL);

    square.instead = [](double* value) { return *value = kNan, 0; };
    CHECK(NSLPvalidate(f.above) == NLRA_ERROR_STATE);
    CHECK(nonlinear_error(f.above) == "row R1 is not defined at this point");
    square.instead = [](double*) { return 1; };
    CHECK(NSLPvalidate(f.above) == NLRA_ERROR_STATE);
    CHECK(nonlinear_error(f.above) == "a user function failed");
    CHECK(f.attribute(NSLP_STATUS) == NSLP_LOCALLY_OPTIMAL);  // looking does not touch the result
    CHECK(NSLPnlpoptimize(f.above, "") == NLRA_ERROR_STATE);
    CHECK(f.attribute(NSLP_STATUS) == NSLP_UNFINISHED);
}

TEST("nonlinear api: what is refused while a problem is being solved") {
    const Fixture f;
    Square square;
    int index = -1;
    REQUIRE(NSLPadduserfunction(f.above, "square", Square::call, &square, 1, 1, &index) == 0);
    REQUIRE(f.change(0, formulas::call(index, {column(0)})) == 0);
    std::atomic<int> wrong{0};
    const auto expect = [&wrong](bool good) { wrong += good ? 0 : 1; };
    square.instead = [&](double*) {
        if (square.calls > 1) return 0;
        // Changes are refused on every thread, looking is not on this one.
        void* object = nullptr;
        double value = 0;
        int status = -1;
        NSLPvarinfo info;
        expect(f.change(1, column(0)) == NLRA_ERROR_BUSY);
        expect(nonlinear_error(f.above).find("is being solved") != std::string::npos);
        expect(NSLPnlpoptimize(f.above, "") == NLRA_ERROR_BUSY);
        expect(NSLPdelcoefs(f.above, 0, nullptr) == NLRA_ERROR_BUSY);
        expect(NSLPsetintcontrol(f.above, NSLP_THREADS, 1) == NLRA_ERROR_BUSY);
        expect(NSLPchgvar(f.above, 0, nullptr, &value) == NLRA_ERROR_BUSY);
        expect(NSLPdestroyprob(f.above) == NLRA_ERROR_BUSY);
        expect(NSLPgetuserfuncobject(f.above, index, &object) == 0 && object == &square);
        expect(NSLPgetvar(f.above, 0, &info) == 0 && f.evaluated(column(1)) == 0);
        std::thread([&] {
            expect(NSLPgetuserfuncobject(f.above, index, &object) == NLRA_ERROR_BUSY);
            expect(NSLPevaluatecoef(f.above, 0, -1, &value) == NLRA_ERROR_BUSY);
            expect(NSLPgetslpsol(f.above, &value, nullptr, nullptr, nullptr) == NLRA_ERROR_BUSY);
            expect(NSLPnlpoptimize(f.above, "") == NLRA_ERROR_BUSY);
            expect(NSLPgetintattrib(f.above, NSLP_STATUS, &status) == 0);
        }).join();
        return 0;
    };
    REQUIRE(NSLPnlpoptimize(f.above, "") == 0);
    CHECK(square.calls > 1 && wrong == 0 && f.attribute(NSLP_STATUS) == NSLP_LOCALLY_OPTIMAL);
}

TEST("nonlinear api: a problem without its base refuses everything but its end") {
    Fixture f;
    REQUIRE(NSLPnlpoptimize(f.above, "") == 0 && NLRAdestroyprob(f.prob) == 0);
    f.prob = nullptr;
    double value = 0;
    NSLPvarinfo info;
    void* object = nullptr;
    const Tokens formula = tokens(column(0));
    int index = 0;
    NSLPprob const p = f.above;
    const int statuses[] = {
        f.change(0, column(0)),
        f.add(0, 0, 1, column(0)),
        NSLPdelcoefs(p, 0, nullptr),
        NSLPadduserfunction(p, "f", Square::call, nullptr, 1, 0, &index),
        NSLPgetuserfuncobject(p, 0, &object),
        NSLPsetinitialvalues(p, 0, nullptr, nullptr),
        NSLPgetvar(p, 0, &info),
        NSLPchgvar(p, 0, nullptr, nullptr),
        NSLPevaluateformula(p, 1, formula.types.data(), formula.values.data(), &value),
        NSLPevaluatecoef(p, 0, -1, &value),
        NSLPvalidate(p),
        NSLPvalidatevector(p, &value, nullptr, nullptr, nullptr),
        NSLPnlpoptimize(p, ""),
        NSLPgetslpsol(p, &value, nullptr, nullptr, nullptr),
        NSLPgetintattrib(p, NSLP_STATUS, &index),
        NSLPcopyprob(p, p, ""),
    };
    for (const int status : statuses) CHECK(status == NLRA_ERROR_STATE);
    CHECK(nonlinear_error(p).find("has been destroyed") != std::string::npos);
}

TEST("nonlinear api: a copy has formulas, functions, settings and results of its own") {
    Square square;
    const Fixture copy;
    {
        const Fixture f;
        int index = -1;
        const double two = 2, three = 3;
        const int control = 12415;
        REQUIRE(NSLPadduserfunction(f.above, "square", Square::call, &square, 1, 1, &index) == 0);
        REQUIRE(f.change(0, formulas::call(index, {column(0)})) == 0);
        REQUIRE(NSLPsetintcontrol(f.above, control, 2) == 0);
        REQUIRE(NSLPsetintcontrol(f.above, nlra::kInteriorScaling, 0) == 0);
        REQUIRE(NSLPnlpoptimize(f.above, "") == 0);
        REQUIRE(NSLPchgvar(f.above, 0, &three, &two) == 0);
        REQUIRE(NLRAcopyprob(copy.prob, f.prob, "") == 0);
        REQUIRE(NSLPcopyprob(copy.above, f.above, "copy") == 0);
        REQUIRE(NSLPcopycontrols(copy.above, f.above) == 0);
        CHECK(copy.state() == f.state());
        REQUIRE(f.change(0, column(0)) == 0);
    }
    CHECK_NEAR(copy.coefficient(0, -1), 4, 1e-12);  // at x = 2
    double x[3] = {};
    CHECK(NSLPgetslpsol(copy.above, x, nullptr, nullptr, nullptr) == 0);
    CHECK_NEAR(x[0], 1, 1e-3);
    int value = -1;
    CHECK(NSLPgetintcontrol(copy.above, 12415, &value) == 0 && value == 2);
    CHECK(NSLPgetintcontrol(copy.above, nlra::kInteriorScaling, &value) == 0 && value == 0);
    REQUIRE(NSLPnlpoptimize(copy.above, "") == 0);
    CHECK(copy.attribute(NSLP_STATUS) == NSLP_LOCALLY_OPTIMAL);
}

TEST("nonlinear api: log lines go to one of the two problems") {
    Fixture fixture;
    struct Count {
        int above = 0, beneath = 0;
    } count;
    REQUIRE(
        NSLPsetcbmessage(
            fixture.above,
            [](NSLPprob, void* data, const char*, int, int) { ++static_cast<Count*>(data)->above; },
            &count) == 0);
    CHECK(NSLPnlpoptimize(fixture.above, "") == 0);
    CHECK(count.above > 2);
    count.above = 0;
    const NLRAmessagecb beneath = [](NLRAprob, void* data, const char*, int, int) {
        ++static_cast<Count*>(data)->beneath;
    };
    REQUIRE(NLRAaddcbmessage(fixture.prob, beneath, &count, 0) == 0);
    CHECK(NSLPnlpoptimize(fixture.above, "") == 0);
    CHECK(count.above == 0 && count.beneath > 2);
}
