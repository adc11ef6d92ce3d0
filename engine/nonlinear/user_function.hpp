// User functions of a model as the expression graph calls them.
#pragma once

#include <memory>
#include <vector>

#include "nonlinear/formula.hpp"
#include "store/formulas.hpp"

namespace nlra {

// A user function failed; its author knows why. Ends the solve.
struct UserFunctionFailed {};

class CalledFunction : public OpaqueFunction {
  public:
    explicit CalledFunction(const UserFunction& function) : function_(function) {
        gives_derivatives = function.derivatives;
        arguments = function.arguments;
    }
    bool call(const double* args, int n, double* value, double* gradient) override {
        if (function_.call(function_.object, args, n, value, gradient) != 0) {
            throw UserFunctionFailed{};
        }
        return true;
    }

  private:
    UserFunction function_;
};

// All of a model's, by index. Null for those that were forgotten.
class CalledFunctions {
  public:
    explicit CalledFunctions(const Formulas& formulas) {
        for (int i = 0; i < formulas.functions.size(); ++i) {
            if (formulas.functions[i].call == nullptr) {
                functions_.push_back(nullptr);
                continue;
            }
            owned_.push_back(std::make_unique<CalledFunction>(formulas.functions[i]));
            functions_.push_back(owned_.back().get());
        }
    }
    const std::vector<OpaqueFunction*>& functions() const { return functions_; }

  private:
    std::vector<std::unique_ptr<CalledFunction>> owned_;
    std::vector<OpaqueFunction*> functions_;
};

inline FormulaPiece piece_of(const Coefficient& c) {
    return {c.factor, c.column, c.types.data(), c.values.data(), c.types.size()};
}

}  // namespace nlra
