#include "engine/file_md5.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "engine/md5.h"
#include "support/os/file.h"

namespace Tarnlo {
namespace {

constexpr std::int64_t kBlockBytes = 0x4000000;

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

std::optional<std::wstring> ComputeFileMd5(const std::wstring& path, const os::Event* stop) {
  os::File file = os::File::Open(path, os::FileAccess::kRead, os::FileShare::kRead,
                                 os::FileCreation::kOpenExisting);
  if (!file.valid()) return std::wstring();
  const std::optional<std::int64_t> size = file.Size();
  // From calloc: zeroes that cost nothing until a block really is that long.
  const std::unique_ptr<void, FreeMemory> block(std::calloc(1, std::size_t{kBlockBytes}));
  if (!size.has_value() || block == nullptr) return std::wstring();
  MD5 md5;
  for (std::int64_t left = *size; left > 0;) {
    if (stop != nullptr && stop->IsSet()) return std::nullopt;
    const auto wanted = static_cast<std::uint32_t>(std::min(left, kBlockBytes));
    const std::uint32_t count = file.Read(block.get(), wanted).value_or(0);
    if (count == 0) break;
    md5.Update(block.get(), count);
    left -= count;
  }
  md5.Finalize();
  return md5.HexDigest();
}

}  // namespace Tarnlo
