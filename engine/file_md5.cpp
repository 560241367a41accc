#include "engine/file_md5.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "engine/md5.h"
#include "support/os/file.h"

namespace Tarnlo {
namespace {

constexpr std::int64_t kBlockBytes = 0x4000000;
constexpr std::uint32_t kSliceBytes = 0x100000;  // hashed between two looks at the stop event

// Empty when there is no room for it.
std::vector<std::uint8_t> MakeBlock(std::int64_t size) {
  try {
    return std::vector<std::uint8_t>(static_cast<std::size_t>(std::min(size, kBlockBytes)));
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace

std::optional<std::wstring> ComputeFileMd5(const std::wstring& path, const os::Event* stop) {
  os::File file = os::File::Open(path, os::FileAccess::kRead, os::FileShare::kRead,
                                 os::FileCreation::kOpenExisting);
  if (!file.valid()) return std::wstring();
  const std::optional<std::int64_t> size = file.Size();
  if (!size.has_value()) return std::wstring();
  std::vector<std::uint8_t> block = MakeBlock(*size);
  if (block.empty() && *size > 0) return std::wstring();
  MD5 md5;
  for (std::int64_t left = *size; left > 0;) {
    const auto wanted = static_cast<std::uint32_t>(std::min(left, kBlockBytes));
    const std::uint32_t count = file.Read(block.data(), wanted).value_or(0);
    if (count == 0) break;
    for (std::uint32_t done = 0; done < count; done += kSliceBytes) {
      if (stop != nullptr && stop->IsSet()) return std::nullopt;
      md5.Update(block.data() + done, std::min(kSliceBytes, count - done));
    }
    left -= count;
  }
  md5.Finalize();
  return md5.HexDigest();
}

}  // namespace Tarnlo
