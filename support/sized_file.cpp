#include "support/sized_file.h"

#include "support/os/file.h"

namespace Tarnlo {

// Only what was made here is taken away again: a file that could not be replaced stays.
SizedFileResult CreateSizedFile(const std::wstring& path, std::int64_t size) {
  if (path.empty()) return SizedFileResult::kNoName;
  os::RemoveFile(path);
  os::File file = os::File::Open(path, os::FileAccess::kWrite, os::FileShare::kNone,
                                 os::FileCreation::kCreateNew);
  if (!file.valid()) return SizedFileResult::kNotCreated;
  if (size < 1) return SizedFileResult::kDone;
  const bool positioned = file.Seek(size);
  if (positioned && file.SetEnd()) return SizedFileResult::kDone;
  file.Close();
  os::RemoveFile(path);
  return positioned ? SizedFileResult::kNotExtended : SizedFileResult::kNotCreated;
}

}  // namespace Tarnlo
