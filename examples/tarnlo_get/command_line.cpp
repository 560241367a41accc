#include "examples/tarnlo_get/command_line.h"

#include <windows.h>

// After windows.h.
#include <shellapi.h>

#include <cstddef>

namespace host {

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

}  // namespace host
