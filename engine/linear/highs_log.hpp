// What of HiGHS's log is shown at which log level. Knows its texts, and nothing else of it.
#pragma once

#include <string_view>

namespace nlra {

class LogFilter {
  public:
    // Level from which on a line is shown: 1 progress, 2 details, 0 never. Lines must come in
    // order, since what a line of figures means depends on the heading before it.
    int level(std::string_view line);
    // The same for a whole message that is a warning or an error.
    static int warning_level(std::string_view message);

  private:
    bool in_table_ = false;   // after the heading of a table of iterations or nodes
    bool in_report_ = false;  // the final report, which the engine's own closing line replaces
};

}  // namespace nlra
