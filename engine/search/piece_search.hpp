// Search over the pieces of functions whose arguments no bounds limit, so that no rows with a
// constant can switch between them. Branch and bound over the binaries of the conditions: a
// condition is a row where its binary is fixed so, and is left out elsewhere.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

#include "api/problem.hpp"
#include "linear/relaxation.hpp"
#include "nonlinear/condition.hpp"
#include "search/monitor.hpp"

namespace nlra {

struct PieceOutcome {
    int status = 0;      // globally optimal, infeasible, unbounded or unfinished (NSLP_...)
    int stop = 0;        // NLRA_STOP_... that ended the search early
    Solution best;       // the best point that has been confirmed
    double bound = 0.0;  // on the objective
    int64_t nodes = 0;
    int64_t iterations = 0;
};

class PieceSearch {
  public:
    // The solution that a point of the relaxation stands for, with its true objective. Nothing
    // where it does not satisfy the problem that is asked for.
    using Confirm = std::function<std::optional<Solution>(const Solution& relaxed)>;

    // The problem's model is the relaxation: without the conditions, whose columns are binary. The
    // search changes it.
    PieceSearch(nlra_problem& relaxation, std::vector<Condition> conditions, Confirm confirm,
                Monitor& monitor);

    // `best` is empty, or a confirmed solution to improve on. What is claimed has been proven,
    // within the solver's tolerances.
    PieceOutcome run(Solution best, int64_t max_nodes);

  private:
    struct Binary {
        int col;
        double lower, upper;
        bool is_used;                    // by more than its conditions
        std::vector<int> conditions[2];  // in force where it is zero, and where it is one
        bool is_fixed = false;
    };
    using Choice = std::pair<int, int>;  // binary and value
    struct Node {
        double bound;  // for minimization
        std::vector<Choice> choices;
        // Later in the queue.
        bool operator<(const Node& other) const {
            if (bound != other.bound) return bound > other.bound;
            return choices.size() < other.choices.size();
        }
    };
    enum class End { kOptimal, kInfeasible, kUnbounded, kUndecided };
    // What to branch on, and by how much its conditions are missed at best; then the values that
    // the free binaries are nearest to.
    struct Selection {
        int binary = -1;
        double miss = 0.0;
        std::vector<Choice> nearest;
    };

    void fix(int binary, int value);
    void release(int binary);
    void apply(const std::vector<Choice>& choices);
    void set_box(bool on);
    End solve();
    const Solution& relaxed() const;
    double miss(const Condition& condition) const;
    double miss(const Binary& binary, int value) const;
    Selection select() const;
    void take(std::optional<Solution> found);
    bool is_pruned(double bound) const;
    void branch(const Node& node, Choice first, double bound);
    void visit(const Node& node);
    void visit_unbounded(const Node& node);
    void conclude();

    nlra_problem& relaxation_;
    Model& model_;
    const std::vector<Condition> conditions_;
    const int first_row_;  // of the conditions
    const double box_;
    const Confirm confirm_;
    Monitor& monitor_;
    std::vector<Binary> binaries_;
    std::vector<int> chosen_;                        // those that the present node fixes
    std::vector<std::pair<int, Bounds>> unlimited_;  // columns, with their own bounds
    std::priority_queue<Node> open_;
    std::optional<Node> next_;
    double closed_ = HUGE_VAL;    // least bound of what has been settled
    double doubtful_ = HUGE_VAL;  // least bound of what could not be
    bool is_unbounded_ = false;
    PieceOutcome outcome_;
};

}  // namespace nlra
