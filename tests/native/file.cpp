#include "support/os/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "support/os/fault_point.h"
#include "tests/native/kernel_object.h"
#include "tests/native/native_path.h"
#include "tests/native/open_files.h"

namespace Tarnlo::os {
namespace {

namespace fs = std::filesystem;
using native::IdOf;
using native::IsReadOnly;
using native::OpenFiles;
using native::Stat;

class FileObject : public native::KernelObject {
 public:
  FileObject(int descriptor, const native::Opening& opening)
      : m_descriptor(descriptor), m_opening(opening) {
    struct stat status {};
    fstat(descriptor, &status);
    m_id = IdOf(status);
    OpenFiles::Table().Add(m_id, &m_opening);
  }
  FileObject(const FileObject&) = delete;
  FileObject& operator=(const FileObject&) = delete;
  ~FileObject() override {
    const OpenFiles::Guard guard(OpenFiles::Table().mutex());
    OpenFiles::Table().Remove(m_id, &m_opening);
    close(m_descriptor);
  }
  [[nodiscard]] int descriptor() const { return m_descriptor; }

 private:
  const int m_descriptor;
  const native::Opening m_opening;
  OpenFiles::Id m_id{};
};

// -1 for a file that is not open, which every call refuses.
int DescriptorOf(const KernelHandle& handle) {
  return handle.valid() ? native::ObjectOf<FileObject>(handle.get()).descriptor() : -1;
}

int AccessFlags(FileAccess access) {
  switch (access) {
    case FileAccess::kRead:
      return O_RDONLY;
    case FileAccess::kWrite:
      return O_WRONLY;
    case FileAccess::kReadWrite:
      return O_RDWR;
  }
  return 0;
}

int CreationFlags(FileCreation creation) {
  switch (creation) {
    case FileCreation::kOpenExisting:
      return 0;
    case FileCreation::kCreateNew:
      return O_CREAT | O_EXCL;
    case FileCreation::kOpenAlways:
      return O_CREAT;
    case FileCreation::kCreateAlways:
      return O_CREAT | O_TRUNC;
  }
  return 0;
}

bool MayOpen(const OpenFiles& table, const struct stat& status, const native::Opening& opening,
             FileCreation creation) {
  if (S_ISDIR(status.st_mode) || (opening.writes && IsReadOnly(status))) return false;
  // A file is not created anew over one that is marked hidden.
  if (creation == FileCreation::kCreateAlways && table.IsHidden(IdOf(status))) return false;
  return table.Allows(IdOf(status), opening);
}

bool MayDelete(const OpenFiles& table, const struct stat& status) {
  return !IsReadOnly(status) && table.AllowsDelete(IdOf(status));
}

// Runs `change` on the marks of the file; false when there is none.
template <typename Change>
bool ChangeMark(const std::wstring& path, Change change) {
  OpenFiles& table = OpenFiles::Table();
  const OpenFiles::Guard guard(table.mutex());
  const fs::path native_path = native::NativePath(path);
  struct stat status {};
  if (!Stat(native_path, status)) return false;
  change(table, IdOf(status));
  // A mark of any kind stands for all others: read-only is gone.
  return chmod(native_path.c_str(), status.st_mode | S_IWUSR) == 0;
}

// An invalid handle when the system, or another that has the file open, refuses.
KernelHandle OpenNative(const std::wstring& path, const native::Opening& opening, int flags,
                        FileCreation creation) {
  const fs::path native_path = native::NativePath(path);
  if (native_path.empty()) return KernelHandle();
  OpenFiles& table = OpenFiles::Table();
  const OpenFiles::Guard guard(table.mutex());
  struct stat status {};
  const bool there = Stat(native_path, status);
  if (there && !MayOpen(table, status, opening, creation)) return KernelHandle();
  const int descriptor =
      open(native_path.c_str(), flags | CreationFlags(creation) | O_CLOEXEC, 0666);
  if (descriptor < 0) return KernelHandle();
  KernelHandle handle(
      native::HandleOf(std::make_unique<FileObject>(descriptor, opening).release()));
  if (!there && Stat(native_path, status)) table.Show(IdOf(status));  // the number was another's
  return handle;
}

}  // namespace

File File::Open(const std::wstring& path, FileAccess access, FileShare share,
                FileCreation creation) {
  File file;
  if (Fails(Call::kOpenFile)) return file;
  const native::Opening opening{access == FileAccess::kRead || access == FileAccess::kReadWrite,
                                access != FileAccess::kRead, share};
  file.m_handle = OpenNative(path, opening, AccessFlags(access), creation);
  return file;
}

std::optional<std::int64_t> File::Size() const {
  if (Fails(Call::kFileSize)) return std::nullopt;
  struct stat status {};
  if (fstat(DescriptorOf(m_handle), &status) != 0) return std::nullopt;
  return status.st_size;
}

bool File::Seek(std::int64_t position) {
  if (Fails(Call::kSeek)) return false;
  return position >= 0 && lseek(DescriptorOf(m_handle), position, SEEK_SET) == position;
}

std::optional<std::uint32_t> File::Read(void* bytes, std::uint32_t count) {
  if (Fails(Call::kRead)) return std::nullopt;
  const ssize_t done = read(DescriptorOf(m_handle), bytes, count);
  if (done < 0) return std::nullopt;
  return static_cast<std::uint32_t>(done);
}

std::optional<std::uint32_t> File::Write(const void* bytes, std::uint32_t count) {
  if (Fails(Call::kWrite)) return std::nullopt;
  if (Fails(Call::kWriteWhole)) count /= 2;
  const ssize_t done = write(DescriptorOf(m_handle), bytes, count);
  if (done < 0) return std::nullopt;
  return static_cast<std::uint32_t>(done);
}

bool File::SetEnd() {
  if (Fails(Call::kSetEnd)) return false;
  const int descriptor = DescriptorOf(m_handle);
  const off_t position = lseek(descriptor, 0, SEEK_CUR);
  return position >= 0 && ftruncate(descriptor, position) == 0;
}

bool File::Flush() {
  if (Fails(Call::kFlush)) return false;
  return fdatasync(DescriptorOf(m_handle)) == 0;
}

bool AppendToFile(const std::wstring& path, std::string_view bytes) {
  const KernelHandle file = OpenNative(path, {false, true, FileShare::kReadWriteDelete},
                                       O_WRONLY | O_APPEND, FileCreation::kOpenAlways);
  return file.valid() && write(DescriptorOf(file), bytes.data(), bytes.size()) == std::ssize(bytes);
}

bool RemoveFile(const std::wstring& path) {
  if (Fails(Call::kRemoveFile)) return false;
  OpenFiles& table = OpenFiles::Table();
  const OpenFiles::Guard guard(table.mutex());
  const fs::path native_path = native::NativePath(path);
  struct stat status {};
  if (!Stat(native_path, status) || !MayDelete(table, status)) return false;
  if (unlink(native_path.c_str()) != 0) return false;
  table.Show(IdOf(status));
  return true;
}

bool IsFile(const std::wstring& path) {
  struct stat status {};
  return Stat(native::NativePath(path), status) && !S_ISDIR(status.st_mode);
}

bool IsDirectory(const std::wstring& path) {
  struct stat status {};
  return Stat(native::NativePath(path), status) && S_ISDIR(status.st_mode);
}

bool SetHidden(const std::wstring& path) {
  if (Fails(Call::kMarkFile)) return false;
  return ChangeMark(path, [](OpenFiles& table, const OpenFiles::Id& id) { table.Hide(id); });
}

bool SetNormal(const std::wstring& path) {
  if (Fails(Call::kMarkFile)) return false;
  return ChangeMark(path, [](OpenFiles& table, const OpenFiles::Id& id) { table.Show(id); });
}

RenameResult ReplaceByRename(const std::wstring& from, const std::wstring& to) {
  if (Fails(Call::kRename)) return RenameResult::kBusy;
  OpenFiles& table = OpenFiles::Table();
  const OpenFiles::Guard guard(table.mutex());
  const fs::path native_from = native::NativePath(from);
  const fs::path native_to = native::NativePath(to);
  struct stat source {};
  struct stat target {};
  if (!Stat(native_from, source) || native_to.empty()) return RenameResult::kFailed;
  if (!table.AllowsDelete(IdOf(source))) return RenameResult::kBusy;
  const bool replaces = Stat(native_to, target) && IdOf(source) != IdOf(target);
  if (replaces && (S_ISDIR(target.st_mode) || IsReadOnly(target) || table.IsOpen(IdOf(target)))) {
    return RenameResult::kBusy;
  }
  if (rename(native_from.c_str(), native_to.c_str()) != 0) return RenameResult::kFailed;
  if (replaces) table.Show(IdOf(target));
  return RenameResult::kDone;
}

RenameNewResult RenameNew(const std::wstring& from, const std::wstring& to) {
  OpenFiles& table = OpenFiles::Table();
  const OpenFiles::Guard guard(table.mutex());
  const fs::path native_from = native::NativePath(from);
  const fs::path native_to = native::NativePath(to);
  struct stat source {};
  struct stat target {};
  if (!Stat(native_from, source) || native_to.empty()) return RenameNewResult::kFailed;
  if (!table.AllowsDelete(IdOf(source))) return RenameNewResult::kFailed;
  if (Stat(native_to, target)) return RenameNewResult::kTaken;
  return rename(native_from.c_str(), native_to.c_str()) == 0 ? RenameNewResult::kDone
                                                             : RenameNewResult::kFailed;
}

}  // namespace Tarnlo::os
