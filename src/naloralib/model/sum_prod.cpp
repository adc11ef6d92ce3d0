// The module functions Sum and Prod.
#include <utility>

#include "model/aggregate.hpp"
#include "model/operands.hpp"
#include "model/operators.hpp"

namespace nalora {

namespace {

// Tells the kinds of plain objects apart, in an order of tests that adapts to what comes often.
class KindOrder {
  public:
    // Kind::invalid also for objects of other kinds and for instances of subclasses.
    Kind find(PyObject* object) noexcept {
        for (int i = 0; i < kSize; ++i) {
            const Kind kind = entries_[i].kind;
            if (!is_plain(object, kind)) continue;
            count_hit(i);
            return kind;
        }
        return Kind::invalid;
    }

  private:
    struct Entry {
        Kind kind;
        uint64_t hits;
    };
    static constexpr int kSize = 5;

    static bool is_plain(PyObject* object, Kind kind) noexcept {
        switch (kind) {
            case Kind::linterm:
                return Py_TYPE(object) == &LintermType && as_linterm(object)->var != nullptr;
            case Kind::var:
                return Py_TYPE(object) == &VarType && var_serial(as_var(object)) != 0;
            case Kind::quadterm:
                return Py_TYPE(object) == &QuadtermType && as_quadterm(object)->var1 != nullptr;
            case Kind::expression:
                return Py_TYPE(object) == &ExpressionType;
            default:
                return PyFloat_CheckExact(object) || PyLong_CheckExact(object);
        }
    }

    // The kind changes places with the foremost of those right before it that came no more often.
    void count_hit(int position) noexcept {
        const uint64_t hits = ++entries_[position].hits;
        int target = position;
        while (target > 0 && entries_[target - 1].hits <= hits) --target;
        if (target != position) std::swap(entries_[target], entries_[position]);
    }

    Entry entries_[kSize] = {{Kind::linterm, 0},
                             {Kind::var, 0},
                             {Kind::quadterm, 0},
                             {Kind::expression, 0},
                             {Kind::number, 0}};
};

// Arrays are added and multiplied by NumPy, which the operators call for a right operand.
template <Ref (*Operator)(PyObject*, PyObject*)>
Ref combine(PyObject* so_far, PyObject* element) {
    return is_array(so_far) ? Operator(element, so_far) : Operator(so_far, element);
}

// What a fold came to: any object that was its only element is returned as it is.
Ref checked(Ref result) {
    if (kind_of(result.get()) == Kind::invalid && !is_array(result.get())) {
        raise(model_error(), "Invalid object in Sum or Prod operators");
    }
    return result;
}

// A sum in the making. Once an addition has made an expression, which nobody else holds, further
// terms are appended to it in place.
class Summation {
  public:
    void add(PyObject* element) {
        if (growing_ && append(element)) return;
        if (!sum_) {
            sum_ = Ref::borrow(element);
            return;
        }
        sum_ = combine<nalora::add>(sum_.get(), element);
        growing_ = Py_TYPE(sum_.get()) == &ExpressionType && Py_REFCNT(sum_.get()) == 1;
    }

    Ref result() {
        if (sum_ && kind_of(sum_.get()) != Kind::number) return checked(std::move(sum_));
        const double value = sum_ ? operand_value(sum_.get()) : 0.0;
        Ref number = new_expression();
        number.as<ExpressionObject>()->constant = value;
        return number;
    }

  private:
    // False for an element that only the general addition knows how to add.
    bool append(PyObject* element) {
        auto* e = sum_.as<ExpressionObject>();
        switch (order_.find(element)) {
            case Kind::number:
                accumulate<Kind::number>(e, element, 1.0);
                return true;
            case Kind::var:
                accumulate<Kind::var>(e, element, 1.0);
                return true;
            case Kind::linterm:
                accumulate<Kind::linterm>(e, element, 1.0);
                return true;
            case Kind::quadterm:
                accumulate<Kind::quadterm>(e, element, 1.0);
                return true;
            case Kind::expression:
                accumulate<Kind::expression>(e, element, 1.0);
                return true;
            default:
                return false;
        }
    }

    Ref sum_;
    bool growing_ = false;
    KindOrder order_;
};

PyObject* sum(PyObject*, PyObject* args) noexcept {
    return guarded([&] {
        Summation summation;
        for_each_element(args, [&](PyObject* element, bool) { summation.add(element); });
        return summation.result();
    });
}

bool is_one(PyObject* object) {
    return operand_kind(object) == Kind::number && operand_value(object) == 1.0;
}

// A product in the making. A nonlinear one stays flat: it takes further factors as arguments of one
// node, and the numbers among them as one number at the end.
class Multiplication {
  public:
    void multiply(PyObject* factor) {
        if (!product_) {
            product_ = Ref::borrow(factor);
        } else if (!is_one(factor) && !append(factor)) {
            finish();
            product_ = is_one(product_.get()) ? Ref::borrow(factor)
                                              : combine<nalora::multiply>(product_.get(), factor);
        }
    }

    Ref result() {
        if (!product_) return make_float(0.0);
        finish();
        return checked(std::move(product_));
    }

  private:
    // False when the product is not nonlinear, and for what no node can hold.
    bool append(PyObject* factor) {
        if (kind_of(product_.get()) != Kind::nonlinear) return false;
        const Kind kind = operand_kind(factor);
        if (kind == Kind::invalid) return false;
        if (kind == Kind::number) {
            number_ *= operand_value(factor);
        } else if (kind == Kind::expression && is_constant(as_expression(factor))) {
            number_ *= as_expression(factor)->constant;
        } else {
            product_ = multiply_in_place(product_.get(), factor);
        }
        return true;
    }

    void finish() {
        if (number_ == 1.0) return;
        product_ = multiply_in_place(product_.get(), make_float(number_).get());
        number_ = 1.0;
    }

    Ref product_;
    double number_ = 1.0;  // a factor besides, of nonlinear products
};

PyObject* product(PyObject*, PyObject* args) noexcept {
    return guarded([&] {
        Multiplication multiplication;
        for_each_element(args, [&](PyObject* factor, bool) { multiplication.multiply(factor); });
        return multiplication.result();
    });
}

const PyMethodDef kFunctions[] = {
    {"Sum", sum, METH_VARARGS,
     "Sum(*terms)\n--\n\n"
     "Add up variables, terms, expressions, nonlinear expressions and numbers.\n\n"
     "terms: the summands, or one collection of them: a tuple, list or other sequence, a dict (of\n"
     "which the values count), an iterator or generator, or a NumPy array of any shape with\n"
     "elements that are objects (npvar, npexpr, object), double, 32-bit integer or bool. None is\n"
     "left out. Summands may be arrays; they are added element by element. Wrap other iterables,\n"
     "such as sets, in iter().\n\n"
     "Returns a modeling object, an expression where the terms add up to a number (0 for none).\n"
     "Takes time linear in the number of terms and changes none of them.\n\n"
     "Raises ModelError for anything else among the terms and for arrays of other types. What a\n"
     "generator raises is passed on."},
    {"Prod", product, METH_VARARGS,
     "Prod(*factors)\n--\n\n"
     "Multiply variables, terms, expressions, nonlinear expressions and numbers.\n\n"
     "factors: the factors, or one collection of them; the same collections as for Sum.\n\n"
     "Returns a modeling object or a number; 0.0 without factors. Any number of factors makes one\n"
     "level of a nonlinear expression.\n\n"
     "Raises ModelError for anything else among the factors and for arrays of other types."},
};

}  // namespace

std::span<const PyMethodDef> aggregate_functions() { return kFunctions; }

}  // namespace nalora
