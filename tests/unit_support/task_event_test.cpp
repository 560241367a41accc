#include "support/task_event.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/recording_observer.h"

namespace Tarnlo {
namespace {

static_assert(sizeof(TaskEvent) == 24);
static_assert(offsetof(TaskEvent, code) == 0 && offsetof(TaskEvent, task_id) == 4);
static_assert(offsetof(TaskEvent, type) == 8 && offsetof(TaskEvent, payload) == 16);
static_assert(offsetof(TaskProgress, task_id) == 0 && offsetof(TaskProgress, total) == 8);
static_assert(offsetof(TaskProgress, downloaded) == 16 && offsetof(TaskProgress, speed) == 24);

// Keeps the events themselves.
class KeepingObserver : public IObserver {
 public:
  KeepingObserver() = default;
  ~KeepingObserver() override {
    for (TaskEvent* event : m_events) FreeEvent(event);
  }
  void Notify(TaskEvent* event, std::intptr_t message_parameter) override {
    EXPECT_EQ(message_parameter, 0);
    m_events.push_back(event);
  }
  [[nodiscard]] const TaskEvent& event(std::size_t i) const { return *m_events.at(i); }

 private:
  std::vector<TaskEvent*> m_events;
};

const wchar_t* TextOf(const TaskEvent& event) {
  return reinterpret_cast<const wchar_t*>(static_cast<std::intptr_t>(event.payload));
}

TEST(TaskEventTest, NumberEventCarriesItsFourFields) {
  KeepingObserver observer;
  SendEvent(&observer, 5, 77, kEventRangeProgress, 0x123456789ABCDEF0);
  EXPECT_EQ(observer.event(0).code, 5);
  EXPECT_EQ(observer.event(0).task_id, 77);
  EXPECT_EQ(observer.event(0).type, 5);
  EXPECT_EQ(observer.event(0).payload, 0x123456789ABCDEF0);
}

TEST(TaskEventTest, TextEventIsAFreshCopyThatSurvivesTheSender) {
  KeepingObserver observer;
  {
    std::wstring text = L"remote.zip";
    SendTextEvent(&observer, 3, kEventRemoteName, text.c_str());
    EXPECT_NE(TextOf(observer.event(0)), text.c_str());
    text.assign(text.size(), L'x');
  }
  EXPECT_EQ(std::wstring(TextOf(observer.event(0))), L"remote.zip");
  EXPECT_EQ(observer.event(0).code, kWholeJob);
  EXPECT_EQ(observer.event(0).task_id, 3);
  EXPECT_EQ(observer.event(0).type, 0);
}

TEST(TaskEventTest, NullTextIsSentAsEmpty) {
  KeepingObserver observer;
  SendTextEvent(&observer, 3, kEventRemoteName, nullptr);
  EXPECT_EQ(std::wstring(TextOf(observer.event(0))), L"");
}

TEST(TaskEventTest, ProgressEventCarriesItsRecord) {
  test::RecordingObserver observer;
  SendProgressEvent(&observer, 9, TaskProgress{9, 5'000'000'000, 4'999'999'999, 4'294'967'295});
  const auto events = observer.EventsOf(kEventProgress);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].code, kWholeJob);
  EXPECT_EQ(events[0].task_id, 9);
  EXPECT_EQ(events[0].progress.task_id, 9);
  EXPECT_EQ(events[0].progress.total, 5'000'000'000);
  EXPECT_EQ(events[0].progress.downloaded, 4'999'999'999);
  EXPECT_EQ(events[0].progress.speed, 4'294'967'295U);
  EXPECT_FALSE(observer.SawStrangeParameter());
}

TEST(TaskEventTest, NullObserverReceivesNothing) {
  SendEvent(nullptr, 0, 1, kEventStarted, 0);
  SendTextEvent(nullptr, 1, kEventRemoteName, L"x");
  SendProgressEvent(nullptr, 1, TaskProgress{});
}

TEST(TaskEventTest, NullEventIsFreedAsNothing) {
  FreeEvent(nullptr);
}

}  // namespace
}  // namespace Tarnlo
