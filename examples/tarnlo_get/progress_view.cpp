#include "examples/tarnlo_get/progress_view.h"

#include <algorithm>
#include <cstdint>

#include "examples/tarnlo_get/figures.h"

namespace host {
namespace {

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

}  // namespace

void ProgressView::Show(const std::deque<Download>& downloads) {
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

void ProgressView::ToTop() {
  if (m_lines == 0) return;
  if (const auto console = m_stream.Console()) {
    const int top = console->dwCursorPosition.Y - static_cast<int>(m_lines);
    m_stream.MoveTo({0, static_cast<SHORT>(std::max(top, 0))});
  } else {
    m_stream.Write(L"\x1b[" + std::to_wstring(m_lines) + L"A");
  }
}

void ProgressView::Line(std::wstring text) {
  std::size_t width = 79;
  if (const auto console = m_stream.Console()) {
    width = static_cast<std::size_t>(std::max(console->srWindow.Right - console->srWindow.Left, 1));
  }
  text.resize(width, L' ');
  m_stream.Write(text + L"\r\n");
}

}  // namespace host
