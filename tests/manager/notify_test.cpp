#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "manager/downloader_manager.h"
#include "support/task_event.h"
#include "tests/manager/all_events.h"
#include "tests/manager/live_allocations.h"
#include "tests/manager/recording_callback.h"
#include "tests/manager/silent_callback.h"

namespace Tarnlo {
namespace {

using test::LiveAllocations;
using test::RecordingCallBack;
using test::SendAllTypes;
using Reports = std::vector<std::string>;

class NotifyTest : public testing::Test {
 protected:
  RecordingCallBack m_callback;
  DownloaderManager m_manager;
};

TEST_F(NotifyTest, CallbackIsCalledOncePerEventWithItsValues) {
  m_manager.SetCallBack(&m_callback);
  SendAllTypes(m_manager);
  EXPECT_EQ(m_callback.Reports(),
            (Reports{"OnTaskMessage 7 setup.exe", "OnTaskValue 7 5000000000", "OnTaskComplete 7 0",
                     "OnTaskProgress 7 400 1000 2000", "OnTaskStage 7 3 0 100",
                     "OnTaskStage 7 3 1 60", "OnTaskStage 7 3 2 20", "OnTaskStart 7"}));
}

TEST_F(NotifyTest, FinishWithACodeIsAFailureWithThatCode) {
  m_manager.SetCallBack(&m_callback);
  SendEvent(&m_manager, kWholeJob, 4, kEventFinished, 7);
  EXPECT_EQ(m_callback.Reports(), Reports{"OnTaskFail 4 7"});
}

TEST_F(NotifyTest, OnlyTheLow32BitsOfAResultCount) {
  m_manager.SetCallBack(&m_callback);
  SendEvent(&m_manager, kWholeJob, 4, kEventFinished, std::int64_t{1} << 32);
  SendEvent(&m_manager, kWholeJob, 4, kEventFinished, (std::int64_t{1} << 32) + 11);
  EXPECT_EQ(m_callback.Reports(), (Reports{"OnTaskComplete 4 0", "OnTaskFail 4 11"}));
}

TEST_F(NotifyTest, UnknownTypeCallsNothing) {
  m_manager.SetCallBack(&m_callback);
  SendEvent(&m_manager, kWholeJob, 4, static_cast<TaskEventType>(8), 0);
  SendEvent(&m_manager, kWholeJob, 4, static_cast<TaskEventType>(-1), 0);
  EXPECT_EQ(m_callback.Reports(), Reports{});
}

TEST_F(NotifyTest, NullEventIsPassedOver) {
  m_manager.SetCallBack(&m_callback);
  m_manager.Notify(nullptr, 0);
  EXPECT_EQ(m_callback.Reports(), Reports{});
}

TEST_F(NotifyTest, EventsAndPayloadsAreFreedAfterTheCall) {
  test::SilentCallBack callback;
  m_manager.SetCallBack(&callback);
  const long long before = LiveAllocations();
  SendAllTypes(m_manager);
  EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(NotifyTest, EventsThatNobodyReceivesAreFreed) {
  const long long before = LiveAllocations();
  SendAllTypes(m_manager);
  EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(NotifyTest, EventsThatCannotBePostedAreFreed) {
  const auto no_window = reinterpret_cast<os::WindowHandle>(std::uintptr_t{0x7FFFFFF0});
  m_manager.SetNotifyWindow(no_window, 0x400);
  const long long before = LiveAllocations();
  SendAllTypes(m_manager);
  EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(NotifyTest, WindowTakesTheCallbacksPlace) {
  m_manager.SetCallBack(&m_callback);
  const auto no_window = reinterpret_cast<os::WindowHandle>(std::uintptr_t{0x7FFFFFF0});
  m_manager.SetNotifyWindow(no_window, 0x400);
  SendAllTypes(m_manager);
  EXPECT_EQ(m_callback.Reports(), Reports{});
}

TEST_F(NotifyTest, NoWindowAndAMessageDeliverNothing) {
  m_manager.SetCallBack(&m_callback);
  m_manager.SetNotifyWindow(nullptr, 0x400);
  const long long before = LiveAllocations();
  SendAllTypes(m_manager);
  EXPECT_EQ(LiveAllocations(), before);
  EXPECT_EQ(m_callback.Reports(), Reports{});
}

TEST_F(NotifyTest, CallbackThatThrowsLeavesNothingBehind) {
  class ThrowingCallBack final : public test::SilentCallBack {
   public:
    void OnTaskMessage(std::int32_t, const std::wstring&) override { throw 1; }
  };
  ThrowingCallBack callback;
  m_manager.SetCallBack(&callback);
  const long long before = LiveAllocations();
  EXPECT_THROW(SendTextEvent(&m_manager, 7, kEventRemoteName, L"a"), int);
  EXPECT_EQ(LiveAllocations(), before);
}

}  // namespace
}  // namespace Tarnlo
