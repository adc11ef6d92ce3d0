#include "module/constants.hpp"

#include <cmath>

#include "model/objects.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"

namespace nalora {

namespace {

enum class ConstantKind { integer = 0, real = 1 };

struct Constant {
    const char* name;  // null ends the table
    ConstantKind kind;
    double value;
};

constexpr ConstantKind kInt = ConstantKind::integer;

constexpr Constant kConstants[] = {
    {"continuous", kInt, 0},
    {"binary", kInt, 1},
    {"integer", kInt, 2},
    {"semicontinuous", kInt, 3},
    {"semiinteger", kInt, 4},
    {"partiallyinteger", kInt, 5},
    {"minimize", kInt, 1},
    {"maximize", kInt, -1},
    {"leq", kInt, 1},
    {"geq", kInt, 2},
    {"eq", kInt, 3},
    {"range", kInt, 4},
    {"infinity", ConstantKind::real, kInfinity},
    {"solinfo_absprimalinfeas", kInt, 0},
    {"solinfo_relprimalinfeas", kInt, 1},
    {"solinfo_absdualinfeas", kInt, 2},
    {"solinfo_reldualinfeas", kInt, 3},
    {"solinfo_maxmipfractional", kInt, 4},
    {"basis_nonbasic_lower", kInt, 0},
    {"basis_basic", kInt, 1},
    {"basis_nonbasic_upper", kInt, 2},
    {"basis_superbasic", kInt, 3},
    {"lp_unstarted", kInt, 0},
    {"lp_optimal", kInt, 1},
    {"lp_infeas", kInt, 2},
    {"lp_cutoff", kInt, 3},
    {"lp_unfinished", kInt, 4},
    {"lp_unbounded", kInt, 5},
    {"lp_cutoff_in_dual", kInt, 6},
    {"lp_unsolved", kInt, 7},
    {"lp_nonconvex", kInt, 8},
    {"mip_not_loaded", kInt, 0},
    {"mip_lp_not_optimal", kInt, 1},
    {"mip_lp_optimal", kInt, 2},
    {"mip_no_sol_found", kInt, 3},
    {"mip_solution", kInt, 4},
    {"mip_infeas", kInt, 5},
    {"mip_optimal", kInt, 6},
    {"mip_unbounded", kInt, 7},
    {"nlp_unstarted", kInt, 0},
    {"nlp_solution", kInt, 1},
    {"nlp_locally_optimal", kInt, 1},
    {"nlp_globally_optimal", kInt, 2},
    {"nlp_locally_infeasible", kInt, 3},
    {"nlp_infeasible", kInt, 4},
    {"nlp_unbounded", kInt, 5},
    {"nlp_unfinished", kInt, 6},
    {"stop_timelimit", kInt, 1},
    {"stop_ctrlc", kInt, 2},
    {"stop_nodelimit", kInt, 3},
    {"stop_iterlimit", kInt, 4},
    {"stop_mipgap", kInt, 5},
    {"stop_sollimit", kInt, 6},
    {"stop_user", kInt, 9},
    {"type_notdefined", kInt, 0},
    {"type_int", kInt, 1},
    {"type_int64", kInt, 2},
    {"type_double", kInt, 3},
    {"type_string", kInt, 4},
    {"colinfo_value", kInt, 1},
    {"colinfo_rdj", kInt, 2},
    {"colinfo_deltaindex", kInt, 3},
    {"colinfo_delta", kInt, 4},
    {"colinfo_deltadj", kInt, 5},
    {"colinfo_updaterow", kInt, 6},
    {"colinfo_sb", kInt, 7},
    {"colinfo_sbdual", kInt, 8},
    {"rowinfo_slack", kInt, 1},
    {"rowinfo_dual", kInt, 2},
    {"rowinfo_numpenaltyerrors", kInt, 3},
    {"rowinfo_maxpenaltyerror", kInt, 4},
    {"rowinfo_totalpenaltyerror", kInt, 5},
    {"rowinfo_currentpenaltyerror", kInt, 6},
    {"rowinfo_currentpenaltyfactor", kInt, 7},
    {"rowinfo_penaltycolumnplus", kInt, 8},
    {"rowinfo_penaltycolumnplusvalue", kInt, 9},
    {"rowinfo_penaltycolumnplusdj", kInt, 10},
    {"rowinfo_penaltycolumnminus", kInt, 11},
    {"rowinfo_penaltycolumnminusvalue", kInt, 12},
    {"rowinfo_penaltycolumnminusdj", kInt, 13},
    {"msset_initialvalues", kInt, 0},
    {"msset_initialfiltered", kInt, 6},
    {"msset_solvers", kInt, 1},
    {"msset_slp_basic", kInt, 2},
    {"msset_slp_extended", kInt, 3},
    {"msset_knitro_basic", kInt, 4},
    {"msset_knitro_extended", kInt, 5},
    {"gencons_max", kInt, 0},
    {"gencons_min", kInt, 1},
    {"gencons_and", kInt, 2},
    {"gencons_or", kInt, 3},
    {"gencons_abs", kInt, 4},
    {nullptr, kInt, 0},
};

}  // namespace

void add_constants(PyObject* module) {
    for (const Constant* row = kConstants; row->name != nullptr; ++row) {
        const Ref value = take(row->kind == ConstantKind::integer
                                   ? PyLong_FromLong(static_cast<long>(std::floor(row->value)))
                                   : PyFloat_FromDouble(row->value));
        check_python(PyObject_SetAttrString(module, row->name, value.get()));
    }
    ModuleState& s = state();
    s.next_var_serial = s.next_constraint_serial = s.next_sos_serial = 1;
}

}  // namespace nalora
