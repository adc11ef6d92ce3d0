// Limits, interrupts, threads and forks: a solve ends when it is told to, keeps what it has, and
// the problem can be used again.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Takes HiGHS minutes by any method.
void hard_lp(TestProblem& test, int size) {
    Random random(1);
    const std::vector<double> cost = [&] {
        std::vector<double> values(size);
        for (double& value : values) value = random.real(0.1, 1.1);
        return values;
    }();
    const std::vector<double> lower(size, 0.0);
    const std::vector<double> upper(size, 10.0);
    test.model.add_cols(size, 0, cost.data(), nullptr, nullptr, nullptr, lower.data(),
                        upper.data());
    std::vector<int64_t> start;
    std::vector<int> index;
    std::vector<double> value;
    std::vector<char> type;
    std::vector<double> rhs;
    for (int i = 0; i < size; ++i) {
        start.push_back(static_cast<int64_t>(index.size()));
        double activity = 0.0;
        for (int k = 0; k < 4; ++k) {
            const int j = (random.integer(0, size / 4 - 1)) * 4 + k;
            index.push_back(j);
            value.push_back(random.real(1, 10) * (random.chance(0.3) ? -1.0 : 1.0));
            activity += value.back() * (j * 7 % 10);
        }
        type.push_back(random.chance(0.5) ? 'E' : 'G');
        rhs.push_back(activity);
    }
    test.model.add_rows(size, static_cast<int64_t>(index.size()), type.data(), rhs.data(), nullptr,
                        start.data(), index.data(), value.data());
}

// Covering rows: solutions are easy to find, the optimum is not.
void hard_mip(TestProblem& test, int cols, int rows) {
    Random random(5);
    for (int j = 0; j < cols; ++j) test.col(random.real(1, 2), 0, 1, 'B');
    for (int i = 0; i < rows; ++i) {
        Terms terms;
        double sum = 0.0;
        for (int j = 0; j < cols; ++j) {
            if (!random.chance(20.0 / cols)) continue;
            terms.emplace_back(j, random.real(1, 10));
            sum += terms.back().second;
        }
        test.row(terms, 'G', sum / 3);
    }
}

// Runs the solve; a second thread asks it to stop after the delay. The time from there to the end.
template <class Solve>
double stop_latency(TestProblem& test, double delay, Solve&& solve) {
    std::atomic<bool> ended{false};
    Clock::time_point asked;
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::duration<double>(delay));
        asked = Clock::now();
        if (!ended) test.problem.stop_request = NLRA_STOP_CTRLC;
    });
    solve();
    const Clock::time_point end = Clock::now();
    ended = true;
    interrupter.join();
    return std::chrono::duration<double>(end - asked).count();
}

struct Log {
    std::vector<std::string> lines;
    std::thread::id thread;
    bool foreign_thread = false;
};

void collect(NLRAprob, void* data, const char* text, int length, int) {
    Log& log = *static_cast<Log*>(data);
    log.lines.emplace_back(text, length);
    log.foreign_thread = log.foreign_thread || std::this_thread::get_id() != log.thread;
}

void listen(TestProblem& test, Log& log) {
    log.thread = std::this_thread::get_id();
    test.problem.message_callbacks.push_back({collect, &log, 0});
}

int count_lines(const Log& log, const char* text) {
    int count = 0;
    for (const std::string& line : log.lines) count += line.find(text) != std::string::npos;
    return count;
}

}  // namespace

TEST("stop: an interrupt ends a large linear solve by any method within half a second") {
    for (const char* method : {"d", "p", "b"}) {
        TestProblem test;
        hard_lp(test, 20000);
        const double latency = stop_latency(test, 1.0, [&] { test.lp(method); });
        CHECK(latency > 0.0 && latency < 0.5);
        CHECK(test.problem.info.lp_status == NLRA_LP_UNFINISHED);
        CHECK(test.problem.info.stop == NLRA_STOP_CTRLC);
        // What was stopped can be changed and solved: with all sides free it is easy.
        for (int i = 0; i < test.model.rows(); ++i) test.model.rowtype[i] = 'N';
        test.model.touch_structure();
        CHECK(test.lp(method) == NLRA_LP_OPTIMAL);
        CHECK_NEAR(test.objective(), 0, 1e-6);
    }
}

TEST("stop: an interrupt ends a search within half a second and leaves the incumbent") {
    for (const double delay : {0.05, 0.7}) {
        TestProblem test;
        hard_mip(test, 300, 200);
        const double latency = stop_latency(test, delay, [&] { test.mip(); });
        CHECK(latency > 0.0 && latency < 0.5);
        CHECK(test.problem.info.stop == NLRA_STOP_CTRLC);
        if (delay < 0.5) continue;
        REQUIRE(test.problem.info.mip_status == NLRA_MIP_SOLUTION);
        const Solution& solution = test.problem.mip_solution;
        CHECK(test.problem.info.best_bound > 0);
        CHECK(test.problem.info.best_bound < solution.objective);
        for (int i = 0; i < test.model.rows(); ++i) CHECK(solution.slack[i] < 1e-5);
        for (const double x : solution.x) CHECK_NEAR(x, std::round(x), 1e-5);
        // Once more: the incumbent is where it goes on from.
        const double before = solution.objective;
        test.problem.controls.set_double(kTimeLimit, 0.5);
        CHECK(test.mip() == NLRA_MIP_SOLUTION);
        CHECK(test.problem.info.stop == NLRA_STOP_TIMELIMIT);
        CHECK(test.mip_objective() <= before + 1e-6);
    }
}

TEST("stop: an interrupt in the presolve of a large mixed integer problem") {
    TestProblem test;
    hard_lp(test, 60000);
    for (int j = 0; j < test.model.cols(); ++j) test.model.set_type(j, 'I');
    const double latency = stop_latency(test, 0.4, [&] { test.mip(); });
    CHECK(latency > 0.0 && latency < 0.5);
    CHECK(test.problem.info.mip_status == NLRA_MIP_NO_SOL_FOUND);
    CHECK(!test.problem.mip_solution.present);
}

TEST("stop: a check-time callback stops a solve and is called on the solving thread") {
    struct Seen {
        int calls = 0;
        std::thread::id thread = std::this_thread::get_id();
        bool foreign = false;
    } seen;
    TestProblem test;
    hard_mip(test, 300, 200);
    test.problem.checktime_callbacks.push_back(
        {[](NLRAprob, void* data) {
             Seen& state = *static_cast<Seen*>(data);
             state.foreign = state.foreign || std::this_thread::get_id() != state.thread;
             return ++state.calls >= 10 ? 1 : 0;
         },
         &seen, 0});
    const Clock::time_point begin = Clock::now();
    test.mip();
    CHECK(seconds_since(begin) < 2.0);
    CHECK(seen.calls >= 10 && !seen.foreign);
    CHECK(test.problem.info.stop == NLRA_STOP_USER);
}

TEST("stop: every limit ends the solve and tells so") {
    {
        TestProblem test;
        hard_lp(test, 20000);
        test.problem.controls.set_double(kTimeLimit, 0.5);
        const Clock::time_point begin = Clock::now();
        CHECK(test.lp() == NLRA_LP_UNFINISHED);
        CHECK(seconds_since(begin) < 1.5);
        CHECK(test.problem.info.stop == NLRA_STOP_TIMELIMIT);
        test.problem.controls.set_double(kTimeLimit, kInf);
        test.problem.controls.set_int(kIterLimit, 100);
        CHECK(test.lp() == NLRA_LP_UNFINISHED);
        CHECK(test.problem.info.stop == NLRA_STOP_ITERLIMIT);
        CHECK(test.problem.info.simplex_iterations <= 100);
        test.problem.controls.set_int(kIterLimit, 2);
        CHECK(test.lp("b") == NLRA_LP_UNFINISHED);
        CHECK(test.problem.info.stop == NLRA_STOP_ITERLIMIT);
        CHECK(test.problem.info.barrier_iterations <= 2);
    }
    TestProblem test;
    hard_mip(test, 60, 40);
    Params& controls = test.problem.controls;
    const auto solve_with = [&](int status, int stop) {
        const bool ok = test.mip() == status && test.problem.info.stop == stop;
        test.problem.linear.reset();  // without the incumbent of the last one
        return ok;
    };
    controls.set_int(kNodeLimit, 3);
    CHECK(solve_with(NLRA_MIP_SOLUTION, NLRA_STOP_NODELIMIT));
    CHECK(test.problem.info.nodes >= 3 && test.problem.info.nodes < 50);
    controls.set_int(kNodeLimit, INT64_MAX);
    controls.set_int(kSolLimit, 2);
    CHECK(solve_with(NLRA_MIP_SOLUTION, NLRA_STOP_SOLLIMIT));
    CHECK(test.problem.info.mip_solutions >= 2);
    controls.set_int(kSolLimit, INT32_MAX);
    controls.set_int(kIterLimit, 500);
    CHECK(solve_with(NLRA_MIP_SOLUTION, NLRA_STOP_ITERLIMIT));
    controls.set_int(kIterLimit, INT32_MAX);
    controls.set_double(kRelGap, 0.2);
    CHECK(solve_with(NLRA_MIP_OPTIMAL, NLRA_STOP_MIPGAP));
    CHECK(test.problem.info.rel_gap > 0 && test.problem.info.rel_gap <= 0.2);
}

TEST("stop: log lines arrive in order on the solving thread, by level") {
    for (const bool large : {false, true}) {
        TestProblem test;
        Log log;
        listen(test, log);
        if (large) {
            hard_mip(test, 20, 13);
        } else {
            test.col(1, 0, 1);
            test.row({{0, 1}}, 'G', 0.5);
        }
        const auto solve = [&](int level) {
            log.lines.clear();
            test.problem.controls.set_int(kLogLevel, level);
            large ? test.mip() : test.lp();
            return log.lines.size();
        };
        CHECK(solve(0) == 0);
        const size_t normal = solve(1);
        CHECK(normal >= (large ? 4 : 2));
        CHECK(count_lines(log, "Minimize: ") == 1 && log.lines.front().find("Minimize") == 0);
        CHECK(count_lines(log, "Status: optimal") == 1);
        CHECK(log.lines.back().find("Status: optimal") == 0);
        CHECK(count_lines(log, "Copyright") == 0 && count_lines(log, "\n") == 0);
        CHECK(solve(2) > normal);
        CHECK(!log.foreign_thread);
    }
}

TEST("stop: problems are solved in parallel, each with its own result") {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            Random random(t);
            for (int round = 0; round < 15; ++round) {
                TestProblem test;
                const int c = random.integer(2, 9);
                for (int j = 0; j < 12; ++j) test.col(-(j + 1), 0, 1, 'B');
                Terms all;
                for (int j = 0; j < 12; ++j) all.emplace_back(j, 1);
                test.row(all, 'L', c + 0.5);
                test.problem.controls.set_int(kThreads, 1 + t % 2);
                double best = 0;
                for (int j = 0; j < c; ++j) best -= 12 - j;
                if (test.mip() != NLRA_MIP_OPTIMAL) ++wrong;
                if (std::abs(test.problem.info.mip_objective - best) > 1e-6) ++wrong;
                if (test.lp() != NLRA_LP_OPTIMAL) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    CHECK(wrong == 0);
}

TEST("stop: a forked child solves, also problems of its parent, and so does the parent after it") {
    install_fork_handler();
    TestProblem mip;
    hard_mip(mip, 20, 13);
    mip.problem.controls.set_int(kThreads, 2);
    TestProblem lp;
    Random random(9);
    random_lp(lp, random, 700, 700, 0.02);  // on a worker thread
    const auto solve = [&] { return mip.mip() == NLRA_MIP_OPTIMAL && lp.lp() == NLRA_LP_OPTIMAL; };
    REQUIRE(solve());
    const double objective = mip.mip_objective();
    for (int round = 0; round < 3; ++round) {
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            alarm(30);  // a child that waits for a thread of its parent is killed
            const bool ok = solve() && std::abs(mip.mip_objective() - objective) < 1e-6;
            TestProblem other;
            other.col(1, 0.5, 3, 'I');
            _exit(ok && other.mip() == NLRA_MIP_OPTIMAL && other.mip_x(0) == 1 ? 0 : 1);
        }
        int status = -1;
        REQUIRE(waitpid(child, &status, 0) == child);
        CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        REQUIRE(solve());
    }
}

TEST("stop: a solve does not go on in a child that its own callback forked") {
    install_fork_handler();
    static pid_t child;
    child = -1;
    TestProblem test;
    hard_mip(test, 20, 13);
    test.problem.message_callbacks.push_back({[](NLRAprob, void*, const char* text, int, int) {
                                                  const bool searching = std::strstr(text, "Nodes");
                                                  if (searching && child < 0) child = fork();
                                              },
                                              nullptr, 0});
    const int code = error_code([&] { test.mip(); });
    if (child == 0) _exit(code == NLRA_ERROR_STATE ? 0 : 1);
    CHECK(code == 0 && test.problem.info.mip_status == NLRA_MIP_OPTIMAL);
    REQUIRE(child > 0);
    int status = -1;
    REQUIRE(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
