#include "problem/building.hpp"

#include <limits>

#include "module/state.hpp"

namespace nalora {

namespace {

uint64_t serial_of_var(PyObject* object) noexcept { return var_serial(as_var(object)); }
uint64_t serial_of_constraint(PyObject* object) noexcept {
    return constraint_serial(as_constraint(object));
}
uint64_t serial_of_sos(PyObject* object) noexcept { return as_sos(object)->serial; }

}  // namespace

const Registry kVariables{&ProblemObject::variables, &ProblemObject::variable_index,
                          NLRA_ORIGINALCOLS, serial_of_var};
const Registry kConstraints{&ProblemObject::constraints, &ProblemObject::constraint_index,
                            NLRA_ORIGINALROWS, serial_of_constraint};
const Registry kSets{&ProblemObject::sets, &ProblemObject::set_index, NLRA_ORIGINALSETS,
                     serial_of_sos};

namespace {

void truncate(PyObject* list, Py_ssize_t length) {
    if (PyList_GET_SIZE(list) <= length) return;
    check_python(PyList_SetSlice(list, length, PyList_GET_SIZE(list), nullptr));
}

}  // namespace

int32_t sync_list(ProblemObject* p, const Registry& registry) {
    const int32_t count = int_attribute(p, registry.count_attribute);
    truncate(p->*registry.list, Py_ssize_t{count} + (p->*registry.index)->gaps().size());
    return count;
}

// What is left behind at the end when that cannot be cut off, sync_list() drops later.
void close_gaps(ProblemObject* p, const Registry& registry) {
    IndexMap& map = *(p->*registry.index);
    if (map.gaps().empty()) return;
    const std::vector<int32_t>& gaps = map.gaps().positions();
    PyObject* list = p->*registry.list;
    PyObject** items = PySequence_Fast_ITEMS(list);
    const Py_ssize_t length = PyList_GET_SIZE(list);
    Py_ssize_t kept = 0;
    auto gap = gaps.begin();
    for (Py_ssize_t i = 0; i < length; ++i) {
        if (gap != gaps.end() && *gap == i) {
            ++gap;
        } else {
            std::swap(items[kept++], items[i]);
        }
    }
    map.close_gaps();
    truncate(list, kept);
}

void sync_lists(ProblemObject* p) {
    for (const Registry* registry : {&kVariables, &kConstraints, &kSets}) sync_list(p, *registry);
}

Addition::Addition(ProblemObject* p, const Registry& registry, LargeVector<uint64_t>& serials)
    : problem_(p), registry_(registry), serials_(serials), base_(sync_list(p, registry)) {}

Addition::~Addition() {
    if (serials_.empty()) return;
    IndexMap* index = problem_->*registry_.index;
    PyObject* list = problem_->*registry_.list;
    int count = 0;
    NLRAgetintattrib(problem_->prob, registry_.count_attribute, &count);
    for (const uint64_t serial : serials_) {
        // Only after a change from within may an object of the batch be part of the problem.
        const int32_t i = index->find(serial);
        const Py_ssize_t position = i < 0 ? 0 : index->gaps().position(i);
        const bool belongs = i >= 0 && i < count && position < PyList_GET_SIZE(list) &&
                             registry_.serial(PyList_GET_ITEM(list, position)) == serial;
        if (!belongs) index->erase(serial);
    }
    serials_.clear();
    if (loading_) {
        const Py_ssize_t length = Py_ssize_t{base_} + index->gaps().size();
        guarded_release(as_object(problem_), [&] { truncate(list, length); });
    }
}

void Addition::append(PyObject* object) {
    check_python(PyList_Append(problem_->*registry_.list, object));
}

void Addition::register_next(uint64_t serial) {
    const std::size_t position = serials_.size();
    if (position >= static_cast<std::size_t>(std::numeric_limits<int32_t>::max() - 1 - base_)) {
        raise(model_error(), "Too many objects for one problem");
    }
    serials_.push_back(serial);
    (problem_->*registry_.index)->set(serial, base_ + static_cast<int32_t>(position));
}

void Addition::finish_collection() {
    const Py_ssize_t expected =
        Py_ssize_t{base_} + (problem_->*registry_.index)->gaps().size() + count();
    if (int_attribute(problem_, registry_.count_attribute) != base_ ||
        PyList_GET_SIZE(problem_->*registry_.list) != expected) {
        raise(model_error(), "The problem was changed while objects for it were being collected");
    }
    loading_ = true;
}

}  // namespace nalora
