// Counts what this program has on the heap.
#pragma once

namespace Tarnlo::test {

// Made with new and not yet deleted, by all threads. Exact while no other thread runs.
long long LiveAllocations();

}  // namespace Tarnlo::test
