// Callbacks of a host: missing, replaced, throwing, slow, and calling the library themselves.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "api/tarnlo.h"
#include "tests/abi/import_fixture.h"
#include "tests/support/body.h"
#include "tests/support/gate.h"

namespace Tarnlo {
namespace {

using test::AbiTest;

TEST_F(AbiTest, NullCallbacksDropTheirEvents) {
  set_callback_start(nullptr);
  set_callback_process(nullptr);
  set_callback_fail(nullptr);
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(m_record.Notes(), std::vector<std::string>{"complete 1"});
}

TEST_F(AbiTest, NullCallbackOfTheEndDropsIt) {
  set_callback_complete(nullptr);
  ASSERT_EQ(Create(1, "/f"), 1);
  // Once it has ended, and its end was told, it is started again.
  while (m_record.Count("start 1") < 2) {
    ASSERT_TRUE(continue_task(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(m_record.Count("complete 1"), 0);
}

TEST_F(AbiTest, CallbackThatIsReplacedGetsTheLaterEvents) {
  static std::atomic<std::int32_t> completed{0};
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  set_callback_complete([](std::int32_t id) { completed = id; });
  m_gate.Open();
  while (completed == 0) std::this_thread::yield();
  EXPECT_EQ(completed, 1);
  EXPECT_EQ(m_record.Count("start 1"), 1);
  EXPECT_EQ(m_record.Count("complete 1"), 0);
}

TEST_F(AbiTest, CallbackThatThrowsIsLoggedAndTheTaskGoesOn) {
  const std::filesystem::path log_path = std::filesystem::temp_directory_path() / "tarnlo.log";
  std::error_code no_log_yet;
  const std::uintmax_t size = std::filesystem::file_size(log_path, no_log_yet);
  m_record.on_start = [](std::int32_t) { throw std::runtime_error("the host's own trouble"); };
  m_record.on_progress = [](std::int32_t) { throw 5; };
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  ExpectFile(L"f");
  std::ifstream log(log_path, std::ios::binary);
  if (!no_log_yet) log.seekg(static_cast<std::streamoff>(size));
  const std::string text{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
  EXPECT_TRUE(std::regex_search(text, std::regex(R"(\[ERROR\] \d+ - CBmgr callback err 1\r?\n)")));
}

TEST_F(AbiTest, CallbackThatSleepsDelaysItsOwnTaskAlone) {
  test::Gate gate;
  m_record.on_start = [&gate](std::int32_t id) {
    const std::atomic<bool> never{false};
    if (id == 1) static_cast<void>(gate.Pass(never));
  };
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(gate.AwaitArrivals());
  ASSERT_EQ(Create(2, "/stalled"), 2);
  m_gate.Open();
  EXPECT_TRUE(m_record.Await("complete 2"));
  EXPECT_EQ(m_record.Count("complete 1"), 0);
  gate.Open();
  EXPECT_TRUE(m_record.Await("complete 1"));
}

TEST_F(AbiTest, NextTaskIsCreatedFromInsideComplete) {
  m_record.on_complete = [this](std::int32_t id) {
    if (id == 4) return;
    EXPECT_EQ(Create(id + 1, "/f"), id + 1);
  };
  ASSERT_EQ(Create(1, "/f"), 1);
  EXPECT_TRUE(m_record.Await("complete 4"));
}

// On the task's own thread, in its first and its last callback, and on a connection's.
TEST_F(AbiTest, CallsForTheTaskItselfAreRefusedInsideItsCallbacks) {
  std::atomic<int> calls{0};
  std::atomic<int> refusals{0};
  const auto ask = [&](std::int32_t id) {
    ++calls;
    if (!pause_task(id)) ++refusals;
    if (!cancel_task(id)) ++refusals;
    if (Create(id, "/trickle") == -1) ++refusals;
    if (continue_task(id)) ++refusals;  // it runs
  };
  std::atomic<bool> ended{false};
  m_record.on_start = ask;
  m_record.on_progress = ask;
  m_record.on_complete = [&](std::int32_t id) {
    ask(id);
    ended = true;
  };
  m_server.Serve("/trickle", test::Body(6'000'000)).Trickling(1'500'000);
  ASSERT_EQ(Create(1, "/trickle"), 1);
  while (!ended) std::this_thread::yield();
  EXPECT_TRUE(pause_task(1));  // its threads are gone, and every call was answered
  EXPECT_GE(calls, 3);
  EXPECT_EQ(refusals, 4 * calls);
  EXPECT_GE(m_record.Count("progress 1 "), 1);
  EXPECT_EQ(m_record.Count("start 1"), 1);
  EXPECT_EQ(m_record.Count("complete 1"), 1);
}

}  // namespace
}  // namespace Tarnlo
