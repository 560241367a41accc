#include <windows.h>

#include <cstddef>
#include <cwchar>
#include <map>
#include <utility>
#include <vector>

#include "support/os/handle.h"
#include "tests/support/child_process.h"

namespace Tarnlo::test {
namespace {

// This process's environment with other values, as a child takes it: "NAME=value" and a zero each,
// and another zero. Its own stays as it is, for other threads look at it.
std::wstring EnvironmentWith(const std::map<std::wstring, std::wstring>& variables) {
  std::wstring block;
  wchar_t* const own = GetEnvironmentStringsW();
  for (const wchar_t* at = own; *at != L'\0'; at += std::wcslen(at) + 1) {
    const std::wstring variable = at;
    if (!variables.contains(variable.substr(0, variable.find(L'=', 1)))) {
      block += variable + L'\0';
    }
  }
  FreeEnvironmentStringsW(own);
  for (const auto& [name, value] : variables) block += name + L"=" + value + L'\0';
  return block + L'\0';
}

std::wstring ThisProgram() {
  std::wstring path(32'768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

// Handles that a child is to have, and no others: what else this process has open at that moment is
// in the hands of other threads, and a child would hold it open for them.
class InheritedHandles {
 public:
  explicit InheritedHandles(std::vector<HANDLE> handles) : m_handles(std::move(handles)) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    m_bytes.resize(size);
    InitializeProcThreadAttributeList(list(), 1, 0, &size);
    UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                              m_handles.size() * sizeof(HANDLE), nullptr, nullptr);
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;
  ~InheritedHandles() { DeleteProcThreadAttributeList(list()); }

  LPPROC_THREAD_ATTRIBUTE_LIST list() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_bytes.data());
  }

 private:
  std::vector<HANDLE> m_handles;
  std::vector<std::byte> m_bytes;
};

os::KernelHandle InheritableError() {
  HANDLE copy = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetStdHandle(STD_ERROR_HANDLE), GetCurrentProcess(), &copy,
                  0, TRUE, DUPLICATE_SAME_ACCESS);
  return os::KernelHandle(copy);
}

// The process, or nothing.
os::KernelHandle Begin(std::wstring command, std::wstring environment) {
  // The counts at the end of its output are not those of the program that is running.
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  const os::KernelHandle nowhere(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                             OPEN_EXISTING, 0, nullptr));
  const os::KernelHandle error = InheritableError();
  InheritedHandles handles({nowhere.get(), error.get()});
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof(startup);
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = nowhere.get();
  startup.StartupInfo.hStdOutput = nowhere.get();
  startup.StartupInfo.hStdError = error.get();
  startup.lpAttributeList = handles.list();
  PROCESS_INFORMATION process{};
  if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE,
                     CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT, environment.data(),
                     nullptr, &startup.StartupInfo, &process) == 0) {
    return {};
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
  std::map<std::wstring, std::wstring> changed;
  for (const wchar_t* name : {L"TMP", L"TEMP", L"TARNLO_TEST_TEMP"}) changed[name] = temp_folder;
  changed[Widen(kChildMark)] = L"1";
  for (const auto& [name, value] : variables) changed[Widen(name)] = value;
  m_process->handle =
      Begin(L"\"" + ThisProgram() + L"\" --gtest_also_run_disabled_tests --gtest_brief=1 " +
                L"--gtest_filter=" + Widen(test),
            EnvironmentWith(changed));
}

ChildProcess::~ChildProcess() {
  Kill();
}

int ChildProcess::AwaitEnd(std::chrono::milliseconds patience) {
  if (!m_process->handle.valid()) return kChildNotStarted;
  if (WaitForSingleObject(m_process->handle.get(), static_cast<DWORD>(patience.count())) !=
      WAIT_OBJECT_0) {
    return kChildHung;
  }
  DWORD code = 0;
  GetExitCodeProcess(m_process->handle.get(), &code);
  return static_cast<int>(code);
}

void ChildProcess::Kill() {
  if (!m_process->handle.valid()) return;
  TerminateProcess(m_process->handle.get(), kChildKilled);
  WaitForSingleObject(m_process->handle.get(), INFINITE);
}

}  // namespace Tarnlo::test
