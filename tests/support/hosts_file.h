// Names that come to exist while the tests run.
#pragma once

#include <string>
#include <vector>

namespace Tarnlo::test {

// Gives a name these addresses, in their order, for the rest of the run. False with a line on
// stderr when the run has no hosts file of its own, which TARNLO_TEST_HOSTS names.
//
// Threads: any, of one test program only.
bool AddHost(const std::string& name, const std::vector<std::string>& addresses);

}  // namespace Tarnlo::test
