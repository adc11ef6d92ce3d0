#include "params/params.hpp"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <limits>

#include "store/error.hpp"

namespace nlra {
namespace {

constexpr double kInfinite = NLRA_PLUSINFINITY;

bool is_integer(const Param& param) {
    return param.type == NLRA_TYPE_INT || param.type == NLRA_TYPE_INT64;
}

int64_t to_int64(double value) {
    constexpr double limit = 9223372036854775808.0;  // 2^63, the first double that does not fit
    if (value >= limit) return std::numeric_limits<int64_t>::max();
    if (value < -limit) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

std::string number_text(const Param& param, double value) {
    char text[40];
    if (is_integer(param)) {
        std::snprintf(text, sizeof text, "%" PRId64, to_int64(value));
    } else {
        std::snprintf(text, sizeof text, "%g", value);
    }
    return text;
}

std::string range_text(const Param& param) {
    return number_text(param, param.low) + " to " + number_text(param, param.high);
}

const char* class_text(const Param& param) {
    return is_integer(param)                ? "an integer"
           : param.type == NLRA_TYPE_DOUBLE ? "a floating-point"
                                            : "a string";
}

}  // namespace

std::string describe(const Param& param) {
    std::string text = param.description;
    if (param.type == NLRA_TYPE_STRING) return text + " Default \"" + param.text_default + "\".";
    return text + " Default " + number_text(param, param.dflt) + ", range " + range_text(param) +
           ".";
}

bool same_name(const char* name, const char* lower_case) {
    while (*name != '\0' && std::tolower(static_cast<unsigned char>(*name)) == *lower_case) {
        ++name;
        ++lower_case;
    }
    return *name == *lower_case;
}

Params::Params(const std::vector<Param>& table) : table_(&table) {
    values_.reserve(table.size());
    for (const Param& param : table) {
        if (is_integer(param)) {
            values_.emplace_back(to_int64(param.dflt));
        } else if (param.type == NLRA_TYPE_DOUBLE) {
            values_.emplace_back(param.dflt);
        } else {
            values_.emplace_back(std::string(param.text_default));
        }
    }
}

bool Params::has(int id) const {
    return std::any_of(table_->begin(), table_->end(),
                       [id](const Param& param) { return param.id == id; });
}

const Param& Params::param(int id) const {
    for (const Param& param : *table_) {
        if (param.id == id) return param;
    }
    fail(NLRA_ERROR_CONTROL, "there is no control with the identifier %d", id);
}

size_t Params::position(int id, Class wanted) const {
    const Param& found = param(id);
    const size_t position = static_cast<size_t>(&found - table_->data());
    if (values_[position].index() != wanted) {
        fail(NLRA_ERROR_CONTROL, "control '%s' is %s control", found.name, class_text(found));
    }
    return position;
}

int64_t Params::get_int(int id) const { return std::get<kInt>(values_[position(id, kInt)]); }

double Params::get_double(int id) const {
    return std::get<kDouble>(values_[position(id, kDouble)]);
}

const std::string& Params::get_string(int id) const {
    return std::get<kString>(values_[position(id, kString)]);
}

void Params::set_int(int id, int64_t value) {
    const size_t at = position(id, kInt);
    const Param& param = (*table_)[at];
    if (value < to_int64(param.low) || value > to_int64(param.high)) {
        fail(NLRA_ERROR_CONTROL, "control '%s': %" PRId64 " is not in %s", param.name, value,
             range_text(param).c_str());
    }
    values_[at] = value;
}

void Params::set_double(int id, double value) {
    const size_t at = position(id, kDouble);
    const Param& param = (*table_)[at];
    double inside = value;
    // Beyond the infinite value all are the same.
    if (param.high == kInfinite && value > kInfinite) inside = kInfinite;
    if (param.low == -kInfinite && value < -kInfinite) inside = -kInfinite;
    if (!(inside >= param.low && inside <= param.high)) {
        fail(NLRA_ERROR_CONTROL, "control '%s': %g is not in %s", param.name, value,
             range_text(param).c_str());
    }
    values_[at] = inside;
}

void Params::set_string(int id, const char* value) {
    const size_t at = position(id, kString);
    values_[at] = std::string(value);
}

}  // namespace nlra
