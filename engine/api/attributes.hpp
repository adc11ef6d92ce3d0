// The table of the optimizer's attributes: one row each, computed on request.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "api/problem.hpp"

namespace nlra {

struct Attribute {
    using Int = int64_t (*)(const nlra_problem&);
    using Double = double (*)(const nlra_problem&);
    using Text = std::string (*)(const nlra_problem&);

    int id;
    const char* name;  // lower case
    int type;          // NLRA_TYPE_...
    std::variant<Int, Double, Text> get;
    const char* description;
};

const std::vector<Attribute>& attribute_table();

}  // namespace nlra
