#include "linear/highs_log.hpp"

#include <algorithm>
#include <cctype>

namespace nlra {
namespace {

bool starts_with(std::string_view line, std::string_view prefix) {
    return line.substr(0, prefix.size()) == prefix;
}

template <size_t n>
bool starts_with_any(std::string_view line, const std::string_view (&prefixes)[n]) {
    for (std::string_view prefix : prefixes) {
        if (starts_with(line, prefix)) return true;
    }
    return false;
}

constexpr std::string_view kNever[] = {"Running HiGHS", "Includes third-party", "Copyright"};
constexpr std::string_view kProgress[] = {"Presolve reductions",
                                          "Using ",
                                          "Restarting search",
                                          "Model after restart",
                                          "Interior point solve",
                                          "Running crossover",
                                          "MIP start"};
// A solve within the solve: one that completes a start comes before the real one.
constexpr std::string_view kBeginnings[] = {"Presolving model", "LP has", "MIP has"};
constexpr std::string_view kHeadings[] = {"Iteration ", "Iter ", "Nodes  ", "Src  Proc."};
constexpr std::string_view kReports[] = {"Model status  ", "Solving report"};

// A row of a table: figures, in a table of nodes after a letter that tells where a solution is
// from.
bool is_row(std::string_view line) {
    if (line.size() > 2 && std::isalpha(static_cast<unsigned char>(line[0])) && line[1] == ' ') {
        line.remove_prefix(1);
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    }
    if (line.find(" / ") != std::string_view::npos) return false;  // figures of a report
    return !line.empty() && std::isdigit(static_cast<unsigned char>(line[0]));
}

}  // namespace

int LogFilter::level(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return 0;
    const std::string_view text = line.substr(first);
    if (starts_with_any(text, kNever)) return 0;
    if (starts_with_any(text, kBeginnings)) in_report_ = in_table_ = false;
    if (starts_with_any(text, kReports)) in_report_ = true;
    if (in_report_) return 2;
    if (starts_with_any(text, kHeadings)) {
        in_table_ = true;
        return 1;
    }
    if (in_table_ && is_row(text)) return 1;
    return starts_with_any(text, kProgress) ? 1 : 2;
}

int LogFilter::warning_level(std::string_view message) {
    // Figures of how well conditions are met; the status tells when that is not well enough. It
    // also comes up where integrality is relaxed on purpose.
    return message.find("Solution optimality conditions") != std::string_view::npos ? 2 : 1;
}

}  // namespace nlra
