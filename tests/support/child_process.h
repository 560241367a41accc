// The test program itself, run again as a process of its own.
#pragma once

#include <chrono>
#include <string>

namespace Tarnlo::test {

inline constexpr int kChildNotStarted = -1;
inline constexpr int kChildHung = -2;

// Runs one test of this program, a disabled one too, with `temp_folder` as its temporary folder,
// and waits for its end. The exit code; or that it could not be started; or that it did not end
// within the time and was ended by force.
int RunTestInChild(const std::string& test, const std::wstring& temp_folder,
                   std::chrono::seconds limit = std::chrono::seconds(40));

}  // namespace Tarnlo::test
