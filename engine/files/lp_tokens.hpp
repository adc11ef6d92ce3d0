// Words of an LP file: numbers, names, signs, and section names at the starts of lines.
#pragma once

#include <string_view>

#include "files/source.hpp"

namespace nlra {

enum class LpSection {
    kNone,
    kMinimize,
    kMaximize,
    kRows,
    kBounds,
    kGenerals,
    kBinaries,
    kSemiContinuous,
    kSemiIntegers,
    kPartialIntegers,
    kThresholds,
    kSos,
    kUnsupported,
    kEnd
};

enum class LpKind {
    kEnd,
    kNumber,
    kName,
    kInfinity,
    kPlus,
    kMinus,
    kTimes,
    kDivide,
    kPower,
    kColon,
    kLess,
    kGreater,
    kEqual,
    kOpen,
    kClose,
    kArrow,
    kSection
};

struct LpToken {
    LpKind kind = LpKind::kEnd;
    std::string_view text;
    double value = 0.0;  // of a number
    LpSection section = LpSection::kNone;
    bool labels = false;  // a name with a colon behind it
};

class LpTokens {
  public:
    explicit LpTokens(const Source& source);

    const LpToken& now() const { return now_; }
    bool is(LpKind kind) const { return now_.kind == kind; }
    void advance();
    // For messages about the present word.
    const char* where() const { return now_.text.data(); }
    // From the comment before the first word; empty for none.
    std::string_view problem_name() const { return problem_name_; }

    // Whether the writer may use a name.
    static bool valid_name(std::string_view name);

  private:
    const char* skip(const char* at) const;
    bool scan_section();
    void scan_name();
    void scan_sign();

    const Source* source_;
    const char* at_;  // behind the present word
    bool line_start_ = true;
    LpToken now_;
    std::string_view problem_name_;
};

}  // namespace nlra
