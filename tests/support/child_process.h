// The test program itself, run again as a process of its own.
#pragma once

#include <string>

namespace Tarnlo::test {

// Runs one test of this program, a disabled one too, with `temp_folder` as its temporary folder,
// and waits for its end. The exit code, or -1 when it could not be started.
int RunTestInChild(const std::string& test, const std::wstring& temp_folder);

}  // namespace Tarnlo::test
