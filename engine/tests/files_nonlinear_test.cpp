// The format of nonlinear models: notation, names, errors, formulas without bound.
#include <string>

#include "files_support.hpp"
#include "nonlinear/formula.hpp"

using namespace files_test;

namespace {

constexpr Format kFormat = Format::kNonlinear;

Model parse(const std::string& text) { return from_text(text, kFormat); }

// Postfix with the columns' letters, numbers in braces and negation as ~.
std::string postfix(const std::string& formula) {
    const Model model = parse("nalora model 1\ncolumn x C 0 1\ncolumn y C 0 1\nminimize\nformula " +
                              formula + "\nend\n");
    const Coefficient& c = model.formulas.objective.at(0);
    std::string text;
    for (size_t i = 0; i < c.types.size(); ++i) {
        const int value = static_cast<int>(c.values[i]);
        switch (c.types[i]) {
            case NSLP_TOKEN_CONSTANT:
                text += '{' + std::to_string(value) + '}';
                break;
            case NSLP_TOKEN_COLUMN:
                text += "xy"[value];
                break;
            case NSLP_TOKEN_OPERATOR:
                text += " ~^*/+-"[value];
                break;
            default:
                text += c.types[i] == NSLP_TOKEN_ARGUMENTS ? "("
                        : c.types[i] == NSLP_TOKEN_COMMA   ? ","
                                                           : ")";
        }
    }
    return text;
}

// The formula as it is written.
std::string rewritten(const std::string& formula) {
    const std::string text = to_text(
        parse("nalora model 1\ncolumn x C 0 1\nminimize\nformula " + formula + "\nend\n"), kFormat);
    const size_t begin = text.find("formula ") + 8;
    return text.substr(begin, text.find('\n', begin) - begin);
}

Coefficient repeated(int count, const Coefficient& first, const Coefficient& more) {
    Coefficient c = first;
    for (int i = 0; i < count; ++i) {
        c.types.insert(c.types.end(), more.types.begin(), more.types.end());
        c.values.insert(c.values.end(), more.values.begin(), more.values.end());
    }
    return c;
}

constexpr int kC = NSLP_TOKEN_COLUMN, kOp = NSLP_TOKEN_OPERATOR, kArgs = NSLP_TOKEN_ARGUMENTS,
              kComma = NSLP_TOKEN_COMMA, kFn = NSLP_TOKEN_FUNCTION;

}  // namespace

TEST("nonlinear files: formulas have the usual precedence") {
    const char* const kCases[][2] = {{"-x^2", "x{2}^~"},
                                     {"(-x)^2", "x~{2}^"},
                                     {"-2^x", "{2}x^~"},
                                     {"(-2)^x", "{-2}x^"},
                                     {"2^-3^x", "{2}{3}x^~^"},
                                     {"x^-2*y", "x{-2}^y*"},
                                     {"x^y^2", "xy{2}^^"},
                                     {"x - y - 2", "xy-{2}-"},
                                     {"x/y*2", "xy/{2}*"},
                                     {"x - -2", "x{-2}-"},
                                     {"-(2)*x", "{2}~x*"},
                                     {"- 2 * x", "{-2}x*"},
                                     {"--x*-y", "x~~y~*"},
                                     {"x + y*2^x - 1", "xy{2}x^*+{1}-"},
                                     {"min(x, -2, x+y)*2", "(x,{-2},xy+){2}*"},
                                     {"sin ((x))", "(x)"},
                                     {"@2\n  & + \"x\"", "yx+"}};
    for (const auto& [text, expected] : kCases) {
        const std::string found = postfix(text);
        if (!CHECK(found == expected)) std::fprintf(stderr, "%s: %s\n", text, found.c_str());
    }
    // No more brackets than needed.
    for (const char* text : {"-x^2 + 2*x^3/(x + 1) - exp(-x)", "x - (x - 1)", "x/(x*x)", "(x^2)^x",
                             "x^(-2)", "-(2)", "-(-x)", "max(x, 1, 2*x)", "{2.5 x} log10(x)"}) {
        const std::string found = rewritten(text);
        if (!CHECK(found == text)) std::fprintf(stderr, "%s: %s\n", text, found.c_str());
    }
}

TEST("nonlinear files: every statement has its effect") {
    const Model model = parse(
        "# made by hand\r\n\n  nalora model 1\nname \"two words\"\ncolumn x C 0 4 start -1.5\n"
        "column - S 0 9 limit 2\ncolumn x I -inf inf\nmaximize\n  constant 3\n  linear 1 @1 2 @2\n"
        "   & 4 @1\n  quadratic 1 @3 @1 2 @1 @3\n  formula {2 @2} exp(@1)\nformula @1\n"
        "row \"a\\\"\\\\\\x0a\" R 5 2\n  linear 1 @1\n  linear 1 @3 -3 @1\nrow - N inf\n"
        "  indicator @3 0\nset s S2 2 @1 1 @2\nend");
    CHECK(model.name == "two words" && model.sense == -1.0 && model.constant == 3.0);
    CHECK(model.obj == std::vector<double>({5.0, 2.0, 0.0}));
    CHECK(model.limit[1] == 2.0 && model.coltype[2] == 'I' && model.upper[2] == kInfinity);
    CHECK(model.formulas.start.at(0) == -1.5 && model.formulas.start.size() == 1);
    CHECK(!model.colnames.has_name(1) && model.colnames.get(2) == "x");
    CHECK(model.qobj == std::vector<QuadTerm>({{0, 2, 3.0}}));
    CHECK(model.formulas.objective.size() == 2 && model.formulas.objective[0].column == 1);
    CHECK(model.rownames.get(0) == "a\"\\\n" && !model.rownames.has_name(1));
    CHECK(model.range[0] == 2.0 && model.rhs[1] == kInfinity);
    CHECK(sorted_row(model, 0) == (std::vector<std::pair<int, double>>{{0, -2.0}, {2, 1.0}}));
    CHECK(model.indicators.at(1) == (Indicator{2, -1}));
    CHECK(model.sets[0].cols == std::vector<int>({0, 1}));
    // Names that look like those of nameless columns stay names.
    Model named = model;
    named.colnames.set(1, "C2");
    CHECK(parse(to_text(named, kFormat)).colnames.has_name(1));
    CHECK(!parse(to_text(model, kFormat)).colnames.has_name(1));
}

TEST("nonlinear files: errors tell the line and what is wrong") {
    struct Case {
        const char* text;
        int line;
        const char* part;
    };
    const std::string head = "nalora model 1\ncolumn x C 0 1\ncolumn y C 0 1\ncolumn y C 0 1\n";
    const Case kCases[] = {
        {"formula x\n", 5, "belongs to the objective or a row"},
        {"minimize\nminimize\n", 6, "second objective"},
        {"minimize\nindicator x 1\n", 6, "belongs to a row"},
        {"colunm z C 0 1\n", 5, "unknown statement 'colunm'"},
        {"column z D 0 1\n", 5, "types C B I S R P"},
        {"column z C 0\n", 5, "expected a number at the end of the line"},
        {"column z C 0 one\n", 5, "'one' is not a number"},
        {"column z C 0 1 limit 2\n", 5, "type C cannot have the limit 2"},
        {"column z C 0 1 start inf\n", 5, "finite"},
        {"column \"z C 0 1\n", 5, "closing quote"},
        {"column \"\" C 0 1\n", 5, "name is empty"},
        {"column \"\\x00\" C 0 1\n", 5, "hexadecimal"},
        {"column \"\\x\" C 0 1\n", 5, "hexadecimal"},
        {"column \"\\q\" C 0 1\n", 5, "unknown escape \\q"},
        {"row r R 5 -2\n", 5, "negative"},
        {"row r L 5 2\n", 5, "end of the line"},
        {"row r L 5\nlinear 1e19 x\n\nlinear 9e19 x 9e19 x\n", 8, "infinite"},
        {"row r L 5\nlinear 1 z\n", 6, "unknown column 'z'"},
        {"row r L 5\nlinear 1 y\n", 6, "several columns are called 'y'"},
        {"row r L 5\nlinear 1 @4\n", 6, "no column @4"},
        {"row r L 5\nlinear 1e400 x\n", 6, "out of range"},
        {"row r L 5\nindicator x 2\n", 6, "0 or 1"},
        {"row r L 5\nformula x +\n", 6, "at the end of the line"},
        {"row r L 5\nformula (x\n", 6, "bracket is not closed"},
        {"row r L 5\nformula sin(x\n", 6, "bracket is not closed"},
        {"row r L 5\nformula x)\n", 6, "without an opening one"},
        {"row r L 5\nformula (x, x)\n", 6, "comma outside"},
        {"row r L 5\nformula sin()\n", 6, "expected a number, a column"},
        {"row r L 5\nformula sin(x, x)\n", 6, "one argument"},
        {"row r L 5\nformula sinus(x)\n", 6, "unknown function 'sinus'"},
        {"row r L 5\nformula pwl(x, 1, 1, x, 2)\n", 6, "must be constants"},
        {"row r L 5\nformula x x\n", 6, "expected an operator"},
        {"row r L 5\nformula 2x\n", 6, "expected an operator"},
        {"row r L 5\nformula {2 x sin(x)\n", 6, "expected }"},
        {"row r L 5\nformula 1e999\n", 6, "out of range"},
        {"set s S3 1 x\n", 5, "S1 or S2"},
        {"set s S1 1 x 2 x\nend\n", 5, "twice"},
        {"row r L 5\n", 6, "ends before the line 'end'"},
        {"end\nend\n", 6, "nothing behind"},
    };
    for (const Case& c : kCases) expect_error(head + c.text, kFormat, c.line, c.part);
    expect_error("nalora model 2\nend\n", kFormat, 1, "version 2");
    expect_error("\nminimize\n", kFormat, 2, "nalora model 1");
    expect_error("", kFormat, 1, "nalora model 1");
}

TEST("nonlinear files: formulas may be as long and as deep as they like") {
    constexpr int kCount = 200000;
    using Types = std::vector<int>;
    using Values = std::vector<double>;
    const auto tokens = [](Types types, Values values) {
        return Coefficient{1.0, -1, std::move(types), std::move(values)};
    };
    const Coefficient none, x = tokens({kC}, {0}), list = tokens({kArgs}, {0});
    const auto op = [&](int number) { return tokens({kOp}, {static_cast<double>(number)}); };
    const Coefficient xs = repeated(kCount, x, x);
    const Coefficient lists = repeated(kCount, none, list);
    const Coefficient formulas[] = {
        repeated(kCount, x, tokens({kC, kOp}, {0, NSLP_OPERATOR_MINUS})),
        repeated(kCount, xs, op(NSLP_OPERATOR_MINUS)),
        repeated(kCount, xs, op(NSLP_OPERATOR_POWER)),
        repeated(kCount, x, op(NSLP_OPERATOR_NEGATE)),
        repeated(kCount, repeated(1, lists, x), tokens({kComma, kC, kFn}, {0, 0, kFunctionMin})),
        repeated(1, repeated(kCount, repeated(1, list, x), tokens({kComma, kC}, {0, 0})),
                 tokens({kFn}, {kFunctionMax}))};
    for (const Coefficient& formula : formulas) {
        Model model = parse("nalora model 1\ncolumn x C 0 1\nend\n");
        model.formulas.objective = {formula};
        const std::string text = to_text(model, kFormat);
        CHECK(same_formula(parse(text).formulas.objective, model.formulas.objective));
        size_t longest = 0;
        for (size_t at = 0, next; (next = text.find('\n', at)) != std::string::npos;
             at = next + 1) {
            longest = std::max(longest, next - at);
        }
        CHECK(longest <= 110);
    }
    CHECK(error_of("nalora model 1\nminimize\nformula " + std::string(kCount, '('), kFormat) != "");
}

TEST("nonlinear files: what a file cannot hold is refused") {
    Model model = parse("nalora model 1\ncolumn x C 0 1\nrow r L 1\nformula sin(x)\nend\n");
    const auto refused = [&](const std::string& options, int code, const char* part) {
        try {
            write_model(model, "/nonexistent/folder/m.lp", options);
        } catch (const Error& error) {
            CHECK(error.code == code && has(error.text, part));
            return;
        }
        CHECK(false);
    };
    refused("", NLRA_ERROR_UNSUPPORTED, "cannot hold nonlinear formulas");
    refused("x", NLRA_ERROR_UNSUPPORTED, "cannot hold nonlinear formulas");
    refused("gl", NLRA_ERROR_ARGUMENT, "exclude each other");
    refused("gq", NLRA_ERROR_ARGUMENT, "unknown option 'q'");
    refused("g", NLRA_ERROR_FILE, "/nonexistent/folder/m.lp");
    model.formulas.rows[0][0].types = {kArgs, kC, NSLP_TOKEN_USERFUNCTION};
    model.formulas.rows[0][0].values = {0, 0, 0};
    try {
        to_text(model, kFormat);
        CHECK(false);
    } catch (const Error& error) {
        CHECK(error.code == NLRA_ERROR_UNSUPPORTED && has(error.text, "row 'r'"));
    }
}
