// Reading and writing model files.
#include "files/files.hpp"

#include "api/boundary.hpp"
#include "api/checks.hpp"

using namespace nlra;

int NLRAreadprob(NLRAprob prob, const char* filename, const char* options) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_array("filename", filename, 1);
        Model model;
        read_model(model, filename, options != nullptr ? options : "");
        model.edits = Edits();
        problem.model = std::move(model);
        problem.mip_starts.clear();
        problem.drop_solutions();
    });
}

int NLRAwriteprob(NLRAprob prob, const char* filename, const char* options) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        check_array("filename", filename, 1);
        write_model(problem.model, filename, options != nullptr ? options : "");
    });
}
