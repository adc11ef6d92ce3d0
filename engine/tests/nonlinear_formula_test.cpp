// Tokens to graph: what is refused, what is recognised, and editing the set of functions.
#include <limits>
#include <string>

#include "check.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear_support.hpp"
#include "store/error.hpp"

using namespace formulas;
using nlra::FormulaRoots;
using nlra::RootParts;

namespace {

std::string refusal(FormulaRoots& roots, const Tokens& tokens) {
    try {
        roots.add({tokens.piece()});
    } catch (const nlra::Error& error) {
        return error.text;
    }
    return "accepted";
}

Tokens raw(std::initializer_list<std::pair<int, double>> list) {
    Tokens out;
    for (const auto& [type, value] : list) out.add(type, value);
    return out;
}

struct Refused {
    const char* reason;
    Tokens tokens;
};

double value_of(const FormulaRoots& roots, int root, const std::vector<double>& x) {
    nlra::Tape tape(roots.graph(), {&roots.parts(root)}, roots.functions());
    double value = 0.0;
    return tape.values(x.data(), &value) ? value : nlra::kNotDefined;
}

}  // namespace

TEST("nonlinear: malformed formulas are refused and leave the graph alone") {
    FormulaRoots roots;
    roots.set_columns(3);
    Wavy wavy(true);
    wavy.arguments = 2;
    roots.add_function(&wavy);
    const int kept = add(roots, column(0) * applied(nlra::kFunctionExp, {column(1)}));
    const int size = roots.graph().size();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinite = std::numeric_limits<double>::infinity();
    const Refused table[] = {
        {"has no value", raw({})},
        {"has no value", raw({{0, 0}})},
        {"not a finite number", raw({{1, nan}})},
        {"not a finite number", raw({{1, infinite}})},
        {"not a column", raw({{10, 3}})},
        {"not a column", raw({{10, -1}})},
        {"not a column", raw({{10, 0.5}})},
        {"not a column", raw({{10, nan}})},
        {"unknown token type", raw({{2, 0}})},
        {"operand of the operator is missing", raw({{10, 0}, {31, 5}})},
        {"operand of the operator is missing", raw({{31, 1}})},
        {"unknown operator", raw({{10, 0}, {10, 1}, {31, 7}})},
        {"unknown operator", raw({{10, 0}, {10, 1}, {31, 2.5}})},
        {"left without an operator", raw({{10, 0}, {10, 1}})},
        {"begins its arguments", raw({{10, 0}, {12, 16}})},
        {"not closed", raw({{21, 0}, {10, 0}})},
        {"comma outside", raw({{10, 0}, {22, 0}})},
        {"takes one argument", raw({{21, 0}, {10, 0}, {22, 0}, {10, 1}, {12, 16}})},
        {"takes one argument", raw({{21, 0}, {12, 16}})},
        {"not one expression", raw({{21, 0}, {10, 0}, {10, 1}, {12, 34}})},
        {"not one expression", raw({{21, 0}, {10, 0}, {22, 0}, {12, 34}})},
        // An operator must not take an argument that is already complete.
        {"operand of the operator is missing",
         raw({{21, 0}, {10, 0}, {22, 0}, {10, 1}, {31, 5}, {12, 34}})},
        {"at least one argument", raw({{21, 0}, {12, 33}})},
        {"unknown function", raw({{21, 0}, {10, 0}, {12, 999}})},
        {"not a user function", raw({{21, 0}, {10, 0}, {11, 1}})},
        {"takes 2 arguments, not 1", raw({{21, 0}, {10, 0}, {11, 0}})},
        {"behind the end", raw({{10, 0}, {0, 0}, {10, 1}})},
        {"at least two points",
         raw({{21, 0}, {10, 0}, {22, 0}, {1, 0}, {22, 0}, {1, 0}, {12, 35}})},
        {"must be constants",
         tokens(applied(nlra::kFunctionPiecewise,
                        {column(0), constant(0), constant(1), column(1), constant(2)}))},
        {"not in order",
         tokens(applied(nlra::kFunctionPiecewise,
                        {constant(0), constant(1), constant(1), constant(0), constant(2)}))},
        {"overflow", tokens(constant(1e308) * column(0) + column(0) * constant(1e308))},
    };
    for (const Refused& refused : table) {
        const std::string text = refusal(roots, refused.tokens);
        if (!CHECK(text.find(refused.reason) != std::string::npos)) {
            std::fprintf(stderr, "  %s: %s\n", refused.reason, text.c_str());
        }
    }
    Tokens good = tokens(column(0));
    CHECK_THROWS(roots.add({good.piece(nan)}), nlra::Error);
    CHECK_THROWS(roots.add({good.piece(1.0, 3)}), nlra::Error);
    CHECK_THROWS(nlra::check_formula(good.types.data(), good.values.data(), 1, roots.scope()),
                 nlra::Error);
    CHECK(nlra::check_formula(good.types.data(), good.values.data(), 2, roots.scope()) == 1);
    // Only the last row of the table and the unordered points get as far as the graph.
    CHECK(roots.graph().size() <= size + 4);
    CHECK_NEAR(value_of(roots, kept, {2.0, 0.0, 0.0}), 2.0, 0.0);
}

TEST("nonlinear: linear and quadratic parts are found") {
    FormulaRoots roots;
    roots.set_columns(4);
    const Ptr x = column(0);
    const Ptr y = column(1);
    const Ptr z = column(2);
    const Ptr wave = applied(nlra::kFunctionSin, {x});
    const RootParts parts = roots.parts(
        add(roots, constant(2.0) * (x - constant(3.0) * (y - z * x) + wave) / constant(4.0) -
                       power(constant(2.0) * y, 2.0) + constant(7.0) - x + x * y * constant(0.0)));
    CHECK(parts.constant == 7.0);
    CHECK((parts.linear == std::vector<nlra::LinearTerm>{{0, -0.5}, {1, -1.5}}));
    CHECK((parts.quadratic == std::vector<nlra::QuadTerm>{{0, 2, 1.5}, {1, 1, -4.0}}));
    REQUIRE(parts.rest.size() == 1);
    CHECK(parts.rest[0].value == 0.5);

    // What cancels is gone; what is the same is shared.
    CHECK(roots.parts(add(roots, wave * y - y * wave)).rest.empty());
    const int before = roots.graph().size();
    add(roots, applied(nlra::kFunctionSin, {x + constant(0.0)}) / constant(3.0) + z);
    CHECK(roots.graph().size() == before);
    CHECK(roots.parts(add(roots, applied(nlra::kFunctionExp, {constant(0.0)}))).constant == 1.0);
    // Not folded into nothing: it is not defined.
    CHECK(std::isnan(value_of(roots, add(roots, constant(1.0) / constant(0.0) + x), {1, 1, 1, 1})));
    // Out of range only on the way.
    CHECK_NEAR(value_of(roots, add(roots, constant(1e200) * constant(1e200) * x * constant(1e-250)),
                        {1e-200, 0, 0, 0}),
               1e-50, 1e-60);
    // A factor and a column in front of the formula.
    const Tokens formula = tokens(y + constant(1.0));
    const RootParts piece = roots.parts(roots.add({formula.piece(2.0, 3), formula.piece(-1.0)}));
    CHECK_NEAR(value_of(roots, roots.add({formula.piece(2.0, 3), formula.piece(-1.0)}),
                        {0.0, 4.0, 0.0, 5.0}),
               45.0, 1e-12);
    CHECK(piece.constant == -1.0);
}

TEST("nonlinear: long chains take linear time and no stack") {
    constexpr int kLength = 200000;
    for (const int op : {NSLP_OPERATOR_PLUS, NSLP_OPERATOR_MINUS, NSLP_OPERATOR_MULTIPLY,
                         NSLP_OPERATOR_DIVIDE, NSLP_OPERATOR_POWER}) {
        for (const bool left : {true, false}) {
            FormulaRoots roots;
            roots.set_columns(3);
            Tokens chain;
            for (int i = 0; i < kLength; ++i) {
                chain.add(NSLP_TOKEN_COLUMN, i % 2);
                chain.add(NSLP_TOKEN_COLUMN, 2);
                chain.add(NSLP_TOKEN_OPERATOR, NSLP_OPERATOR_MULTIPLY);
                if (left && i > 0) chain.add(NSLP_TOKEN_OPERATOR, op);
            }
            for (int i = 1; !left && i < kLength; ++i) chain.add(NSLP_TOKEN_OPERATOR, op);
            const int root = roots.add({chain.piece()});
            if (op == NSLP_OPERATOR_PLUS) {
                CHECK(roots.parts(root).quadratic.size() == 2);
            } else {
                value_of(roots, root, {1.0, 1.0, 1.0});
            }
        }
    }
}
