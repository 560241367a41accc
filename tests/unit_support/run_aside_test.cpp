#include "support/run_aside.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/os/event.h"
#include "support/os/thread.h"
#include "support/os/wait.h"

namespace Tarnlo {
namespace {

constexpr std::uint32_t kLong = 30'000;

TEST(StartDetachedTest, WorkRunsOnAThreadOfItsOwn) {
  const auto done = std::make_shared<os::Event>();
  const auto id = std::make_shared<std::uint32_t>(0);
  ASSERT_TRUE(StartDetached([done, id] {
    *id = os::CurrentThreadId();
    done->Set();
  }));
  ASSERT_TRUE(done->Wait(kLong));
  EXPECT_NE(*id, os::CurrentThreadId());
}

TEST(StartDetachedTest, WorkIsDestroyedWithItsEnd) {
  struct SetsAtEnd {
    explicit SetsAtEnd(std::shared_ptr<os::Event> event) : m_event(std::move(event)) {}
    ~SetsAtEnd() { m_event->Set(); }
    SetsAtEnd(const SetsAtEnd&) = delete;
    SetsAtEnd& operator=(const SetsAtEnd&) = delete;
    std::shared_ptr<os::Event> m_event;
  };
  const auto destroyed = std::make_shared<os::Event>();
  ASSERT_TRUE(StartDetached([owned = std::make_shared<SetsAtEnd>(destroyed)] {}));
  EXPECT_TRUE(destroyed->Wait(kLong));
}

TEST(StartDetachedTest, ExceptionDoesNotLeaveTheThread) {
  const auto reached = std::make_shared<os::Event>();
  ASSERT_TRUE(StartDetached([reached] {
    reached->Set();
    throw std::runtime_error("lost");
  }));
  EXPECT_TRUE(reached->Wait(kLong));
  const auto after = RunAside<int>([] { return 1; }, nullptr, kLong);
  EXPECT_EQ(after, 1);
}

TEST(WaitUnlessStoppedTest, DoneEndsTheWait) {
  os::Event done;
  const os::Event stop;
  done.Set();
  EXPECT_TRUE(WaitUnlessStopped(done, &stop, kLong));
  EXPECT_TRUE(WaitUnlessStopped(done, nullptr, kLong));
}

TEST(WaitUnlessStoppedTest, StopEndsTheWaitEvenWhenBothAreSet) {
  os::Event done;
  os::Event stop;
  stop.Set();
  EXPECT_FALSE(WaitUnlessStopped(done, &stop, os::kForever));
  done.Set();
  EXPECT_FALSE(WaitUnlessStopped(done, &stop, os::kForever));
}

TEST(WaitUnlessStoppedTest, TimeEndsTheWait) {
  const os::Event done;
  const os::Event stop;
  EXPECT_FALSE(WaitUnlessStopped(done, &stop, 1));
  EXPECT_FALSE(WaitUnlessStopped(done, nullptr, 1));
}

TEST(RunAsideTest, AnswerComesBack) {
  const os::Event stop;
  EXPECT_EQ(RunAside<std::string>([] { return std::string("answer"); }, &stop, kLong), "answer");
}

TEST(RunAsideTest, StopLeavesTheWorkBehind) {
  const auto release = std::make_shared<os::Event>();
  const auto ended = std::make_shared<os::Event>();
  const auto stop = std::make_shared<os::Event>();
  const auto answer = RunAside<int>(
      [release, ended, stop] {
        stop->Set();
        release->Wait(os::kForever);
        ended->Set();
        return 1;
      },
      stop.get(), os::kForever);
  EXPECT_EQ(answer, std::nullopt);
  EXPECT_FALSE(ended->IsSet());
  release->Set();
  EXPECT_TRUE(ended->Wait(kLong));
}

TEST(RunAsideTest, StopBeforehandStartsNoWork) {
  const auto began = std::make_shared<os::Event>();
  os::Event stop;
  stop.Set();
  const auto answer = RunAside<int>(
      [began] {
        began->Set();
        return 1;
      },
      &stop, os::kForever);
  EXPECT_EQ(answer, std::nullopt);
  EXPECT_EQ(began.use_count(), 1);  // nobody else is left who could set it
  EXPECT_FALSE(began->IsSet());
}

TEST(RunAsideTest, TimeLeavesTheWorkBehind) {
  const auto release = std::make_shared<os::Event>();
  const auto answer = RunAside<int>(
      [release] {
        release->Wait(os::kForever);
        return 1;
      },
      nullptr, 1);
  EXPECT_EQ(answer, std::nullopt);
  release->Set();
}

TEST(RunAsideTest, WorkThatThrowsGivesNoAnswerAtOnce) {
  const auto answer =
      RunAside<int>([]() -> int { throw std::runtime_error("lost"); }, nullptr, os::kForever);
  EXPECT_EQ(answer, std::nullopt);
}

}  // namespace
}  // namespace Tarnlo
