#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include "support/os/clock.h"
#include "support/os/event.h"
#include "support/os/thread.h"
#include "support/os/wait.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kLong = 30'000;

TEST(OsEventTest, NewEventIsNotSet) {
  const Event event;
  EXPECT_TRUE(event.valid());
  EXPECT_FALSE(event.IsSet());
  EXPECT_FALSE(event.Wait(0));
  EXPECT_FALSE(event.Wait(1));
}

TEST(OsEventTest, SetEventStaysSetThroughEveryWait) {
  Event event;
  event.Set();
  EXPECT_TRUE(event.IsSet());
  EXPECT_TRUE(event.Wait(0));
  EXPECT_TRUE(event.Wait(kForever));
  EXPECT_TRUE(event.Wait(0));
}

TEST(OsEventTest, SetWakesEveryWaiter) {
  Event event;
  std::array<bool, 4> woken{};
  {
    std::vector<std::jthread> threads;
    for (bool& mine : woken) threads.emplace_back([&] { mine = event.Wait(kLong); });
    event.Set();
  }
  EXPECT_EQ(woken, (std::array<bool, 4>{true, true, true, true}));
}

TEST(OsEventTest, UnsetEventIsWaitedForTheWholeTime) {
  const Event event;
  const std::uint32_t begin = TickMs();
  EXPECT_FALSE(event.Wait(60));
  EXPECT_GE(TickMs() - begin, 50U);  // a tick may be short by its own length
}

TEST(OsWaitTest, LowestOfSeveralThatAreSetIsNamed) {
  const Event unset;
  Event first;
  Event second;
  first.Set();
  second.Set();
  const std::array<Waitable, 3> objects = {unset.waitable(), first.waitable(), second.waitable()};
  EXPECT_EQ(WaitForAny(objects, kForever).signalled, std::size_t{1});
}

TEST(OsWaitTest, NothingSetWithinTheTimeGivesNothing) {
  const Event event;
  const std::array<Waitable, 1> objects = {event.waitable()};
  for (const std::uint32_t milliseconds : {0u, 5u}) {
    const WaitAnswer answer = WaitForAny(objects, milliseconds);
    EXPECT_EQ(answer.signalled, std::nullopt);
    EXPECT_FALSE(answer.failed);
  }
}

TEST(OsWaitTest, ThreadThatEndsEndsTheWait) {
  const Event unset;
  const Thread thread = Thread::Start(
      65'536, [](void*) { return std::uint32_t{0}; }, nullptr);
  ASSERT_TRUE(thread.valid());
  const std::array<Waitable, 2> objects = {unset.waitable(), thread.waitable()};
  EXPECT_EQ(WaitForAny(objects, kLong).signalled, std::size_t{1});
}

TEST(OsWaitTest, SixtyFourObjectsAreTakenAndOneMoreIsNot) {
  std::vector<Event> events(65);
  std::vector<Waitable> objects;
  for (const Event& event : events) objects.push_back(event.waitable());
  events[63].Set();
  EXPECT_EQ(WaitForAny(std::span(objects).first(64), kForever).signalled, std::size_t{63});
  EXPECT_TRUE(WaitForAny(objects, kForever).failed);
  EXPECT_TRUE(WaitForAny({}, kForever).failed);
}

TEST(OsWaitTest, WaitThatCannotBeMadeHasFailed) {
  const std::array<Waitable, 1> objects = {Waitable{}};
  const WaitAnswer answer = WaitForAny(objects, kForever);
  EXPECT_TRUE(answer.failed);
  EXPECT_EQ(answer.signalled, std::nullopt);
}

}  // namespace
}  // namespace Tarnlo::os
