// From the connection into the file: the body of one answer.
#include <algorithm>
#include <memory>

#include "support/os/buffer.h"
#include "support/os/clock.h"
#include "support/report_store.h"
#include "support/simple_log.h"
#include "support/text.h"
#include "transfer/download_base.h"

namespace Tarnlo {
namespace {

constexpr char kMethod[] = "CDownloadBase RecvDataAndSaveToFile";
constexpr std::int32_t kCollectionBytes = 409600;
constexpr std::int32_t kFlushBytes = 368640;  // leaves room for one more receive
constexpr std::int32_t kReceiveBytes = 20480;
constexpr std::uint32_t kGatherMs = 1;  // how long a drained connection is left to gather bytes
static_assert(kFlushBytes + kReceiveBytes <= kCollectionBytes);

// Finds a connection that has all but dried up.
class RateWatch {
 public:
  void Add(std::int64_t count) { m_bytes += count; }
  // True when an interval is over that brought too little. Begins the next one when one is over.
  bool IsTooSlow() {
    const std::int64_t now = os::UnixSeconds();
    const std::int64_t elapsed = now - m_start;
    if (elapsed < kSeconds) return false;
    const std::int64_t rate = m_bytes / elapsed;
    m_start = now;
    m_bytes = 0;
    return rate < kLeastRate;
  }

 private:
  static constexpr std::int64_t kSeconds = 16;
  static constexpr std::int64_t kLeastRate = 1024;  // bytes per second
  std::int64_t m_start = os::UnixSeconds();
  std::int64_t m_bytes = 0;
};

// However the loop is left: what was collected and not written does not count, and nothing beyond
// what was written is claimed.
class LoopEnd {
 public:
  explicit LoopEnd(RangeState& range) : m_range(range) {}
  LoopEnd(const LoopEnd&) = delete;
  LoopEnd& operator=(const LoopEnd&) = delete;
  ~LoopEnd() {
    m_range.SetBuffered(0);
    m_range.Unclaim(m_range.received());
  }

 private:
  RangeState& m_range;
};

}  // namespace

bool CDownloadBase::RecvDataAndSaveToFile(CCustomizeSocket& socket, const char* leading,
                                          int count) {
  LogInfo("%s 1: %ld", kMethod, Low32(m_range.received()));
  const LoopEnd loop_end(m_range);
  if (!WriteLeadingBytes(leading, count)) {
    LogWarn("%s 2", kMethod);
    return false;
  }
  const std::unique_ptr<char[]> collected = os::AllocateBuffer(kCollectionBytes);
  if (collected == nullptr) {
    LogWarn("%s 3", kMethod);
    return false;
  }
  CReportStore::Shared().IncrementCounter(socket.GetIp());
  LogInfo("%s: %s", kMethod, WideToNarrow(socket.GetIp()).c_str());
  const bool written = ReceiveBody(socket, collected.get());
  ReleaseConnection();

  const std::int64_t received = m_range.received();
  const std::int64_t length = m_range.length();
  const bool complete = written && (length == kOpenEnd ? received > 0 : received >= length);
  LogInfo("%s 7", kMethod);
  return complete;
}

bool CDownloadBase::WriteLeadingBytes(const char* leading, int count) {
  if (leading == nullptr || count < 1) return true;
  const std::int64_t room = m_range.Claim(m_range.received(), count);
  return WriteToFile(leading, static_cast<std::int32_t>(room)) >= 0;
}

// False when the file refused bytes.
bool CDownloadBase::ReceiveBody(CCustomizeSocket& socket, char* collected) {
  RateWatch rate;
  std::int32_t buffered = 0;
  std::int64_t written = m_range.received();
  bool drained = false;
  bool ending = false;
  while (!ending) {
    std::int32_t count = 0;
    const auto room = static_cast<std::int32_t>(m_range.Claim(written + buffered, kReceiveBytes));
    // After a receive that filled its buffer more is waiting, and a wait would only cost time.
    if (room == 0 || m_hStopEvent.IsSet() || (drained && m_hStopEvent.Wait(kGatherMs))) {
      LogWarn("%s 4", kMethod);
      ending = true;
    } else {
      count = socket.Receive(collected + buffered, room);
      drained = count < room;
      if (count < 1) {
        LogWarn("%s 5", kMethod);
        ending = true;
      }
    }
    buffered += std::max(count, 0);
    m_range.SetBuffered(buffered);
    if (ending || buffered >= kFlushBytes) {
      written = WriteToFile(collected, buffered);
      if (written < 0) return false;
      buffered = 0;
    }
    if (IsNotifying()) {
      SendEvent(m_setup.observer, m_setup.index, m_setup.task_id, kEventBufferedBytes, buffered);
    }
    if (ending) break;
    rate.Add(count);
    if (rate.IsTooSlow()) {
      LogWarn("%s network err 6 !", kMethod);
      socket.Close();
      break;
    }
  }
  return true;
}

}  // namespace Tarnlo
