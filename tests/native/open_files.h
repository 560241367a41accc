// What Windows knows of files and Linux does not: how open ones may be shared, and their marks.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "support/os/file.h"
#include "tests/native/unfrozen.h"

namespace Tarnlo::os::native {

// One opening of a file.
struct Opening {
  bool reads = false;
  bool writes = false;
  FileShare share = FileShare::kNone;
};

// The files that this process has open through the seam.
//
// Threads: any; the lock is held over the system calls that have to agree with the table.
class OpenFiles {
 public:
  using Id = std::pair<dev_t, ino_t>;
  using Guard = SeamGuard;

  // Of the process; there until its very end.
  static OpenFiles& Table();

  std::mutex& mutex() { return m_mutex; }

  // With the lock held:
  [[nodiscard]] bool Allows(const Id& file, const Opening& opening) const;
  [[nodiscard]] bool AllowsDelete(const Id& file) const;
  [[nodiscard]] bool IsOpen(const Id& file) const { return m_openings.contains(file); }
  void Add(const Id& file, const Opening* opening) { m_openings[file].push_back(opening); }
  void Remove(const Id& file, const Opening* opening);
  [[nodiscard]] bool IsHidden(const Id& file) const { return m_hidden.contains(file); }
  void Hide(const Id& file) { m_hidden.insert(file); }
  void Show(const Id& file) { m_hidden.erase(file); }

 private:
  std::mutex m_mutex;
  std::map<Id, std::list<const Opening*>> m_openings;
  std::set<Id> m_hidden;
};

// False when there is no such file.
bool Stat(const std::filesystem::path& path, struct stat& status);
inline OpenFiles::Id IdOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}
// No write permission for the owner is what Windows calls read-only, for the administrator too.
inline bool IsReadOnly(const struct stat& status) {
  return (status.st_mode & S_IWUSR) == 0;
}

}  // namespace Tarnlo::os::native
