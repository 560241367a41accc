#include "examples/tarnlo_get/figures.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace host {

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

}  // namespace host
