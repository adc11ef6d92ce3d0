// HiGHS instances that wait for their next model. Making one and freeing it takes longer than a
// small model's solve, so that those of small models are kept, a few in the whole process. Internal
// to linear/.
#pragma once

#include <memory>

#include "linear/highs_session.hpp"

namespace nlra {

// An instance without a model that nobody else uses: it solves as a new one does.
std::shared_ptr<HighsSession> take_session();

// Keep the instance, or free it: where there are enough, or it held a model whose memory it would
// not give back. Not for one whose run failed or was left to its worker. From any thread.
void return_session(std::shared_ptr<HighsSession> session) noexcept;

// In a child of fork(): begin with none, as the parent may have been amidst a change.
void sessions_after_fork();

}  // namespace nlra
