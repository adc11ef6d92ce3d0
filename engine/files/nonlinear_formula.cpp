#include "files/nonlinear_formula.hpp"

#include <cmath>

#include "files/text.hpp"
#include "nonlinear/formula.hpp"

namespace nlra {

namespace {

struct FunctionName {
    const char* name;
    const char* opening;
    int function;
};
constexpr FunctionName kFunctions[] = {
    {"abs", "abs(", kFunctionAbs},       {"acos", "acos(", kFunctionAcos},
    {"asin", "asin(", kFunctionAsin},    {"atan", "atan(", kFunctionAtan},
    {"cos", "cos(", kFunctionCos},       {"erf", "erf(", kFunctionErf},
    {"erfc", "erfc(", kFunctionErfc},    {"exp", "exp(", kFunctionExp},
    {"log", "log(", kFunctionLog},       {"log10", "log10(", kFunctionLog10},
    {"max", "max(", kFunctionMax},       {"min", "min(", kFunctionMin},
    {"pwl", "pwl(", kFunctionPiecewise}, {"sign", "sign(", kFunctionSign},
    {"sin", "sin(", kFunctionSin},       {"sqrt", "sqrt(", kFunctionSqrt},
    {"tan", "tan(", kFunctionTan}};

struct BinaryOperator {
    const char* text;
    char symbol;
    int op;
    int precedence;
};
constexpr BinaryOperator kOperators[] = {{" +", '+', NSLP_OPERATOR_PLUS, 1},
                                         {" -", '-', NSLP_OPERATOR_MINUS, 1},
                                         {"*", '*', NSLP_OPERATOR_MULTIPLY, 2},
                                         {"/", '/', NSLP_OPERATOR_DIVIDE, 2},
                                         {"^", '^', NSLP_OPERATOR_POWER, 4}};
constexpr int kNegation = 3;  // -x^2 is -(x^2), -x*y is (-x)*y
constexpr int kOperand = 5;

const BinaryOperator& binary(int op) {
    const BinaryOperator* found = kOperators;
    while (found->op != op) ++found;
    return *found;
}

int precedence_of(int op) { return op == NSLP_OPERATOR_NEGATE ? kNegation : binary(op).precedence; }

// ---- reading -----------------------------------------------------------------------------------

class FormulaReader {
  public:
    FormulaReader(ModelLines& lines, const ColumnReader& columns)
        : lines_(lines), columns_(columns) {}

    Coefficient read() {
        while (needs_operand_ || !lines_.at_end()) {
            if (needs_operand_) {
                operand();
            } else {
                behind_operand();
            }
        }
        reduce(0);
        if (!open_.empty()) lines_.source().fail_at(open_.back().where, "a bracket is not closed");
        return std::move(result_);
    }

  private:
    // An operator or bracket that waits for what is on its right.
    enum class Kind { kOperator, kBracket, kFunction };
    struct Open {
        Kind kind;
        int number;  // of the operator or function
        const char* where;
    };

    void emit(int type, double value) {
        result_.types.push_back(type);
        result_.values.push_back(value);
    }

    void open(Kind kind, int number) { open_.push_back({kind, number, lines_.position()}); }

    void operand() {
        if (lines_.take('-')) return open(Kind::kOperator, NSLP_OPERATOR_NEGATE);
        if (lines_.take('(')) return open(Kind::kBracket, 0);
        const char c = lines_.peek();
        if (c == '"' || c == '@') {
            emit(NSLP_TOKEN_COLUMN, columns_.read(lines_));
        } else if ((c >= '0' && c <= '9') || c == '.') {
            emit(NSLP_TOKEN_CONSTANT, lines_.constant());
            bare_ = result_.types.size();
        } else {
            const std::string_view name =
                lines_.word("a number, a column, a function or a bracket");
            if (lines_.take('(')) return begin_function(name);
            emit(NSLP_TOKEN_COLUMN, columns_.find(lines_, name));
        }
        needs_operand_ = false;
    }

    void begin_function(std::string_view name) {
        for (const FunctionName& known : kFunctions) {
            if (name != known.name) continue;
            emit(NSLP_TOKEN_ARGUMENTS, 0.0);
            return open(Kind::kFunction, known.function);
        }
        lines_.source().fail_at(name.data(), "unknown function %s", quote(name).c_str());
    }

    void behind_operand() {
        for (const BinaryOperator& candidate : kOperators) {
            if (!lines_.take(candidate.symbol)) continue;
            // Operators of the same precedence go from left to right, but powers.
            reduce(candidate.op == NSLP_OPERATOR_POWER ? kOperand : candidate.precedence);
            open(Kind::kOperator, candidate.op);
            needs_operand_ = true;
            return;
        }
        if (lines_.take(',')) {
            reduce(0);
            if (open_.empty() || open_.back().kind != Kind::kFunction) {
                lines_.source().fail_at(lines_.position(), "a comma outside of a function");
            }
            emit(NSLP_TOKEN_COMMA, 0.0);
            needs_operand_ = true;
        } else if (lines_.take(')')) {
            close();
        } else {
            lines_.fail_expected("an operator");
        }
    }

    void close() {
        reduce(0);
        if (open_.empty()) {
            lines_.source().fail_at(lines_.position(), "a closing bracket without an opening one");
        }
        const Open opened = open_.back();
        open_.pop_back();
        bare_ = 0;
        if (opened.kind == Kind::kFunction) emit(NSLP_TOKEN_FUNCTION, opened.number);
    }

    // Apply what was opened since the last bracket and binds at least as tightly.
    void reduce(int precedence) {
        while (!open_.empty() && open_.back().kind == Kind::kOperator &&
               precedence_of(open_.back().number) >= precedence) {
            const int op = open_.back().number;
            open_.pop_back();
            if (op == NSLP_OPERATOR_NEGATE && bare_ == result_.types.size()) {
                result_.values.back() = -result_.values.back();
                bare_ = 0;
            } else {
                emit(NSLP_TOKEN_OPERATOR, op);
            }
        }
    }

    ModelLines& lines_;
    const ColumnReader& columns_;
    Coefficient result_;
    std::vector<Open> open_;
    bool needs_operand_ = true;
    size_t bare_ = 0;  // tokens up to a number that a minus before it belongs to
};

// ---- writing -----------------------------------------------------------------------------------

// For each token, the first one of the subexpression that it ends.
std::vector<size_t> first_tokens(const Coefficient& formula) {
    struct List {
        size_t first;
        size_t operands;  // before it
    };
    std::vector<size_t> first(formula.types.size());
    std::vector<size_t> operands;
    std::vector<List> lists;
    for (size_t i = 0; i < first.size(); ++i) {
        switch (formula.types[i]) {
            case NSLP_TOKEN_COMMA:
                continue;
            case NSLP_TOKEN_ARGUMENTS:
                lists.push_back({i, operands.size()});
                continue;
            case NSLP_TOKEN_OPERATOR:
                if (static_cast<int>(formula.values[i]) != NSLP_OPERATOR_NEGATE)
                    operands.pop_back();
                first[i] = operands.back();
                continue;
            case NSLP_TOKEN_FUNCTION:
                operands.resize(lists.back().operands);
                first[i] = lists.back().first;
                lists.pop_back();
                break;
            default:
                first[i] = i;
        }
        operands.push_back(first[i]);
    }
    return first;
}

class FormulaWriter {
  public:
    FormulaWriter(LineOutput& out, const Coefficient& formula,
                  const std::vector<std::string>& columns)
        : out_(out), formula_(formula), columns_(columns), first_(first_tokens(formula)) {}

    void write() {
        push(formula_.types.size() - 1);
        while (!waiting_.empty()) {
            const Part part = waiting_.back();
            waiting_.pop_back();
            if (part.text != nullptr) {
                text(part.text);
            } else {
                expression(part.last);
            }
        }
    }

  private:
    // A text, or the subexpression that ends at a token.
    struct Part {
        const char* text;
        size_t last;
    };

    // Parts that are pushed come out in reverse order.
    void push(const char* text) { waiting_.push_back({text, 0}); }
    void push(size_t last) { waiting_.push_back({nullptr, last}); }
    void push_bracketed(size_t last, bool brackets) {
        if (brackets) push(")");
        push(last);
        if (brackets) push("(");
    }

    int precedence(size_t last) const {
        const double value = formula_.values[last];
        switch (formula_.types[last]) {
            case NSLP_TOKEN_CONSTANT:
                return std::signbit(value) ? kNegation : kOperand;
            case NSLP_TOKEN_OPERATOR:
                return precedence_of(static_cast<int>(value));
            default:
                return kOperand;
        }
    }

    // Blanks around a sum's operators, and behind a comma.
    void text(const char* text) {
        const bool sum = text[0] == ' ';
        if (sum) out_.blank();
        out_.piece(sum ? text + 1 : text);
        if (sum || text[0] == ',') out_.blank();
    }

    void expression(size_t last) {
        const double value = formula_.values[last];
        switch (formula_.types[last]) {
            case NSLP_TOKEN_CONSTANT:
                return out_.number(value);
            case NSLP_TOKEN_COLUMN:
                return out_.piece(columns_[static_cast<size_t>(value)]);
            case NSLP_TOKEN_FUNCTION:
                return function(last);
            default:
                return operation(last, static_cast<int>(value));
        }
    }

    void operation(size_t last, int op) {
        if (op == NSLP_OPERATOR_NEGATE) {
            // A bare number would take the minus for its own.
            const bool number = formula_.types[last - 1] == NSLP_TOKEN_CONSTANT;
            push_bracketed(last - 1, number || precedence(last - 1) <= kNegation);
            return push("-");
        }
        const int own = binary(op).precedence;
        const bool power = op == NSLP_OPERATOR_POWER;
        const size_t left = first_[last - 1] - 1;
        push_bracketed(last - 1, precedence(last - 1) < own + (power ? 0 : 1));
        push(binary(op).text);
        push_bracketed(left, precedence(left) < own + (power ? 1 : 0));
    }

    void function(size_t last) {
        const FunctionName* found = kFunctions;
        while (found->function != formula_.values[last]) ++found;
        out_.piece(found->opening);
        push(")");
        size_t argument = last - 1;
        while (true) {
            push(argument);
            const size_t before = first_[argument] - 1;  // a comma, or what begins the arguments
            if (formula_.types[before] == NSLP_TOKEN_ARGUMENTS) break;
            push(",");
            argument = before - 1;
        }
    }

    LineOutput& out_;
    const Coefficient& formula_;
    const std::vector<std::string>& columns_;
    const std::vector<size_t> first_;
    std::vector<Part> waiting_;
};

}  // namespace

Coefficient read_formula(ModelLines& lines, const ColumnReader& columns) {
    return FormulaReader(lines, columns).read();
}

void write_formula(LineOutput& out, const Coefficient& formula,
                   const std::vector<std::string>& columns) {
    FormulaWriter(out, formula, columns).write();
}

}  // namespace nlra
