#include "engine/patient_file.h"

#include <array>
#include <cstdint>

namespace Tarnlo {
namespace {

constexpr std::array<std::uint32_t, 3> kPausesMs = {200, 400, 800};

// Tries until there is no reason to try again, four times at most.
template <typename Try>
void TryPatiently(const os::Event* stop, Try try_once) {
  bool again = try_once();
  for (const std::uint32_t pause_ms : kPausesMs) {
    if (!again || stop == nullptr || stop->Wait(pause_ms)) return;
    again = try_once();
  }
}

}  // namespace

os::File OpenPatiently(const std::wstring& path, os::FileAccess access, const os::Event* stop) {
  const os::FileShare share =
      access == os::FileAccess::kRead ? os::FileShare::kRead : os::FileShare::kReadWrite;
  os::File file;
  TryPatiently(stop, [&] {
    file = os::File::Open(path, access, share, os::FileCreation::kOpenExisting);
    return !file.valid() && os::IsFile(path);
  });
  return file;
}

bool ReplacePatiently(const std::wstring& from, const std::wstring& to, const os::Event* stop) {
  os::RenameResult result = os::RenameResult::kFailed;
  TryPatiently(stop, [&] {
    result = os::ReplaceByRename(from, to);
    return result == os::RenameResult::kBusy;
  });
  return result == os::RenameResult::kDone;
}

}  // namespace Tarnlo
