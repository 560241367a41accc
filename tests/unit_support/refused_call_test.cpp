// What this layer makes of calls that the system refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/run_aside.h"
#include "support/simple_log.h"
#include "support/sized_file.h"
#include "support/text.h"
#include "tests/faults/faults.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using os::Call;
using test::Faults;

class RefusedCallTest : public testing::Test {
 protected:
  const test::TempFolder m_temp;
  const std::wstring m_path = m_temp.File(L"file.bin");
  Faults m_faults;
};

TEST_F(RefusedCallTest, SizedFileThatCannotBeCreatedIsNotThere) {
  m_faults.Fail(Call::kOpenFile);
  EXPECT_EQ(CreateSizedFile(m_path, 100), SizedFileResult::kNotCreated);
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(RefusedCallTest, FileThatCannotBeReplacedStays) {
  test::WriteFileBytes(m_path, "old");
  m_faults.Fail(Call::kRemoveFile);
  EXPECT_EQ(CreateSizedFile(m_path, 100), SizedFileResult::kNotCreated);
  EXPECT_EQ(test::ReadFileBytes(m_path), "old");
}

TEST_F(RefusedCallTest, SizedFileWhoseEndIsNotReachedIsNotThere) {
  m_faults.Fail(Call::kSeek);
  EXPECT_EQ(CreateSizedFile(m_path, 100), SizedFileResult::kNotCreated);
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(RefusedCallTest, SizedFileThatCannotBeExtendedIsNotThere) {
  m_faults.Fail(Call::kSetEnd);
  EXPECT_EQ(CreateSizedFile(m_path, 100), SizedFileResult::kNotExtended);
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(RefusedCallTest, WorkAsideWithoutAThreadHasNoAnswer) {
  m_faults.Fail(Call::kThread);
  bool ran = false;
  const auto work = [&ran] {
    ran = true;
    return 1;
  };
  EXPECT_FALSE(RunAside<int>(work, nullptr, os::kForever).has_value());
  EXPECT_FALSE(ran);
  EXPECT_EQ(RunAside<int>(work, nullptr, os::kForever), 1);
}

TEST_F(RefusedCallTest, WorkAsideThatCannotBeWaitedForHasNoAnswerAndHangsNobody) {
  const os::Event stop;
  m_faults.Fail(Call::kWait);
  EXPECT_FALSE(RunAside<int>([] { return 1; }, &stop, os::kForever).has_value());
}

TEST_F(RefusedCallTest, EventThatWasNotGrantedIsWaitedForAllTheSame) {
  m_faults.Fail(Call::kEvent);
  os::Event event;
  EXPECT_FALSE(event.valid());
  EXPECT_FALSE(event.Wait(0));
  EXPECT_FALSE(event.Wait(20));
  event.Set();
  EXPECT_TRUE(event.Wait(os::kForever));
}

TEST_F(RefusedCallTest, LogWithoutItsBackupThreadIsMovedAsideAtTheEnd) {
  const std::wstring path = m_temp.File(L"tarnlo.log");
  simpleLog log(WideToNarrow(path));
  m_faults.Fail(Call::kThread);
  log.StartBackups();
  EXPECT_EQ(m_faults.Failed(), 1);
  simpleLog::Log(&log, 0, "%s", "line");
  log.ShutDown();
  const std::vector<std::wstring> names = m_temp.Names();
  ASSERT_EQ(names.size(), 2u);
  EXPECT_EQ(names[0], L"tarnlo.log");
  EXPECT_NE(test::ReadFileBytes(m_temp.File(names[1])).find("line"), std::string::npos);
}

}  // namespace
}  // namespace Tarnlo
