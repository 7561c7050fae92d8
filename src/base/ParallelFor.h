#pragma once

#include <cstddef>
#include <functional>

namespace sonvale {

// Runs body(i) for every i in [0, count), spread over a process-wide pool of worker threads
// (one fewer than the cores) and the calling thread, and returns when all have run. The
// calling thread takes indices too, so a call from inside a worker, or with every worker
// busy, still finishes. The first exception a body throws is rethrown here once the others
// have stopped; no exception ever reaches std::terminate. Not for real-time threads.
void parallelFor(size_t count, const std::function<void(size_t)>& body);

// How many threads parallelFor spreads over, the calling one included.
size_t parallelWidth();

} // namespace sonvale
