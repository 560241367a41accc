#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "tests/support/process_usage.h"

namespace Tarnlo::test {
namespace {

int CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

// "VmRSS:    1234 kB" as bytes.
std::int64_t StatusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != name + ":") continue;
    std::int64_t kilobytes = 0;
    status >> kilobytes;
    return kilobytes * 1024;
  }
  return 0;
}

}  // namespace

int OpenHandles() {
  return CountEntries("/proc/self/fd") - 1;  // but not the one that counts
}

int HandlesThatComeAndGo() {
  return 0;
}

int OpenSockets() {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the handle that reads the folder
    const auto what = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && what.string().starts_with("socket:")) ++count;
  }
  return count;
}

std::int64_t HeapInUse() {
  return static_cast<std::int64_t>(mallinfo2().uordblks);
}

int RunningThreads() {
  return CountEntries("/proc/self/task");
}

MemoryInUse Memory() {
  return {StatusBytes("VmRSS"), StatusBytes("VmHWM")};
}

}  // namespace Tarnlo::test
