// Controls and attributes of the nonlinear solver's problems.
#include <limits>

#include "api/boundary.hpp"
#include "api/checks.hpp"
#include "api/control_list.hpp"
#include "api/text_out.hpp"

namespace nlra {
namespace {

// A nonlinear problem has these figures; those of a solve stay at their starting values as long as
// there has been none.
struct NonlinearAttribute {
    int id;
    const char* name;  // lower case
    int type;          // NLRA_TYPE_...
    double (*get)(const nslp_problem&);
    const char* description;
};

const std::vector<NonlinearAttribute>& nonlinear_attribute_table() {
    static const std::vector<NonlinearAttribute>& table = *new std::vector<NonlinearAttribute>{
        {NSLP_ROWS, "nslp_rows", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return static_cast<double>(p.base->model.rows()); },
         "Rows, those with nonlinear formulas included."},
        {NSLP_COLS, "nslp_cols", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return static_cast<double>(p.base->model.cols()); },
         "Columns."},
        {NSLP_NONLINEARROWS, "nslp_nonlinearconstraints", NLRA_TYPE_INT,
         [](const nslp_problem& p) {
             return static_cast<double>(p.base->model.formulas.rows.size());
         },
         "Rows with nonlinear formulas."},
        {NSLP_STATUS, "nslp_status", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return static_cast<double>(p.result.status); },
         "Status of the last nonlinear solve, 0 before it and after changes of the problem."},
        {NSLP_NONLINEAROBJ, "nslp_nonlinearobjective", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return p.base->model.formulas.objective.empty() ? 0.0 : 1.0; },
         "1 if the objective has a nonlinear formula, otherwise 0."},
        {12602, "nslp_iterations", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return static_cast<double>(p.result.iterations); },
         "Iterations of the last nonlinear solve."},
        {12603, "nslp_stopstatus", NLRA_TYPE_INT,
         [](const nslp_problem& p) { return static_cast<double>(p.result.stop); },
         "Why the last nonlinear solve stopped early, as the attribute stopstatus."},
        {NSLP_OBJVAL, "nslp_objval", NLRA_TYPE_DOUBLE,
         [](const nslp_problem& p) {
             return p.result.solution.present ? p.result.solution.objective
                                              : std::numeric_limits<double>::quiet_NaN();
         },
         "Objective value of the last nonlinear solve, NaN where there is no solution."},
    };
    return table;
}

double read_attribute(const nslp_problem& problem, int id, int type, const char* kind) {
    for (const NonlinearAttribute& attribute : nonlinear_attribute_table()) {
        if (attribute.id != id) continue;
        if (attribute.type != type) {
            fail(NLRA_ERROR_CONTROL, "attribute '%s' is not %s attribute", attribute.name, kind);
        }
        return attribute.get(problem);
    }
    fail(NLRA_ERROR_CONTROL, "there is no nonlinear attribute with the identifier %d", id);
}

const ControlList& nonlinear_list() {
    static const ControlList& list = *[] {
        auto* const made = new ControlList;
        made->add(nonlinear_control_table());
        for (const NonlinearAttribute& attribute : nonlinear_attribute_table()) {
            made->add(attribute.name, attribute.id, entry_flags(attribute.type, false),
                      attribute.description);
        }
        made->finish();
        return made;
    }();
    return list;
}

const ControlList& interior_list() {
    static const ControlList& list = *[] {
        auto* const made = new ControlList;
        made->add(interior_control_table());
        made->finish();
        return made;
    }();
    return list;
}

// The values of the list that an identifier belongs to.
Params& controls_with(nslp_problem& problem, int id) {
    return problem.interior.has(id) ? problem.interior : problem.controls;
}

int type_code(int type) { return type == NLRA_TYPE_STRING ? 4 : type == NLRA_TYPE_DOUBLE ? 2 : 1; }

}  // namespace
}  // namespace nlra

using namespace nlra;

int NSLPgetintcontrol(NSLPprob prob, int id, int* value) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        check_array("value", value, 1);
        *value = static_cast<int>(controls_with(problem, id).get_int(id));
    });
}

int NSLPgetdblcontrol(NSLPprob prob, int id, double* value) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        check_array("value", value, 1);
        *value = controls_with(problem, id).get_double(id);
    });
}

int NSLPgetstrcontrol(NSLPprob prob, int id, char* value, int maxbytes, int* nbytes) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        put_text(controls_with(problem, id).get_string(id), value, maxbytes, nbytes);
    });
}

int NSLPsetintcontrol(NSLPprob prob, int id, int value) {
    return call(prob, __func__, Access::kChange,
                [&](nslp_problem& problem) { controls_with(problem, id).set_int(id, value); });
}

int NSLPsetdblcontrol(NSLPprob prob, int id, double value) {
    return call(prob, __func__, Access::kChange,
                [&](nslp_problem& problem) { controls_with(problem, id).set_double(id, value); });
}

int NSLPsetstrcontrol(NSLPprob prob, int id, const char* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        check_array("value", value, 1);
        controls_with(problem, id).set_string(id, value);
    });
}

int NSLPgetintattrib(NSLPprob prob, int id, int* value) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        check_array("value", value, 1);
        *value = static_cast<int>(read_attribute(problem, id, NLRA_TYPE_INT, "an integer"));
    });
}

int NSLPgetdblattrib(NSLPprob prob, int id, double* value) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        check_array("value", value, 1);
        *value = read_attribute(problem, id, NLRA_TYPE_DOUBLE, "a floating-point");
    });
}

int NSLPgetstrattrib(NSLPprob prob, int id, char*, int, int*) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem& problem) {
        // None is a string so far: this always tells what is wrong with the identifier.
        read_attribute(problem, id, NLRA_TYPE_STRING, "a string");
    });
}

int NSLPgetcalist(NSLPprob prob, const NLRAcalistentry** list, int* n) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem&) {
        if (list != nullptr) *list = nonlinear_list().entries();
        if (n != nullptr) *n = nonlinear_list().size();
    });
}

int NSLPgetKTRcalist(NSLPprob prob, const NLRAcalistentry** list, int* n) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem&) {
        if (list != nullptr) *list = interior_list().entries();
        if (n != nullptr) *n = interior_list().size();
    });
}

int NSLPcontrolcode(NSLPprob prob, const char* name, int* id, int* code) {
    return call(prob, __func__, Access::kPeek, [&](nslp_problem&) {
        check_array("name", name, 1);
        int found_id = 0;
        int found_code = 0;
        const Param* control = find_named(nonlinear_control_table(), name);
        if (control == nullptr) control = find_named(interior_control_table(), name);
        if (control != nullptr) {
            found_id = control->id;
            found_code = type_code(control->type) | 16 | (control->internal ? 0x200 : 0);
        } else if (const auto* attribute = find_named(nonlinear_attribute_table(), name)) {
            found_id = attribute->id;
            found_code = type_code(attribute->type);
        }
        if (id != nullptr) *id = found_id;
        if (code != nullptr) *code = found_code;
    });
}
