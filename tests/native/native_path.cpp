#include "tests/native/native_path.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <system_error>

#include "support/os/code_page.h"

namespace Tarnlo::os::native {
namespace {

namespace fs = std::filesystem;

constexpr std::wstring_view kForbidden = L":*?\"<>|";

// What "C:\" is: made at its first use, removed at the process's end.
class DriveC {
 public:
  DriveC() : m_folder(NativeTempFolder() / ("tarnlo_drive_c_" + std::to_string(getpid()))) {
    std::error_code ignored;
    fs::create_directories(m_folder, ignored);
  }
  ~DriveC() {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
  }
  DriveC(const DriveC&) = delete;
  DriveC& operator=(const DriveC&) = delete;
  [[nodiscard]] const fs::path& folder() const { return m_folder; }

 private:
  const fs::path m_folder;
};

// Empty for a drive that is missing.
fs::path Drive(wchar_t letter) {
  if (letter == L'Z' || letter == L'z') return "/";
  if (letter != L'C' && letter != L'c') return {};
  static const DriveC drive;
  return drive.folder();
}

// The system's names are bytes, UTF-8 by custom. The C++ library's own conversion knows ASCII
// alone.
std::string NativeName(std::wstring_view name) {
  if (std::ranges::all_of(name, [](wchar_t c) { return c >= 0 && c < 0x80; })) {
    return {name.begin(), name.end()};
  }
  return WideToCodePage(name, kUtf8).value_or("");
}

bool IsForbidden(wchar_t c) {
  return c < L' ' || kForbidden.find(c) != std::wstring_view::npos;
}

}  // namespace

fs::path NativePath(std::wstring_view path) {
  fs::path root;
  if (path.size() >= 2 && path[1] == L':') {
    root = Drive(path[0]);
    if (root.empty()) return {};
    path.remove_prefix(std::min(path.find_first_not_of(L"\\/", 2), path.size()));
  }
  if (std::any_of(path.begin(), path.end(), IsForbidden)) return {};
  std::wstring rest(path);
  std::replace(rest.begin(), rest.end(), L'\\', L'/');
  return root / NativeName(rest);
}

std::wstring WindowsPath(const fs::path& path) {
  std::wstring text = L"Z:" + CodePageToWide(fs::absolute(path).string(), kUtf8);
  std::replace(text.begin(), text.end(), L'/', L'\\');
  return text;
}

fs::path NativeTempFolder() {
  for (const char* name : std::array{"TMPDIR", "TMP", "TEMP"}) {
    if (const char* const value = std::getenv(name); value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "/tmp";
}

}  // namespace Tarnlo::os::native
