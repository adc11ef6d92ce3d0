// Rows for looking up and changing the model.
#include "mirror/method.hpp"

namespace nalora {

namespace {

constexpr Parameter kGetIndexFromName[] = {integer("type"), text("name")};

constexpr Parameter kChgbounds[] = {input("mindex", Conv::col),
                                    input("qbtype", Conv::character, same(0)),
                                    input("bnd", Conv::real, same(0))};

constexpr Parameter kChgrhs[] = {input("mindex", Conv::row), input("rhs", Conv::real, same(0))};

constexpr Parameter kChgobj[] = {input("mindex", Conv::col), input("obj", Conv::real, same(0))};

constexpr Parameter kChgcoef[] = {index("irow", Conv::row), index("icol", Conv::col), real("dval")};

constexpr Method kModelMethods[] = {
    {.name = "getIndexFromName",
     .parameters = kGetIndexFromName,
     .doc = "Index (an int) of the row (type 1), column (2) or set (3) of a name (a str).\n\n"
            "Raises SolverError when there is none.",
     .call =
         [](Call& c) { return NLRAgetindex(c.prob(), c.integer(0), c.text(1), &c.integer_result); },
     .result = integer_result},
    {.name = "chgbounds",
     .parameters = kChgbounds,
     .doc =
         "Change bounds of columns.\n\n"
         "Arguments, sequences of the same length: mindex, variables, column names or indices;\n"
         "qbtype, 'L' (lower), 'U' (upper) or 'B' (both) each; bnd, the new bounds. The variable\n"
         "objects keep the bounds that they were made with.\n\n"
         "Raises ModelError for unsuitable sequences, SolverError for values that the library\n"
         "refuses; no bound has changed then.",
     .call =
         [](Call& c) {
             return NLRAchgbounds(c.prob(), c.count(0), c.array<int>(0), c.array<char>(1),
                                  c.array<double>(2));
         },
     .missing = "Must provide arguments mindex, qbtype, bnd"},
    {.name = "chgrhs",
     .parameters = kChgrhs,
     .doc = "Change right-hand sides of rows.\n\n"
            "Arguments, sequences of the same length: mindex, constraints, row names or indices;\n"
            "rhs, the new values. The constraint objects keep their bounds. Errors as for\n"
            "chgbounds.",
     .call =
         [](Call& c) {
             return NLRAchgrhs(c.prob(), c.count(0), c.array<int>(0), c.array<double>(1));
         },
     .missing = "Must provide arguments mindex, rhs"},
    {.name = "chgobj",
     .parameters = kChgobj,
     .doc =
         "Change linear objective coefficients.\n\n"
         "Arguments, sequences of the same length: mindex, variables, column names or indices;\n"
         "obj, the new coefficients. Index -1 stands for the objective's constant, which becomes\n"
         "minus the value. Errors as for chgbounds.",
     .call =
         [](Call& c) {
             return NLRAchgobj(c.prob(), c.count(0), c.array<int>(0), c.array<double>(1));
         },
     .missing = "Must provide arguments mindex, obj"},
    {.name = "chgcoef",
     .parameters = kChgcoef,
     .doc = "Change one coefficient of the matrix to dval (a float).\n\n"
            "Arguments: irow, a constraint, row name or index; icol, a variable, column name or\n"
            "index. The linear terms of nonlinear constraints are in the matrix, too; those in\n"
            "formulas of a file stay there, and the coefficient comes on top. Raises ModelError "
            "for other objects, SolverError for indices out of range.",
     .call = [](Call& c) { return NLRAchgcoef(c.prob(), c.integer(0), c.integer(1), c.real(2)); }},
};

}  // namespace

void append_model_methods(std::vector<PyMethodDef>& definitions) {
    append_methods<kModelMethods>(definitions);
}

}  // namespace nalora
