// Texts of nonlinear expressions.
#include "model/text.hpp"

#include "model/names.hpp"
#include "model/operands.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

constexpr int kDepth = 64;

class NodeWriter {
  public:
    void write(PyObject* o, int depth) {
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
    Ref join() const { return pieces_.join(); }

  private:
    // Function notation is "max (x, y)", infix is "(x + y)".
    void write_node(const NonlinearObject* node, int depth) {
        // Shared arguments are written wherever they occur, which may take long.
        if ((++nodes_ & 0x3FF) == 0) check_python(PyErr_CheckSignals());
        const OperatorRow& row = operator_row(node->op);
        const uint32_t count = argument_count(node);
        if (!row.infix) pieces_.add(std::string(row.symbol) + " (");
        if (row.infix) pieces_.add("(");
        const std::string separator = row.infix ? " " + std::string(row.symbol) + " " : ", ";
        for (uint32_t i = 0; i < count; ++i) {
            if (i > 0) pieces_.add(separator);
            write(argument(node, i), depth - 1);
        }
        pieces_.add(")");
    }

    TextPieces pieces_;
    unsigned nodes_ = 0;
};

}  // namespace

Ref node_text(PyObject* object) {
    NodeWriter writer;
    writer.write(object, kDepth);
    return writer.join();
}

}  // namespace nalora
