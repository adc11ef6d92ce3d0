#include "problem/solution_values.hpp"

#include "module/state.hpp"

namespace nalora {

namespace {

// What is said when a vector cannot be had.
struct Refusal {
    const char* failure;      // null: the library's own text
    const char* mip_failure;  // null: mixed integer problems have such values
};
constexpr Refusal kRefusals[] = {
    {nullptr, nullptr},
    {"Could not get constraints' slack", nullptr},
    {"Could not get dual solution", "Cannot retrieve dual variables in a MIP"},
    {"Could not retrieve reduced costs", "Cannot retrieve reduced cost in a MIP"},
};

const Refusal& refusal(SolutionKind kind) { return kRefusals[static_cast<int>(kind)]; }

bool is_by_row(SolutionKind kind) {
    return kind == SolutionKind::slack || kind == SolutionKind::dual;
}

// Up to this size a copy costs no more than a value or two.
constexpr int64_t kSmall = 64;
// How many values are copied in the time in which one is read by itself.
constexpr int64_t kCopiedPerRead = 16;

}  // namespace

PointValues::PointValues(ProblemObject* p, SolutionKind kind) : problem_(p), kind_(kind) {
    const bool nonlinear = has_nonlinear_solution(p);
    if (nonlinear) {
        source_ = Source::nonlinear;
    } else if (is_mixed_integer(p)) {
        if (refusal(kind).mip_failure != nullptr) raise(solver_error(), refusal(kind).mip_failure);
        source_ = Source::mixed_integer;
    }
    count_ = int_attribute(p, is_by_row(kind) ? NLRA_ORIGINALROWS : NLRA_ORIGINALCOLS);
    if (count_ <= kSmall) {
        copy_all();
        return;
    }
    budget_ = count_ / kCopiedPerRead;
    read_one(0);  // fails when there is nothing to read
}

void PointValues::check(int status) const {
    if (status == 0) return;
    if (refusal(kind_).failure == nullptr) throw LibraryError{as_object(problem_)};
    raise(solver_error(), refusal(kind_).failure);
}

double PointValues::fetch(int64_t index) {
    if (budget_ > 0) {
        --budget_;
        return read_one(index);
    }
    return all()[index];
}

double PointValues::read_one(int64_t index) {
    double value = 0.0;
    double* wanted[4] = {};
    wanted[static_cast<int>(kind_)] = &value;
    const int i = static_cast<int>(index);
    check(source_ == Source::nonlinear ? NSLPgetslpsolval(problem_->nonlinear, i, i, wanted[0],
                                                          wanted[1], wanted[2], wanted[3])
          : source_ == Source::mixed_integer
              ? NLRAgetmipsolval(problem_->prob, i, i, wanted[0], wanted[1])
              : NLRAgetlpsolval(problem_->prob, i, i, wanted[0], wanted[1], wanted[2], wanted[3]));
    return value;
}

void PointValues::copy_all() {
    // One entry more, so that an empty vector is not taken for one that is not wanted.
    std::unique_ptr<double[]> copy(new double[count_ + 1]);
    double* wanted[4] = {};
    wanted[static_cast<int>(kind_)] = copy.get();
    check(source_ == Source::nonlinear
              ? NSLPgetslpsol(problem_->nonlinear, wanted[0], wanted[1], wanted[2], wanted[3])
          : source_ == Source::mixed_integer
              ? NLRAgetmipsol(problem_->prob, wanted[0], wanted[1])
              : NLRAgetlpsol(problem_->prob, wanted[0], wanted[1], wanted[2], wanted[3]));
    copy_ = std::move(copy);
    all_ = copy_.get();
}

}  // namespace nalora
