#include "support/nested_release.hpp"

#include <exception>
#include <vector>

namespace nalora {

namespace {

constexpr int kMaxDepth = 50;

// The releases that one thread has under way (another thread may run while a finalizer does).
struct Progress {
    int depth;
    std::vector<PyObject*>* postponed;  // lives in the frame of the outermost release
};
thread_local Progress progress{0, nullptr};

bool postpone(std::vector<PyObject*>& postponed, PyObject* object) noexcept {
    try {
        postponed.push_back(object);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void release_outermost(Progress& p, PyObject* object) noexcept {
    std::vector<PyObject*> postponed;
    p = {1, &postponed};
    Py_DECREF(object);
    while (!postponed.empty()) {
        PyObject* next = postponed.back();
        postponed.pop_back();
        Py_DECREF(next);
    }
    p = {0, nullptr};
}

}  // namespace

void release_nested(PyObject* object) noexcept {
    if (object == nullptr) return;
    if (Py_REFCNT(object) > 1) {
        Py_DECREF(object);
        return;
    }
    Progress& p = progress;
    if (p.depth == 0) return release_outermost(p, object);
    // Without memory to postpone it the stack has to do.
    if (p.depth >= kMaxDepth && postpone(*p.postponed, object)) return;
    ++p.depth;
    Py_DECREF(object);
    --p.depth;
}

}  // namespace nalora
