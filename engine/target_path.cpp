#include "engine/target_path.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "support/paths.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kLongestName = 255;

// The system takes these for devices in every folder, with an extension or without.
bool NamesDevice(std::wstring_view name) {
  static constexpr std::array<std::wstring_view, 7> kDevices = {
      L"con", L"prn", L"aux", L"nul", L"conin$", L"conout$", L"clock$"};
  static constexpr std::wstring_view kPortDigits = L"0123456789\u00B9\u00B2\u00B3";
  const std::wstring stem = ToLower(TrimBlanks(name.substr(0, name.find(L'.'))));
  if (std::ranges::find(kDevices, stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with(L"com") || stem.starts_with(L"lpt")) &&
         kPortDigits.find(stem[3]) != std::wstring_view::npos;
}

bool IsControl(wchar_t c) {
  return c < L' ';
}

// The name that the system itself would make of it, if that is a plain file's.
std::optional<std::wstring> PlainName(std::wstring name) {
  name.erase(name.find_last_not_of(L". ") + 1);
  if (name.empty() || name.size() > kLongestName || NamesDevice(name) ||
      std::ranges::any_of(name, IsControl)) {
    return std::nullopt;
  }
  return name;
}

// The caller's name in two parts, both empty when there is none that counts.
NameParts GivenParts(const TargetNames& names) {
  if (names.given.empty() || EqualIgnoringCase(names.given, names.in_url)) return {};
  return SplitName(names.given).value_or(NameParts{names.given, {}});
}

std::wstring FileName(const TargetNames& names) {
  const NameParts given = GivenParts(names);
  if (given.base.empty()) return CleanName(names.remote, CleanMode::kName);
  std::wstring base = CleanName(given.base, CleanMode::kName);
  if (given.extension.empty()) return base;
  return base + L"." + CleanName(given.extension, CleanMode::kName);
}

}  // namespace

std::optional<std::wstring> BuildTargetPath(const TargetNames& names) {
  std::wstring folder = names.folder;
  if (!folder.ends_with(L'\\')) folder += L'\\';
  const std::optional<std::wstring> name = PlainName(FileName(names));
  if (!name.has_value()) return std::nullopt;
  return CleanName(folder, CleanMode::kPath) + *name;
}

}  // namespace Tarnlo
