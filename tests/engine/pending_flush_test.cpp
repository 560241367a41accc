#include "engine/pending_flush.h"

#include <gtest/gtest.h>

#include "support/os/file.h"
#include "tests/faults/faults.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {
namespace {

using os::Call;
using Outcome = PendingFlush::Outcome;

constexpr std::uint32_t kPatienceMs = 30'000;

class PendingFlushTest : public testing::Test {
 protected:
  PendingFlushTest() { WriteFileBytes(m_path, "bytes"); }
  Outcome Flush() const {
    const auto flush = PendingFlush::Begin(m_path);
    EXPECT_TRUE(flush->done().Wait(kPatienceMs));
    EXPECT_EQ(PendingFlush::Of(m_path), nullptr);
    return flush->outcome();
  }

  const TempFolder m_temp;
  const std::wstring m_path = m_temp.File(L"file.bin");
  Faults m_faults;
};

TEST_F(PendingFlushTest, FileIsFlushedAndClosed) {
  EXPECT_EQ(Flush(), Outcome::kFlushed);
  EXPECT_EQ(m_faults.Calls(Call::kFlush), 1);
  const os::File alone = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kNone,
                                        os::FileCreation::kOpenExisting);
  EXPECT_TRUE(alone.valid());
}

TEST_F(PendingFlushTest, DiskThatRefusesIsToldApartFromAFileThatCannotBeOpened) {
  m_faults.Fail(Call::kFlush);
  EXPECT_EQ(Flush(), Outcome::kRefused);
  m_faults.Fail(Call::kOpenFile);
  EXPECT_EQ(Flush(), Outcome::kNone);
  m_faults.Fail(Call::kThread);
  EXPECT_EQ(Flush(), Outcome::kNone);
}

// Whoever comes later, another job included, can wait for it.
TEST_F(PendingFlushTest, OneThatIsUnderWayIsFoundByItsFile) {
  m_faults.Hold(Call::kFlush);
  const auto flush = PendingFlush::Begin(m_path);
  EXPECT_TRUE(m_faults.AwaitCalls(Call::kFlush, 1));
  EXPECT_EQ(PendingFlush::Of(m_path), flush);
  EXPECT_FALSE(flush->done().IsSet());
  EXPECT_EQ(flush->outcome(), Outcome::kNone);
  m_faults.LetThrough();
  EXPECT_TRUE(flush->done().Wait(kPatienceMs));
}

}  // namespace
}  // namespace Tarnlo::test
