// Lines of text on their way from a problem to those who listen.
#pragma once

#include <string_view>

struct nlra_problem;

namespace nlra {

// Offer a line (no newline) to the problem's message callbacks by falling priority, or those of
// nonlinear problems on it where it has none, then to the handlers of the global environment. They
// may add and remove callbacks while they are called; that counts from the next line on.
void send_message(nlra_problem& problem, std::string_view line, int msgtype);

// Whether anybody would get a line of this problem.
bool has_listeners(const nlra_problem& problem);

}  // namespace nlra
