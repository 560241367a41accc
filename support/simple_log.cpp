#include "support/simple_log.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <string_view>
#include <utility>

#include "support/os/code_page.h"
#include "support/os/file.h"
#include "support/os/lock.h"
#include "support/os/path_form.h"
#include "support/os/system_folders.h"
#include "support/process_object.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kTempFolderCapacity = 259;
constexpr std::size_t kMaxLine = 4096;        // bytes, the line end included
constexpr std::size_t kMaxBackupSuffix = 32;  // ".2024-05-31.2147483647", and to spare
constexpr int kMaxBackupCounter = 2147483647;
constexpr int kBackupHour = 23;
constexpr std::uint32_t kLookMs = 300'000;
constexpr std::uint32_t kAfterBackupMs = 7'200'000;
constexpr std::uint32_t kExitWaitMs = 5'000;
constexpr std::size_t kBackupStackBytes = std::size_t{256} * 1024;

ProcessObject<os::KernelMutex> g_log_mutex;
std::atomic<simpleLog*> g_logger{nullptr};

// One line, put together where nothing is allocated; what does not fit is cut.
class Line {
 public:
  void Append(std::string_view text) {
    for (const char c : text) {
      if (c == '\n') AppendByte('\r');  // as in every text file of the system
      AppendByte(c);
    }
  }
  std::string_view Finish() {
    m_bytes[m_size++] = '\r';
    m_bytes[m_size++] = '\n';
    return {m_bytes.data(), m_size};
  }

 private:
  void AppendByte(char c) {
    if (m_size < kMaxLine - 2) m_bytes[m_size++] = c;
  }

  std::array<char, kMaxLine> m_bytes{};
  std::size_t m_size = 0;
};

// Text made by printf, cut at the size of a line; false when it cannot be made.
class Formatted {
 public:
  bool Make(const char* format, va_list arguments) {
    const int length = std::vsnprintf(m_bytes.data(), m_bytes.size(), format, arguments);
    if (length < 0) return false;
    m_size = std::min(static_cast<std::size_t>(length), m_bytes.size() - 1);
    return true;
  }
  bool Make(const char* format, ...) TARNLO_PRINTF(2, 3) {
    va_list arguments;
    va_start(arguments, format);
    const bool made = Make(format, arguments);
    va_end(arguments);
    return made;
  }
  [[nodiscard]] std::string_view text() const { return {m_bytes.data(), m_size}; }

 private:
  std::array<char, kMaxLine> m_bytes{};
  std::size_t m_size = 0;
};

void AppendNumber(std::wstring& text, int number, std::size_t digits) {
  std::array<wchar_t, 10> reversed{};
  std::size_t count = 0;
  for (; number > 0; number /= 10) reversed[count++] = static_cast<wchar_t>(L'0' + number % 10);
  while (count < digits) reversed[count++] = L'0';
  while (count > 0) text += reversed[--count];
}

// Tested by opening it, so that a name that nobody may read counts as free.
bool IsThere(const std::wstring& path) {
  return os::File::Open(path, os::FileAccess::kRead, os::FileShare::kReadWriteDelete,
                        os::FileCreation::kOpenExisting)
      .valid();
}

// Gives the file the first free backup name of that date: ".2024-05-31", ".2024-05-31.1" and so on.
// `name` has room for the longest, so that nothing is allocated.
void RenameToBackup(const std::wstring& file, std::wstring& name, const os::LocalTime& now) {
  name = file;
  name += L'.';
  AppendNumber(name, now.year, 4);
  name += L'-';
  AppendNumber(name, now.month, 2);
  name += L'-';
  AppendNumber(name, now.day, 2);
  const std::size_t dated = name.size();
  for (int counter = 0;;) {
    if (!IsThere(name) && os::RenameNew(file, name) != os::RenameNewResult::kTaken) return;
    if (counter == kMaxBackupCounter) return;
    name.resize(dated);
    name += L'.';
    AppendNumber(name, ++counter, 1);
  }
}

// The logger of the process and its end.
struct ProcessLogger {
  ProcessLogger()
      : log(WideToNarrow(
            simpleLog::PathIn(os::TempFolder(kTempFolderCapacity).value_or(std::wstring())))) {}
  simpleLog log;
};

struct ShutDownAtExit {
  ProcessObject<ProcessLogger> logger;
  ShutDownAtExit() {
    g_logger.store(&logger->log, std::memory_order_release);
    logger->log.StartBackups();
  }
  ~ShutDownAtExit() { logger->log.ShutDown(); }
  ShutDownAtExit(const ShutDownAtExit&) = delete;
  ShutDownAtExit& operator=(const ShutDownAtExit&) = delete;
};

}  // namespace

simpleLog::simpleLog(std::string path)
    : m_path(std::move(path)),
      m_file(os::CallForm(os::CodePageToWide(m_path, os::kAnsi), kMaxBackupSuffix)) {
  m_backup.reserve(m_file.size() + kMaxBackupSuffix);
  if (m_path.empty()) std::printf("[simpleLog::Log] log filename is empty\n");
}

simpleLog::~simpleLog() {
  ShutDown();
  m_backup_thread.WaitForEnd(os::kForever);
}

os::KernelMutex& simpleLog::Mutex() {
  return *g_log_mutex;
}

std::wstring simpleLog::PathIn(std::wstring folder) {
  if (folder.empty()) return folder;
  if (folder.back() != L'\\') folder += L'\\';
  return folder + L"tarnlo.log";
}

void simpleLog::Start() {
  static const ShutDownAtExit logger;
}

simpleLog* simpleLog::Global() {
  return g_logger.load(std::memory_order_acquire);
}

void simpleLog::Log(simpleLog* logger, int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogArguments(logger, level, format, arguments);
  va_end(arguments);
}

void simpleLog::LogArguments(simpleLog* logger, int /*level*/, const char* format,
                             va_list arguments) {
  if (logger != nullptr) logger->AppendLine("", format, arguments);
}

void simpleLog::AppendLine(const char* prefix, const char* format, va_list arguments) {
  Formatted message;
  if (!message.Make(format, arguments)) return;
  if (!Mutex().Acquire(os::kForever)) return;
  const os::AdoptMutexGuard guard(Mutex());
  const os::LocalTime now = os::LocalTimeNow();
  Formatted time;
  if (!time.Make("[%4d-%02d-%02d %d:%02d:%02d] ", now.year, now.month, now.day, now.hour,
                 now.minute, now.second)) {
    return;
  }
  Line line;
  line.Append(time.text());
  line.Append(prefix);
  line.Append(message.text());
  os::AppendToFile(m_file, line.Finish());
}

void simpleLog::StartBackups() {
  const os::LockGuard guard(m_start_lock);
  if (m_running_backups.load() != nullptr) return;
  // The thread's first look counts, and a shutdown from here on moves the file.
  m_initialised.store(true);
  m_backup_thread = os::Thread::Start(kBackupStackBytes, RunBackups, this);
  if (m_backup_thread.valid()) m_running_backups.store(&m_backup_thread);
}

std::uint32_t simpleLog::RunBackups(void* logger) {
  auto& self = *static_cast<simpleLog*>(logger);
  for (std::uint32_t rest = 0; !self.m_stop.Wait(rest);) {
    rest =
        RestAfter([&self] { return self.m_initialised && self.BackUpWhenDue(os::LocalTimeNow()); });
  }
  return 0;
}

std::uint32_t simpleLog::RestAfter(const std::function<bool()>& look) {
  try {
    if (look()) return kAfterBackupMs + kLookMs;
  } catch (const std::exception& error) {
    std::printf("[simpleLog::Log] [dobackup] %s\n", error.what());
  }
  return kLookMs;
}

bool simpleLog::BackUpWhenDue(const os::LocalTime& now) {
  if (now.hour != kBackupHour) return false;
  {
    const os::File file =
        os::File::Open(m_file, os::FileAccess::kRead, os::FileShare::kReadWriteDelete,
                       os::FileCreation::kOpenExisting);
    if (!file.valid() || file.Size().value_or(0) == 0) return true;
  }
  if (!Mutex().Acquire(os::kForever)) return true;
  const os::AdoptMutexGuard guard(Mutex());
  if (!MoveAside(now)) {
    std::printf("[simpleLog::Log] Cannot open the output file: %s", m_path.c_str());
  }
  return true;
}

bool simpleLog::MoveAside(const os::LocalTime& now) {
  RenameToBackup(m_file, m_backup, now);
  // A file that could not be moved keeps its lines.
  return os::AppendToFile(m_file, "");
}

void simpleLog::ShutDown() {
  if (!m_initialised.exchange(false)) return;
  m_stop.Set();
  if (const auto* const backups = m_running_backups.load()) backups->WaitForEnd(kExitWaitMs);
  if (!Mutex().Acquire(kExitWaitMs)) return;
  const os::AdoptMutexGuard guard(Mutex());
  MoveAside(os::LocalTimeNow());
}

void LogPrefixed(const char* prefix, const char* format, va_list arguments) {
  simpleLog* const logger = simpleLog::Global();
  if (logger == nullptr) return;
  Formatted start;
  if (!start.Make("%s%d - ", prefix, static_cast<int>(os::CurrentThreadId()))) return;
  logger->AppendLine(start.text().data(), format, arguments);
}

void LogInfo(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogPrefixed("[INFO] ", format, arguments);
  va_end(arguments);
}

void LogWarn(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogPrefixed("[WARN] ", format, arguments);
  va_end(arguments);
}

void LogError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogPrefixed("[ERROR] ", format, arguments);
  va_end(arguments);
}

}  // namespace Tarnlo
