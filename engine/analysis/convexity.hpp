// Convexity of quadratic forms by sparse factorization.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "analysis/ldlt.hpp"
#include "store/model.hpp"

namespace nlra {

// Whether sign * (the quadratic form of these terms) is convex: its Hessian is positive
// semidefinite up to a relative tolerance. Sparse LDL^T with a fill-reducing order over the
// columns that occur.
// Throws FactorizationStopped when the poll says so.
bool is_convex_form(const std::vector<QuadTerm>& terms, double sign, const StopPoll& poll = {});

// Forms of a problem found convex, so that what did not change since needs no second proof.
class ProvenForms {
  public:
    static constexpr int kObjective = -1;

    bool contains(int row, double sign, const std::vector<QuadTerm>& terms) const;
    void add(int row, double sign, const std::vector<QuadTerm>& terms);
    void clear() { forms_.clear(); }
    size_t size() const { return forms_.size(); }

  private:
    std::map<int, std::pair<double, std::vector<QuadTerm>>> forms_;  // by row
};

// Empty when objective (with the model's sense) and all quadratic rows are convex (L: convex form;
// G: concave; E and two-sided R: not convex; N: ignored), otherwise what is not: "objective", or
// "row NAME" with the reason. Products with a fixed column count as linear. Large dense forms take
// seconds: when the poll (a Monitor's should_stop) ends the check, the result is empty too, and it
// is up to the caller, whose poll it was, not to go on. `proven`, when not null, saves proofs and
// is added to.
std::string find_nonconvexity(const Model& model, const StopPoll& poll = {},
                              ProvenForms* proven = nullptr);

}  // namespace nlra
