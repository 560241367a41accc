#include "engine/file_md5.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/md5.h"
#include "engine/patient_file.h"
#include "support/os/buffer.h"
#include "support/os/file.h"

namespace Tarnlo {
namespace {

// Between two looks at the stop event; a slow disk would take too long for more.
constexpr std::int64_t kBlockBytes = 0x100000;

}  // namespace

std::optional<std::wstring> ComputeFileMd5(const std::wstring& path, const os::Event* stop) {
  os::File file = OpenPatiently(path, os::FileAccess::kRead, stop);
  if (!file.valid()) {
    if (stop != nullptr && stop->IsSet()) return std::nullopt;
    return std::wstring();
  }
  const std::optional<std::int64_t> size = file.Size();
  if (!size.has_value()) return std::wstring();
  const std::unique_ptr<char[]> block =
      os::AllocateBuffer(static_cast<std::size_t>(std::min(*size, kBlockBytes)));
  if (block == nullptr) return std::wstring();
  MD5 md5;
  for (std::int64_t left = *size; left > 0;) {
    const auto wanted = static_cast<std::uint32_t>(std::min(left, kBlockBytes));
    const std::uint32_t count = file.Read(block.get(), wanted).value_or(0);
    if (stop != nullptr && stop->IsSet()) return std::nullopt;
    if (count == 0) break;
    md5.Update(block.get(), count);
    left -= count;
  }
  md5.Finalize();
  return md5.HexDigest();
}

}  // namespace Tarnlo
