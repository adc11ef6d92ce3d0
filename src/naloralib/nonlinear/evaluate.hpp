// Values of modeling objects at a point: the object evaluator and the structured one.
#pragma once

#include <cstdint>

#include "support/ref.hpp"

namespace nalora {

struct ProblemObject;
class PointValues;
struct TreeMemory;

struct EvaluationContext {
    ProblemObject* problem = nullptr;  // null in dictionary mode without a problem
    PointValues* values = nullptr;     // by column; null in dictionary mode
    PyObject* dictionary = nullptr;    // borrowed; set in dictionary mode
    bool from_getsolution = false;     // then integers and names stand for columns
    TreeMemory* memory = nullptr;      // set while a tree is evaluated
};

inline constexpr int kEvaluationDepth = 64;

double evaluate_object(PyObject* object, const EvaluationContext& context, int depth);
Ref evaluate_structured(PyObject* object, const EvaluationContext& context, int depth);

}  // namespace nalora
