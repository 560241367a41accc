#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/child_process.h"
#include "tests/support/system.h"

namespace Tarnlo::test {

// The child's own watchdog is its limit.
int RunTestInChild(const std::string& test, const std::wstring& temp_folder,
                   std::chrono::seconds /*limit*/) {
  const std::string folder = LocalPath(temp_folder).string();
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command =
      "TMPDIR='" + folder + "' TARNLO_TEST_TEMP='" + folder + "' '" + program +
      "' --gtest_also_run_disabled_tests --gtest_brief=1 --gtest_filter='" + test + "' >/dev/null";
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace Tarnlo::test
