// The end of the log where nothing may be allocated, short paths and long.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>

#include "support/os/clock.h"
#include "support/os/file.h"
#include "support/os/path_form.h"
#include "support/simple_log.h"
#include "support/text.h"
#include "tests/support/temp_folder.h"

namespace {

thread_local bool t_counting = false;
thread_local int t_allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  if (t_counting) ++t_allocations;
  if (void* const bytes = std::malloc(size == 0 ? 1 : size)) return bytes;
  throw std::bad_alloc();
}
void operator delete(void* bytes) noexcept {
  std::free(bytes);
}
void operator delete(void* bytes, std::size_t /*size*/) noexcept {
  std::free(bytes);
}

namespace Tarnlo {
namespace {

std::wstring DateOf(const os::LocalTime& time) {
  const auto two = [](int number) {
    const std::wstring digits = NumberToWide(number);
    return digits.size() < 2 ? L"0" + digits : digits;
  };
  return NumberToWide(time.year) + L"-" + two(time.month) + L"-" + two(time.day);
}

// -1 when there is no such file.
std::int64_t SizeOf(const std::wstring& path) {
  const os::File file = os::File::Open(path, os::FileAccess::kRead, os::FileShare::kReadWriteDelete,
                                       os::FileCreation::kOpenExisting);
  return file.valid() ? file.Size().value_or(-1) : -1;
}

class LogAtExitTest : public testing::TestWithParam<std::size_t> {
 protected:
  // A folder whose log has a path of that many characters.
  std::wstring FolderFor(std::size_t length) {
    const std::size_t fixed = m_temp.path().size() + std::wstring(L"\\tarnlo.log").size();
    const std::wstring name(length - fixed, L'f');
    std::filesystem::create_directory(os::CallForm(m_temp.path() + name, 300));
    return m_temp.path() + name;
  }
  test::TempFolder m_temp;
};

TEST_P(LogAtExitTest, FileIsMovedAsideAndNothingIsAllocated) {
  const std::wstring folder = FolderFor(GetParam());
  const std::wstring log_path = simpleLog::PathIn(folder);
  ASSERT_EQ(log_path.size(), GetParam());
  simpleLog log(WideToNarrow(log_path));
  log.StartBackups();
  simpleLog::Log(&log, kLogInfo, "line");
  const std::wstring before = DateOf(os::LocalTimeNow());
  t_allocations = 0;
  t_counting = true;
  log.ShutDown();
  t_counting = false;
  EXPECT_EQ(t_allocations, 0);
  const std::wstring backup = log_path + L"." + DateOf(os::LocalTimeNow());
  // Midnight may have come between the two.
  EXPECT_TRUE(SizeOf(backup) > 0 || SizeOf(log_path + L"." + before) > 0);
  EXPECT_EQ(SizeOf(log_path), 0);
  for (const std::wstring& name : {log_path, backup, log_path + L"." + before}) {
    os::RemoveFile(name);
  }
  std::filesystem::remove(os::CallForm(folder, 300));
}

// Around the length from which the system wants another form of the path, and of a backup's name.
INSTANTIATE_TEST_SUITE_P(Lengths, LogAtExitTest, testing::Values(150, 228, 229, 239, 240, 269));

}  // namespace
}  // namespace Tarnlo
