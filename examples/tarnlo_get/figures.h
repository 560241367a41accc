// Figures as text.
#pragma once

#include <cstdint>
#include <string>

namespace host {

std::wstring Fixed(double value, int digits);
std::wstring PadLeft(const std::wstring& text, std::size_t width);
std::wstring Megabytes(std::int64_t bytes);    // millions of bytes
std::wstring ShortTime(std::int64_t seconds);  // "04:05", "1:04:05"

}  // namespace host
