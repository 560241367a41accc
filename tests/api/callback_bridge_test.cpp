#include "api/callback_bridge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

std::vector<std::string> g_calls;

void Note(const char* what, const std::vector<std::int64_t>& numbers) {
  std::string call = what;
  for (const std::int64_t number : numbers) call.append(" ").append(std::to_string(number));
  g_calls.push_back(call);
}

class CallbackBridgeTest : public testing::Test {
 protected:
  CallbackBridgeTest() { g_calls.clear(); }
  ~CallbackBridgeTest() override {
    set_callback_start(nullptr);
    set_callback_complete(nullptr);
    set_callback_process(nullptr);
    set_callback_fail(nullptr);
  }
  static void SetAll() {
    set_callback_start([](std::int32_t id) { Note("start", {id}); });
    set_callback_complete([](std::int32_t id) { Note("complete", {id}); });
    set_callback_process(
        [](std::int32_t id, std::int64_t downloaded, std::int64_t total, std::int32_t speed) {
          Note("process", {id, downloaded, total, speed});
        });
    set_callback_fail([](std::int32_t id, NsResultEnum result) { Note("fail", {id, result}); });
  }
  void CallAll() {
    m_bridge.OnTaskMessage(7, L"name");
    m_bridge.OnTaskValue(7, 1000);
    m_bridge.OnTaskProgress(7, 5'000'000'000, 6'000'000'000, 2000);
    m_bridge.OnTaskComplete(7, 0);
    m_bridge.OnTaskFail(8, kResultMd5Mismatch);
    m_bridge.OnTaskStage(7, 1, 2, 3);
    m_bridge.OnTaskStart(7);
  }
  CBmgr m_bridge;
};

TEST_F(CallbackBridgeTest, FourOfTheSevenReportsReachTheHostWithTheirValues) {
  SetAll();
  CallAll();
  EXPECT_EQ(g_calls, (std::vector<std::string>{"process 7 5000000000 6000000000 2000", "complete 7",
                                               "fail 8 11", "start 7"}));
}

TEST_F(CallbackBridgeTest, NullCallbacksAreNotCalled) {
  CallAll();
  SetAll();
  set_callback_complete(nullptr);
  CallAll();
  EXPECT_EQ(g_calls, (std::vector<std::string>{"process 7 5000000000 6000000000 2000", "fail 8 11",
                                               "start 7"}));
}

TEST_F(CallbackBridgeTest, CallbackThatIsSetLaterGetsWhatComesLater) {
  set_callback_start([](std::int32_t id) { Note("first", {id}); });
  m_bridge.OnTaskStart(1);
  set_callback_start([](std::int32_t id) { Note("second", {id}); });
  m_bridge.OnTaskStart(2);
  EXPECT_EQ(g_calls, (std::vector<std::string>{"first 1", "second 2"}));
}

TEST_F(CallbackBridgeTest, WhatACallbackThrowsEndsInTheLog) {
  const test::LogReader log;
  set_callback_start([](std::int32_t) { throw std::string("anything"); });
  set_callback_complete([](std::int32_t) { throw 1; });
  EXPECT_NO_THROW(CallAll());
  EXPECT_EQ(log.LinesOfThisThread(), (std::vector<std::string>{"[ERROR] CBmgr callback err 1",
                                                               "[ERROR] CBmgr callback err 1"}));
}

}  // namespace
}  // namespace Tarnlo
