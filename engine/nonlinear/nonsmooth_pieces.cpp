#include "nonlinear/nonsmooth_pieces.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

namespace {

constexpr double kSlopeNoise = 1e-12;

// The points of a piecewise function's entries, behind the argument.
struct Points {
    const Entry* entry;
    int count;

    double x(int i) const { return entry[1 + 2 * i].value; }
    double y(int i) const { return entry[2 + 2 * i].value; }
};

Points points_of(const Graph& graph, const Node& node) {
    return {graph.entries(node), (node.second - 1) / 2};
}

bool is_kink(double left, double right) {
    return std::fabs(right - left) > kSlopeNoise * (std::fabs(left) + std::fabs(right));
}

// All pieces, with the value left of each breakpoint.
Pieces all_pieces(const Points& points, std::vector<double>& left) {
    Pieces pieces;
    double jump = 0.0;
    double before = points.y(0);  // left of the present point
    pieces.origin = points.x(0);
    pieces.value = points.y(0);
    const auto begin_piece = [&](int point, double slope) {
        if (!pieces.slope.empty()) {
            if (jump == 0.0 && !is_kink(pieces.slope.back(), slope)) return;
            pieces.at.push_back(points.x(point));
            pieces.jump.push_back(jump);
            left.push_back(before);
        }
        pieces.slope.push_back(slope);
    };
    for (int i = 1; i < points.count; ++i) {
        const double width = points.x(i) - points.x(i - 1);
        if (width == 0.0) {
            jump = points.y(i) - points.y(i - 1);
            continue;
        }
        begin_piece(i - 1, (points.y(i) - points.y(i - 1)) / width);
        jump = 0.0;
        before = points.y(i);
    }
    // Behind a jump at the end the function is constant.
    if (jump != 0.0) begin_piece(points.count - 1, 0.0);
    return pieces;
}

void clip(Pieces& pieces, std::vector<double>& left, Range argument) {
    size_t first = 0;
    size_t last = pieces.at.size();
    while (first < last && pieces.at[first] <= argument.low) ++first;
    while (first < last && (pieces.at[last - 1] > argument.high ||
                            (pieces.at[last - 1] == argument.high && pieces.jump[last - 1] == 0))) {
        --last;
    }
    if (first < last) {
        pieces.origin = pieces.at[first];
        pieces.value = left[first];
    } else if (first > 0) {
        pieces.origin = pieces.at[first - 1];
        pieces.value = left[first - 1] + pieces.jump[first - 1];
    } else if (last < pieces.at.size()) {
        pieces.origin = pieces.at[last];
        pieces.value = left[last];
    }
    const auto keep = [&](std::vector<double>& values, size_t count) {
        values.erase(values.begin() + static_cast<std::ptrdiff_t>(first + count), values.end());
        values.erase(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(first));
    };
    keep(pieces.at, last - first);
    keep(pieces.jump, last - first);
    keep(pieces.slope, last - first + 1);
}

bool all_nonnegative(const std::vector<double>& values, double factor) {
    return std::all_of(values.begin(), values.end(), [=](double v) { return factor * v >= 0.0; });
}

}  // namespace

bool Pieces::has_jumps() const {
    return std::any_of(jump.begin(), jump.end(), [](double j) { return j != 0.0; });
}

bool Pieces::is_nondecreasing() const {
    return all_nonnegative(slope, 1.0) && all_nonnegative(jump, 1.0);
}

bool Pieces::is_nonincreasing() const {
    return all_nonnegative(slope, -1.0) && all_nonnegative(jump, -1.0);
}

Range Pieces::range(Range argument) const {
    Range out{HUGE_VAL, -HUGE_VAL};
    const auto include = [&](double y) {
        out.low = std::min(out.low, y);
        out.high = std::max(out.high, y);
    };
    // A flat piece has its value also at infinity.
    const auto step = [](double from, double by, double to) {
        return by == 0.0 ? 0.0 : by * (to - from);
    };
    double x = origin;
    double y = value;
    include(y + step(x, slope[0], argument.low));
    for (size_t k = 0; k < at.size(); ++k) {
        y += step(x, slope[k], at[k]);
        include(y);
        y += jump[k];
        include(y);
        x = at[k];
    }
    include(y + step(x, slope.back(), argument.high));
    return out;
}

bool has_pieces(const Graph& graph, const Node& node) {
    if (node.op == Op::kAbs) return true;
    const Points points = points_of(graph, node);
    return points.count >= 2 && points.x(0) < points.x(1);
}

Pieces pieces_of(const Graph& graph, const Node& node, Range argument) {
    static const Entry absolute[] = {{0.0, -1}, {-1.0, -1}, {1.0, -1}, {0.0, -1},
                                     {0.0, -1}, {1.0, -1},  {1.0, -1}};
    std::vector<double> left;
    Pieces pieces =
        all_pieces(node.op == Op::kAbs ? Points{absolute, 3} : points_of(graph, node), left);
    clip(pieces, left, argument);
    return pieces;
}

}  // namespace nlra
