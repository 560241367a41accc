#include "support/sized_file.h"

#include "support/os/file.h"

namespace Tarnlo {
namespace {

SizedFileResult LayOut(const std::wstring& path, std::int64_t size) {
  os::File file = os::File::Open(path, os::FileAccess::kWrite, os::FileShare::kNone,
                                 os::FileCreation::kCreateNew);
  if (!file.valid()) return SizedFileResult::kNotCreated;
  if (size < 1) return SizedFileResult::kDone;
  if (!file.Seek(size)) return SizedFileResult::kNotCreated;
  return file.SetEnd() ? SizedFileResult::kDone : SizedFileResult::kNotExtended;
}

}  // namespace

SizedFileResult CreateSizedFile(const std::wstring& path, std::int64_t size) {
  if (path.empty()) return SizedFileResult::kNoName;
  os::RemoveFile(path);
  const SizedFileResult result = LayOut(path, size);
  if (result != SizedFileResult::kDone) os::RemoveFile(path);
  return result;
}

}  // namespace Tarnlo
