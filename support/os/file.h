// Files by path and by handle.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/os/handle.h"

namespace Tarnlo::os {

enum class FileAccess { kRead, kWrite, kReadWrite };
enum class FileShare { kNone, kRead, kReadWrite, kReadWriteDelete };
enum class FileCreation { kOpenExisting, kCreateNew, kOpenAlways, kCreateAlways };

// One open file. Threads: used by one thread at a time. Paths of any length the system can hold.
class File {
 public:
  File() = default;
  // Not valid when the system refuses.
  static File Open(const std::wstring& path, FileAccess access, FileShare share,
                   FileCreation creation);

  [[nodiscard]] bool valid() const { return m_handle.valid(); }
  void Close() { m_handle.Reset(); }

  [[nodiscard]] std::optional<std::int64_t> Size() const;
  // From the beginning, 0 or more. True only when the position reached is the one asked for.
  bool Seek(std::int64_t position);
  // What was read, 0 at the end; nothing on failure.
  std::optional<std::uint32_t> Read(void* bytes, std::uint32_t count);
  // What was written, which a full disk can make less than `count`; nothing on failure.
  std::optional<std::uint32_t> Write(const void* bytes, std::uint32_t count);
  // The file ends at the current position from now on.
  bool SetEnd();
  bool Flush();

 private:
  KernelHandle m_handle;
};

// Puts the bytes behind the end of the file, which is made when there is none, in one write: other
// processes see all of them or none. The file is shared with everyone, renaming included, so that
// the handle of a thread that died here stands in nobody's way.
bool AppendToFile(const std::wstring& path, std::string_view bytes);

bool RemoveFile(const std::wstring& path);
bool IsFile(const std::wstring& path);  // there, and no folder
bool IsDirectory(const std::wstring& path);
bool SetHidden(const std::wstring& path);
bool SetNormal(const std::wstring& path);

enum class RenameResult {
  kDone,
  kBusy,    // someone holds one of the two open: worth another try
  kFailed,  // anything else
};
// Puts `from` in the place of `to`, over a file that is there; on failure both stay as they were.
RenameResult ReplaceByRename(const std::wstring& from, const std::wstring& to);

enum class RenameNewResult {
  kDone,
  kTaken,   // there is a file of the new name
  kFailed,  // anything else
};
// Gives `from` the name `to`, which must be free; on failure both stay as they were.
RenameNewResult RenameNew(const std::wstring& from, const std::wstring& to);

}  // namespace Tarnlo::os
