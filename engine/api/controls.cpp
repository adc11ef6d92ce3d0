// Controls and attributes of a problem, one by one.
#include "api/attributes.hpp"
#include "api/boundary.hpp"
#include "api/checks.hpp"
#include "api/text_out.hpp"

namespace nlra {
namespace {

// For the 32-bit forms: the control (or attribute) must be of the narrow type, so that whether a
// call works does not depend on a value.
void require_narrow(const char* what, const char* name, int type) {
    if (type != NLRA_TYPE_INT64) return;
    fail(NLRA_ERROR_CONTROL, "%s '%s' has 64 bits: use the 64-bit form of this function", what,
         name);
}

// The attributes at the places of their identifiers: some are read with every row that is added.
std::vector<const Attribute*> attributes_by_id() {
    std::vector<const Attribute*> attributes;
    for (const Attribute& attribute : attribute_table()) {
        const auto id = static_cast<size_t>(attribute.id);
        if (id >= attributes.size()) attributes.resize(id + 1);
        attributes[id] = &attribute;
    }
    return attributes;
}

const Attribute& find_attribute(int id) {
    static const auto& attributes = *new std::vector<const Attribute*>(attributes_by_id());
    const auto place = static_cast<size_t>(static_cast<unsigned>(id));
    if (place < attributes.size() && attributes[place] != nullptr) return *attributes[place];
    fail(NLRA_ERROR_CONTROL, "there is no attribute with the identifier %d", id);
}

template <class Getter>
auto read_attribute(const nlra_problem& problem, const Attribute& attribute, const char* kind) {
    const Getter* const get = std::get_if<Getter>(&attribute.get);
    if (get == nullptr) {
        fail(NLRA_ERROR_CONTROL, "attribute '%s' is not %s attribute", attribute.name, kind);
    }
    return (*get)(problem);
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAgetintcontrol(NLRAprob prob, int id, int* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        const Param& control = problem.controls.param(id);
        require_narrow("control", control.name, control.type);
        *value = static_cast<int>(problem.controls.get_int(id));
    });
}

int NLRAgetintcontrol64(NLRAprob prob, int id, int64_t* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        *value = problem.controls.get_int(id);
    });
}

int NLRAgetdblcontrol(NLRAprob prob, int id, double* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        *value = problem.controls.get_double(id);
    });
}

int NLRAgetstringcontrol(NLRAprob prob, int id, char* value, int maxbytes, int* nbytes) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        put_text(problem.controls.get_string(id), value, maxbytes, nbytes);
    });
}

int NLRAsetintcontrol(NLRAprob prob, int id, int value) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        const Param& control = problem.controls.param(id);
        require_narrow("control", control.name, control.type);
        problem.controls.set_int(id, value);
    });
}

int NLRAsetintcontrol64(NLRAprob prob, int id, int64_t value) {
    return call(prob, __func__, Access::kChange,
                [&](nlra_problem& problem) { problem.controls.set_int(id, value); });
}

int NLRAsetdblcontrol(NLRAprob prob, int id, double value) {
    return call(prob, __func__, Access::kChange,
                [&](nlra_problem& problem) { problem.controls.set_double(id, value); });
}

int NLRAsetstrcontrol(NLRAprob prob, int id, const char* value) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        problem.controls.set_string(id, value);
    });
}

int NLRAgetintattrib(NLRAprob prob, int id, int* value) {
    return call_unsettled(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        const Attribute& attribute = find_attribute(id);
        const bool is_count = id == NLRA_ROWS || id == NLRA_COLS || id == NLRA_ORIGINALROWS ||
                              id == NLRA_ORIGINALCOLS || id == NLRA_ORIGINALSETS;
        if (!is_count) problem.settle();
        require_narrow("attribute", attribute.name, attribute.type);
        *value = static_cast<int>(read_attribute<Attribute::Int>(problem, attribute, "an integer"));
    });
}

int NLRAgetintattrib64(NLRAprob prob, int id, int64_t* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        *value = read_attribute<Attribute::Int>(problem, find_attribute(id), "an integer");
    });
}

int NLRAgetdblattrib(NLRAprob prob, int id, double* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("value", value, 1);
        *value = read_attribute<Attribute::Double>(problem, find_attribute(id), "a floating-point");
    });
}

int NLRAgetstringattrib(NLRAprob prob, int id, char* value, int maxbytes, int* nbytes) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        put_text(read_attribute<Attribute::Text>(problem, find_attribute(id), "a string"), value,
                 maxbytes, nbytes);
    });
}

int NLRAgetcontrolinfo(NLRAprob prob, const char* name, int* id, int* type) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_array("name", name, 1);
        const Param* const found = find_named(problem.controls.table(), name);
        if (id != nullptr) *id = found != nullptr ? found->id : 0;
        if (type != nullptr) *type = found != nullptr ? found->type : NLRA_TYPE_NOTDEFINED;
    });
}

int NLRAgetattribinfo(NLRAprob prob, const char* name, int* id, int* type) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem&) {
        check_array("name", name, 1);
        const Attribute* const found = find_named(attribute_table(), name);
        if (id != nullptr) *id = found != nullptr ? found->id : 0;
        if (type != nullptr) *type = found != nullptr ? found->type : NLRA_TYPE_NOTDEFINED;
    });
}
