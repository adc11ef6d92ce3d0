// Reading and writing model files.
#include "files/files.hpp"

#include "api/boundary.hpp"
#include "api/checks.hpp"

using namespace nlra;

namespace {

std::string options_of(const char* options) { return options != nullptr ? options : ""; }

void replace_model(nlra_problem& problem, Model model) {
    model.edits = Edits();
    problem.model = std::move(model);
    problem.mip_starts.clear();
    problem.drop_solutions();
}

}  // namespace

int NLRAreadprob(NLRAprob prob, const char* filename, const char* options) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_array("filename", filename, 1);
        Model model;
        read_model(model, filename, options_of(options));
        if (!model.formulas.empty()) {
            fail(NLRA_ERROR_UNSUPPORTED,
                 "%s has nonlinear formulas, which only the nonlinear solver can read", filename);
        }
        replace_model(problem, std::move(model));
    });
}

int NLRAwriteprob(NLRAprob prob, const char* filename, const char* options) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        check_array("filename", filename, 1);
        write_model(problem.model, filename, options_of(options));
    });
}

int NSLPreadprob(NSLPprob prob, const char* filename, const char* flags) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        check_array("filename", filename, 1);
        Model model;
        read_model(model, filename, options_of(flags));
        replace_model(*problem.base, std::move(model));
    });
}

int NSLPwriteprob(NSLPprob prob, const char* filename, const char* flags) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        check_array("filename", filename, 1);
        write_model(problem.base->model, filename, options_of(flags) + 'g');
    });
}
