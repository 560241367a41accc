// Workers with ranges of a test's choice, each with a path of its own on the server.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/worker_table.h"
#include "tests/engine/job_fixture.h"

namespace Tarnlo::test {

struct TableWorker {
  std::string path;  // of the server; or a whole URL
  RangeRecord record;
};

// What is wrong with a file of which the records say what it holds, "" when nothing is: every byte
// that no record names as missing is the body's, and no two records name the same byte.
std::string RangesDifference(const std::wstring& path, const Body& body,
                             const std::vector<RangeRecord>& records);

class TableTest : public testing::Test {
 protected:
  TableTest();
  ~TableTest() override;

  FaultServer& Server() { return *m_server; }
  Gate& NewGate() { return m_gates.emplace_back(); }
  WorkerTable& Table() { return m_table; }
  JobObserver& Observer() { return m_observer; }
  [[nodiscard]] std::wstring File() const { return m_folder.File(L"f"); }

  // Called with the worker's index, on its thread, when it gives an attempt up. Set before `Start`.
  void OnFailedAttempt(std::function<void(std::int32_t index)> action) {
    m_on_failed_attempt = std::move(action);
  }
  // Makes this worker fail once all its bytes are in the file. Set before `Start`.
  void FailAfterTheLastByte(std::int32_t index) { m_failing = index; }

  // Lays the file out and starts everybody.
  void Start(const std::vector<TableWorker>& workers);
  // What the job does while workers run; the number of ranges that were given anew. `idle` is
  // called whenever nobody has ended for a moment.
  int RunToTheEnd(const std::function<void()>& idle = {});
  // Until the worker's thread has ended.
  void AwaitEndOf(std::int32_t index);
  void AwaitRemaining(std::int64_t bytes);
  // Lengths told since the start, with the worker of each.
  using Lengths = std::vector<std::pair<std::int32_t, std::int64_t>>;
  Lengths LengthsToldAgain();

 private:
  static void OnProgress(std::int32_t index, std::int64_t done, std::int64_t delta, void* test);

  std::list<Gate> m_gates;
  std::unique_ptr<FaultServer> m_server;
  TempFolder m_folder;
  JobObserver m_observer;
  WorkerTable m_table;
  std::function<void(std::int32_t index)> m_on_failed_attempt;
  std::optional<std::int32_t> m_failing;
  std::size_t m_told_at_start = 0;
  std::uint32_t m_forced_ends = 0;
};

}  // namespace Tarnlo::test
