#include "engine/file_version.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "support/os/file_version.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kCompared = 3;

int ParseInt(std::string_view text) {
  std::wstring wide;
  // A byte beyond ASCII is no blank, whatever letter it stands for.
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    wide += byte < 0x80 ? static_cast<wchar_t>(byte) : L'?';
  }
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(
      std::clamp(ParseNumber(wide), std::int64_t{Limits::min()}, std::int64_t{Limits::max()}));
}

}  // namespace

std::wstring GetFileVersionString(const std::wstring& path) {
  const std::optional<std::array<int, 4>> version = os::ReadFileVersion(path);
  if (!version.has_value()) return {};
  std::wstring text;
  for (const int number : *version) {
    if (!text.empty()) text += L'.';
    text += NumberToWide(number);
  }
  return text;
}

std::vector<int> ParseVersion(std::string_view text) {
  std::vector<int> numbers;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of('.'), text.size()));
    if (text.empty()) return numbers;
    const std::string_view piece = text.substr(0, text.find('.'));
    numbers.push_back(ParseInt(piece));
    text.remove_prefix(piece.size());
  }
}

bool VersionReaches(const std::vector<int>& existing, const std::vector<int>& required) {
  if (existing.size() < kCompared || required.size() < kCompared) return false;
  return std::equal(existing.begin(), existing.begin() + kCompared, required.begin(),
                    [](int has, int needs) { return has >= needs; });
}

bool CompareFileVersion(const std::wstring& path, const std::wstring& required) {
  if (required.empty()) return false;
  return VersionReaches(ParseVersion(WideToNarrow(GetFileVersionString(path))),
                        ParseVersion(WideToNarrow(required)));
}

}  // namespace Tarnlo
