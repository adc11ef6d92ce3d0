// Deleting variables, constraints and sets: one routine over the matching list and registry.
#include <algorithm>

#include "mirror/convert.hpp"
#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/user_functions.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

bool is_of_kind(const Registry& registry, PyObject* object) noexcept {
    if (&registry == &kVariables) return is_var(object);
    if (&registry == &kConstraints) return is_constraint(object);
    return is_sos(object);
}

Conv index_kind(const Registry& registry) noexcept {
    if (&registry == &kVariables) return Conv::col;
    return &registry == &kConstraints ? Conv::row : Conv::set;
}

// The objects to delete as ascending positions without repeats. They are all collected before the
// first is resolved: walking may run Python code that changes the problem.
std::vector<int32_t> resolve(ProblemObject* p, const Registry& registry, PyObject* objects) {
    std::vector<Ref> leaves;
    walk(objects, [&](PyObject* leaf) {
        if (!is_of_kind(registry, leaf) && !is_integer(leaf)) {
            raise(model_error(), "Cannot delete object: must be variable, constraint, or SOS");
        }
        leaves.push_back(Ref::borrow(leaf));
    });
    const int32_t count = sync_list(p, registry);
    std::vector<int32_t> positions;
    positions.reserve(leaves.size());
    for (const Ref& leaf : leaves) {
        const int64_t position = is_integer(leaf.get())
                                     ? integer_value(leaf.get())
                                     : conv_obj2index(leaf.get(), p, index_kind(registry));
        if (position < 0 || position >= count) raise(model_error(), "Index out of bounds");
        positions.push_back(static_cast<int32_t>(position));
    }
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    return positions;
}

// Inclusive; -1 means not given: from the first, to the last.
std::vector<int32_t> range(ProblemObject* p, const Registry& registry, int first, int last) {
    const int32_t count = sync_list(p, registry);
    if (first < -1 || last < -1) {
        raise(model_error(),
              "Parameters 'first' and 'last' must be both nonnegative when specified");
    }
    if (first >= count || last >= count) {
        raise(model_error(), "Parameters 'first' or 'last' are out of range");
    }
    if (first == -1) first = 0;
    if (last == -1) last = count - 1;
    if (first > last) {
        raise(model_error(), "Parameter 'first' must be less than, or equal to, 'last'");
    }
    std::vector<int32_t> positions(last - first + 1);
    for (std::size_t i = 0; i < positions.size(); ++i) {
        positions[i] = first + static_cast<int32_t>(i);
    }
    return positions;
}

int delete_in_library(ProblemObject* p, const Registry& registry,
                      const std::vector<int32_t>& positions) {
    const auto count = static_cast<int>(positions.size());
    if (&registry == &kVariables) return NLRAdelcols(p->prob, count, positions.data());
    if (&registry == &kConstraints) return NLRAdelrows(p->prob, count, positions.data());
    return NLRAdelsets(p->prob, count, positions.data());
}

void delete_positions(ProblemObject* p, const Registry& registry,
                      const std::vector<int32_t>& positions) {
    if (positions.empty()) return;
    // Released last, because that may run Python code.
    std::vector<Ref> deleted;
    deleted.reserve(positions.size());
    IndexMap& map = *(p->*registry.index);
    map.reserve_removal(positions.size());
    check_change(delete_in_library(p, registry, positions), p);
    PyObject** items = PySequence_Fast_ITEMS(p->*registry.list);
    for (const int32_t index : positions) {
        PyObject*& item = items[map.gaps().position(index)];
        deleted.push_back(Ref::steal(std::exchange(item, none().release())));
    }
    map.remove(positions);
    if (map.gaps().size() > common::Gaps::kMost) close_gaps(p, registry);
    release_unused_functions(p);
    raise_pending();
}

}  // namespace

Ref delete_objects(ProblemObject* p, const Registry& registry, PyObject* args, PyObject* keywords) {
    static const char* names[] = {"index", "first", "last", nullptr};
    PyObject* index = nullptr;
    int first = -1, last = -1;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "|Oii", const_cast<char**>(names), &index,
                                     &first, &last)) {
        throw PythonError();
    }
    if (index == Py_None) index = nullptr;
    const bool has_range = first != -1 || last != -1;
    if (index != nullptr && has_range) {
        raise(model_error(),
              "Parameters 'first' and 'last' cannot be specified if 'index' is also specified");
    }
    if (index == nullptr && !has_range) {
        raise(model_error(), "At least one parameter must be specified");
    }
    // Python code that collects objects for this problem meanwhile must notice the change.
    sync_lists(p);
    delete_positions(
        p, registry,
        index != nullptr ? resolve(p, registry, index) : range(p, registry, first, last));
    return none();
}

}  // namespace nalora
