#include "tests/engine/job_fixture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string_view>
#include <thread>

#include "hosts/down_host_mgr.h"
#include "support/os/clock.h"
#include "support/os/thread.h"
#include "transfer/current_job.h"

namespace Tarnlo::test {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr std::uint32_t kStopLimitMs = 5000;

struct Abbreviation {
  std::string_view text;
  char letter;
};
constexpr std::array<Abbreviation, 9> kAbbreviations = {{
    {"ThreadProc_DownloadMTR ", 'T'},
    {"CDownloadManager Download ", 'D'},
    {"CDownloadManager StartMTRDownload ", 'S'},
    {"CDownloadManager::AssignDownloadTask ", 'A'},
    {"CDownloadManager HandleDownloadFinished ", 'F'},
    {"CDownloadManager ReadDownloadInfo ", 'R'},
    {"CDownloadManager CheckMd5 ", 'M'},
    {"CDownloadManager getCdnFileSize ", 'G'},
    {"CheckCdnFileSize ", 'C'},
}};

// Empty for a line that is not the engine's.
std::string Abbreviate(std::string_view line) {
  constexpr std::string_view kInfo = "[INFO] ";
  constexpr std::string_view kError = "[ERROR] ";
  const bool error = line.starts_with(kError);
  const std::string_view text = line.substr(error ? kError.size() : kInfo.size());
  for (const Abbreviation& known : kAbbreviations) {
    if (!text.starts_with(known.text)) continue;
    const std::string_view rest = text.substr(known.text.size());
    // The level must be the right one: a line of the wrong one stands out.
    if (error != rest.starts_with("err ")) return std::string(line);
    return std::string(1, known.letter)
        .append(error ? "err" : "")
        .append(rest.substr(error ? 4 : 0));
  }
  return {};
}

std::string Abbreviate(const std::vector<std::string>& lines) {
  std::vector<std::pair<std::string, int>> runs;
  for (const std::string& line : lines) {
    const std::string text = Abbreviate(std::string_view(line));
    if (text.empty()) continue;
    if (!runs.empty() && runs.back().first == text) {
      ++runs.back().second;
    } else {
      runs.emplace_back(text, 1);
    }
  }
  std::string all;
  for (const auto& [text, count] : runs) {
    if (!all.empty()) all += ' ';
    all += text;
    if (count > 1) all.append("x").append(std::to_string(count));
  }
  return all;
}

// Of the last job thread in a log of one job.
std::uint32_t LastJobThread(const LogReader& log) {
  std::uint32_t thread = 0;
  for (const std::string& line : log.AllLines()) {
    if (!line.ends_with(" - ThreadProc_DownloadMTR 1")) continue;
    const std::size_t dash = line.rfind(" - ");
    const std::size_t blank = line.rfind(' ', dash - 1);
    thread = static_cast<std::uint32_t>(
        std::strtoul(line.substr(blank + 1, dash - blank - 1).c_str(), nullptr, 10));
  }
  return thread;
}

}  // namespace

// --- Observer ----------------------------------------------------------------------------------

void JobObserver::Notify(TaskEvent* event, std::intptr_t message_parameter) {
  if (m_action) m_action(*event);
  Stamp stamp{event->type, event->code, event->payload, 0, os::CurrentThreadId()};
  if (event->type == kEventProgress) {
    stamp.number = reinterpret_cast<const TaskProgress*>(static_cast<std::intptr_t>(event->payload))
                       ->downloaded;
  }
  RecordingObserver::Notify(event, message_parameter);
  stamp.tick = os::TickMs();
  {
    const std::lock_guard guard(m_stamp_mutex);
    m_stamps.push_back(stamp);
    m_changed.notify_all();
  }
  if (stamp.type == m_throws_out_of) throw stamp.type;
}

std::vector<JobObserver::Stamp> JobObserver::Stamps() const {
  const std::lock_guard guard(m_stamp_mutex);
  return m_stamps;
}

std::vector<JobObserver::Stamp> JobObserver::StampsOf(std::int32_t type) const {
  std::vector<Stamp> stamps = Stamps();
  std::erase_if(stamps, [type](const Stamp& stamp) { return stamp.type != type; });
  return stamps;
}

bool JobObserver::AwaitThat(const std::function<bool()>& condition) {
  std::unique_lock lock(m_stamp_mutex);
  return m_changed.wait_for(lock, kPatience, condition);
}

bool JobObserver::Await(const std::function<bool(const Stamp&)>& wanted) {
  return AwaitThat([&] { return std::ranges::any_of(m_stamps, wanted); });
}

bool JobObserver::AwaitCount(std::int32_t type, std::size_t count) {
  return AwaitThat([&] {
    return static_cast<std::size_t>(std::ranges::count(m_stamps, type, &Stamp::type)) >= count;
  });
}

bool JobObserver::AwaitEachHas(std::size_t workers, std::int64_t bytes) {
  return AwaitThat([&] {
    std::set<std::int32_t> reached;
    for (const Stamp& stamp : m_stamps) {
      const bool counts = stamp.type == kEventRangeProgress || stamp.type == kEventBufferedBytes;
      if (counts && stamp.number >= bytes) reached.insert(stamp.code);
    }
    return reached.size() >= workers;
  });
}

// --- Job ---------------------------------------------------------------------------------------

TestJob::TestJob() : m_server(std::make_unique<FaultServer>()), m_forced_ends(os::ForcedEnds()) {
  StartTestLog();
  EXPECT_TRUE(m_server->valid());
  // So that no test's server sees the questions that only the first job of the process asks.
  DownHostMgr::Shared().InitHost(m_server->Url("/").c_str(), nullptr);
  RenewJob();
}

TestJob::~TestJob() {
  m_job.reset();
  ExpectNoFalseSum();
  EXPECT_EQ(os::ForcedEnds(), m_forced_ends);
  EXPECT_FALSE(m_observer.SawStrangeParameter());
}

void TestJob::RenewJob() {
  m_job = std::make_unique<CDownloadManager>();
  m_job->SetObserver(&m_observer);
  m_job->SetTaskId(kTaskId);
}

void TestJob::RenewServer() {
  m_server.reset();
  m_server = std::make_unique<FaultServer>();
  EXPECT_TRUE(m_server->valid());
}

bool TestJob::Start(const std::string& path, const std::wstring& name, bool restart) {
  return StartAt(m_server->Url(path), name, restart);
}

void TestJob::BeginLog() {
  ExpectNoFalseSum();  // of the run before
  m_told_before = m_observer.CountOf(kEventFinished);
  m_log = std::make_unique<LogReader>();
}

bool TestJob::StartAt(const std::wstring& url, const std::wstring& name, bool restart) {
  BeginLog();
  return m_job->Download(url.c_str(), Folder().c_str(), name.c_str(), kTaskId, restart);
}

bool TestJob::StartInto(const std::wstring& folder, const std::string& path) {
  BeginLog();
  return m_job->Download(m_server->Url(path).c_str(), folder.c_str(), L"", kTaskId, false);
}

bool TestJob::Continue(const std::string& path) {
  m_job->SetNotifying(true);
  return m_job->RenewStopEvent() && Start(path);
}

std::int32_t TestJob::AwaitResult() {
  if (!m_observer.AwaitCount(kEventFinished, m_told_before + 1)) return kNothingTold;
  return static_cast<std::int32_t>(m_observer.StampsOf(kEventFinished)[m_told_before].number);
}

void TestJob::AwaitRunEnd() {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (m_job->HasStopEvent() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_FALSE(m_job->HasStopEvent());
  m_job->Stop();  // waits for the thread's last line
}

void TestJob::AwaitDownloaded(std::int64_t bytes) const {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (m_job->Progress().downloaded < bytes && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_GE(m_job->Progress().downloaded, bytes);
}

std::int32_t TestJob::Download(const std::string& path, const std::wstring& name, bool restart) {
  EXPECT_TRUE(Start(path, name, restart));
  const std::int32_t result = AwaitResult();
  AwaitRunEnd();
  return result;
}

std::int32_t TestJob::DownloadAgain(const std::string& path) {
  EXPECT_TRUE(m_job->RenewStopEvent());
  return Download(path);
}

std::ptrdiff_t TestJob::Attempts() const {
  return std::ranges::count(JobThreadLines(), "[INFO] ThreadProc_DownloadMTR 6");
}

void TestJob::ExpectOneCleanAttempt() const {
  const std::vector<std::int64_t> told = m_observer.NumbersOf(kEventFinished);
  ASSERT_EQ(told.size(), m_told_before + 1);
  EXPECT_EQ(told.back(), kResultSuccess);
  EXPECT_EQ(Attempts(), 1) << JobLines();
  EXPECT_EQ(JobLines().find(" F16"), std::string::npos) << JobLines();
}

// A sum that exceeds the file deletes it, as a wrong digest does, which is said before.
void TestJob::ExpectNoFalseSum() const {
  if (m_log == nullptr) return;
  const std::string lines = JobLines();
  EXPECT_EQ(lines.find(" T15"), std::string::npos) << lines;
  constexpr std::string_view kWrongDigest = " F14 F16";
  for (std::size_t at = 0; (at = lines.find(" T17 ", at)) != std::string::npos; ++at) {
    EXPECT_TRUE(std::string_view(lines).substr(0, at).ends_with(kWrongDigest)) << lines;
  }
}

bool TestJob::IsStoppedOrTheTests() {
  return CurrentJob() == nullptr || CurrentThreadIsStopped();
}

void TestJob::StopPromptly() {
  const std::uint32_t begin = os::TickMs();
  m_job->Stop();
  EXPECT_LT(os::TickMs() - begin, kStopLimitMs / 2);
}

void TestJob::Pause() {
  m_job->SetNotifying(false);
  StopPromptly();
}

std::string TestJob::JobLines() const {
  return Abbreviate(JobThreadLines());
}

std::vector<std::string> TestJob::JobThreadLines() const {
  const auto started = m_observer.StampsOf(kEventStarted);
  return m_log->LinesOf(started.empty() ? LastJobThread(*m_log) : started.back().thread);
}

std::string TestJob::OwnLines() const {
  return Abbreviate(m_log->LinesOfThisThread());
}

std::vector<Interval> TestJob::RangesAskedFor(std::size_t first) const {
  std::vector<Interval> asked;
  const std::vector<RecordedRequest> requests = m_server->Requests();
  for (std::size_t i = first; i < requests.size(); ++i) {
    if (const auto range = requests[i].AskedRange()) asked.push_back(*range);
  }
  return asked;
}

}  // namespace Tarnlo::test
