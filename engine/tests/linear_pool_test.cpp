// Instances of HiGHS that are used again: what they solve must not show what they solved before.
#include "linear/session_pool.hpp"
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

struct Result {
    int lp_status, mip_status, stop;
    double objective;
    int64_t iterations, nodes;
    Solution lp, mip;
};

bool operator==(const Solution& a, const Solution& b) {
    return a.present == b.present && a.objective == b.objective && a.x == b.x &&
           a.slack == b.slack && a.dual == b.dual && a.dj == b.dj;
}

int interrupt_at_once(NLRAprob, void*) { return 1; }

// One of the models and ways to solve them that the seed stands for.
Result solve_one(unsigned seed) {
    Random random(seed);
    TestProblem test;
    if (random.chance(0.5)) test.model.set_sense(-1);
    random_lp(test, random, random.integer(0, 9), random.integer(1, 9), 0.5);
    if (random.chance(0.2)) test.row({{0, 1}}, 'G', 1e6);  // infeasible, or forces a large value
    if (random.chance(0.2)) test.col(-9 * test.model.sense, 0, kInf);
    for (int j = random.chance(0.3) ? 60 : 0; j > 0; --j) test.col(0, 0, 1);  // presolve begins
    const bool mip = random.chance(0.25);
    for (int j = 0; mip && j < test.model.cols(); j += 2) test.model.set_type(j, 'I');

    Params& controls = test.problem.controls;
    controls.set_int(kPresolve, random.integer(0, 1));
    if (random.chance(0.2)) controls.set_int(kIterLimit, random.integer(0, 3));
    if (random.chance(0.2)) controls.set_int(kSeed, random.integer(1, 99));
    if (random.chance(0.2)) controls.set_double(kFeasTol, 1e-9);
    if (random.chance(0.2)) controls.set_double(kCutoff, random.integer(-9, 9));
    if (random.chance(0.2)) controls.set_int(kNodeLimit, 1);
    if (random.chance(0.1)) {
        controls.set_double(kTimeLimit, 0.0);
        test.problem.checktime_callbacks.push_back({interrupt_at_once, nullptr, 0});
    }
    const char* const flags[] = {"d", "p", "b", ""};
    static_cast<void>(error_code(
        [&] { static_cast<void>(mip ? test.mip() : test.lp(flags[random.integer(0, 3)])); }));
    const SolveInfo& info = test.problem.info;
    return {info.lp_status,
            info.mip_status,
            info.stop,
            mip ? info.mip_objective : info.lp_objective,
            info.simplex_iterations,
            info.nodes,
            test.problem.lp_solution,
            test.problem.mip_solution};
}

// While it lives nothing waits to be used again.
struct NothingWaits {
    std::vector<std::shared_ptr<HighsSession>> taken;
    NothingWaits() {
        for (int i = 0; i < 8; ++i) taken.push_back(take_session());
    }
};

}  // namespace

TEST("pool: an instance that was used solves as a new one does") {
    constexpr unsigned kModels = 150;
    std::vector<Result> fresh;
    for (unsigned seed = 0; seed < kModels; ++seed) {
        const NothingWaits nothing;
        fresh.push_back(solve_one(seed));
    }
    int optimal = 0;
    for (unsigned seed = 0; seed < kModels; ++seed) {
        const Result used = solve_one(seed);
        const Result& wanted = fresh[seed];
        CHECK(used.lp_status == wanted.lp_status && used.mip_status == wanted.mip_status);
        CHECK(used.stop == wanted.stop && used.objective == wanted.objective);
        CHECK(used.iterations == wanted.iterations && used.nodes == wanted.nodes);
        CHECK(used.lp == wanted.lp && used.mip == wanted.mip);
        optimal += used.lp_status == NLRA_LP_OPTIMAL;
    }
    CHECK(optimal > 30 && optimal < 140);
}

TEST("pool: instances come back empty, those of large models and of too many problems do not") {
    const auto waits = [](const HighsSession* session) {
        const NothingWaits all;
        for (const auto& taken : all.taken) {
            CHECK(taken->highs.getNumCol() == 0 && taken->highs.getNumRow() == 0);
            if (taken.get() == session) return true;
        }
        return false;
    };
    for (const int cols : {10, 6000}) {
        const NothingWaits nothing;
        std::shared_ptr<HighsSession> session = take_session();
        const HighsSession* const address = session.get();
        return_session(session);  // kept alive here, so that no other one gets its address
        {
            TestProblem test;
            for (int j = 0; j < cols; ++j) test.col(1, 0, 9);
            CHECK(test.lp() == NLRA_LP_OPTIMAL);
        }
        CHECK(waits(address) == (cols == 10));
    }
}
