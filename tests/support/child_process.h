// The test program itself, run again as a process of its own.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Tarnlo::test {

inline constexpr int kChildNotStarted = -1;
inline constexpr int kChildHung = -2;
inline constexpr int kChildKilled = 137;  // as a shell has it
inline constexpr int kChildRanNothing = 85;
// In the environment of every child: one whose test does not exist, or was skipped, has failed.
inline constexpr char kChildMark[] = "TARNLO_TEST_CHILD";

// One test of this program, a disabled one too, with `temp_folder` as its temporary folder and with
// these variables in its environment. What it prints is lost.
//
// Threads: each used by one; several may start children at once.
// Lifetime: a child that still runs is killed.
class ChildProcess {
 public:
  using Variables = std::vector<std::pair<std::string, std::wstring>>;

  ChildProcess(const std::string& test, const std::wstring& temp_folder,
               const Variables& variables = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  // Its exit code once it has ended; or that it could not be started; or that it still runs.
  int AwaitEnd(std::chrono::milliseconds patience);
  // As the system ends a process: it gets to do nothing any more. Returns when it is gone. One that
  // has ended, or could not be started, stays as it is.
  void Kill();

 private:
  struct Process;  // what the system knows of it
  std::unique_ptr<Process> m_process;
};

// Runs such a test and waits for its end. The exit code; or that it could not be started; or that
// it did not end within the time and was ended by force.
int RunTestInChild(const std::string& test, const std::wstring& temp_folder,
                   std::chrono::seconds limit = std::chrono::seconds(40));

// What a child finds in its environment.
std::wstring ToldVariable(const char* name);

}  // namespace Tarnlo::test
