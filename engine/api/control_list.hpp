// Tables of controls and attributes as modeling layers list them.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "nlra.h"
#include "params/params.hpp"

namespace nlra {

// Flags of an entry: its type, and whether it is a control.
int entry_flags(int type, bool control);

// Grows row by row; pointers into it stay valid. Made once and kept for ever.
class ControlList {
  public:
    void add(const std::vector<Param>& controls);
    void add(const char* name, int id, int flags, const char* description);
    // Appends the end row; nothing is added after it.
    void finish();
    const NLRAcalistentry* entries() const { return entries_.data(); }
    int size() const { return static_cast<int>(entries_.size()) - 1; }

  private:
    std::vector<NLRAcalistentry> entries_;
    std::deque<std::string> texts_;
};

}  // namespace nlra
