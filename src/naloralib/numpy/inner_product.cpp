#include "numpy/inner_product.hpp"

#include <algorithm>
#include <vector>

#include "model/operands.hpp"
#include "model/operators.hpp"
#include "numpy/element_types.hpp"
#include "numpy/factor.hpp"

namespace nalora {

namespace {

// Room is made ahead for at most about so many terms. Beyond it logs grow as they do elsewhere:
// they are compacted first, as the same terms may come again and again.
constexpr std::size_t kMaxRoom = std::size_t{1} << 17;

double double_at(const char* element) noexcept {
    double value;
    std::memcpy(&value, element, sizeof value);
    return value;
}

bool is_linear(Kind kind) noexcept { return kind == Kind::var || kind == Kind::linterm; }

LinearPair pair_of(Kind kind, PyObject* o) noexcept {
    return kind == Kind::var ? linear_pair<Kind::var>(o) : linear_pair<Kind::linterm>(o);
}

// A constant and linear terms, of an operand that has nothing else.
struct LinearForm {
    double constant = 0.0;
    std::span<const LinearEntry> terms;
    LinearEntry single;  // what `terms` shows for a variable or linear term
};

// False for an operand with quadratic terms, and for a nonlinear one.
bool read_linear_form(Kind kind, PyObject* o, LinearForm& form) {
    if (is_linear(kind)) {
        const auto [coef, x] = pair_of(kind, o);
        form.single = linear_entry(x, coef);
        form.terms = {&form.single, 1};
        return true;
    }
    if (kind != Kind::expression) return false;
    const ExpressionObject* e = as_expression(o);
    if (!e->quadratic.canonical().empty()) return false;
    form.constant = e->constant;
    form.terms = e->linear.canonical();
    return true;
}

}  // namespace

InnerProduct::InnerProduct(npy_intp count)
    : result_(new_expression()), count_(static_cast<std::size_t>(std::max<npy_intp>(count, 1))) {}

// Room for the terms of the whole sum when the first one comes, of which each product brings
// `each`. Sums without terms stay numbers.
template <class Entry>
inline void InnerProduct::make_room(Terms<Entry, PythonOwner>& terms, std::size_t each) {
    if (terms.exists() || each == 0) [[likely]]
        return;
    terms.ensure(each == 1 || each < kMaxRoom / count_ ? each * count_ : kMaxRoom);
}

inline void InnerProduct::add_linear(const LinearEntry& entry) {
    if (entry.coef == 0.0) return;
    make_room(expression()->linear, 1);
    expression()->linear.add(entry);
}

void InnerProduct::add(double factor, PyObject* o) {
    ExpressionObject* e = expression();
    switch (operand_kind(o)) {
        case Kind::var:
            return add_linear(linear_entry(as_var(o), factor));
        case Kind::linterm:
            return add_linear(linear_entry(as_linterm(o)->var, factor * as_linterm(o)->coef));
        case Kind::number:
            return accumulate<Kind::number>(e, o, factor);
        case Kind::quadterm:
            if (factor != 0.0) make_room(e->quadratic, 1);
            return accumulate<Kind::quadterm>(e, o, factor);
        case Kind::expression:
            if (factor == 0.0) return;
            make_room(e->linear, as_expression(o)->linear.raw_size());
            make_room(e->quadratic, as_expression(o)->quadratic.raw_size());
            return accumulate<Kind::expression>(e, o, factor);
        case Kind::nonlinear:
            return add_product(make_float(factor).get(), o);
        case Kind::invalid:
            refuse_elements();
    }
}

void InnerProduct::add(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka == Kind::invalid || kb == Kind::invalid) refuse_elements();
    if (ka == Kind::number) return add(operand_value(a), b);
    if (kb == Kind::number) return add(operand_value(b), a);
    LinearForm p, q;
    if (!read_linear_form(ka, a, p) || !read_linear_form(kb, b, q)) return add_product(a, b);
    ExpressionObject* e = expression();
    e->constant += p.constant * q.constant;
    add_scaled_entries(p.terms, q.constant);
    add_scaled_entries(q.terms, p.constant);
    make_room(e->quadratic, p.terms.size() * q.terms.size());
    for (const LinearEntry& s : p.terms) {
        for (const LinearEntry& t : q.terms) {
            e->quadratic.add(quadratic_entry(static_cast<VarObject*>(s.var),
                                             static_cast<VarObject*>(t.var), s.coef * t.coef));
        }
    }
}

void InnerProduct::add_scaled_entries(std::span<const LinearEntry> entries, double factor) {
    if (factor == 0.0) return;
    LinearTerms& terms = expression()->linear;
    make_room(terms, entries.size());
    for (LinearEntry entry : entries) {
        entry.coef *= factor;
        terms.add(entry);
    }
}

// Products that are more than quadratic, or may be.
void InnerProduct::add_product(PyObject* a, PyObject* b) {
    Ref product = multiply(a, b);
    if (kind_of(product.get()) != Kind::nonlinear) return add(1.0, product.get());
    rest_ = rest_ ? nalora::add(rest_.get(), product.get()) : std::move(product);
}

// Long sums are brought in order now: in an array of them, terms that repeat would otherwise take
// a multiple of the memory until somebody reads them.
Ref InnerProduct::finish() {
    constexpr std::size_t kLong = 1024;
    ExpressionObject* e = expression();
    if (e->linear.raw_size() >= kLong) e->linear.canonical();
    if (e->quadratic.raw_size() >= kLong) e->quadratic.canonical();
    if (!rest_) return std::move(result_);
    if (is_constant(e)) result_ = make_float(e->constant);
    return nalora::add(rest_.get(), result_.get());
}

namespace {

// The number of elements of a line of doubles that are not zero: what is left out takes no room.
npy_intp nonzeros(const Line& line, npy_intp count) noexcept {
    npy_intp n = 0;
    for (npy_intp h = 0; h < count; ++h) n += double_at(line.data + h * line.stride) != 0.0;
    return n;
}

// From the smallest to the largest serial in a long line of variables and linear terms that are out
// of order, or repeat, where there are not many more serials than elements; of size 0 for any other
// line.
struct SerialRange {
    uint64_t first = 0, size = 0;
};

SerialRange unordered_serials(const Line& objects, npy_intp count) noexcept {
    constexpr npy_intp kLong = 1024;
    if (count < kLong) return {};
    uint64_t low = ~uint64_t{0}, high = 0, previous = 0;
    bool ascending = true;
    for (npy_intp h = 0; h < count; ++h) {
        PyObject* o = element_object(objects.data + h * objects.stride);
        const Kind kind = operand_kind(o);
        if (!is_linear(kind)) return {};
        const uint64_t serial = var_serial(pair_of(kind, o).var);
        ascending = ascending && serial > previous;
        previous = serial;
        low = std::min(low, serial);
        high = std::max(high, serial);
    }
    const uint64_t size = high - low + 1;
    const bool dense = size <= 2 * static_cast<uint64_t>(count);
    return dense && !ascending ? SerialRange{low, size} : SerialRange{};
}

// Added up in an array over the variables' serials, the terms come out in order, and those that
// repeat take no room.
Ref sum_by_serial(const Line& factors, const Line& objects, npy_intp count, SerialRange range) {
    struct Slot {
        VarObject* var;
        double coef;
    };
    std::vector<Slot> slots(range.size);
    std::size_t used = 0;
    for (npy_intp h = 0; h < count; ++h) {
        PyObject* o = element_object(objects.data + h * objects.stride);
        const auto [coef, x] = pair_of(operand_kind(o), o);
        const double term = double_at(factors.data + h * factors.stride) * coef;
        if (term == 0.0) continue;
        Slot& slot = slots[var_serial(x) - range.first];
        used += slot.var == nullptr;
        slot.var = x;
        slot.coef += term;
    }
    Ref result = new_expression();
    LinearTerms& terms = result.as<ExpressionObject>()->linear;
    if (used > 0) terms.ensure(used);
    for (const Slot& slot : slots) {
        if (slot.var != nullptr) terms.add(linear_entry(slot.var, slot.coef));
    }
    return result;
}

Ref product_by_numbers(const Line& factors, const Line& objects, npy_intp count,
                       SerialRange unordered) {
    if (unordered.size > 0) return sum_by_serial(factors, objects, count, unordered);
    InnerProduct sum(nonzeros(factors, count));
    const char *factor = factors.data, *object = objects.data;
    for (; count > 0; --count, factor += factors.stride, object += objects.stride) {
        sum.add(double_at(factor), element_object(object));
    }
    return sum.finish();
}

Ref product_of_objects(const Line& a, const Line& b, npy_intp count) {
    InnerProduct sum(count);
    for (npy_intp h = 0; h < count; ++h) {
        sum.add(element_object(a.data + h * a.stride), element_object(b.data + h * b.stride));
    }
    return sum.finish();
}

}  // namespace

Ref inner_product(const Line& a, const Line& b, npy_intp count) {
    if (a.is_double) return product_by_numbers(a, b, count, unordered_serials(b, count));
    if (b.is_double) return product_by_numbers(b, a, count, unordered_serials(a, count));
    return product_of_objects(a, b, count);
}

Ref quadratic_form(const Line& x, const Matrix& q, const Line& y, npy_intp count) {
    const auto n = static_cast<std::size_t>(count);
    std::vector<LinearEntry> entries(n);
    npy_intp room = 0;
    for (npy_intp i = 0; i < count; ++i) {
        PyObject* o = element_object(x.data + i * x.stride);
        const Kind kind = operand_kind(o);
        if (!is_linear(kind) || element_object(y.data + i * y.stride) != o) return Ref();
        const auto [coef, var] = pair_of(kind, o);
        entries[static_cast<std::size_t>(i)] = linear_entry(var, coef);
        room += nonzeros(q.row(i), count);
    }
    Ref result = new_expression();
    QuadraticTerms& terms = result.as<ExpressionObject>()->quadratic;
    if (room > 0)
        terms.ensure(std::min({static_cast<std::size_t>(room), n * (n + 1) / 2, kMaxRoom}));
    for (npy_intp i = 0; i < count; ++i) {
        const LinearEntry& s = entries[static_cast<std::size_t>(i)];
        const Line row = q.row(i), column = q.column(i);
        for (npy_intp j = i; j < count; ++j) {
            const LinearEntry& t = entries[static_cast<std::size_t>(j)];
            double coef = double_at(column.data + j * column.stride) * t.coef * s.coef;
            if (j != i) coef += double_at(row.data + j * row.stride) * s.coef * t.coef;
            terms.add(quadratic_entry(static_cast<VarObject*>(s.var),
                                      static_cast<VarObject*>(t.var), coef));
        }
    }
    return result;
}

void matrix_product(const Matrix& a, const Matrix& b, const MatrixSizes& sizes, char* result,
                    npy_intp row_stride, npy_intp column_stride) {
    const auto [rows, inner, columns] = sizes;
    // Of the lines of objects, each of which meets all lines of doubles.
    std::vector<SerialRange> unordered;
    if (a.is_double) {
        for (npy_intp j = 0; j < columns; ++j) {
            unordered.push_back(unordered_serials(b.column(j), inner));
        }
    } else if (b.is_double) {
        for (npy_intp i = 0; i < rows; ++i) {
            unordered.push_back(unordered_serials(a.row(i), inner));
        }
    }
    for (npy_intp i = 0; i < rows; ++i) {
        const Line row = a.row(i);
        for (npy_intp j = 0; j < columns; ++j) {
            const Line column = b.column(j);
            Ref sum = a.is_double   ? product_by_numbers(row, column, inner, unordered[j])
                      : b.is_double ? product_by_numbers(column, row, inner, unordered[i])
                                    : product_of_objects(row, column, inner);
            set_element(result + i * row_stride + j * column_stride, std::move(sum));
        }
    }
}

}  // namespace nalora
