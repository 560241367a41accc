#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <system_error>

#include "tests/native/native_path.h"
#include "tests/native/open_files.h"
#include "tests/support/system.h"

namespace Tarnlo::test {

std::wstring SystemPath(const std::filesystem::path& path) {
  return os::native::WindowsPath(path);
}

std::filesystem::path LocalPath(const std::wstring& system_path) {
  return os::native::NativePath(system_path);
}

bool IsHidden(const std::wstring& system_path) {
  os::native::OpenFiles& table = os::native::OpenFiles::Table();
  const os::native::OpenFiles::Guard guard(table.mutex());
  struct stat status {};
  return os::native::Stat(LocalPath(system_path), status) &&
         table.IsHidden(os::native::IdOf(status));
}

void MakeSparseFile(const std::wstring& system_path) {
  const std::ofstream file(LocalPath(system_path));
}

void RemoveTree(const std::filesystem::path& folder) {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

std::string ProcessNumber() {
  return std::to_string(getpid());
}

void SetEnvironment(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
}

void PointTempFolderAt(const std::filesystem::path& folder) {
  SetEnvironment("TMPDIR", folder.string());
}

}  // namespace Tarnlo::test
