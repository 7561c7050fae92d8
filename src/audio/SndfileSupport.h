#pragma once

#include <mutex>

namespace sonvale {

// libsndfile keeps the error of a failed open in one global: opening and reading that
// error happen under this lock, so two threads opening files can't swap their reasons.
std::mutex& sndfileOpenMutex();

} // namespace sonvale
