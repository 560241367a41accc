// Downloads files from the command line through tarnlo.dll: an example of a host.
//
// The library tells everything on its own threads; here the callbacks only note it down, and the
// main thread looks at the notes, shows the progress on stderr and prints the results on stdout.
// MB are millions of bytes.
#include <windows.h>

// After windows.h.
#include <shellapi.h>
#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "api/tarnlo.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kAllCompleted = 0;
constexpr int kOneFailed = 1;
constexpr int kBadArguments = 2;
constexpr int kInterrupted = 130;
constexpr const wchar_t* kUsage =
    L"usage: tarnlo_get [--dir DIR] [--md5 LIST] [--version V] URL...\n"
    L"  --dir DIR    the folder to save in, made when missing; default: the current one\n"
    L"  --md5 LIST   MD5 values in hex, separated by commas; each file must have one of them\n"
    L"  --version V  major.minor.build that a file already there must reach to be kept\n"
    L"Ctrl+C pauses; the same command goes on from there.\n"
    L"Exit codes: 0 all completed, 1 one failed, 2 bad arguments, 130 interrupted.\n";

// ---- What the callbacks have told ----

struct Sample {
  Clock::time_point time;
  std::int64_t downloaded = 0;
};

struct Download {
  std::wstring url;
  std::wstring name;
  Clock::time_point created;
  std::optional<Sample> first;  // progress
  std::optional<Sample> last;
  std::int64_t total = 0;
  std::int32_t speed = 0;
  std::optional<Clock::time_point> ended;
  std::int32_t result = Tarnlo::kResultSuccess;  // of one that has ended; -1: was not started
};

// Shared between the callbacks, Ctrl+C and the main thread.
std::mutex g_mutex;
std::condition_variable g_changed;
std::deque<Download> g_downloads;  // task ids are positions, from 1
bool g_interrupted = false;

template <typename Change>
void Note(std::int32_t id, Change change) {
  const std::lock_guard lock(g_mutex);
  change(g_downloads[static_cast<std::size_t>(id) - 1]);
  g_changed.notify_one();
}

void OnProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total, std::int32_t speed) {
  const Sample sample{Clock::now(), downloaded};
  Note(id, [&](Download& download) {
    if (!download.first) download.first = sample;
    download.last = sample;
    download.total = total;
    download.speed = speed;
  });
}

void OnEnd(std::int32_t id, std::int32_t result) {
  const Clock::time_point now = Clock::now();
  Note(id, [&](Download& download) {
    download.ended = now;
    download.result = result;
  });
}
void OnComplete(std::int32_t id) {
  OnEnd(id, Tarnlo::kResultSuccess);
}
void OnFail(std::int32_t id, Tarnlo::NsResultEnum result) {
  OnEnd(id, result);
}

// On a thread of the system's. A second Ctrl+C ends the program on the spot.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  const std::lock_guard lock(g_mutex);
  if (std::exchange(g_interrupted, true)) return FALSE;
  g_changed.notify_one();
  return TRUE;
}

// ---- Words ----

const wchar_t* Meaning(std::int32_t result) {
  switch (result) {
    case Tarnlo::kResultTooFewBytes:
      return L"the connections ended before the whole file had arrived, or its length is unknown";
    case Tarnlo::kResultNoRemoteInfo:
      return L"the server could not be reached or did not say what it has";
    case Tarnlo::kResultAssignmentFailed:
      return L"the connections could not be set to work";
    case Tarnlo::kResultFileFailed:
      return L"the file could not be created or finished";
    case Tarnlo::kResultNoSpace:
      return L"there is no room for the file";
    case Tarnlo::kResultMd5Mismatch:
      return L"the file has none of the expected MD5 values and was deleted";
    case Tarnlo::kResultTooManyBytes:
      return L"more bytes arrived than the file has";
    case Tarnlo::kResultStopped:
      return L"it was stopped";
    case Tarnlo::kResultRangesIncomplete:
      return L"a part of the file is incomplete";
    case Tarnlo::kResultWaitFailed:
      return L"waiting for the connections failed";
    case -1:
      return L"the library refused to start it: look at the URL and the folder";
    default:
      return L"unknown result";
  }
}

std::wstring Fixed(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  const std::string narrow = text;
  return {narrow.begin(), narrow.end()};
}

std::wstring PadLeft(const std::wstring& text, std::size_t width) {
  return std::wstring(width - std::min(width, text.size()), L' ') + text;
}

std::wstring Megabytes(std::int64_t bytes) {
  return Fixed(static_cast<double>(bytes) / 1e6, 1);
}

std::wstring ShortTime(std::int64_t seconds) {
  const auto two_digits = [](std::int64_t number) {
    return (number < 10 ? L"0" : L"") + std::to_wstring(number);
  };
  const std::wstring minutes_and_seconds =
      two_digits(seconds / 60 % 60) + L":" + two_digits(seconds % 60);
  return seconds < 3600 ? minutes_and_seconds
                        : std::to_wstring(seconds / 3600) + L":" + minutes_and_seconds;
}

std::wstring ProgressLine(const Download& download) {
  if (download.ended) {
    return download.name + (download.result == 0 ? L": complete" : L": failed");
  }
  if (!download.last || download.total <= 0) return download.name + L": starting";
  constexpr std::int64_t kBarWidth = 16;
  const std::int64_t done = std::clamp<std::int64_t>(download.last->downloaded, 0, download.total);
  const double part = static_cast<double>(done) / static_cast<double>(download.total);
  const auto filled = static_cast<std::size_t>(part * kBarWidth);
  std::wstring line = L"[" + std::wstring(filled, L'#') +
                      std::wstring(static_cast<std::size_t>(kBarWidth) - filled, L'-') + L"] ";
  line += PadLeft(std::to_wstring(static_cast<int>(part * 100)), 3) + L" %  ";
  line += PadLeft(Megabytes(done), 6) + L" of " + Megabytes(download.total) + L" MB  ";
  line += PadLeft(Megabytes(download.speed), 5) + L" MB/s  ";
  if (download.speed > 0) line += ShortTime((download.total - done) / download.speed) + L" left  ";
  return line + download.name;
}

// ---- Output ----

// A standard stream: a console gets wide text, everything else UTF-8.
class Stream {
 public:
  explicit Stream(DWORD which) : m_handle(GetStdHandle(which)) {
    DWORD mode = 0;
    m_console = GetConsoleMode(m_handle, &mode) != 0;
  }
  void Write(const std::wstring& text) {
    DWORD written = 0;
    if (m_console) {
      WriteConsoleW(m_handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
      return;
    }
    const int wide = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), wide, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), wide, bytes.data(), size, nullptr, nullptr);
    WriteFile(m_handle, bytes.data(), static_cast<DWORD>(size), &written, nullptr);
  }
  // Where a console's cursor is and how wide its window.
  [[nodiscard]] std::optional<CONSOLE_SCREEN_BUFFER_INFO> Console() const {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!m_console || GetConsoleScreenBufferInfo(m_handle, &info) == 0) return std::nullopt;
    return info;
  }
  void MoveTo(COORD position) { SetConsoleCursorPosition(m_handle, position); }
  [[nodiscard]] bool IsTerminal() const {
    return m_console || GetFileType(m_handle) == FILE_TYPE_CHAR;
  }

 private:
  HANDLE m_handle;
  bool m_console = false;
};

// The progress of all downloads: a block of lines that is drawn over itself on a terminal, a line
// for each that runs, once a second, elsewhere.
class ProgressView {
 public:
  explicit ProgressView(Stream& stream) : m_stream(stream) {}

  [[nodiscard]] std::chrono::milliseconds interval() const {
    return std::chrono::milliseconds(m_stream.IsTerminal() ? 200 : 1000);
  }
  void Show(const std::deque<Download>& downloads) {
    if (m_stream.IsTerminal()) {
      ToTop();
      for (const Download& download : downloads) Line(ProgressLine(download));
      m_lines = downloads.size();
    } else {
      for (const Download& download : downloads) {
        if (!download.ended) m_stream.Write(ProgressLine(download) + L"\n");
      }
    }
  }

 private:
  void ToTop() {
    if (m_lines == 0) return;
    if (const auto console = m_stream.Console()) {
      const int top = console->dwCursorPosition.Y - static_cast<int>(m_lines);
      m_stream.MoveTo({0, static_cast<SHORT>(std::max(top, 0))});
    } else {
      m_stream.Write(L"\x1b[" + std::to_wstring(m_lines) + L"A");
    }
  }
  void Line(std::wstring text) {
    std::size_t width = 79;
    if (const auto console = m_stream.Console()) {
      width =
          static_cast<std::size_t>(std::max(console->srWindow.Right - console->srWindow.Left, 1));
    }
    text.resize(width, L' ');
    m_stream.Write(text + L"\r\n");
  }

  Stream& m_stream;
  std::size_t m_lines = 0;  // that the block has on the terminal
};

// ---- MD5 ----

// The system's.
class Md5 {
 public:
  Md5() {
    CryptAcquireContextW(&m_provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT);
    CryptCreateHash(m_provider, CALG_MD5, 0, 0, &m_hash);
  }
  Md5(const Md5&) = delete;
  Md5& operator=(const Md5&) = delete;
  ~Md5() {
    CryptDestroyHash(m_hash);
    CryptReleaseContext(m_provider, 0);
  }
  // Empty when the file cannot be read. Once.
  std::wstring HexDigestOf(const std::filesystem::path& path) const {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())), file.gcount() > 0) {
      const auto* bytes = reinterpret_cast<const BYTE*>(block.data());
      if (CryptHashData(m_hash, bytes, static_cast<DWORD>(file.gcount()), 0) == 0) return {};
    }
    if (!file.eof()) return {};
    std::array<BYTE, 16> digest{};
    auto size = static_cast<DWORD>(digest.size());
    if (CryptGetHashParam(m_hash, HP_HASHVAL, digest.data(), &size, 0) == 0) return {};
    std::wstring text;
    for (const BYTE byte : digest) {
      for (const int digit : {byte >> 4, byte & 15}) text += L"0123456789ABCDEF"[digit];
    }
    return text;
  }

 private:
  HCRYPTPROV m_provider = 0;
  HCRYPTHASH m_hash = 0;
};

// ---- Arguments ----

struct Arguments {
  std::wstring folder = L".";
  std::wstring md5;
  std::wstring version;
  std::vector<std::wstring> urls;
};

std::vector<std::wstring> CommandLine() {
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return {};
  std::vector<std::wstring> result(words, words + count);
  LocalFree(static_cast<void*>(words));
  return result;
}

std::optional<Arguments> ParseArguments(const std::vector<std::wstring>& words) {
  Arguments arguments;
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::wstring& word = words[i];
    std::wstring* value = word == L"--dir"       ? &arguments.folder
                          : word == L"--md5"     ? &arguments.md5
                          : word == L"--version" ? &arguments.version
                                                 : nullptr;
    if (value != nullptr) {
      if (++i == words.size()) return std::nullopt;
      *value = words[i];
    } else if (word.starts_with(L"-") || word.empty()) {
      return std::nullopt;
    } else {
      arguments.urls.push_back(word);
    }
  }
  if (arguments.urls.empty() || arguments.folder.empty()) return std::nullopt;
  return arguments;
}

std::string ToNarrow(const std::wstring& text) {
  const int wide = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), wide, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), wide, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

void Replace(std::wstring& text, const std::wstring& from, const std::wstring& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// The name that the library gives the file: what follows the last slash of the URL, its extension
// up to the first character that is no letter or digit.
std::wstring NameOf(std::wstring url) {
  std::replace(url.begin(), url.end(), L'\\', L'/');
  std::wstring name = url.substr(url.rfind(L'/') + 1);
  const std::size_t point = name.rfind(L'.');
  if (point != std::wstring::npos) {
    const auto is_plain = [](wchar_t c) {
      return (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
    };
    const auto end = std::find_if_not(name.begin() + static_cast<std::ptrdiff_t>(point) + 1,
                                      name.end(), is_plain);
    name.erase(end, name.end());
  }
  Replace(name, L"%20", L" ");
  Replace(name, L"%2B", L"+");
  for (wchar_t& c : name) {
    if (std::wstring(L":*?\"<>|").find(c) != std::wstring::npos) c = L'_';
  }
  return name;
}

// ---- The work ----

void CreateTasks(const Arguments& arguments, const std::filesystem::path& folder) {
  for (const std::wstring& url : arguments.urls) {
    Tarnlo::Task task;
    task.save_dir = folder.wstring();
    task.url = ToNarrow(url);
    task.md5 = ToNarrow(arguments.md5);
    task.version = ToNarrow(arguments.version);
    {
      const std::lock_guard lock(g_mutex);
      Download& download = g_downloads.emplace_back();
      download.url = url;
      download.name = NameOf(url);
      download.created = Clock::now();
      task.id = static_cast<std::int32_t>(g_downloads.size());
    }
    if (Tarnlo::create_task(&task) != task.id) OnEnd(task.id, -1);
  }
}

// Which of the expected values it was: the library says only that it was one of them. Nothing for a
// file that was there already and was not checked.
std::wstring Verified(const std::filesystem::path& path, const std::wstring& list) {
  const std::wstring digest = Md5().HexDigestOf(path);
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(L',', begin), list.size());
    const std::wstring entry = list.substr(begin, end - begin);
    if (!digest.empty() && _wcsicmp(entry.c_str(), digest.c_str()) == 0) {
      return L"verified MD5 " + digest + L"\n";
    }
    begin = end + 1;
  }
  return {};
}

std::wstring Success(const Download& download, const std::filesystem::path& folder,
                     const std::wstring& md5) {
  const std::filesystem::path path = folder / download.name;
  std::error_code error;
  const bool there = std::filesystem::is_regular_file(path, error);
  // A server that redirects may have given it another name.
  std::wstring text = L"saved " + (there ? path : folder).wstring() + L"\n";
  if (there && md5.size() > 3) text += Verified(path, md5);
  if (!download.first) return text + L"nothing to fetch: it was there\n";
  const double moving = Seconds(download.last->time - download.first->time).count();
  const auto bytes = static_cast<double>(download.last->downloaded - download.first->downloaded);
  if (moving > 0) {
    text +=
        L"average " + Fixed(bytes / 1e6 / moving, 2) + L" MB/s from first to last progress call\n";
  }
  text += L"start " + Fixed(Seconds(download.first->time - download.created).count(), 2);
  text += L" s, verification " + Fixed(Seconds(*download.ended - download.last->time).count(), 2);
  return text + L" s\n";
}

std::wstring Failure(const Download& download) {
  return L"failed " + download.url + L": " + std::to_wstring(download.result) + L", " +
         Meaning(download.result) + L"\n";
}

bool AllEnded(const std::deque<Download>& downloads) {
  return std::all_of(downloads.begin(), downloads.end(),
                     [](const Download& download) { return download.ended.has_value(); });
}

// Looks at the downloads until all have ended; false when Ctrl+C came first.
bool Watch(ProgressView& view) {
  while (true) {
    std::deque<Download> downloads;
    {
      std::unique_lock lock(g_mutex);
      g_changed.wait_for(lock, view.interval(),
                         [] { return g_interrupted || AllEnded(g_downloads); });
      if (g_interrupted) return false;
      downloads = g_downloads;
    }
    view.Show(downloads);
    if (AllEnded(downloads)) return true;
  }
}

int Report(Stream& out, const std::filesystem::path& folder, const std::wstring& md5) {
  int exit_code = kAllCompleted;
  const std::lock_guard lock(g_mutex);
  for (const Download& download : g_downloads) {
    const bool complete = download.result == Tarnlo::kResultSuccess;
    out.Write(complete ? Success(download, folder, md5) : Failure(download));
    if (!complete) exit_code = kOneFailed;
  }
  return exit_code;
}

int PauseAll(Stream& messages) {
  std::int32_t count = 0;
  {
    const std::lock_guard lock(g_mutex);
    count = static_cast<std::int32_t>(g_downloads.size());
  }
  // Without our lock: the callbacks that a pause waits for take it.
  for (std::int32_t id = 1; id <= count; ++id) Tarnlo::pause_task(id);
  messages.Write(L"paused: run the same command again to go on from here\n");
  return kInterrupted;
}

}  // namespace

int main() {
  Stream out(STD_OUTPUT_HANDLE);
  Stream messages(STD_ERROR_HANDLE);
  const std::optional<Arguments> arguments = ParseArguments(CommandLine());
  if (!arguments) {
    messages.Write(kUsage);
    return kBadArguments;
  }
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::absolute(arguments->folder, error);
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder, error)) {
    messages.Write(L"no such folder: " + folder.wstring() + L"\n" + kUsage);
    return kBadArguments;
  }
  SetConsoleCtrlHandler(&OnConsoleEvent, TRUE);
  Tarnlo::set_callback_process(&OnProgress);
  Tarnlo::set_callback_complete(&OnComplete);
  Tarnlo::set_callback_fail(&OnFail);
  CreateTasks(*arguments, folder);
  ProgressView view(messages);
  return Watch(view) ? Report(out, folder, arguments->md5) : PauseAll(messages);
}
