#include "examples/tarnlo_get/file_name.h"

#include <algorithm>
#include <cstddef>

namespace host {
namespace {

void Replace(std::wstring& text, const std::wstring& from, const std::wstring& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

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

}  // namespace host
