// Texts of nonlinear expressions.
#include "model/text.hpp"

#include "model/names.hpp"
#include "model/operands.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

constexpr int kDepth = 64;
// Trees that share subtrees may stand for texts that no memory holds.
constexpr std::size_t kLongest = 50'000;

class NodeWriter {
  public:
    void write(PyObject* o, int depth) {
        if (is_full()) return;
        if (depth < 0) return pieces_.add("[MAX RECURS LEV]");
        switch (kind_of(o)) {
            case Kind::number:
                return pieces_.add(take(PyObject_Str(o)));
            case Kind::var:
                return pieces_.add_name(as_var(o));
            case Kind::linterm:
                return pieces_.add(linterm_text(as_linterm(o)));
            case Kind::quadterm:
                return pieces_.add(quadterm_text(as_quadterm(o)));
            case Kind::expression:
                return pieces_.add(expression_text(as_expression(o)));
            case Kind::nonlinear:
                return write_node(as_nonlinear(o), depth);
            case Kind::invalid:
                return pieces_.add("user");  // a callable: nothing else can be an argument
        }
    }
    Ref join() {
        if (is_full()) pieces_.add(" ...");
        return pieces_.join();
    }

  private:
    // What comes after the piece that fills the text is left out, closing brackets too.
    bool is_full() const noexcept { return pieces_.length() >= kLongest; }

    // Function notation is "max (x, y)", infix is "(x + y)".
    void write_node(const NonlinearObject* node, int depth) {
        const OperatorRow& row = operator_row(node->op);
        const uint32_t count = argument_count(node);
        if (!row.infix) pieces_.add(std::string(row.symbol) + " (");
        if (row.infix) pieces_.add("(");
        const std::string separator = row.infix ? " " + std::string(row.symbol) + " " : ", ";
        for (uint32_t i = 0; i < count && !is_full(); ++i) {
            if (i > 0) pieces_.add(separator);
            write(argument(node, i), depth - 1);
        }
        if (!is_full()) pieces_.add(")");
    }

    TextPieces pieces_;
};

}  // namespace

Ref node_text(PyObject* object) {
    NodeWriter writer;
    writer.write(object, kDepth);
    return writer.join();
}

}  // namespace nalora
