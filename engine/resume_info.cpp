// The trailer behind the file's bytes: read before a run, written after one that did not succeed.
#include <array>
#include <exception>
#include <span>
#include <utility>

#include "engine/download_manager.h"
#include "engine/patient_file.h"
#include "engine/resume_trailer.h"
#include "support/os/clock.h"
#include "support/os/file.h"
#include "support/run_aside.h"
#include "support/simple_log.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("CDownloadManager ReadDownloadInfo");
constexpr wchar_t kTemporarySuffix[] = L".~P2S";

constexpr std::uint32_t kSaveIntervalMs = 5000;  // what a process that dies loses, about
constexpr std::uint32_t kFlushAtEndMs = 1000;

bool ReadExactly(os::File& file, std::span<std::uint8_t> bytes) {
  const auto wanted = static_cast<std::uint32_t>(bytes.size());
  return file.Read(bytes.data(), wanted) == wanted;
}

}  // namespace

std::wstring CDownloadManager::GetTempFilePath() const {
  return m_target_path.empty() ? std::wstring() : m_target_path + kTemporarySuffix;
}

// What the file says is believed only when it can be true of this file; a refused trailer leaves
// the connection count as it was.
bool CDownloadManager::ReadDownloadInfo() {
  os::File file = OpenPatiently(GetTempFilePath(), os::FileAccess::kRead, m_run_stop.get());
  if (!file.valid()) return false;
  kLog(1);
  const std::optional<std::int64_t> size = file.Size();
  constexpr std::int64_t kFromEnd = kCountBytes;
  if (!size || *size < kFromEnd) return false;
  kLog(2);
  if (!file.Seek(*size - kFromEnd)) return false;
  kLog(3);
  std::array<std::uint8_t, kCountBytes> count_bytes{};
  if (!ReadExactly(file, count_bytes)) return false;
  const std::uint32_t count = DecodeCount(count_bytes);
  kLog(4);
  if (!ValidRangeCount(count)) return false;
  const std::int32_t earlier_count = m_connection_count;
  m_active_ranges = count;
  m_connection_count = static_cast<std::int32_t>(count);
  kLog(5);
  if (CreateWorkers() && ReadRecords(file, *size, count)) return true;
  FreeWorkers();
  m_connection_count = earlier_count;
  return false;
}

bool CDownloadManager::ReadRecords(os::File& file, std::int64_t size, std::uint32_t count) {
  const std::int64_t trailer = TrailerBytes(count);
  if (size < trailer || !file.Seek(size - trailer)) return false;
  kLog(6);
  std::vector<std::uint8_t> bytes(count * kRecordBytes);
  const bool read = ReadExactly(file, bytes);
  kLog(7);
  const std::vector<RangeRecord> records = DecodeRecords(bytes);
  const bool at_their_place = size == TemporaryFileSize(content_length(), count);
  if (!read || !at_their_place || !ValidRecords(records, content_length())) {
    kLog(9);
    return false;
  }
  m_table.SetRecords(records);
  kLog(8);
  return true;
}

// A flush, which an earlier attempt, run or job may have left behind, still has the file open: what
// is begun meanwhile would fail. However long the disk takes; false when a stop came first.
bool CDownloadManager::AwaitFlush() {
  m_records_to_save.clear();
  if (const std::shared_ptr<PendingFlush> flush = PendingFlush::Of(GetTempFilePath())) {
    WaitUnlessStopped(flush->done(), m_run_stop.get(), os::kForever);
  }
  return !m_run_stop->IsSet();
}

// While workers write. A save that memory does not suffice for is left out.
void CDownloadManager::UpdateDownloadInfo() {
  try {
    SaveStepByStep();
  } catch (const std::exception&) {
    m_records_to_save.clear();
  }
}

// Copies the records, has the data they claim flushed, and writes the trailer when that is done; in
// between the trailer stays as it was.
void CDownloadManager::SaveStepByStep() {
  const bool flushing = m_flush && !m_flush->done().IsSet();
  if (flushing) return;
  if (!m_records_to_save.empty()) {
    if (m_flush->outcome() == PendingFlush::Outcome::kFlushed) {
      SaveTrailer(os::File::Open(GetTempFilePath(), os::FileAccess::kReadWrite,
                                 os::FileShare::kReadWrite, os::FileCreation::kOpenExisting),
                  m_records_to_save);
    }
    m_records_to_save.clear();
  }
  if (!os::HasElapsed(m_save_tick, kSaveIntervalMs) || !HasTrailer()) return;
  m_save_tick = os::TickMs();
  std::vector<RangeRecord> records = m_table.Records();
  m_flush = PendingFlush::Begin(GetTempFilePath());
  m_records_to_save = std::move(records);
}

// What was written is claimed, like that of a file that is complete, whether the disk has taken it
// yet or not: it is in the system's hands, which keep it unless the power fails.
bool CDownloadManager::WriteDownloadInfo() {
  if (!m_probe) return false;
  if (!HasTrailer()) return true;
  m_records_to_save.clear();
  const std::vector<RangeRecord> records = m_table.Records();
  if (m_active_ranges == 0 || records.empty()) return false;
  FlushAtEnd();
  return SaveTrailer(OpenPatiently(GetTempFilePath(), os::FileAccess::kReadWrite, m_run_stop.get()),
                     records);
}

// A slow disk is not waited for for long.
void CDownloadManager::FlushAtEnd() {
  const std::uint32_t begin = os::TickMs();
  const auto left_ms = [begin] {
    const std::uint32_t elapsed = os::TickMs() - begin;
    return elapsed < kFlushAtEndMs ? kFlushAtEndMs - elapsed : 0;
  };
  if (!m_flush || m_flush->done().Wait(left_ms())) {
    m_flush = PendingFlush::Begin(GetTempFilePath());
    m_flush->done().Wait(left_ms());
  }
}

bool CDownloadManager::HasTrailer() const {
  return m_probe && m_probe->IsRangeSupported() && content_length() > 0;
}

// In one piece. A file that was cut to its content alone is extended again; one that is shorter has
// lost bytes and gets no trailer. What a full disk took half of goes: new records beside old ones
// could claim what nobody has fetched.
bool CDownloadManager::SaveTrailer(os::File file, const std::vector<RangeRecord>& records) const {
  if (!file.valid()) return false;
  const std::optional<std::int64_t> size = file.Size();
  if (!size || *size < content_length()) return false;
  std::vector<std::uint8_t> trailer = EncodeRecords(records);
  const auto count = EncodeCount(m_active_ranges);
  trailer.insert(trailer.end(), count.begin(), count.end());
  const auto length = static_cast<std::uint32_t>(trailer.size());
  if (!file.Seek(content_length())) return false;
  const std::uint32_t written = file.Write(trailer.data(), length).value_or(0);
  if (written == length) return file.SetEnd();
  if (written > 0 && file.Seek(content_length())) file.SetEnd();
  return false;
}

}  // namespace Tarnlo
