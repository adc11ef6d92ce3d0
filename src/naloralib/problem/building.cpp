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
    truncate(p->*registry.list, count);
    return count;
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
        const bool belongs = i >= 0 && i < count && i < PyList_GET_SIZE(list) &&
                             registry_.serial(PyList_GET_ITEM(list, i)) == serial;
        if (!belongs) index->erase(serial);
    }
    serials_.clear();
    if (loading_) {
        guarded_release(as_object(problem_), [&] { truncate(problem_->*registry_.list, base_); });
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
    const Py_ssize_t expected = static_cast<Py_ssize_t>(base_) + count();
    if (int_attribute(problem_, registry_.count_attribute) != base_ ||
        PyList_GET_SIZE(problem_->*registry_.list) != expected) {
        raise(model_error(), "The problem was changed while objects for it were being collected");
    }
    loading_ = true;
}

}  // namespace nalora
