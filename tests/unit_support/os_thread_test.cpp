#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/os/event.h"
#include "support/os/lock.h"
#include "support/os/thread.h"

namespace Tarnlo::os {
namespace {

constexpr std::size_t kStack = 256 * 1024;
constexpr std::uint32_t kLong = 30'000;

// A thread that tells its id and stays until it is released.
struct Guest {
  static std::uint32_t Run(void* context) {
    auto& self = *static_cast<Guest*>(context);
    self.id = CurrentThreadId();
    self.entered.Set();
    self.release.Wait(kForever);
    return 0;
  }
  std::uint32_t id = 0;
  Event entered;
  Event release;
};

TEST(OsThreadTest, RunsItsEntryWithItsContextUntilItEnds) {
  Guest guest;
  const Thread thread = Thread::Start(kStack, Guest::Run, &guest);
  ASSERT_TRUE(thread.valid());
  ASSERT_TRUE(guest.entered.Wait(kLong));
  EXPECT_EQ(thread.id(), guest.id);
  EXPECT_NE(thread.id(), CurrentThreadId());
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_FALSE(thread.WaitForEnd(1));
  guest.release.Set();
  EXPECT_TRUE(thread.WaitForEnd(kLong));
  EXPECT_FALSE(thread.IsRunning());
}

TEST(OsThreadTest, NoThreadHasEnded) {
  Thread thread;
  EXPECT_FALSE(thread.valid());
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_TRUE(thread.WaitForEnd(kForever));
  thread.Terminate();
  EXPECT_EQ(thread.id(), 0U);
}

TEST(OsThreadTest, ClosingTheObjectDoesNotEndTheThread) {
  Guest guest;
  Thread thread = Thread::Start(kStack, Guest::Run, &guest);
  Thread watcher;
  ASSERT_TRUE(guest.entered.Wait(kLong));
  watcher = std::move(thread);
  EXPECT_FALSE(thread.valid());  // NOLINT(bugprone-use-after-move): an owner that moved is empty
  EXPECT_TRUE(watcher.IsRunning());
  guest.release.Set();
  EXPECT_TRUE(watcher.WaitForEnd(kLong));
  watcher.Close();
  EXPECT_FALSE(watcher.valid());
}

// Also one that is about to wait for the first time.
TEST(OsThreadTest, ForcedEndEndsItWhereverItIsAndIsCounted) {
  for (int round = 0; round < 20; ++round) {
    Guest guest;
    Thread thread = Thread::Start(kStack, Guest::Run, &guest);
    ASSERT_TRUE(guest.entered.Wait(kLong));
    const std::uint32_t before = ForcedEnds();
    thread.Terminate();
    EXPECT_EQ(ForcedEnds(), before + 1);
    ASSERT_TRUE(thread.WaitForEnd(0));
  }
}

// Holds a lock until it is told to let go, and stays.
struct Holder {
  static std::uint32_t Run(void* context) {
    auto& self = *static_cast<Holder*>(context);
    {
      const LockGuard guard(self.lock);
      self.held.Set();
      self.let_go.Wait(kForever);
    }
    self.leave.Wait(kForever);
    return 0;
  }
  Lock lock;
  Event held;
  Event let_go;
  Event leave;
};

TEST(OsThreadTest, ForcedEndWaitsForTheLocksOfTheThread) {
  Holder holder;
  Thread thread = Thread::Start(kStack, Holder::Run, &holder);
  ASSERT_TRUE(holder.held.Wait(kLong));
  const std::uint32_t before = ForcedEnds();
  Event ended;
  std::jthread ender([&] {
    thread.Terminate();
    ended.Set();
  });
  EXPECT_FALSE(ended.Wait(100));
  EXPECT_EQ(ForcedEnds(), before);
  holder.let_go.Set();
  EXPECT_TRUE(ended.Wait(kLong / 2));
  EXPECT_EQ(ForcedEnds(), before + 1);
  const LockGuard guard(holder.lock);  // free again
}

TEST(OsThreadTest, ManyThreadsWithLargeStacksAreGranted) {
  // 8 GiB in all: where stacks were committed, not every machine would have it.
  Event release;
  std::vector<Thread> threads;
  for (int i = 0; i < 128; ++i) {
    threads.push_back(Thread::Start(
        64 * 1024 * 1024,
        [](void* event) {
          static_cast<Event*>(event)->Wait(kForever);
          return std::uint32_t{0};
        },
        &release));
    EXPECT_TRUE(threads.back().valid());
  }
  release.Set();
  for (const Thread& thread : threads) EXPECT_TRUE(thread.WaitForEnd(kLong));
}

TEST(OsThreadTest, ReservedStackCanBeUsed) {
  Event done;
  const auto use_stack = [](void* event) {
    volatile char bytes[6 * 1024 * 1024];
    for (std::size_t i = sizeof(bytes); i >= 4096; i -= 4096) bytes[i - 1] = 1;
    static_cast<Event*>(event)->Set();
    return std::uint32_t{bytes[sizeof(bytes) - 1] == 1};
  };
  const Thread thread = Thread::Start(8 * 1024 * 1024, use_stack, &done);
  EXPECT_TRUE(done.Wait(kLong));
  EXPECT_TRUE(thread.WaitForEnd(kLong));
}

}  // namespace
}  // namespace Tarnlo::os
