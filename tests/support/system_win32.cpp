#include <windows.h>

// After windows.h.
#include <winioctl.h>

#include <cstdlib>

#include "support/os/handle.h"
#include "tests/support/system.h"

namespace Tarnlo::test {

std::wstring SystemPath(const std::filesystem::path& path) {
  return path.wstring();
}

std::filesystem::path LocalPath(const std::wstring& system_path) {
  return system_path;
}

bool IsHidden(const std::wstring& system_path) {
  const DWORD attributes = GetFileAttributesW(system_path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_HIDDEN) != 0;
}

// Refused by Wine, whose files are all sparse.
void MakeSparseFile(const std::wstring& system_path) {
  const os::KernelHandle file(CreateFileW(system_path.c_str(), GENERIC_WRITE, 0, nullptr,
                                          CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD size = 0;
  DeviceIoControl(file.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &size, nullptr);
}

std::string ProcessNumber() {
  return std::to_string(GetCurrentProcessId());
}

void SetEnvironment(const std::string& name, const std::string& value) {
  _putenv_s(name.c_str(), value.c_str());
}

void PointTempFolderAt(const std::filesystem::path& folder) {
  SetEnvironmentVariableW(L"TMP", folder.c_str());
  SetEnvironmentVariableW(L"TEMP", folder.c_str());
}

}  // namespace Tarnlo::test
