#include "support/os/file.h"

#include "support/os/fault_point.h"
#include "support/os/win32/native_path.h"
#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

DWORD NativeAccess(FileAccess access) {
  switch (access) {
    case FileAccess::kRead:
      return GENERIC_READ;
    case FileAccess::kWrite:
      return GENERIC_WRITE;
    case FileAccess::kReadWrite:
      return GENERIC_READ | GENERIC_WRITE;
  }
  return 0;
}

DWORD NativeShare(FileShare share) {
  switch (share) {
    case FileShare::kNone:
      return 0;
    case FileShare::kRead:
      return FILE_SHARE_READ;
    case FileShare::kReadWrite:
      return FILE_SHARE_READ | FILE_SHARE_WRITE;
    case FileShare::kReadWriteDelete:
      return FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  }
  return 0;
}

DWORD NativeCreation(FileCreation creation) {
  switch (creation) {
    case FileCreation::kOpenExisting:
      return OPEN_EXISTING;
    case FileCreation::kCreateNew:
      return CREATE_NEW;
    case FileCreation::kOpenAlways:
      return OPEN_ALWAYS;
    case FileCreation::kCreateAlways:
      return CREATE_ALWAYS;
  }
  return 0;
}

}  // namespace

File File::Open(const std::wstring& path, FileAccess access, FileShare share,
                FileCreation creation) {
  File file;
  if (Fails(Call::kOpenFile)) return file;
  const NativePath native(path);
  file.m_handle.Reset(CreateFileW(native.c_str(), NativeAccess(access), NativeShare(share), nullptr,
                                  NativeCreation(creation), FILE_ATTRIBUTE_NORMAL, nullptr));
  return file;
}

std::optional<std::int64_t> File::Size() const {
  if (Fails(Call::kFileSize)) return std::nullopt;
  LARGE_INTEGER size{};
  if (GetFileSizeEx(m_handle.get(), &size) == 0) return std::nullopt;
  return size.QuadPart;
}

bool File::Seek(std::int64_t position) {
  if (Fails(Call::kSeek)) return false;
  LARGE_INTEGER wanted{};
  wanted.QuadPart = position;
  LARGE_INTEGER reached{};
  return SetFilePointerEx(m_handle.get(), wanted, &reached, FILE_BEGIN) != 0 &&
         reached.QuadPart == position;
}

std::optional<std::uint32_t> File::Read(void* bytes, std::uint32_t count) {
  if (Fails(Call::kRead)) return std::nullopt;
  DWORD done = 0;
  if (ReadFile(m_handle.get(), bytes, count, &done, nullptr) == 0) return std::nullopt;
  return done;
}

std::optional<std::uint32_t> File::Write(const void* bytes, std::uint32_t count) {
  if (Fails(Call::kWrite)) return std::nullopt;
  if (Fails(Call::kWriteWhole)) count /= 2;
  DWORD done = 0;
  if (WriteFile(m_handle.get(), bytes, count, &done, nullptr) == 0) return std::nullopt;
  return done;
}

bool File::SetEnd() {
  if (Fails(Call::kSetEnd)) return false;
  return SetEndOfFile(m_handle.get()) != 0;
}

bool File::Flush() {
  if (Fails(Call::kFlush)) return false;
  return FlushFileBuffers(m_handle.get()) != 0;
}

bool AppendToFile(const std::wstring& path, std::string_view bytes) {
  const KernelHandle file(CreateFileW(NativePath(path).c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                      NativeShare(FileShare::kReadWriteDelete), nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD done = 0;
  return file.valid() &&
         (bytes.empty() || WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()),
                                     &done, nullptr) != 0) &&
         done == bytes.size();
}

bool RemoveFile(const std::wstring& path) {
  if (Fails(Call::kRemoveFile)) return false;
  return DeleteFileW(NativePath(path).c_str()) != 0;
}

bool IsFile(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return GetFileAttributesExW(NativePath(path).c_str(), GetFileExInfoStandard, &data) != 0 &&
         (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool IsDirectory(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return GetFileAttributesExW(NativePath(path).c_str(), GetFileExInfoStandard, &data) != 0 &&
         (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool SetHidden(const std::wstring& path) {
  if (Fails(Call::kMarkFile)) return false;
  return SetFileAttributesW(NativePath(path).c_str(), FILE_ATTRIBUTE_HIDDEN) != 0;
}

bool SetNormal(const std::wstring& path) {
  if (Fails(Call::kMarkFile)) return false;
  return SetFileAttributesW(NativePath(path).c_str(), FILE_ATTRIBUTE_NORMAL) != 0;
}

RenameResult ReplaceByRename(const std::wstring& from, const std::wstring& to) {
  if (Fails(Call::kRename)) return RenameResult::kBusy;
  const NativePath native_from(from);
  const NativePath native_to(to);
  if (MoveFileExW(native_from.c_str(), native_to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {
    return RenameResult::kDone;
  }
  switch (GetLastError()) {
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
      return RenameResult::kBusy;
    default:
      return RenameResult::kFailed;
  }
}

RenameNewResult RenameNew(const std::wstring& from, const std::wstring& to) {
  const NativePath native_from(from);
  const NativePath native_to(to);
  if (MoveFileExW(native_from.c_str(), native_to.c_str(), 0) != 0) return RenameNewResult::kDone;
  const DWORD error = GetLastError();
  return error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS ? RenameNewResult::kTaken
                                                                     : RenameNewResult::kFailed;
}

}  // namespace Tarnlo::os
