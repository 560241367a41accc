// Paths and names: cleaning and splitting.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Tarnlo {

inline constexpr std::size_t kNameCapacity = 260;  // characters of a part, terminator included

enum class CleanMode {
  kName,  // separators become underscores too
  kPath,  // a leading drive and the separators stay
};
// Puts an underscore in the place of each character that a file name may not hold.
std::wstring CleanName(std::wstring_view text, CleanMode mode);

struct PathParts {
  std::wstring folder;  // with its closing separator
  std::wstring name;
};
// At the last separator: the forward slash where there is one, else the backslash. A path that
// names an existing directory is all folder. Nothing when the folder does not fit `kNameCapacity`.
std::optional<PathParts> SplitPath(std::wstring_view path);

struct NameParts {
  std::wstring base;
  std::wstring extension;  // without its point
};
// At the last point. The extension ends at its first character that is no ASCII letter or digit.
// A point inside a folder's name cuts the base all the same and gives no extension. Nothing when
// the point lies `kNameCapacity` or more characters in.
std::optional<NameParts> SplitName(std::wstring_view text);

struct FileParts {
  std::wstring folder;
  std::wstring base;
  std::wstring extension;
};
std::optional<FileParts> SplitFile(std::wstring_view path);

}  // namespace Tarnlo
