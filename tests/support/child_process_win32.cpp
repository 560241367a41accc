#include <windows.h>

#include <list>
#include <mutex>

#include "support/os/handle.h"
#include "tests/support/child_process.h"

namespace Tarnlo::test {
namespace {

// One variable of the environment, put back at the end.
class ChangedVariable {
 public:
  ChangedVariable(std::wstring name, const std::wstring& value) : m_name(std::move(name)) {
    std::wstring former(32'768, L'\0');
    const auto size = static_cast<DWORD>(former.size());
    former.resize(GetEnvironmentVariableW(m_name.c_str(), former.data(), size));
    m_former = former;
    SetEnvironmentVariableW(m_name.c_str(), value.c_str());
  }
  ~ChangedVariable() {
    SetEnvironmentVariableW(m_name.c_str(), m_former.empty() ? nullptr : m_former.c_str());
  }
  ChangedVariable(const ChangedVariable&) = delete;
  ChangedVariable& operator=(const ChangedVariable&) = delete;

 private:
  const std::wstring m_name;
  std::wstring m_former;
};

std::wstring ThisProgram() {
  std::wstring path(32'768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

// The process, or nothing.
os::KernelHandle Begin(std::wstring command) {
  // The counts at the end of its output are not those of the program that is running.
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  const os::KernelHandle nowhere(CreateFileW(L"NUL", GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                             OPEN_EXISTING, 0, nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = nowhere.get();
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process) == 0) {
    return os::KernelHandle();
  }
  const os::KernelHandle thread(process.hThread);
  return os::KernelHandle(process.hProcess);
}

std::wstring Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

}  // namespace

struct ChildProcess::Process {
  os::KernelHandle handle;
};

ChildProcess::ChildProcess(const std::string& test, const std::wstring& temp_folder,
                           const Variables& variables)
    : m_process(std::make_unique<Process>()) {
  static std::mutex environment;  // is this process's own for a moment
  const std::lock_guard guard(environment);
  std::list<ChangedVariable> changed;
  for (const wchar_t* name : {L"TMP", L"TEMP", L"TARNLO_TEST_TEMP"}) {
    changed.emplace_back(name, temp_folder);
  }
  for (const auto& [name, value] : variables) changed.emplace_back(Widen(name), value);
  m_process->handle =
      Begin(L"\"" + ThisProgram() + L"\" --gtest_also_run_disabled_tests --gtest_brief=1 " +
            L"--gtest_filter=" + Widen(test));
}

ChildProcess::~ChildProcess() {
  if (m_process->handle.valid()) Kill();
}

int ChildProcess::AwaitEnd(std::chrono::milliseconds patience) {
  const HANDLE handle = m_process->handle.get();
  if (!m_process->handle.valid()) return kChildNotStarted;
  if (WaitForSingleObject(handle, static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0) {
    return kChildHung;
  }
  DWORD code = 0;
  GetExitCodeProcess(handle, &code);
  return static_cast<int>(code);
}

void ChildProcess::Kill() {
  TerminateProcess(m_process->handle.get(), 1);
  WaitForSingleObject(m_process->handle.get(), INFINITE);
}

}  // namespace Tarnlo::test
