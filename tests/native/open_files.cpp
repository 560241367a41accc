#include "tests/native/open_files.h"

#include <algorithm>

#include "support/process_object.h"

namespace Tarnlo::os::native {
namespace {

bool SharesReading(FileShare share) {
  return share != FileShare::kNone;
}
bool SharesWriting(FileShare share) {
  return share == FileShare::kReadWrite || share == FileShare::kReadWriteDelete;
}

// Whether what one does is shared by the other.
bool Agree(const Opening& one, const Opening& other) {
  return (!one.reads || SharesReading(other.share)) && (!one.writes || SharesWriting(other.share));
}

}  // namespace

OpenFiles& OpenFiles::Table() {
  static ProcessObject<OpenFiles> table;
  return *table;
}

bool OpenFiles::Allows(const Id& file, const Opening& opening) const {
  const auto found = m_openings.find(file);
  return found == m_openings.end() ||
         std::all_of(found->second.begin(), found->second.end(), [&](const Opening* other) {
           return Agree(opening, *other) && Agree(*other, opening);
         });
}

bool OpenFiles::AllowsDelete(const Id& file) const {
  const auto found = m_openings.find(file);
  return found == m_openings.end() ||
         std::all_of(found->second.begin(), found->second.end(), [](const Opening* other) {
           return other->share == FileShare::kReadWriteDelete;
         });
}

void OpenFiles::Remove(const Id& file, const Opening* opening) {
  const auto found = m_openings.find(file);
  found->second.remove(opening);
  if (found->second.empty()) m_openings.erase(found);
}

bool Stat(const std::filesystem::path& path, struct stat& status) {
  return !path.empty() && stat(path.c_str(), &status) == 0;
}

}  // namespace Tarnlo::os::native
