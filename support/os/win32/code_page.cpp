#include "support/os/code_page.h"

#include <limits>

#include "support/os/win32/windows_api.h"

namespace Tarnlo::os {
namespace {

constexpr std::size_t kMaxCount = std::numeric_limits<int>::max();

static_assert(kAnsi == CP_ACP && kThreadAnsi == CP_THREAD_ACP && kUtf8 == CP_UTF8);

}  // namespace

std::optional<std::string> WideToCodePage(std::wstring_view text, unsigned code_page,
                                          std::size_t max_bytes) {
  if (text.empty() || text.size() > kMaxCount) return std::nullopt;
  const int count = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(code_page, 0, text.data(), count, nullptr, 0, nullptr, nullptr);
  if (needed <= 0 || static_cast<std::size_t>(needed) > max_bytes) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(needed), '\0');
  const int converted =
      WideCharToMultiByte(code_page, 0, text.data(), count, bytes.data(), needed, nullptr, nullptr);
  if (converted != needed) return std::nullopt;
  return bytes;
}

std::wstring CodePageToWide(std::string_view bytes, unsigned code_page) {
  if (bytes.empty() || bytes.size() > kMaxCount) return {};
  const int count = static_cast<int>(bytes.size());
  const int needed = MultiByteToWideChar(code_page, 0, bytes.data(), count, nullptr, 0);
  if (needed <= 0) return {};
  std::wstring text(static_cast<std::size_t>(needed), L'\0');
  if (MultiByteToWideChar(code_page, 0, bytes.data(), count, text.data(), needed) != needed) {
    return {};
  }
  return text;
}

}  // namespace Tarnlo::os
