#include <windows.h>

#include <cstdlib>

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
