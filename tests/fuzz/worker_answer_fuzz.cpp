// A whole answer stream, redirects and second attempts included, to a worker over socket pairs. An
// input is a plan of 13 bytes and then the answers, one for each connection, with "\n--\n" between.
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "support/os/event.h"
#include "support/task_event.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/marked_file.h"
#include "tests/fuzz/scripted_net.h"
#include "tests/native/kernel_object.h"
#include "transfer/download_http.h"

namespace Tarnlo::fuzz {
namespace {

constexpr std::int64_t kMaxBuffered = 409600;
constexpr std::size_t kMaxAnswers = 8;
constexpr std::uint8_t kFirstLengthening = 246;
constexpr std::string_view kHeadEndBytes = "\r\n\r\n";

struct Plan {
  enum class Way { kThread, kProbe, kCalled } way = Way::kCalled;
  std::int64_t start = 0;
  std::int64_t length = 0;  // kOpenEnd: to the end of the answer
  std::int64_t received = 0;
  std::optional<std::int64_t> cut;  // where the range is cut while the worker receives
  bool stopped = false;             // instead of that
  NetScript net;
};

// A body of far more than an input holds, so that the worker's buffer is filled.
void Lengthen(std::string& answer, std::uint8_t how_much) {
  constexpr std::size_t kStep = 50000;
  static const std::string more = [] {
    std::string bytes;
    for (std::size_t at = 0; at < (256 - kFirstLengthening) * kStep; ++at) {
      bytes += static_cast<char>((at * 7 + at / 256) & 0xFF);
    }
    return bytes;
  }();
  if (how_much < kFirstLengthening || answer.find(kHeadEndBytes) == std::string::npos) return;
  answer.append(more, 0, (how_much - kFirstLengthening + 1) * kStep);
}

std::size_t ChunkBytes(std::uint8_t byte) {
  return byte < 128 ? byte : (byte - std::size_t{127}) * 160;
}

Plan TakePlan(Input& input) {
  Plan plan;
  const std::uint8_t kind = input.Byte();
  if ((kind & 15) == 0) plan.way = Plan::Way::kThread;
  if ((kind & 15) == 1) plan.way = Plan::Way::kProbe;
  const std::uint16_t start = input.Take<std::uint16_t>();
  const std::uint16_t length = input.Take<std::uint16_t>();
  const std::uint16_t received = input.Take<std::uint16_t>();
  if ((kind & 32) != 0) plan.start = start & 0x1FFF;
  plan.length = (length & 0x3FFF) + 1;
  if ((length & 0x8000) != 0) plan.length *= 32;
  plan.received = received % (plan.length + 1);
  if ((kind & 16) != 0) plan.length = kOpenEnd;
  plan.net.failing_call = input.Byte();
  plan.net.watched_receive = input.Byte();
  const std::uint8_t cut = input.Byte();
  if ((kind & 128) != 0) {
    plan.stopped = true;
  } else if ((kind & 64) != 0) {
    plan.cut = plan.length * cut / 256;
  }
  const std::uint8_t more = input.Byte();
  plan.net.most_bytes = {ChunkBytes(input.Byte()), ChunkBytes(input.Byte())};
  if (more >= kFirstLengthening) {  // in small pieces it would take seconds
    for (std::size_t& most : plan.net.most_bytes) most = std::max<std::size_t>(most, 10000);
  }
  while (!input.rest().empty() && plan.net.answers.size() < kMaxAnswers) {
    Lengthen(plan.net.answers.emplace_back(input.Until("\n--\n")), more);
  }
  return plan;
}

// What the worker reports.
class Reports : public IObserver {
 public:
  void Notify(TaskEvent* event, std::intptr_t /*message_parameter*/) override {
    if (event->type == kEventBufferedBytes) {
      Require(event->payload >= 0 && event->payload <= kMaxBuffered, "buffered bytes fit");
    }
    if (event->type == kEventContentLength)
      Require(event->payload >= 0, "a length is not negative");
    FreeEvent(event);
  }
};

// The first byte that the answer says it brings, where it says so in the plainest form.
std::optional<std::int64_t> PlainRangeStart(std::string_view head) {
  constexpr std::string_view kName = "\r\nContent-Range: bytes ";
  const std::size_t at = head.find(kName);
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view value = head.substr(at + kName.size());
  value = value.substr(0, value.find("\r\n"));
  std::size_t digits = 0;
  std::int64_t number = 0;
  for (; digits < value.size() && value[digits] >= '0' && value[digits] <= '9'; ++digits) {
    if (digits == 15) return std::nullopt;
    number = number * 10 + (value[digits] - '0');
  }
  const bool plain = digits > 0 && value.substr(digits).starts_with("-") &&
                     value.find('/') != std::string_view::npos;
  return plain ? std::optional(number) : std::nullopt;
}

// A worker whose every attempt is watched.
class WatchedWorker : public CDownloadHttp {
 public:
  explicit WatchedWorker(const MarkedFile& file) : m_file(file) {}
  WatchedWorker(const WatchedWorker&) = delete;
  WatchedWorker& operator=(const WatchedWorker&) = delete;
  ~WatchedWorker() override { Stop(); }

  bool ConnectToHost() override {
    constexpr os::Ipv4Address kLoopback = 0x0100007F;
    if (!m_hStopEvent.valid() || m_url.m_strHost.empty()) return false;
    m_Socket.SetStopEvent(&m_hStopEvent);
    return m_Socket.Connect(kLoopback, m_url.m_nPort);
  }

  bool DownloadOnce() override {
    const std::int64_t before = m_range.received();
    m_first.reset();
    const bool complete = CDownloadHttp::DownloadOnce();
    const std::int64_t length = m_range.length();
    const std::int64_t received = m_range.received();
    Require(m_range.buffered() == 0, "nothing is buffered after an attempt");
    Require(length < 0 || received <= length, "no more is received than the range has");
    Require(received >= 0, "what was received is not negative");
    if (complete) Require(length < 0 ? received > 0 : received == length, "a range is complete");
    if (m_first) CheckAttempt(before);
    return complete;
  }

  static void Progress(std::int32_t /*index*/, std::int64_t received, std::int64_t delta,
                       void* context) {
    auto& self = *static_cast<WatchedWorker*>(context);
    if (delta == 0) return;
    Require(delta > 0 && received >= delta, "progress goes forward");
    const std::int64_t begin = received - delta;
    Require(!self.m_first || begin == self.m_last, "progress has no gaps");
    if (!self.m_first) self.m_first = begin;
    self.m_last = received;
    self.m_lowest = std::min(self.m_lowest.value_or(begin), begin);
    self.m_highest = std::max(self.m_highest, received);
  }
  // Between which bytes there was ever written, counted from the range's start.
  [[nodiscard]] std::int64_t lowest() const { return m_lowest.value_or(0); }
  [[nodiscard]] std::int64_t highest() const { return m_highest; }

 private:
  // The bytes written in an attempt are the answer's body, from the byte that was asked for.
  void CheckAttempt(std::int64_t before) const {
    const std::int64_t start = m_range.start();
    const std::int64_t asked = start + before;
    const std::int64_t first = *m_first;
    Require(first == before || (first == 0 && start == 0), "a range begins where it was, or anew");
    const std::string_view answer = *LastAnswer();
    const std::size_t end = answer.find(kHeadEndBytes);
    Require(end != std::string_view::npos, "a body follows a head");
    const std::string_view head = answer.substr(0, end + 2);
    if (head.starts_with("HTTP/1.1 206 ")) {
      Require(first == before, "a part goes where it was asked for");
      Require(PlainRangeStart(head).value_or(asked) == asked, "a part begins where asked");
    } else if (head.starts_with("HTTP/1.1 200 ")) {
      Require(start + first == 0, "a whole file goes to the file's beginning");
    } else if (head.starts_with("HTTP/1.1 ")) {
      Require(head[9] != '3' && head[9] != '4' && head[9] != '5', "no error page is written");
    }
    const std::string file = m_file.Read();
    const std::string_view body = answer.substr(end + kHeadEndBytes.size());
    const auto count = static_cast<std::size_t>(m_last - first);
    Require(std::string_view(file).substr(static_cast<std::size_t>(start + first), count) ==
                body.substr(0, count),
            "the file holds the body");
  }

  const MarkedFile& m_file;
  std::optional<std::int64_t> m_first;  // of the bytes written in this attempt
  std::int64_t m_last = 0;              // behind them
  std::optional<std::int64_t> m_lowest;
  std::int64_t m_highest = 0;
};

void AwaitEnd(const WatchedWorker& worker) {
  if (!worker.HasThread()) return;
  Require(os::native::WaitForFirst(std::array{worker.thread()}, 60'000).has_value(),
          "a worker ends");
}

void Run(WatchedWorker& worker, const Plan& plan) {
  switch (plan.way) {
    case Plan::Way::kProbe:
      worker.GetRemoteSiteInfo_Pro();
      Require(worker.content_length() >= -1, "a length is not negative");
      return;
    case Plan::Way::kThread:
      worker.Download(plan.start, plan.length, plan.received);
      AwaitEnd(worker);
      return;
    case Plan::Way::kCalled:
      worker.TakeRange(plan.start, plan.length, plan.received);
      if (!worker.DownloadOnce()) worker.DownloadOnce();
      return;
  }
}

// Only the worker's own bytes were written.
void CheckFile(MarkedFile& file, const WatchedWorker& worker, const Plan& plan) {
  const std::string bytes = file.Read();
  const auto begin = static_cast<std::size_t>(plan.start + worker.lowest());
  const auto end = static_cast<std::size_t>(plan.start + worker.highest());
  Require(plan.length < 0 || worker.highest() <= plan.length, "a worker stays in its range");
  Require(bytes.size() == std::max(MarkedFile::kSize, worker.highest() > 0 ? end : 0),
          "the file has its size");
  const std::string_view marks = MarkedFile::Marks();
  const std::string_view now(bytes.data(), MarkedFile::kSize);
  const std::size_t behind = std::min(end, MarkedFile::kSize);
  Require(
      now.substr(0, begin) == marks.substr(0, begin) && now.substr(behind) == marks.substr(behind),
      "bytes outside the range are untouched");
  if (worker.highest() > 0) file.Restore(std::min(begin, MarkedFile::kSize));
}

void RunInput(Input input) {
  static MarkedFile file;
  Plan plan = TakePlan(input);
  Reports reports;
  WatchedWorker worker(file);
  WorkerSetup setup;
  setup.index = plan.way == Plan::Way::kProbe ? kProbeIndex : 0;
  setup.task_id = 7;
  setup.observer = &reports;
  setup.progress = &WatchedWorker::Progress;
  setup.progress_context = &worker;
  setup.file_path = file.path();
  worker.Configure(setup);
  worker.SetUrl(L"http://127.0.0.1:80/folder/file.bin");
  plan.net.at_receive = [&worker, &plan] {
    if (plan.stopped) worker.SignalStop();
    if (!plan.cut || !worker.TryCut(*plan.cut)) return;
    Require(worker.received() + worker.range().buffered() <= *plan.cut,
            "a cut leaves what was received");
  };
  Play(std::move(plan.net));
  Run(worker, plan);
  worker.Stop();
  Play({});
  CheckFile(file, worker, plan);
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
