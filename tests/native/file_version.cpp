#include "support/os/file_version.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

#include "tests/native/native_path.h"

namespace Tarnlo::os {
namespace {

// How the fixed file information begins: its mark and the version of its layout.
constexpr std::string_view kMark("\xBD\x04\xEF\xFE\x00\x00\x01\x00", 8);

int Word(const std::string& bytes, std::size_t at) {
  std::uint16_t word = 0;
  std::memcpy(&word, bytes.data() + at, sizeof(word));
  return word;
}

}  // namespace

// Looks for the mark and nothing else: enough for the files that the tests make.
std::optional<std::array<int, 4>> ReadFileVersion(const std::wstring& path) {
  std::ifstream stream(native::NativePath(path), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  const std::size_t at = bytes.find(kMark);
  if (at == std::string::npos || at + 16 > bytes.size()) return std::nullopt;
  return std::array{Word(bytes, at + 10), Word(bytes, at + 8), Word(bytes, at + 14),
                    Word(bytes, at + 12)};
}

}  // namespace Tarnlo::os
