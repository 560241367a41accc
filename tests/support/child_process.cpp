#include "tests/support/child_process.h"

#include <cstdlib>

namespace Tarnlo::test {

int RunTestInChild(const std::string& test, const std::wstring& temp_folder,
                   std::chrono::seconds limit) {
  return ChildProcess(test, temp_folder).AwaitEnd(limit);
}

std::wstring ToldVariable(const char* name) {
  const char* const value = std::getenv(name);
  const std::string text = value == nullptr ? "" : value;
  return {text.begin(), text.end()};
}

}  // namespace Tarnlo::test
