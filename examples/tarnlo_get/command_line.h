// The words of the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

inline constexpr const wchar_t* kUsage =
    L"usage: tarnlo_get [--dir DIR] [--md5 LIST] [--version V] URL...\n"
    L"  --dir DIR    the folder to save in, made when missing; default: the current one\n"
    L"  --md5 LIST   MD5 values in hex, separated by commas; each file must have one of them\n"
    L"  --version V  major.minor.build that a file already there must reach to be kept\n"
    L"Ctrl+C pauses; the same command goes on from there.\n"
    L"Exit codes: 0 all completed, 1 one failed, 2 bad arguments, 130 interrupted.\n";

struct Arguments {
  std::wstring folder = L".";
  std::wstring md5;
  std::wstring version;
  std::vector<std::wstring> urls;
};

// The program's name comes first.
std::vector<std::wstring> CommandLine();
// Nothing when they are not as the usage has them.
std::optional<Arguments> ParseArguments(const std::vector<std::wstring>& words);

}  // namespace host
