// The MD5 of a file, computed by the system.
#pragma once

#include <filesystem>
#include <string>

namespace host {

// 32 upper-case digits; empty when the file cannot be read.
std::wstring HexMd5Of(const std::filesystem::path& path);

}  // namespace host
