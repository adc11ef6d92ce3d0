// The module function pwl: piecewise linear functions. A node's arguments are the variable and then
// the coordinates of the breakpoints, x, x1, y1, x2, y2, ..., which ascend; a jump is two
// breakpoints of the same x. Beyond the outer breakpoints the outer segments go on.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "model/operands.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

constexpr double kUnbounded = std::numeric_limits<double>::infinity();

// slope * var + intercept; no variable for a constant.
struct Line {
    double slope = 0.0;
    double intercept = 0.0;
    PyObject* var = nullptr;

    double at(double x) const noexcept { return slope * x + intercept; }
    double magnitude(double x) const noexcept {
        return std::fabs(slope * x) + std::fabs(intercept);
    }
};

struct Piece {
    double start, end;
    PyObject *start_object, *end_object;  // as the user gave them
    PyObject* value;
    Line line;
};

// ---- reading the dictionary -----------------------------------------------------------------

[[noreturn]] void refuse_nonlinear(PyObject* value) {
    raise(model_error(),
          "Expression %S not suitable for a piecewise linear function; it must be a constant or a "
          "linear function",
          value);
}

// Terms that cancelled or were scaled by zero are none.
Line line_of_expression(PyObject* value) {
    const ExpressionObject* e = as_expression(value);
    for (const QuadraticEntry& term : e->quadratic.canonical()) {
        if (term.coef != 0.0) refuse_nonlinear(value);
    }
    Line line{0.0, e->constant, nullptr};
    for (const LinearEntry& term : e->linear.canonical()) {
        if (term.coef == 0.0) continue;
        if (line.var != nullptr) {
            raise(model_error(),
                  "Expression %S not suitable for a piecewise linear function; it must contain one "
                  "variable only",
                  value);
        }
        line.slope = term.coef;
        line.var = static_cast<PyObject*>(term.var);
    }
    return line;
}

Line line_of(PyObject* value) {
    switch (kind_of(value)) {
        case Kind::number:
            return {0.0, number_value(value), nullptr};
        case Kind::var:
            return {1.0, 0.0, value};
        case Kind::linterm: {
            const LintermObject* term = as_linterm(value);
            return {term->coef, 0.0, reinterpret_cast<PyObject*>(term->var)};
        }
        case Kind::expression:
            return line_of_expression(value);
        default:
            refuse_nonlinear(value);
    }
}

// The module's infinity is one.
double bound_value(PyObject* number) {
    const double value = number_value(number);
    return value >= kInfinity ? kUnbounded : value <= -kInfinity ? -kUnbounded : value;
}

Piece read_piece(PyObject* key, PyObject* value) {
    if (!PyTuple_Check(key) || PyTuple_GET_SIZE(key) != 2) {
        raise(model_error(),
              "All keys in the dictionary argument of nalora.pwl must be two-tuples; <%S> is not",
              key);
    }
    Piece piece{0.0, 0.0, PyTuple_GET_ITEM(key, 0), PyTuple_GET_ITEM(key, 1), value, {}};
    if (is_number(piece.start_object) && is_number(piece.end_object)) {
        piece.start = bound_value(piece.start_object);
        piece.end = bound_value(piece.end_object);
    }
    if (!(piece.start < piece.end)) {
        raise(model_error(),
              "All keys in the dictionary argument of nalora.pwl must be two-tuples with two "
              "constant numbers: [a,b] such that a<b; <%S> is not",
              key);
    }
    piece.line = line_of(value);
    return piece;
}

bool same_variable(PyObject* a, PyObject* b) noexcept {
    return var_serial(as_var(a)) == var_serial(as_var(b));
}

// The items of a dictionary, taken apart. Borrows from `items`.
class Pieces {
  public:
    explicit Pieces(PyObject* items) {
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items); ++i) {
            PyObject* item = PyList_GET_ITEM(items, i);
            add(PyTuple_GET_ITEM(item, 0), PyTuple_GET_ITEM(item, 1));
        }
        std::sort(pieces_.begin(), pieces_.end(),
                  [](const Piece& a, const Piece& b) { return a.start < b.start; });
        check_neighbours();
    }

    PyObject* variable() const noexcept { return variable_; }
    const std::vector<Piece>& in_order() const noexcept { return pieces_; }

  private:
    void add(PyObject* key, PyObject* value) {
        if (key == Py_None) {
            if (kind_of(value) != Kind::var) {
                raise(model_error(),
                      "Tuple (None, Obj) must have an nalora.var() object as Obj, found <%S>",
                      value);
            }
            if (variable_ == nullptr) variable_ = value;
            if (same_variable(variable_, value)) return;
            // The pieces before it have another one: the first of them is reported.
            const auto with_variable =
                std::find_if(pieces_.begin(), pieces_.end(),
                             [](const Piece& piece) { return piece.line.var != nullptr; });
            refuse_variable(*with_variable);
        }
        const Piece piece = read_piece(key, value);
        if (piece.line.var != nullptr) {
            if (variable_ == nullptr) variable_ = piece.line.var;
            if (!same_variable(variable_, piece.line.var)) refuse_variable(piece);
        }
        pieces_.push_back(piece);
    }

    [[noreturn]] static void refuse_variable(const Piece& piece) {
        raise(model_error(),
              "Expression in [%S,%S] interval contains variable %S while another variable has been "
              "used in the same function",
              piece.start_object, piece.end_object, piece.line.var);
    }

    void check_neighbours() const {
        for (std::size_t i = 1; i < pieces_.size(); ++i) {
            const Piece &a = pieces_[i - 1], &b = pieces_[i];
            if (a.end == b.start) continue;
            raise(model_error(),
                  a.end > b.start
                      ? "Interval [%S,%S] overlaps with [%S,%S] in piecewise linear function"
                      : "Intervals [%S,%S] and [%S,%S] leave a gap in piecewise linear function",
                  a.start_object, a.end_object, b.start_object, b.end_object);
        }
    }

    std::vector<Piece> pieces_;
    PyObject* variable_ = nullptr;
};

// ---- breakpoints ----------------------------------------------------------------------------

class Breakpoints {
  public:
    explicit Breakpoints(PyObject* variable) { arguments_.push_back(Ref::borrow(variable)); }

    // Where the piece before it ends at the same value there is no jump, whatever the rounding.
    void add(const Piece& piece, const Piece* before) {
        const auto [first, last] = segment(piece);
        if (before == nullptr || jumps(before->line, piece.line, first)) add_point(piece, first);
        add_point(piece, last);
    }

    Ref node() const {
        std::vector<PyObject*> arguments;
        for (const Ref& argument : arguments_) arguments.push_back(argument.get());
        return make_nary(Op::pwl, arguments);
    }

  private:
    struct Segment {
        double first, last;
    };

    // Outer pieces without an end are known by any two of their points.
    static Segment segment(const Piece& piece) noexcept {
        const auto step = [](double x) { return std::max(1.0, std::fabs(x)); };
        double first = piece.start, last = piece.end;
        if (std::isinf(first)) first = std::isinf(last) ? 0.0 : last - step(last);
        if (std::isinf(last)) last = first + step(first);
        return {first, last};
    }

    static bool jumps(const Line& a, const Line& b, double x) noexcept {
        constexpr double kRounding = 1.0e-12;
        return std::fabs(a.at(x) - b.at(x)) > kRounding * (a.magnitude(x) + b.magnitude(x));
    }

    void add_point(const Piece& piece, double x) {
        const double y = piece.line.at(x);
        if (!std::isfinite(y)) refuse_nonlinear(piece.value);
        arguments_.push_back(make_float(x));
        arguments_.push_back(make_float(y));
    }

    std::vector<Ref> arguments_;
};

Ref piecewise_linear(PyObject* dictionary) {
    if (!PyDict_Check(dictionary)) {
        raise(model_error(),
              "Function nalora.pwl only accepts a dictionary; a call must be for example "
              "nalora.pwl({(1,4): 2*x+1, (4,6): 4*x+5, ...})");
    }
    const Ref items = take(PyDict_Items(dictionary));
    const Pieces pieces(items.get());
    if (pieces.variable() == nullptr) {
        raise(model_error(),
              "No variable specified for this piecewise linear function: %S; Are all values "
              "constant? If so, add a key-value pair (None: x) to the dictionary with the variable "
              "associated to the piecewise linear",
              dictionary);
    }
    if (pieces.in_order().empty()) {
        raise(model_error(), "No interval specified for this piecewise linear function: %S",
              dictionary);
    }
    Breakpoints breakpoints(pieces.variable());
    const Piece* before = nullptr;
    for (const Piece& piece : pieces.in_order()) {
        breakpoints.add(piece, before);
        before = &piece;
    }
    return breakpoints.node();
}

PyObject* pwl(PyObject*, PyObject* dictionary) noexcept {
    return guarded([=] { return piecewise_linear(dictionary); });
}

const PyMethodDef kFunctions[] = {
    {"pwl", pwl, METH_O,
     "pwl(pieces, /)\n--\n\n"
     "A piecewise linear function of one variable, for example\n"
     "pwl({(0, 4): 2*x + 1, (4, 6): 3*x - 3}).\n\n"
     "pieces: a dict from intervals (a, b), numbers with a < b, to the expressions that hold on\n"
     "them: constants or linear functions of the same variable. Where all are constant, the\n"
     "key None names the variable: {None: x, (0, 1): 0, (1, 2): 5}. The intervals, in any order,\n"
     "must leave no gap between them. The ends of the first and the last one may be infinite; in\n"
     "any case the outer pieces go on beyond them. Where the function jumps between two\n"
     "intervals, the value at their common end is the right one's.\n\n"
     "Raises ModelError for keys, values or intervals that are not of this form."},
};

}  // namespace

std::span<const PyMethodDef> pwl_functions() { return kFunctions; }

}  // namespace nalora
