#include "model/text.hpp"

#include <memory>

#include "model/names.hpp"

namespace nalora {

void TextPieces::add(Ref piece) {
    check_python(PyList_Append(list_.get(), piece.get()));
    if (PyUnicode_Check(piece.get())) {
        length_ += static_cast<std::size_t>(PyUnicode_GetLength(piece.get()));
    }
}

void TextPieces::add(const char* ascii) { add(take(PyUnicode_FromString(ascii))); }

void TextPieces::add_name(const VarObject* v) { add(name_text(var_name(v))); }

void TextPieces::add_product(const VarObject* x, const VarObject* y) {
    add_name(x);
    if (var_serial(x) == var_serial(y)) return add("**2");
    add("*");
    add_name(y);
}

Ref TextPieces::join() const {
    const Ref empty = take(PyUnicode_New(0, 0));
    return take(PyUnicode_Join(empty.get(), list_.get()));
}

std::string format_number(double value, bool sign) {
    const std::unique_ptr<char, void (*)(void*)> text(
        PyOS_double_to_string(value, 'g', 6, sign ? Py_DTSF_SIGN : 0, nullptr), PyMem_Free);
    if (text == nullptr) throw PythonError();
    return text.get();
}

namespace {

// Each term brings its sign: "x", "- x", "2 x" in front; " + x", " - x", " +2 x" further on.
void add_coefficient(TextPieces& pieces, double coef, bool first) {
    if (coef == 1.0) {
        if (!first) pieces.add(" + ");
    } else if (coef == -1.0) {
        pieces.add(first ? "- " : " - ");
    } else {
        pieces.add((first ? "" : " ") + format_number(coef, !first) + " ");
    }
}

}  // namespace

// Terms and expressions print names as they are now, not as they were when the term was made.
Ref linterm_text(const LintermObject* t) {
    TextPieces pieces;
    if (t->var == nullptr) return take(PyUnicode_FromString("<linear term without variable>"));
    if (t->coef != 1.0) pieces.add(format_number(t->coef) + "*");
    pieces.add_name(t->var);
    return pieces.join();
}

Ref quadterm_text(const QuadtermObject* t) {
    TextPieces pieces;
    if (t->var1 == nullptr) return take(PyUnicode_FromString("<quadratic term without variables>"));
    if (t->coef != 1.0) pieces.add(format_number(t->coef) + "*");
    pieces.add_product(t->var1, t->var2);
    return pieces.join();
}

Ref expression_text(const ExpressionObject* e) {
    TextPieces pieces;
    const auto linear = e->linear.canonical();
    const auto quadratic = e->quadratic.canonical();
    bool first = true;
    if (e->constant != 0.0 || (linear.empty() && quadratic.empty())) {
        pieces.add(format_number(e->constant));
        first = false;
    }
    for (const LinearEntry& entry : linear) {
        add_coefficient(pieces, entry.coef, std::exchange(first, false));
        pieces.add_name(static_cast<const VarObject*>(entry.var));
    }
    for (const QuadraticEntry& entry : quadratic) {
        add_coefficient(pieces, entry.coef, std::exchange(first, false));
        pieces.add_product(static_cast<const VarObject*>(entry.var1),
                           static_cast<const VarObject*>(entry.var2));
    }
    return pieces.join();
}

}  // namespace nalora
