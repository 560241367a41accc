#include <windows.h>

// After windows.h.
#include <winioctl.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>

#include "support/os/handle.h"
#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

// The C++ library's own, where it meets a path longer than 259 characters, lists another folder.
// `folder` is in the form that may be longer.
void RemoveWithContents(const std::wstring& folder) {
  WIN32_FIND_DATAW entry{};
  const auto close = [](HANDLE search) {
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
  };
  const std::unique_ptr<void, decltype(close)> search(
      FindFirstFileW((folder + L"\\*").c_str(), &entry), close);
  for (bool found = search.get() != INVALID_HANDLE_VALUE; found;
       found = FindNextFileW(search.get(), &entry) != 0) {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring path = folder + L"\\" + name;
    const bool is_folder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool leads_elsewhere = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!is_folder) {
      DeleteFileW(path.c_str());
    } else if (leads_elsewhere) {
      RemoveDirectoryW(path.c_str());
    } else {
      RemoveWithContents(path);
    }
  }
  RemoveDirectoryW(folder.c_str());
}

}  // namespace

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

void RemoveTree(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::path path = std::filesystem::absolute(folder, error).lexically_normal();
  if (!error) RemoveWithContents(L"\\\\?\\" + path.make_preferred().wstring());
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
