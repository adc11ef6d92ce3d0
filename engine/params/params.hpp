// One table of controls for each solver: identifier, name, type, default, range, description. A
// problem holds the values of its controls by table position. Attributes have a table of their own
// (api/attributes.hpp), since they are computed on request.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "nlra.h"

namespace nlra {

// Identifiers of the controls that the engine itself reads, beside those of nlra.h.
enum ControlId : int {
    kCutoff = 7001,      // double: objective cutoff of mixed integer solves, +-1e20: none
    kFeasTol = 7003,     // double, 1e-10 to 1e-2, default 1e-7
    kOptTol = 7006,      // double, likewise
    kMipTol = 7009,      // double, "miptol", default 5e-6
    kAbsGap = 7019,      // double, default 1e-6
    kRelGap = 7020,      // double, default 1e-4
    kHeurEffort = 7099,  // double, 0 to 1, default 0.05
    kTimeLimit = 7158,   // double, seconds, default 1e20
    kIterLimit = 8007,   // int, simplex and barrier iterations, default max
    kPresolve = 8011,    // int, 0 off, 1 on (default)
    kLpMethod = 8012,    // int: 0 automatic, 1 dual simplex, 2 primal simplex, 3 interior point
    kNodeLimit = 8018,   // int64, default max
    kSolLimit = 8021,    // int, improving solutions, default max
    kLogLevel = NLRA_LOGLEVEL,  // int: 0 silent, 1 normal, 2 detailed
    kCrossover = 8044,          // int, 1 on (default)
    kThreads = 8278,            // int, 0: automatic
    kSeed = 8328                // int
};

// Identifiers of the nonlinear solver's own controls, beside those of nslp.h.
enum NonlinearControlId : int {
    kNslpPostsolve = 12450  // int, "nslp_postsolve": undo presolve after a nonlinear solve
};

// Identifiers of the interior point method's controls.
enum InteriorControlId : int {
    kInteriorTolerance = 13001,    // double, 0: from the optimality tolerance
    kInteriorMaxIter = 13002,      // int, in one attempt
    kInteriorAdaptive = 13003,     // int: 0 monotone, 1 adaptive barrier
    kInteriorBarrier = 13004,      // double, initial barrier, 0: the method's choice
    kInteriorApproximate = 13005,  // int: 0 exact Hessian, 1 limited-memory
    kInteriorScaling = 13006,      // int, 1 on (default)
    kInteriorRelaxation = 13007,   // double, of bounds, relative
    kInteriorPush = 13008,         // double, distance of the start from the bounds
    kInteriorPivotOrder = 13009,   // int: 0 automatic, 1 to 3 a method
};

struct Param {
    int id;
    const char* name;          // lower case
    int type;                  // NLRA_TYPE_...
    double dflt, low, high;    // numbers; an integer limit at or beyond 2^63 is the largest integer
    const char* text_default;  // strings
    bool internal;             // not listed for modeling layers
    const char* description;   // one sentence: what it does; default and range are appended
};

// "Sentence. Default 1, range 0 to 2." for lists and help texts.
std::string describe(const Param& param);
// Whether a name is this lower-case one, whatever its case.
bool same_name(const char* name, const char* lower_case);

// The row of a table (of controls or of attributes) with this name, null when there is none.
template <class Row>
const Row* find_named(const std::vector<Row>& table, const char* name) {
    for (const Row& row : table) {
        if (same_name(name, row.name)) return &row;
    }
    return nullptr;
}

// Values of one problem's controls (one table: the optimizer's, the solver's, ...).
class Params {
  public:
    // The table must outlive the values.
    explicit Params(const std::vector<Param>& table);
    // All throw Error NLRA_ERROR_CONTROL for an identifier that is unknown or of another type.
    int64_t get_int(int id) const;  // int and int64 alike
    double get_double(int id) const;
    const std::string& get_string(int id) const;
    void set_int(int id, int64_t value);  // range-checked, the range is in the error text
    void set_double(int id, double value);
    void set_string(int id, const char* value);
    const Param& param(int id) const;
    bool has(int id) const;
    const std::vector<Param>& table() const { return *table_; }

  private:
    // Positions in the variant below.
    enum Class : size_t { kInt, kDouble, kString };
    size_t position(int id, Class wanted) const;

    const std::vector<Param>* table_;
    std::vector<std::variant<int64_t, double, std::string>> values_;
};

const std::vector<Param>& control_table();            // the optimizer's controls
const std::vector<Param>& nonlinear_control_table();  // the nonlinear solver's own
const std::vector<Param>& interior_control_table();   // its interior point method's

}  // namespace nlra
