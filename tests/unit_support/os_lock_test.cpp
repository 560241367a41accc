#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "support/os/event.h"
#include "support/os/lock.h"
#include "support/os/thread.h"
#include "support/os/wait.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kLong = 30'000;

// A try from another thread, since a lock is not for one thread twice.
bool CanBeShared(Lock& lock) {
  bool shared = false;
  std::thread([&] {
    if (!lock.TryAcquireShared()) return;
    lock.ReleaseShared();
    shared = true;
  }).join();
  return shared;
}

TEST(OsLockTest, GuardExcludesEveryoneForItsScope) {
  Lock lock;
  {
    const LockGuard guard(lock);
    EXPECT_FALSE(CanBeShared(lock));
  }
  EXPECT_TRUE(CanBeShared(lock));
}

TEST(OsLockTest, ReadersShare) {
  Lock lock;
  const SharedGuard guard(lock);
  EXPECT_TRUE(CanBeShared(lock));
}

TEST(OsLockTest, ManyThreadsCountWithoutLoss) {
  Lock lock;
  int count = 0;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < 20'000; ++round) {
          const LockGuard guard(lock);
          ++count;
        }
      });
    }
  }
  EXPECT_EQ(count, 160'000);
}

// And gives it back.
bool CanBeHad(KernelMutex& mutex, std::uint32_t milliseconds) {
  if (!mutex.Acquire(milliseconds)) return false;
  const AdoptMutexGuard guard(mutex);
  return true;
}

struct Holder {
  // May end with it.
  static std::uint32_t Run(void* context) NO_THREAD_SAFETY_ANALYSIS {
    auto& self = *static_cast<Holder*>(context);
    self.acquired = self.mutex.Acquire(kForever);
    self.entered.Set();
    self.release.Wait(kForever);
    if (self.releases) self.mutex.Release();
    return 0;
  }
  KernelMutex mutex;
  Event entered;
  Event release;
  bool acquired = false;
  bool releases = true;
};

TEST(OsKernelMutexTest, IsHeldByOneThreadAtATime) {
  Holder holder;
  const Thread thread = Thread::Start(65'536, Holder::Run, &holder);
  ASSERT_TRUE(holder.entered.Wait(kLong));
  EXPECT_TRUE(holder.acquired);
  EXPECT_FALSE(CanBeHad(holder.mutex, 1));
  holder.release.Set();
  EXPECT_TRUE(CanBeHad(holder.mutex, kLong));
  EXPECT_TRUE(thread.WaitForEnd(kLong));
}

TEST(OsKernelMutexTest, MutexOfAThreadThatEndedCountsAsAcquired) {
  Holder holder;
  holder.releases = false;
  const Thread thread = Thread::Start(65'536, Holder::Run, &holder);
  ASSERT_TRUE(holder.entered.Wait(kLong));
  holder.release.Set();
  ASSERT_TRUE(thread.WaitForEnd(kLong));
  EXPECT_TRUE(CanBeHad(holder.mutex, kLong));
}

TEST(OsKernelMutexTest, MutexOfAThreadEndedByForceCountsAsAcquired) {
  Holder holder;
  Thread thread = Thread::Start(65'536, Holder::Run, &holder);
  ASSERT_TRUE(holder.entered.Wait(kLong));
  thread.Terminate();
  EXPECT_TRUE(CanBeHad(holder.mutex, kLong));
}

TEST(OsKernelMutexTest, GuardGivesBackWhatWasAcquired) {
  KernelMutex mutex;
  EXPECT_TRUE(CanBeHad(mutex, kLong));
  bool had_by_another = false;
  std::thread([&] { had_by_another = CanBeHad(mutex, kLong); }).join();
  EXPECT_TRUE(had_by_another);
}

std::vector<int> g_closed;

struct NotingTraits {
  using Value = int;
  static Value Invalid() { return -1; }
  static bool IsValid(Value value) { return value >= 0; }
  static void Close(Value value) { g_closed.push_back(value); }
};
using NotingHandle = UniqueHandle<NotingTraits>;

TEST(OsUniqueHandleTest, ClosesOnceWhateverTakesItsPlace) {
  g_closed.clear();
  {
    NotingHandle first(1);
    NotingHandle second(2);
    first = std::move(second);  // closes 1
    EXPECT_EQ(g_closed, (std::vector<int>{1}));
    first.Reset(3);  // closes 2
    EXPECT_EQ(g_closed, (std::vector<int>{1, 2}));
    NotingHandle third(std::move(first));
    EXPECT_EQ(third.get(), 3);
    NotingHandle none;
    EXPECT_FALSE(none.valid());
  }  // closes 3
  EXPECT_EQ(g_closed, (std::vector<int>{1, 2, 3}));
}

TEST(OsUniqueHandleTest, ReleasedHandleIsNotClosed) {
  g_closed.clear();
  {
    NotingHandle handle(7);
    EXPECT_EQ(handle.Release(), 7);
    EXPECT_FALSE(handle.valid());
  }
  EXPECT_TRUE(g_closed.empty());
}

}  // namespace
}  // namespace Tarnlo::os
