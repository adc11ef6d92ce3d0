// Constraints become rows, indicator constraints included.
#include <algorithm>
#include <string>

#include "model/operands.hpp"
#include "problem/building.hpp"
#include "problem/user_functions.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

struct ConstraintBatch {
    LargeVector<uint64_t> serials;
    std::string types;
    LargeVector<double> rhs;
    LargeVector<double> ranges;  // up to the last row that has one
    LargeVector<int64_t> starts;
    LargeVector<int32_t> columns;
    LargeVector<double> coefs;
    std::size_t expected_rows = 0;  // in all, as far as the arguments tell
    BatchNames names;
    // Rows (by position in the batch) with quadratic terms, and where each one's terms end.
    std::vector<int32_t> quadratic_rows;
    std::vector<int64_t> quadratic_ends;
    std::vector<int32_t> quadratic_columns1, quadratic_columns2;
    std::vector<double> quadratic_coefs;
    // Rows with a formula, and where each one's begins.
    std::vector<int32_t> formula_rows, formula_starts;
    FormulaTokens formulas;

    void expect(std::size_t rows) {
        expected_rows = rows;
        serials.reserve(rows), types.reserve(rows), rhs.reserve(rows), starts.reserve(rows);
    }

    // Room for the terms of the next row and, as a guess, for as many in each of the rows still
    // expected as the rows so far have on the average.
    void make_room(std::size_t terms) {
        const std::size_t needed = columns.size() + terms, rows = starts.size();
        if (needed <= columns.capacity()) return;
        std::size_t capacity = 2 * columns.capacity();
        if (rows > 1000 && rows < expected_rows) {
            const std::size_t guess = needed / rows * expected_rows + expected_rows;
            capacity = std::clamp(guess, capacity, 8 * capacity);
        }
        capacity = std::max(capacity, needed);
        columns.reserve(capacity), coefs.reserve(capacity);
    }

    bool reset() noexcept {
        const bool small = rhs.capacity() <= 4096 && coefs.capacity() <= 16384 &&
                           names.is_small() && quadratic_coefs.capacity() <= 4096;
        serials.clear(), types.clear(), rhs.clear(), ranges.clear(), starts.clear();
        expected_rows = 0;
        columns.clear(), coefs.clear(), names.clear();
        quadratic_rows.clear(), quadratic_ends.clear();
        quadratic_columns1.clear(), quadratic_columns2.clear(), quadratic_coefs.clear();
        formula_rows.clear(), formula_starts.clear(), formulas.cut(0);
        return small;
    }
};

// Finds the columns of one body's variables.
class BodyReader {
  public:
    BodyReader(const IndexMap& registry, ConstraintBatch& batch) noexcept
        : registry_(registry), batch_(batch) {}

    // Appends the body's terms; returns what they leave on the right-hand side.
    double read(PyObject* body, Kind kind) {
        switch (kind) {
            case Kind::number:
                return -number_value(body);
            case Kind::var:
                linear(var_serial(as_var(body)), 1.0, kLinearPart);
                return 0.0;
            case Kind::linterm: {
                const auto* term = reinterpret_cast<LintermObject*>(body);
                if (term->var == nullptr) break;
                linear(var_serial(term->var), term->coef, kLinearTerm);
                return 0.0;
            }
            case Kind::quadterm: {
                const auto* term = reinterpret_cast<QuadtermObject*>(body);
                if (term->var1 == nullptr || term->var2 == nullptr) break;
                quadratic(var_serial(term->var1), var_serial(term->var2), term->coef,
                          kQuadraticTerm);
                return 0.0;
            }
            case Kind::expression: {
                const ExpressionObject* e = as_expression(body);
                const std::span<const LinearEntry> terms = e->linear.canonical();
                batch_.make_room(terms.size());
                for (const LinearEntry& entry : terms) {
                    linear(entry.serial, entry.coef, kLinearPart);
                }
                if (e->quadratic.exists()) {
                    for (const QuadraticEntry& entry : e->quadratic.canonical()) {
                        quadratic(entry.serial1, entry.serial2, entry.coef, kQuadraticPart);
                    }
                }
                return -e->constant;
            }
            default:
                break;
        }
        raise(model_error(), "Invalid constraint");
    }

  private:
    static constexpr const char* kLinearPart =
        "Variable in linear part of constraint has not been added to problem yet";
    static constexpr const char* kQuadraticPart =
        "Variable in quadratic part of constraint has not been added to problem yet";
    static constexpr const char* kLinearTerm =
        "Variable in linear term defining constraint has not been added to problem yet";
    static constexpr const char* kQuadraticTerm =
        "Variable in quadratic term defining constraint has not been added to problem yet";

    int32_t column(uint64_t serial, const char* missing) const {
        const int32_t index = registry_.find(serial);
        if (index < 0) raise(model_error(), missing);
        return index;
    }
    void linear(uint64_t serial, double coef, const char* missing) {
        batch_.columns.push_back(column(serial, missing));
        batch_.coefs.push_back(coef);
    }
    // The library takes x'Qx with a symmetric Q: a product of two variables is split over two
    // entries of Q, of which one is passed.
    void quadratic(uint64_t serial1, uint64_t serial2, double coef, const char* missing) {
        const int32_t column1 = column(serial1, missing), column2 = column(serial2, missing);
        batch_.quadratic_columns1.push_back(column1);
        batch_.quadratic_columns2.push_back(column2);
        batch_.quadratic_coefs.push_back(column1 == column2 ? coef : 0.5 * coef);
    }

    const IndexMap& registry_;
    ConstraintBatch& batch_;
};

void append_bounds(ConstraintBatch& batch, double lower, double upper, double rhs) {
    if (lower != lower || upper != upper) {
        raise(model_error(), "Invalid constraint: a bound is not a number");
    }
    if (lower > upper + 1e-6) {
        raise(model_error(), "Constraint defined infeasible: lower bound > upper bound");
    }
    char type;
    const bool bounded_below = lower > -kInfinity, bounded_above = upper < kInfinity;
    if (!bounded_below && !bounded_above) {
        type = 'N';
    } else if (!bounded_below) {
        type = 'L';
        rhs += upper;
    } else if (!bounded_above) {
        type = 'G';
        rhs += lower;
    } else if (lower == upper) {
        type = 'E';
        rhs += lower;
    } else {
        type = 'R';
        rhs += upper;
        batch.ranges.resize(batch.rhs.size(), 0.0);
        batch.ranges.push_back(upper - lower);
    }
    batch.types.push_back(type);
    batch.rhs.push_back(rhs);
}

void collect(ProblemObject* p, Addition& addition, ConstraintBatch& batch,
             FunctionCollector& functions, PyObject* object) {
    if (!is_constraint(object) || as_constraint(object)->body == nullptr) {
        raise(model_error(), "Invalid constraint");
    }
    const ConstraintObject* c = as_constraint(object);
    const uint64_t serial = constraint_serial(c);
    if (addition.is_registered(serial)) {
        raise(model_error(), "Constraint already added to problem");
    }
    const Kind kind = operand_kind(c->body);
    addition.append(object);
    if (constraint_has_name(c)) {
        batch.names.add(addition.count(), [c](std::string& buffer) {
            constraint_append_name(c, buffer, kMaxNameBytes);
        });
    }
    batch.starts.push_back(static_cast<int64_t>(batch.columns.size()));
    double rhs = 0.0;
    if (kind == Kind::nonlinear) {
        const auto start = static_cast<int32_t>(batch.formulas.size());
        const Ref rest = functions.collect(batch.formulas, c->body);
        if (batch.formulas.size() > static_cast<std::size_t>(start)) {
            batch.formula_rows.push_back(addition.count());
            batch.formula_starts.push_back(start);
        }
        rhs = BodyReader(*p->variable_index, batch).read(rest.get(), Kind::expression);
    } else {
        rhs = BodyReader(*p->variable_index, batch).read(c->body, kind);
    }
    if (const auto end = static_cast<int64_t>(batch.quadratic_coefs.size());
        end > (batch.quadratic_ends.empty() ? 0 : batch.quadratic_ends.back())) {
        batch.quadratic_rows.push_back(addition.count());
        batch.quadratic_ends.push_back(end);
    }
    append_bounds(batch, constraint_lower(c), constraint_upper(c), rhs);
    addition.register_next(serial);
}

int load_details(ProblemObject* p, const Addition& addition, const ConstraintBatch& batch) {
    const int32_t first = addition.base();
    int status = batch.names.load(p, addition);
    int64_t begin = 0;
    for (std::size_t i = 0; status == 0 && i < batch.quadratic_rows.size(); ++i) {
        const int64_t end = batch.quadratic_ends[i];
        status = NLRAaddqmatrix64(p->prob, first + batch.quadratic_rows[i], end - begin,
                                  batch.quadratic_columns1.data() + begin,
                                  batch.quadratic_columns2.data() + begin,
                                  batch.quadratic_coefs.data() + begin);
        begin = end;
    }
    if (status == 0 && !batch.formula_rows.empty()) {
        std::vector<int32_t> rows = batch.formula_rows;
        for (int32_t& row : rows) row += first;
        status = NSLPaddcoefs(p->nonlinear, static_cast<int>(rows.size()), rows.data(), nullptr,
                              nullptr, batch.formula_starts.data(), 1, types_of(batch.formulas),
                              batch.formulas.values.data());
    }
    return status;
}

int load_indicators(ProblemObject* p, int32_t first, std::span<const Indicator> indicators) {
    std::vector<int32_t> rows, columns, directions;
    for (const Indicator& indicator : indicators) {
        rows.push_back(first + static_cast<int32_t>(rows.size()));
        columns.push_back(indicator.column);
        directions.push_back(indicator.direction);
    }
    return NLRAsetindicators(p->prob, static_cast<int>(rows.size()), rows.data(), columns.data(),
                             directions.data());
}

void load(ProblemObject* p, const Addition& addition, ConstraintBatch& batch,
          std::span<const Indicator> indicators) {
    const int32_t first = addition.base(), count = addition.count();
    if (!batch.ranges.empty()) batch.ranges.resize(batch.rhs.size(), 0.0);
    check_change(NLRAaddrows64(p->prob, count, static_cast<int64_t>(batch.columns.size()),
                               batch.types.data(), batch.rhs.data(),
                               batch.ranges.empty() ? nullptr : batch.ranges.data(),
                               batch.starts.data(), batch.columns.data(), batch.coefs.data()),
                 p);
    const int failed = guarded([&] {
        check_change(load_details(p, addition, batch), p);
        if (!indicators.empty()) check_change(load_indicators(p, first, indicators), p);
    });
    if (failed == 0) return;
    std::vector<int32_t> rows(count);
    for (int32_t i = 0; i < count; ++i) rows[i] = first + i;
    NLRAdelrows(p->prob, count, rows.data());
    throw PythonError();
}

}  // namespace

void add_constraints(ProblemObject* p, std::span<PyObject* const> objects) {
    Scratch<ConstraintBatch> batch;
    FunctionCollector functions(p);
    Addition addition(p, kConstraints, batch->serials);
    if (const std::size_t count = leaf_count(objects); count > 1) batch->expect(count);
    for (PyObject* object : objects) {
        walk(object, [&](PyObject* leaf) { collect(p, addition, *batch, functions, leaf); });
    }
    if (addition.count() == 0) return;
    addition.finish_collection();
    functions.load(batch->formulas);
    load(p, addition, *batch, {});
    addition.commit();
}

void add_constraints(ProblemObject* p, PyObject* objects) { add_constraints(p, {&objects, 1}); }

void add_indicator_rows(ProblemObject* p, std::span<const Indicator> indicators) {
    Scratch<ConstraintBatch> batch;
    FunctionCollector functions(p);
    Addition addition(p, kConstraints, batch->serials);
    for (const Indicator& indicator : indicators) {
        collect(p, addition, *batch, functions, indicator.constraint);
    }
    if (addition.count() == 0) return;
    addition.finish_collection();
    functions.load(batch->formulas);
    load(p, addition, *batch, indicators);
    addition.commit();
}

}  // namespace nalora
