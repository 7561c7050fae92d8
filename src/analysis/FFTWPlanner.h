#pragma once

#include <mutex>

namespace sonvale {

// FFTW's planner keeps global state: every plan in the program is made and destroyed under
// this one lock. Executing a plan needs no lock.
std::mutex& fftwPlannerMutex();

} // namespace sonvale
