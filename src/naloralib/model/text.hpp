// Texts of modeling objects, joined from pieces: names may hold anything a str can, so no encoding
// comes in between. For model/ and nonlinear/ only.
#pragma once

#include <string>

#include "model/objects.hpp"

namespace nalora {

class TextPieces {
  public:
    TextPieces() : list_(take(PyList_New(0))) {}
    void add(Ref piece);
    void add(const char* ascii);
    void add(const std::string& ascii) { add(ascii.c_str()); }
    void add_name(const VarObject* v);
    // "x*y", or "x**2" for a square.
    void add_product(const VarObject* x, const VarObject* y);
    std::size_t length() const noexcept { return length_; }  // characters so far
    Ref join() const;

  private:
    Ref list_;
    std::size_t length_ = 0;
};

// As C's "%g" writes it, but in any locale; `sign` adds a plus.
std::string format_number(double value, bool sign = false);

Ref linterm_text(const LintermObject* t);
Ref quadterm_text(const QuadtermObject* t);
Ref expression_text(const ExpressionObject* e);

}  // namespace nalora
