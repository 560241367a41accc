// A job for which there is no memory. Under Wine alone: the sanitizers of the other builds want
// operator new for themselves.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "tests/engine/job_fixture.h"

namespace {

constinit std::atomic<std::size_t> g_refused_size{0};

// On whichever thread: the next that asks for just so many bytes does not get them.
bool IsRefused(std::size_t size) {
  return size != 0 && g_refused_size.compare_exchange_strong(size, 0);
}

}  // namespace

// Those with an alignment or without exceptions end here too, or keep the library's own pair.
void* operator new(std::size_t size) {
  void* const memory = IsRefused(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;

class WantOfMemory : public JobTest {
 protected:
  WantOfMemory() { Serve("/f", Body(kSmall)); }
  static void RefuseTheNext(std::size_t bytes) { g_refused_size = bytes; }
  static void RefuseTheNextWorker() { RefuseTheNext(sizeof(CDownloadHttp)); }
  static bool WasRefused() { return g_refused_size == 0; }
  void ExpectTheNextRunCompletes() {
    EXPECT_EQ(DownloadAgain("/f"), kResultSuccess);
    ExpectOneCleanAttempt();
    EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  }
};

TEST_F(WantOfMemory, ForTheProbeIsError6AndEndsTheStopEvent) {
  RefuseTheNextWorker();
  EXPECT_FALSE(Start("/f"));
  EXPECT_TRUE(WasRefused());
  EXPECT_EQ(OwnLines(), "D1 Derr6 F1 F16");
  EXPECT_FALSE(Job().HasStopEvent());
  EXPECT_TRUE(Observer().Events().empty());
  EXPECT_TRUE(Server().RequestsFor("/f").empty());
  EXPECT_TRUE(Files().empty());
  ExpectTheNextRunCompletes();
}

TEST_F(WantOfMemory, ForAWorkerInTheFirstAttemptIsMadeGoodInTheSecond) {
  Observer().OnEach([times = 0](const TaskEvent& event) mutable {
    if (event.type == kEventContentLength && ++times == 1) RefuseTheNextWorker();
  });
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_TRUE(WasRefused());
  const std::string lines = JobLines();
  EXPECT_NE(lines.find(" A1 A5 A6 S21 T7 T8 T10 F1 F16 T19 T22x3 T6 "), std::string::npos) << lines;
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
}

// For the name under which the attempt's number is stored: a text of its length and no room to
// spare, as the C++ library of this compiler asks for it.
TEST_F(WantOfMemory, OutsideOfAnAttemptEndsTheRunWhichSaysSo) {
  Observer().OnEach([times = 0](const TaskEvent& event) mutable {
    if (event.type == kEventStarted && ++times == 1) RefuseTheNext(sizeof(L"retrytips"));
  });
  EXPECT_EQ(Download("/f"), kResultWaitFailed);
  EXPECT_TRUE(WasRefused());
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T2");
  EXPECT_TRUE(Files().empty());
  ExpectTheNextRunCompletes();
}

}  // namespace
}  // namespace Tarnlo::test
