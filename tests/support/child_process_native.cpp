#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

constexpr std::chrono::milliseconds kLook(2);

std::string Narrow(const std::wstring& ascii) {
  std::string narrow;
  for (const wchar_t letter : ascii) narrow += static_cast<char>(letter);
  return narrow;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Everything of this process's own, behind what stands first and so is found first.
void AddOwnEnvironment(std::vector<std::string>& variables) {
  for (char** variable = environ; *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);
  }
}

pid_t Begin(std::vector<std::string> arguments, std::vector<std::string> variables) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = -1;
  if (posix_spawn(&process, arguments.front().c_str(), &actions, nullptr,
                  Pointers(arguments).data(), Pointers(variables).data()) != 0) {
    process = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  return process;
}

}  // namespace

struct ChildProcess::Process {
  pid_t id = -1;
  bool ended = false;
  int status = 0;

  // One that was not started has no id, and a signal to -1 would be one to everybody.
  [[nodiscard]] bool running() const { return id > 0 && !ended; }
  void Look(int how) {
    if (running()) ended = waitpid(id, &status, how) == id;
  }
};

ChildProcess::ChildProcess(const std::string& test, const std::wstring& temp_folder,
                           const Variables& variables)
    : m_process(std::make_unique<Process>()) {
  const std::string folder = LocalPath(temp_folder).string();
  std::vector<std::string> environment{"TMPDIR=" + folder, "TARNLO_TEST_TEMP=" + folder,
                                       std::string(kChildMark) + "=1"};
  for (const auto& [name, value] : variables) environment.push_back(name + "=" + Narrow(value));
  AddOwnEnvironment(environment);
  // The program that runs, also when a build has put another in its place.
  m_process->id = Begin({"/proc/self/exe", "--gtest_also_run_disabled_tests", "--gtest_brief=1",
                         "--gtest_filter=" + test},
                        std::move(environment));
}

ChildProcess::~ChildProcess() {
  Kill();
}

int ChildProcess::AwaitEnd(std::chrono::milliseconds patience) {
  if (m_process->id < 0) return kChildNotStarted;
  const auto end = std::chrono::steady_clock::now() + patience;
  m_process->Look(WNOHANG);
  while (!m_process->ended && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kLook);
    m_process->Look(WNOHANG);
  }
  if (!m_process->ended) return kChildHung;
  const int status = m_process->status;
  static_assert(kChildKilled == 128 + SIGKILL);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::Kill() {
  if (!m_process->running()) return;
  kill(m_process->id, SIGKILL);
  m_process->Look(0);
}

}  // namespace Tarnlo::test
