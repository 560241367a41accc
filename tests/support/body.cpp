#include "tests/support/body.h"

#include <algorithm>
#include <vector>

#include "support/os/file.h"

namespace Tarnlo::test {
namespace {

std::uint64_t Mix(std::uint64_t number) {
  number += 0x9E3779B97F4A7C15;
  number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9;
  number = (number ^ number >> 27) * 0x94D049BB133111EB;
  return number ^ number >> 31;
}

}  // namespace

void Body::Fill(std::int64_t offset, char* bytes, std::size_t count) const {
  const std::uint64_t salt = m_seed * 0xD6E8FEB86659FD93;
  auto at = static_cast<std::uint64_t>(offset);
  std::size_t done = 0;
  while (done < count) {
    std::uint64_t word = Mix(at / 8 ^ salt) >> (at % 8 * 8);
    for (std::uint64_t i = at % 8; i < 8 && done < count; ++i, ++at, ++done, word >>= 8) {
      bytes[done] = static_cast<char>(word & 0xFF);
    }
  }
}

std::string Body::Bytes(std::int64_t offset, std::size_t count) const {
  std::string bytes(count, '\0');
  Fill(offset, bytes.data(), count);
  return bytes;
}

std::string FileDifference(const std::wstring& path, const Body& body) {
  const os::File file = os::File::Open(path, os::FileAccess::kRead, os::FileShare::kReadWriteDelete,
                                       os::FileCreation::kOpenExisting);
  const auto size = file.Size();
  if (!size) return "the file cannot be read";
  if (*size != body.size()) {
    return "the file has " + std::to_string(*size) + " bytes, not " + std::to_string(body.size());
  }
  return FileDifference(path, body, 0, body.size());
}

std::string FileDifference(const std::wstring& path, const Body& body, std::int64_t begin,
                           std::int64_t end) {
  constexpr std::int64_t kBlock = 1 << 20;
  os::File file = os::File::Open(path, os::FileAccess::kRead, os::FileShare::kReadWriteDelete,
                                 os::FileCreation::kOpenExisting);
  if (!file.valid() || !file.Seek(begin)) return "the file cannot be read";
  std::vector<char> found(kBlock);
  std::vector<char> wanted(kBlock);
  while (begin < end) {
    const auto block = static_cast<std::uint32_t>(std::min(kBlock, end - begin));
    const auto read = file.Read(found.data(), block);
    if (!read || *read != block) return "the file ends at " + std::to_string(begin);
    body.Fill(begin, wanted.data(), block);
    const auto first = std::mismatch(found.begin(), found.begin() + block, wanted.begin()).first;
    if (first != found.begin() + block) {
      return "the file differs at " + std::to_string(begin + (first - found.begin()));
    }
    begin += block;
  }
  return {};
}

}  // namespace Tarnlo::test
