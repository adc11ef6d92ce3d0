#include "nonlinear/nlp_start.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

namespace {

// Between 0 and 1, evenly spread over the columns and the trials (a sequence of Kronecker's).
double spread(int column, int trial) {
    const double value = 0.6180339887498949 * (column + 1) + 0.7548776662466927 * (trial + 1);
    return value - std::floor(value);
}

// Between 0 and 1, as if by chance: the bits of the numbers mixed (Steele, Lea and Flood 2014).
double random_share(uint64_t seed, int trial, int column) {
    uint64_t bits = seed * 0x9e3779b97f4a7c15u + static_cast<uint64_t>(trial);
    for (const uint64_t next : {static_cast<uint64_t>(column), uint64_t{0}}) {
        bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
        bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
        bits = (bits ^ (bits >> 31)) + next * 0x9e3779b97f4a7c15u + 1;
    }
    return std::ldexp(static_cast<double>(bits >> 11), -53);
}

bool is_defined(ModelFunctions& functions, const std::vector<double>& x) {
    double value;
    const NlpStructure& structure = functions.structure();
    const size_t entries = structure.jacobian_row.size();
    std::vector<double> out(
        std::max<size_t>({x.size(), static_cast<size_t>(structure.rows), entries}));
    const auto finite = [&](size_t count) {
        return std::all_of(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(count),
                           [](double v) { return std::isfinite(v); });
    };
    return functions.objective(x.data(), value) && std::isfinite(value) &&
           functions.rows(x.data(), out.data()) && finite(structure.rows) &&
           functions.gradient(x.data(), out.data()) && finite(x.size()) &&
           functions.jacobian(x.data(), out.data()) && finite(entries);
}

// Other points to begin at: nearer to zero first, then scattered ever wider around there.
std::vector<double> other_point(const Model& model, std::vector<double> x, int trial) {
    constexpr double kNear = 10.0;
    constexpr double kRadii[] = {1.0, 10.0, 0.1, 100.0, 1000.0};
    for (int j = 0; j < model.cols(); ++j) {
        const double low = model.lower[j], high = model.upper[j];
        const double center = std::clamp(std::clamp(x[j], -kNear, kNear), low, high);
        if (trial < 2) {
            x[j] = std::clamp(trial == 0 ? center : 0.1 * center, low, high);
            continue;
        }
        const double radius = kRadii[trial % std::size(kRadii)];
        const double from = std::max(low, center - radius), to = std::min(high, center + radius);
        x[j] = from + (to - from) * spread(j, trial);
    }
    return x;
}

}  // namespace

std::vector<double> start_point(const Model& model, ModelFunctions& functions, Monitor& monitor) {
    std::vector<double> x(static_cast<size_t>(model.cols()), 0.0);
    for (const auto& [column, value] : model.formulas.start) x[column] = value;
    std::copy(model.formulas.last.x.begin(), model.formulas.last.x.end(), x.begin());
    int moved = 0;
    for (int j = 0; j < model.cols(); ++j) {
        const double inside = std::clamp(x[j], model.lower[j], model.upper[j]);
        moved += inside != x[j] && model.formulas.start.count(j) != 0;
        x[j] = inside;
    }
    if (moved > 0) monitor.log(1, "Moved %d starting values into their bounds", moved);
    if (is_defined(functions, x)) return x;
    constexpr int kTrials = 40;
    for (int trial = 0; trial < kTrials && !monitor.should_stop(); ++trial) {
        std::vector<double> other = other_point(model, x, trial);
        if (!is_defined(functions, other)) continue;
        monitor.log(1, "Moved the starting point, where a function is not defined");
        return other;
    }
    monitor.log(1, "No starting point was found where all functions are defined");
    return x;
}

Multipliers last_multipliers(const Model& model, const ModelFunctions& functions) {
    const LastPoint& last = model.formulas.last;
    const NlpStructure& structure = functions.structure();
    Multipliers out;
    out.rows.resize(static_cast<size_t>(structure.rows), 0.0);
    out.lower.resize(static_cast<size_t>(structure.columns), 0.0);
    out.upper.resize(static_cast<size_t>(structure.columns), 0.0);
    for (int i = 0; i < structure.rows; ++i) {
        const size_t row = static_cast<size_t>(functions.model_rows()[i]);
        if (row < last.dual.size()) out.rows[i] = -functions.sense() * last.dual[row];
    }
    for (size_t j = 0; j < last.dj.size(); ++j) {
        const double multiplier = functions.sense() * last.dj[j];
        out.lower[j] = std::max(multiplier, 0.0);
        out.upper[j] = std::max(-multiplier, 0.0);
    }
    return out;
}

std::vector<double> scattered(const Model& model, uint64_t seed, int trial) {
    constexpr double kRadii[] = {1.0, 10.0, 3.0, 100.0};
    const double radius = kRadii[trial % std::size(kRadii)];
    std::vector<double> x(static_cast<size_t>(model.cols()));
    for (int j = 0; j < model.cols(); ++j) {
        const double low = model.lower[j], high = model.upper[j];
        const double center = std::clamp(0.0, low, high);
        const double from = std::max(low, center - radius), to = std::min(high, center + radius);
        // Where there are bounds, all that is between them is as likely.
        const bool is_box = high - low <= 1e3;
        const double share = random_share(seed, trial, j);
        x[j] = is_box ? low + (high - low) * share : from + (to - from) * share;
    }
    return x;
}

std::vector<double> perturbed(const Model& model, std::vector<double> x, int trial) {
    constexpr double kShare = 0.2;
    for (int j = 0; j < model.cols(); ++j) {
        const double step = kShare * std::max(1.0, std::fabs(x[j])) * (0.5 + spread(j, trial));
        x[j] = std::clamp(x[j] + ((j + trial) % 2 == 0 ? step : -step), model.lower[j],
                          model.upper[j]);
    }
    return x;
}

}  // namespace nlra
