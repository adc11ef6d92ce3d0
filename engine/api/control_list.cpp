#include "api/control_list.hpp"

#include "api/attributes.hpp"
#include "api/boundary.hpp"

namespace nlra {

int entry_flags(int type, bool control) {
    const int kind = type == NLRA_TYPE_INT || type == NLRA_TYPE_INT64 ? 1
                     : type == NLRA_TYPE_DOUBLE                       ? 2
                                                                      : 0;
    return kind | (control ? 32 : 0);
}

void ControlList::add(const std::vector<Param>& controls) {
    for (const Param& control : controls) {
        if (control.internal) continue;
        texts_.push_back(describe(control));
        const std::string& text = texts_.back();
        add(control.name, control.id, entry_flags(control.type, true), text.c_str());
    }
}

void ControlList::add(const char* name, int id, int flags, const char* description) {
    entries_.push_back({name, id, flags, description});
}

void ControlList::finish() { entries_.push_back({nullptr, 0, 0, nullptr}); }

namespace {

const ControlList& optimizer_list() {
    static const ControlList& list = *[] {
        auto* const made = new ControlList;
        made->add(control_table());
        for (const Attribute& attribute : attribute_table()) {
            made->add(attribute.name, attribute.id, entry_flags(attribute.type, false),
                      attribute.description);
        }
        made->finish();
        return made;
    }();
    return list;
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAgetcalist_c(NLRAprob prob, const NLRAcalistentry** list, int* n) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem&) {
        if (list != nullptr) *list = optimizer_list().entries();
        if (n != nullptr) *n = optimizer_list().size();
    });
}
