#include "support/paths.h"

#include <algorithm>

#include "support/os/file.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kMaxPart = kNameCapacity - 1;

bool IsAsciiLetter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}
bool IsAsciiDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}

// The one kind of separator that counts in this text.
wchar_t SeparatorOf(std::wstring_view text) {
  return text.find(L'/') != std::wstring_view::npos ? L'/' : L'\\';
}

std::wstring Cut(std::wstring_view text) {
  return std::wstring(text.substr(0, kMaxPart));
}

bool IsForbidden(wchar_t c, CleanMode mode) {
  constexpr std::wstring_view kForbidden = L":*?\"<>|";
  const bool separator = c == L'\\' || c == L'/';
  return kForbidden.find(c) != std::wstring_view::npos || (separator && mode == CleanMode::kName);
}

}  // namespace

std::wstring CleanName(std::wstring_view text, CleanMode mode) {
  std::wstring result(text);
  const bool drive =
      mode == CleanMode::kPath && text.size() >= 2 && IsAsciiLetter(text[0]) && text[1] == L':';
  std::replace_if(
      result.begin() + (drive ? 2 : 0), result.end(),
      [mode](wchar_t c) { return IsForbidden(c, mode); }, L'_');
  return result;
}

std::optional<PathParts> SplitPath(std::wstring_view path) {
  const wchar_t separator = SeparatorOf(path);
  PathParts parts;
  if (os::IsDirectory(std::wstring(path))) {
    parts.folder = path;
    if (path.back() != separator) parts.folder += separator;
  } else {
    const std::size_t at = path.rfind(separator);
    const std::size_t name_begin = at == std::wstring_view::npos ? 0 : at + 1;
    parts.folder = path.substr(0, name_begin);
    parts.name = Cut(path.substr(name_begin));
  }
  if (parts.folder.size() > kMaxPart) return std::nullopt;
  return parts;
}

std::optional<NameParts> SplitName(std::wstring_view text) {
  NameParts parts{Cut(text), {}};
  const std::size_t point = text.rfind(L'.');
  if (point == std::wstring_view::npos) return parts;
  if (point >= kNameCapacity) return std::nullopt;
  // A point at the very end stays.
  if (point + 1 != text.size()) parts.base = text.substr(0, point);
  const std::size_t separator = text.rfind(SeparatorOf(text));
  // The point of a folder's name has cut the base all the same, and gives no extension.
  if (separator != std::wstring_view::npos && separator > point) return parts;
  const std::wstring_view rest = text.substr(point + 1);
  const auto end = std::find_if_not(rest.begin(), rest.end(),
                                    [](wchar_t c) { return IsAsciiLetter(c) || IsAsciiDigit(c); });
  parts.extension = Cut(rest.substr(0, static_cast<std::size_t>(end - rest.begin())));
  return parts;
}

std::optional<FileParts> SplitFile(std::wstring_view path) {
  auto split = SplitPath(path);
  if (!split) return std::nullopt;
  auto name = SplitName(split->name);
  if (!name) return std::nullopt;
  return FileParts{std::move(split->folder), std::move(name->base), std::move(name->extension)};
}

}  // namespace Tarnlo
