#include "tests/engine/table_fixture.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "hosts/down_host_mgr.h"
#include "support/os/clock.h"
#include "support/os/thread.h"
#include "support/os/wait.h"
#include "support/sized_file.h"

namespace Tarnlo::test {
namespace {

constexpr std::uint32_t kPatienceMs = 60'000;
constexpr std::uint32_t kMomentMs = 10;

}  // namespace

std::string RangesDifference(const std::wstring& path, const Body& body,
                             const std::vector<RangeRecord>& records) {
  std::vector<Interval> missing = Trailer{0, records}.Missing();
  std::ranges::sort(missing, {}, &Interval::begin);
  missing.push_back({body.size(), body.size()});
  std::int64_t position = 0;
  for (const Interval& gap : missing) {
    if (gap.begin < position) return "byte " + std::to_string(gap.begin) + " is missing twice";
    std::string difference = FileDifference(path, body, position, gap.begin);
    if (!difference.empty()) return difference;
    position = gap.end;
  }
  return {};
}

TableTest::TableTest()
    : m_server(std::make_unique<FaultServer>()), m_forced_ends(os::ForcedEnds()) {
  StartTestLog();
  DownHostMgr::Shared().InitHost(m_server->Url("/").c_str(), nullptr);
}

TableTest::~TableTest() {
  m_table.Free();
  EXPECT_EQ(os::ForcedEnds(), m_forced_ends);
}

// An attempt that failed reports no bytes, as one does that is stopped before its first.
void TableTest::OnProgress(std::int32_t index, std::int64_t done, std::int64_t /*delta*/,
                           void* test) {
  auto& self = *static_cast<TableTest*>(test);
  self.m_table.StoreDone(index, done);
  if (done == 0 && self.m_on_failed_attempt) self.m_on_failed_attempt(index);
  if (index != self.m_failing) return;
  const RangeRecord record = self.m_table.Records()[static_cast<std::size_t>(index)];
  if (done == record.length) throw std::runtime_error("after the last byte");
}

void TableTest::Start(const std::vector<TableWorker>& workers) {
  m_table.Free();
  std::int64_t size = 0;
  std::vector<RangeRecord> records;
  for (const TableWorker& worker : workers) {
    size = std::max(size, worker.record.start + worker.record.length);
    records.push_back(worker.record);
  }
  ASSERT_EQ(CreateSizedFile(File(), size), SizedFileResult::kDone);
  const auto make = [&](std::int32_t index) {
    auto worker = std::make_unique<CDownloadHttp>();
    WorkerSetup setup;
    setup.index = index;
    setup.task_id = kTaskId;
    setup.observer = &m_observer;
    setup.progress = &OnProgress;
    setup.progress_context = this;
    setup.file_path = File();
    worker->Configure(setup);
    const std::string& path = workers[static_cast<std::size_t>(index)].path;
    worker->SetUrl(path.starts_with('/') ? m_server->Url(path)
                                         : std::wstring(path.begin(), path.end()));
    return worker;
  };
  ASSERT_TRUE(m_table.Create(static_cast<std::int32_t>(workers.size()), make));
  m_table.SetRecords(records);
  for (std::size_t i = 0; i < workers.size(); ++i) {
    ASSERT_TRUE(m_table.Start(static_cast<std::int32_t>(i)));
  }
  m_told_at_start = m_observer.CountOf(kEventRangeLength);
}

int TableTest::RunToTheEnd(const std::function<void()>& idle) {
  int given = 0;
  std::uint32_t idle_since = os::TickMs();
  for (;;) {
    const std::vector<WorkerTable::RunningThread> running = m_table.Threads();
    if (running.empty()) return given;
    std::vector<os::Waitable> handles;
    for (const WorkerTable::RunningThread& entry : running) handles.push_back(entry.thread);
    const auto ended = os::WaitForAny(handles, idle ? kMomentMs : kPatienceMs).signalled;
    if (!ended && os::TickMs() - idle_since < kPatienceMs) {
      if (idle) idle();
      continue;
    }
    if (!ended) {
      ADD_FAILURE() << "nobody has ended in a minute";
      return given;
    }
    idle_since = os::TickMs();
    const std::int32_t index = running[*ended].index;
    if (m_table.succeeded(index) && m_table.Reassign(index)) {
      ++given;
    } else {
      m_table.CloseThread(index);
    }
  }
}

void TableTest::AwaitEndOf(std::int32_t index) {
  for (const WorkerTable::RunningThread& entry : m_table.Threads()) {
    if (entry.index != index) continue;
    const std::vector<os::Waitable> handle{entry.thread};
    ASSERT_TRUE(os::WaitForAny(handle, kPatienceMs).signalled.has_value());
    return;
  }
  FAIL() << "worker " << index << " has no thread";
}

void TableTest::AwaitRemaining(std::int64_t bytes) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (m_table.Remaining(true) != bytes && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_EQ(m_table.Remaining(true), bytes);
}

TableTest::Lengths TableTest::LengthsToldAgain() {
  const auto stamps = m_observer.StampsOf(kEventRangeLength);
  Lengths lengths;
  for (std::size_t i = m_told_at_start; i < stamps.size(); ++i) {
    lengths.emplace_back(stamps[i].code, stamps[i].number);
  }
  return lengths;
}

}  // namespace Tarnlo::test
