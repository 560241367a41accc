#include <windows.h>

#include "support/os/handle.h"
#include "tests/support/child_process.h"

namespace Tarnlo::test {
namespace {

// One variable of the environment, put back at the end.
class ChangedVariable {
 public:
  ChangedVariable(const wchar_t* name, const std::wstring& value) : m_name(name) {
    std::wstring former(32'768, L'\0');
    const auto size = static_cast<DWORD>(former.size());
    former.resize(GetEnvironmentVariableW(name, former.data(), size));
    m_former = former;
    SetEnvironmentVariableW(name, value.c_str());
  }
  ~ChangedVariable() {
    SetEnvironmentVariableW(m_name, m_former.empty() ? nullptr : m_former.c_str());
  }
  ChangedVariable(const ChangedVariable&) = delete;
  ChangedVariable& operator=(const ChangedVariable&) = delete;

 private:
  const wchar_t* m_name;
  std::wstring m_former;
};

std::wstring ThisProgram() {
  std::wstring path(32'768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

int Run(std::wstring command, std::chrono::milliseconds limit) {
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
    return kChildNotStarted;
  }
  const os::KernelHandle thread(process.hThread);
  const os::KernelHandle handle(process.hProcess);
  if (WaitForSingleObject(handle.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
    TerminateProcess(handle.get(), 1);
    return kChildHung;
  }
  DWORD code = 0;
  GetExitCodeProcess(handle.get(), &code);
  return static_cast<int>(code);
}

}  // namespace

int RunTestInChild(const std::string& test, const std::wstring& temp_folder,
                   std::chrono::seconds limit) {
  const ChangedVariable tmp(L"TMP", temp_folder);
  const ChangedVariable temp(L"TEMP", temp_folder);
  const ChangedVariable main(L"TARNLO_TEST_TEMP", temp_folder);
  return Run(L"\"" + ThisProgram() + L"\" --gtest_also_run_disabled_tests --gtest_brief=1 " +
                 L"--gtest_filter=" + std::wstring(test.begin(), test.end()),
             limit);
}

}  // namespace Tarnlo::test
